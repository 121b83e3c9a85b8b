// The fields of one ZORVAN_Array message as they were read, before anything is made of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "message/field_reader.h"
#include "zorvandata/item_list.h"

namespace foundation::protobuf {

// The views refer to the bytes that were read.
struct ArrayFields {
  uint64_t type = 0;
  std::optional<uint64_t> itemType;
  Column dims, ints, reals, textLen, textIndex, rows, colStarts, refs;
  std::string_view elements, kinds, text, className;
  std::vector<std::string> names;
  zorvandata::ItemList children;  // by whoever reads nested arrays
};

// Takes over the reader's current field, unless it is a nested array. Fields of unknown numbers or
// of another wire type are skipped. Throws InvalidTextException for a name that is no text.
void readField(const FieldReader& field, ArrayFields& fields);

}  // namespace foundation::protobuf
