// Writes the elements of cell, struct, object and text arrays, in columns wherever they are alike.
#pragma once

#include <string_view>

#include "message/sinks.h"
#include "zorvandata/array_impl.h"

namespace foundation::protobuf {

// The elements of an array other than a text one. Only those of a cell may travel as records: the
// names of a struct or an object are its own.
template <class Sink>
void putItems(Sink& sink, const zorvandata::ItemList& items, bool ofCell);

// The elements of a string or enumeration array, or a string.
template <class Sink>
void putTexts(Sink& sink, const zorvandata::ItemList& items);
template <class Sink>
void putString(Sink& sink, const zorvandata::Item& item);

}  // namespace foundation::protobuf
