// Reads the columns of values of a message as elements of an array.
#pragma once

#include <memory>
#include <string_view>

#include "message/array_fields.h"
#include "zorvandata/buffer.h"
#include "zorvandata/item_list.h"

namespace foundation::protobuf {

// For the arrays of one message, which share their texts' memory. Every function throws an
// Exception of the data-array library where the columns make no sense.
class ItemDecoder {
 public:
  // The owner keeps the bytes of the message, so many, as they are; or it is NULL.
  ItemDecoder(std::shared_ptr<const void> owner, size_t messageSize)
      : owner_(std::move(owner)), messageSize_(messageSize) {}

  // Texts: char rows, strings or the names of enumeration members.
  zorvandata::ItemList texts(const ItemFields& fields, size_t count, zorvandata::ArrayType type);
  zorvandata::ItemList integers(zorvandata::ArrayType type, const ItemFields& fields, size_t count);
  zorvandata::ItemList scalars(zorvandata::ArrayType type, std::string_view elements);
  zorvandata::ItemList mixed(const ItemFields& fields);
  zorvandata::ItemList references(const ItemFields& fields, size_t count);

  // A char row of UTF-16 units, a scalar of a dense type.
  static void appendRow(zorvandata::ItemList& list, std::string_view elements);
  static void appendScalar(zorvandata::ItemList& list, zorvandata::ArrayType type,
                           const char* value);

  // Bytes of the message for longer: lent if there is an owner and they are no small part of what
  // it keeps, else copied.
  zorvandata::Buffer kept(std::string_view bytes) const;
  const std::shared_ptr<zorvandata::Arena>& arena();

 private:
  // Each element's position among a few short texts.
  zorvandata::ItemList repeatedTexts(const ItemFields& fields, size_t count,
                                     zorvandata::ArrayType type) const;

  std::shared_ptr<const void> owner_;
  size_t messageSize_;
  std::shared_ptr<zorvandata::Arena> arena_;
};

}  // namespace foundation::protobuf
