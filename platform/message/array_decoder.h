// Reads one ZORVAN_Array message as a data array, trusting nothing it reads.
#pragma once

#include <string_view>

#include "zorvandata/array.h"

namespace foundation::protobuf {

// Every length is held against the bytes left, every count against the dimensions, every index
// against its range; each item uses up at least one byte. A message that is `cut` may break off
// anywhere: what was read before is taken, if it makes sense. Throws an Exception of the
// data-array library.
zorvandata::Array decodeArray(std::string_view bytes, bool cut);

}  // namespace foundation::protobuf
