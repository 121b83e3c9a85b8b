// The elements of cell, struct, object and text arrays: many small values without a heap object
// for each.
#pragma once

#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zorvandata/item.h"

namespace foundation::zorvandata {

class ItemColumn;

// Append-only memory for texts and wide scalars; addresses stay valid as long as the arena lives.
class Arena {
 public:
  Arena() {}  // NOLINT(modernize-use-equals-default): leaves the first chunk as it is
  const char* store(const void* bytes, size_t size);

 private:
  static constexpr size_t kFirstChunk = 64;

  char first_[kFirstChunk];
  std::vector<std::unique_ptr<char[]>> chunks_;  // the others
  char* chunk_ = first_;
  size_t used_ = 0;
  size_t capacity_ = kFirstChunk;
};

// Owns items and what they point to, one by one or as a column (item_column.h), which is taken
// apart when an element of it changes. Copies share texts, arrays and columns.
class ItemList {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = const Item*;
    using reference = Item;

    Iterator(const ItemList& list, size_t i) : list_(&list), i_(i) {}
    Item operator*() const { return (*list_)[i_]; }
    Iterator& operator++() {
      ++i_;
      return *this;
    }
    Iterator operator++(int) { return {*list_, i_++}; }
    bool operator==(const Iterator& other) const { return i_ == other.i_; }
    bool operator!=(const Iterator& other) const { return i_ != other.i_; }

   private:
    const ItemList* list_;
    size_t i_;
  };

  ItemList() = default;
  // `count` elements of form kEmpty.
  explicit ItemList(size_t count) : items_(count) {}
  // An empty list that stores its texts in an arena which other lists use too.
  explicit ItemList(std::shared_ptr<Arena> arena) : arena_(std::move(arena)) {}
  // See makeColumn.
  explicit ItemList(std::shared_ptr<const ItemColumn> column);
  ItemList(const ItemList& other);
  ItemList(ItemList&& other) noexcept
      : items_(std::move(other.items_)),
        arena_(std::move(other.arena_)),
        handles_(std::exchange(other.handles_, 0)),
        depth_(std::exchange(other.depth_, 0)),
        column_(std::move(other.column_)),
        columnSize_(std::exchange(other.columnSize_, 0)) {}
  ItemList& operator=(ItemList other) noexcept {
    swap(other);
    return *this;
  }
  ~ItemList();

  size_t size() const { return column_ ? columnSize_ : items_.size(); }
  // How deeply arrays are nested in the elements; 0 when all of them lie inline.
  int depth() const { return depth_; }
  void reserve(size_t count) { items_.reserve(count); }
  Item operator[](size_t i) const { return column_ ? columnItem(i) : items_[i]; }
  Iterator begin() const { return {*this, 0}; }
  Iterator end() const { return {*this, size()}; }
  // What the list is held as: a column, or else its items in a row. The other one is NULL.
  const ItemColumn* column() const { return column_.get(); }
  const Item* slots() const { return column_ ? nullptr : items_.data(); }

  // The element as an array of its own.
  Array get(size_t i) const;

  // Elements are set and added by value. NestingTooDeepException when they would lie deeper than
  // kMaxNesting allows.
  void set(size_t i, const Array& value);
  void setString(size_t i, std::optional<std::string_view> utf8);

  // Adds an element at the end. Texts are valid UTF-8 as text.h has it.
  void append(const Array& value);
  // An element of another list; texts are not copied when both share an arena.
  void append(const ItemList& from, size_t i);
  void appendEmpty() { addSlot(); }
  // The value must not lie in this list.
  void appendScalar(ArrayType type, const void* value);
  template <class T>
  void appendScalar(T value) {
    if constexpr (sizeof(T) > sizeof(uint64_t)) {
      appendScalar(ArrayTypeOf<T>::value, &value);
    } else {
      Item& item = addSlot();
      item.form_ = Item::Form::kScalar;
      item.type_ = static_cast<uint8_t>(ArrayTypeOf<T>::value);
      std::memcpy(&item.bits_, &value, sizeof(T));
    }
  }
  void appendText(std::string_view utf8) { addText(Item::Form::kText, utf8); }
  void appendString(std::optional<std::string_view> utf8) {
    if (utf8) return addText(Item::Form::kString, *utf8);
    expandColumn();
    items_.push_back(Item::missing());
  }

 private:
  void swap(ItemList& other) noexcept;
  Item columnItem(size_t i) const;
  // Takes the column apart, if the list is one. Comes before anything else that changes it.
  void expandColumn() {
    if (column_) expand();
  }
  void expand();
  Item& addSlot() {
    expandColumn();
    return items_.emplace_back();
  }
  void addText(Item::Form form, std::string_view utf8);
  // Makes room for one more, so that adding an item that owns a reference cannot fail.
  void grow();
  void put(size_t i, Item item);
  Item itemOf(const Array& value);
  Item handleItem(Item::Form form, const ArrayImpl& array);
  Item scalarItem(ArrayType type, const void* value);
  Item textItem(Item::Form form, std::string_view utf8);
  Item stringItem(std::optional<std::string_view> utf8);
  const char* store(const void* bytes, size_t size);
  std::string_view storeText(std::string_view utf8);
  // What an item of the scalar may refer to: the value, or a copy of one too wide for an item.
  const void* keepScalar(ArrayType type, const void* value);

  std::vector<Item> items_;
  std::shared_ptr<Arena> arena_;
  size_t handles_ = 0;  // how many items hold a handle
  int depth_ = 0;
  std::shared_ptr<const ItemColumn> column_;
  size_t columnSize_ = 0;
};

}  // namespace foundation::zorvandata
