// The elements of cell, struct, object and text arrays: many small values without a heap object
// for each.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zorvandata/element_types.h"

namespace foundation::zorvandata {

class ArrayImpl;

// Append-only memory for texts and wide scalars; addresses stay valid as long as the arena lives.
class Arena {
 public:
  const char* store(const void* bytes, size_t size);

 private:
  std::vector<std::unique_ptr<char[]>> chunks_;
  size_t used_ = 0;
  size_t capacity_ = 0;
};

// One element: an inline scalar, a text, or a handle on an array. A plain record whose memory
// belongs to its ItemList; valid until that list changes or dies.
class Item {
 public:
  enum class Form : uint8_t {
    kEmpty,    // a 0-by-0 double array: what an element holds before it is set
    kScalar,   // 1-by-1 of a dense type other than char
    kText,     // 1-by-N char
    kString,   // 1-by-1 string
    kMissing,  // 1-by-1 string without a value
    kElement,  // one element of a struct array, as a 1-by-1 struct
    kArray,    // anything else
  };

  Form form() const { return form_; }
  // The type of the array that the element is.
  ArrayType type() const;
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
  // kArray: the array; kElement: the struct array.
  const ArrayImpl& array() const { return *array_; }
  // kElement: the position in the struct array.
  size_t element() const { return size_; }

 private:
  friend class ItemList;

  bool hasHandle() const { return form_ == Form::kArray || form_ == Form::kElement; }

  Form form_ = Form::kEmpty;
  uint8_t type_ = 0;
  bool wide_ = false;
  uint32_t size_ = 0;
  union {
    uint64_t bits_ = 0;
    const char* text_;
    ArrayImpl* array_;
  };
};
static_assert(sizeof(Item) == 16);

// Owns items and what they point to. Copies share texts and arrays.
class ItemList {
 public:
  ItemList() = default;
  // `count` elements of form kEmpty.
  explicit ItemList(size_t count) : items_(count) {}
  // An empty list that stores its texts in an arena which other lists use too.
  explicit ItemList(std::shared_ptr<Arena> arena) : arena_(std::move(arena)) {}
  ItemList(const ItemList& other);
  ItemList(ItemList&& other) noexcept { swap(other); }
  ItemList& operator=(ItemList other) noexcept {
    swap(other);
    return *this;
  }
  ~ItemList();

  size_t size() const { return items_.size(); }
  // How deeply arrays are nested in the elements; 0 when all of them lie inline.
  int depth() const { return depth_; }
  void reserve(size_t count) { items_.reserve(count); }
  const Item& operator[](size_t i) const { return items_[i]; }
  const Item* begin() const { return items_.data(); }
  const Item* end() const { return items_.data() + items_.size(); }

  // The element as an array of its own.
  Array get(size_t i) const;

  // Elements are set and added by value. NestingTooDeepException when they would lie deeper than
  // kMaxNesting allows.
  void set(size_t i, const Array& value);
  void setString(size_t i, std::optional<std::string_view> utf8) { put(i, stringItem(utf8)); }

  // Adds an element at the end. Texts are valid UTF-8 as text.h has it.
  void append(const Array& value);
  // An element of another list; texts are not copied when both share an arena.
  void append(const ItemList& from, size_t i);
  // An element of a struct array, without making a struct of it.
  void appendElement(const Array& structs, size_t index);
  void appendEmpty() { items_.emplace_back(); }
  void appendScalar(ArrayType type, const void* value);
  template <class T>
  void appendScalar(T value) {
    if constexpr (sizeof(T) > sizeof(uint64_t)) {
      appendScalar(ArrayTypeOf<T>::value, &value);
    } else {
      Item& item = items_.emplace_back();
      item.form_ = Item::Form::kScalar;
      item.type_ = static_cast<uint8_t>(ArrayTypeOf<T>::value);
      std::memcpy(&item.bits_, &value, sizeof(T));
    }
  }
  void appendText(std::string_view utf8) { items_.push_back(textItem(Item::Form::kText, utf8)); }
  void appendString(std::optional<std::string_view> utf8) { items_.push_back(stringItem(utf8)); }

 private:
  void swap(ItemList& other) noexcept;
  // Makes room for one more, so that adding an item that owns a reference cannot fail.
  void grow();
  void put(size_t i, Item item);
  Item itemOf(const Array& value);
  Item handleItem(Item::Form form, const ArrayImpl& array);
  Item scalarItem(ArrayType type, const void* value);
  Item textItem(Item::Form form, std::string_view utf8);
  Item stringItem(std::optional<std::string_view> utf8);
  const char* store(const void* bytes, size_t size);

  std::vector<Item> items_;
  std::shared_ptr<Arena> arena_;
  size_t handles_ = 0;  // how many items hold a handle
  int depth_ = 0;
};

}  // namespace foundation::zorvandata
