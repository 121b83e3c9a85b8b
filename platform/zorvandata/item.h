// One element of a list, without a heap object for it.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "zorvandata/element_types.h"

namespace foundation::zorvandata {

class ArrayImpl;

// One element: an inline scalar, a text, or a handle on an array. A plain record that owns nothing;
// valid until the list that it is of changes or dies.
class Item {
 public:
  enum class Form : uint8_t {
    kEmpty,    // a 0-by-0 double array: what an element holds before it is set
    kScalar,   // 1-by-1 of a dense type other than char
    kText,     // 1-by-N char
    kString,   // 1-by-1 string
    kMissing,  // 1-by-1 string without a value
    kElement,  // one element of a struct or object array as a 1-by-1 array, or one row of a cell
               // matrix as a 1-by-N cell
    kArray,    // anything else
  };

  Form form() const { return form_; }
  // The type of the array that the element is.
  ArrayType type() const { return hasHandle() ? typeOfArray() : static_cast<ArrayType>(type_); }
  // kScalar: elementSize(type()) bytes.
  const void* scalarData() const { return wide_ ? static_cast<const void*>(text_) : &bits_; }
  template <class T>
  T scalar() const {
    T value;
    std::memcpy(&value, scalarData(), sizeof(T));
    return value;
  }
  // kText, kString: the text as UTF-8 of text.h.
  std::string_view utf8() const { return {text_, size_}; }
  // kArray: the array; kElement: the array of which it is an element or a row.
  const ArrayImpl& array() const { return *array_; }
  // kElement: the position in that array.
  size_t element() const { return size_; }

  // Items that refer to what they are made of. A scalar of at most 8 bytes is copied.
  static Item ofScalar(ArrayType type, const void* value) {
    Item item;
    item.setScalar(type, value);
    return item;
  }
  static Item ofText(Form form, std::string_view utf8) {
    Item item;
    item.setText(form, utf8);
    return item;
  }
  static Item missing() {
    Item item;
    item.form_ = Form::kMissing;
    item.type_ = static_cast<uint8_t>(ArrayType::ZORVAN_STRING);
    return item;
  }
  static Item ofElement(const ArrayImpl& array, size_t element) {
    Item item;
    item.form_ = Form::kElement;
    item.size_ = static_cast<uint32_t>(element);
    item.array_ = const_cast<ArrayImpl*>(&array);
    return item;
  }

 private:
  friend class ItemList;

  // Of new items, in place: a copy of an item just written waits for what was written.
  void setScalar(ArrayType type, const void* value) {
    form_ = Form::kScalar;
    type_ = static_cast<uint8_t>(type);
    const size_t size = elementSize(type);
    wide_ = size > sizeof(bits_);
    if (wide_) {
      text_ = static_cast<const char*>(value);
    } else if (size == sizeof(bits_)) {
      std::memcpy(&bits_, value, sizeof(bits_));  // of a size that the compiler knows
    } else {
      std::memcpy(&bits_, value, size);
    }
  }
  void setText(Form form, std::string_view utf8) {
    form_ = form;
    type_ = static_cast<uint8_t>(form == Form::kText ? ArrayType::CHAR : ArrayType::ZORVAN_STRING);
    size_ = static_cast<uint32_t>(utf8.size());
    text_ = utf8.data();
  }

  bool hasHandle() const { return form_ == Form::kArray || form_ == Form::kElement; }

  ArrayType typeOfArray() const;

  Form form_ = Form::kEmpty;
  uint8_t type_ = static_cast<uint8_t>(ArrayType::DOUBLE);  // without a handle
  bool wide_ = false;
  uint32_t size_ = 0;
  union {
    uint64_t bits_ = 0;
    const char* text_;
    ArrayImpl* array_;
  };
};
static_assert(sizeof(Item) == 16);

}  // namespace foundation::zorvandata
