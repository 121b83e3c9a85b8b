// Writes data arrays as messages, to either of the sinks.
#pragma once

#include "message/sinks.h"
#include "zorvandata/array_impl.h"

namespace foundation::protobuf {

// The fields of one ZORVAN_Array message for an item or an array.
template <class Sink>
void putItem(Sink& sink, const zorvandata::Item& item);
template <class Sink>
void putArray(Sink& sink, const zorvandata::ArrayImpl& array);

}  // namespace foundation::protobuf
