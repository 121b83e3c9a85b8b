// Reads ZORVAN_Array messages as data arrays, trusting nothing it reads.
#pragma once

#include <memory>
#include <string_view>

#include "message/short_vector.h"
#include "zorvandata/array.h"
#include "zorvandata/item_list.h"

namespace foundation::protobuf {

// Bytes of one array inside a message.
struct ArrayBytes {
  std::string_view bytes;
  bool cut;  // the message ended before the array did
};
using ArrayMessages = ShortVector<ArrayBytes, 8>;

// Every length is held against the bytes left, every count against the dimensions, every index
// against its range; each item uses up at least one byte. A message that is `cut` may break off
// anywhere: what was read before is taken, if it makes sense. Throws an Exception of the
// data-array library.
zorvandata::Array decodeArray(const ArrayBytes& array);

// All of them, in order. While `owner` is held the bytes stay as they are: long columns, and the
// DOUBLE and COMPLEX_DOUBLE properties of value objects, then refer to them, at any address, and
// hold it. Without an owner all that is kept is copied.
zorvandata::ItemList decodeEach(const ArrayMessages& arrays, std::shared_ptr<const void> owner);

}  // namespace foundation::protobuf
