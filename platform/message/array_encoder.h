// Writes data arrays as messages, to either of the sinks.
#pragma once

#include "message/sinks.h"
#include "zorvandata/array_impl.h"

namespace foundation::protobuf {

// An item as one ZORVAN_Array message in a field.
template <class Sink>
void putNested(Sink& sink, int field, const zorvandata::Item& item);

// The fields of the ZORVAN_Array message of an array.
template <class Sink>
void putArray(Sink& sink, const zorvandata::ArrayImpl& array);

}  // namespace foundation::protobuf
