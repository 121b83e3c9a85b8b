// The fields of one ZORVAN_Array message as they were read, before anything is made of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "message/field_reader.h"
#include "zorvandata/item_list.h"

namespace foundation::protobuf {

// What arrays have that are not dense. The views refer to the bytes that were read, as those of
// ArrayFields do.
struct ItemFields {
  std::optional<uint64_t> itemType;
  Column ints, reals, textLen, textIndex, rows, colStarts, refs;
  std::string_view kinds, text, className;
  std::vector<std::string> names;
  zorvandata::ItemList children;  // by whoever reads nested arrays
};

// Most messages are small dense arrays, which do without the other fields.
class ArrayFields {
 public:
  uint64_t type = 0;
  Column dims;
  std::string_view elements;

  ArrayFields() {}  // NOLINT(modernize-use-equals-default): leaves the storage as it is
  ~ArrayFields() {
    if (items_) items_->~ItemFields();
  }
  ArrayFields(const ArrayFields&) = delete;
  ArrayFields& operator=(const ArrayFields&) = delete;

  // Made when first asked for, and not a std::optional, which compilers fill with zeros.
  ItemFields& items() {
    if (!items_) items_ = new (storage_) ItemFields;
    return *items_;
  }

 private:
  ItemFields* items_ = nullptr;
  alignas(ItemFields) std::byte storage_[sizeof(ItemFields)];
};

// Takes over the reader's current field, unless it is a nested array. Fields of unknown numbers or
// of another wire type are skipped. Throws InvalidTextException for a name that is no text.
void readField(const FieldReader& field, ArrayFields& fields);

}  // namespace foundation::protobuf
