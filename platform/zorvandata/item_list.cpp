#include "zorvandata/item_list.h"

#include <algorithm>

#include "zorvandata/array_impl.h"
#include "zorvandata/element_references.h"
#include "zorvandata/exception.h"
#include "zorvandata/item_column.h"
#include "zorvandata/limits.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {
namespace {

constexpr size_t kLargestChunk = size_t{64} * 1024;
// Longer char rows stay arrays: storing them as text would convert them twice.
constexpr size_t kLongestStoredRow = 4096;
constexpr size_t kLongestText = UINT32_MAX;

}  // namespace

const char* Arena::store(const void* bytes, size_t size) {
  if (capacity_ - used_ < size) {
    const size_t capacity = std::max(std::min(2 * capacity_, kLargestChunk), size);
    chunks_.emplace_back(new char[capacity]);
    chunk_ = chunks_.back().get();
    capacity_ = capacity;
    used_ = 0;
  }
  char* place = chunk_ + used_;
  if (size) std::memcpy(place, bytes, size);
  used_ += size;
  return place;
}

ArrayType Item::typeOfArray() const { return array_->type(); }

ItemList::ItemList(std::shared_ptr<const ItemColumn> column)
    : depth_(column->visit([](const auto& kind) { return kind.depth(); })),
      column_(std::move(column)),
      columnSize_(column_->visit([](const auto& kind) { return kind.size(); })) {
  if (depth_ >= kMaxNesting) throw NestingTooDeepException();
}

ItemList::ItemList(const ItemList& other)
    : items_(other.items_),
      arena_(other.arena_),
      handles_(other.handles_),
      depth_(other.depth_),
      column_(other.column_),
      columnSize_(other.columnSize_) {
  if (handles_ == 0) return;
  for (const Item& item : items_) {
    if (item.hasHandle()) item.array_->retain();
  }
}

ItemList::~ItemList() {
  if (handles_ == 0) return;
  for (const Item& item : items_) {
    if (item.hasHandle()) item.array_->release();
  }
}

void ItemList::swap(ItemList& other) noexcept {
  items_.swap(other.items_);
  arena_.swap(other.arena_);
  std::swap(handles_, other.handles_);
  std::swap(depth_, other.depth_);
  column_.swap(other.column_);
  std::swap(columnSize_, other.columnSize_);
}

Item ItemList::columnItem(size_t i) const {
  return column_->visit([i](const auto& kind) { return kind[i]; });
}

void ItemList::expand() {
  ItemList single;
  single.reserve(columnSize_ + 1);
  for (size_t i = 0; i < columnSize_; ++i) single.append(*this, i);
  swap(single);
}

Array ItemList::get(size_t i) const {
  const Item item = (*this)[i];
  switch (item.form_) {
    case Item::Form::kEmpty:
      return makeDense(ArrayType::DOUBLE, Dimensions(), Buffer());
    case Item::Form::kScalar:
      return makeScalar(item.type(), item.scalarData());
    case Item::Form::kText:
      return makeCharRow(toUtf16(item.utf8()));
    case Item::Form::kString:
    case Item::Form::kMissing: {
      ItemList text;
      if (item.form_ == Item::Form::kString) {
        text.appendString(item.utf8());
      } else {
        text.appendString(std::nullopt);
      }
      return makeArray(ArrayType::ZORVAN_STRING, Dimensions::scalar(), std::move(text));
    }
    case Item::Form::kElement:
      return item.type() == ArrayType::CELL
                 ? detail::rowAsCell(Array::share(*item.array_), item.element())
                 : detail::elementAsArray(Array::share(*item.array_), item.element());
    case Item::Form::kArray:
      break;
  }
  return Array::share(*item.array_);
}

void ItemList::set(size_t i, const Array& value) {
  expandColumn();
  put(i, itemOf(value));
}

void ItemList::setString(size_t i, std::optional<std::string_view> utf8) {
  expandColumn();
  put(i, stringItem(utf8));
}

void ItemList::append(const Array& value) {
  expandColumn();
  grow();
  items_.push_back(itemOf(value));
  handles_ += items_.back().hasHandle();
}

void ItemList::grow() {
  if (items_.size() == items_.capacity()) items_.reserve(std::max<size_t>(4, 2 * items_.size()));
}

void ItemList::append(const ItemList& from, size_t i) {
  expandColumn();
  Item item = from[i];
  const bool stored =
      item.wide_ || item.form_ == Item::Form::kText || item.form_ == Item::Form::kString;
  if (stored && (from.column_ || from.arena_ != arena_)) {
    item.text_ = store(item.text_, item.wide_ ? elementSize(item.type()) : item.size_);
  }
  grow();
  if (item.hasHandle()) {
    const uint32_t element = item.size_;
    item = handleItem(item.form_, *item.array_);
    item.size_ = element;
    ++handles_;
  }
  items_.push_back(item);
}

void ItemList::appendScalar(ArrayType type, const void* value) {
  expandColumn();
  const void* kept = keepScalar(type, value);
  items_.emplace_back().setScalar(type, kept);
}

void ItemList::addText(Item::Form form, std::string_view utf8) {
  expandColumn();
  const std::string_view stored = storeText(utf8);
  items_.emplace_back().setText(form, stored);
}

// Releases what the slot held and takes over the reference that the new item carries.
void ItemList::put(size_t i, Item item) {
  Item& slot = items_[i];
  const Item old = slot;
  slot = item;
  handles_ += item.hasHandle();
  if (old.hasHandle()) {
    --handles_;
    old.array_->release();
  }
}

Item ItemList::itemOf(const Array& value) {
  const ArrayImpl& impl = value.impl();
  const ArrayType type = impl.type();
  const Dimensions& dims = impl.dimensions();
  if (type == ArrayType::DOUBLE && dims == Dimensions()) return Item();
  if (isDense(type) && type != ArrayType::CHAR && dims.isScalar()) {
    return scalarItem(type, impl.buffer().data());
  }
  if (type == ArrayType::CHAR && dims.isRow() && dims.elements() <= kLongestStoredRow) {
    const auto* units = reinterpret_cast<const char16_t*>(impl.buffer().data());
    return textItem(Item::Form::kText, toUtf8({units, dims.elements()}));
  }
  if (type == ArrayType::ZORVAN_STRING && dims.isScalar()) {
    const Item text = impl.items()[0];
    if (text.form_ == Item::Form::kMissing) return stringItem(std::nullopt);
    return stringItem(text.utf8());
  }
  return handleItem(Item::Form::kArray, impl);
}

// An item that owns a reference on the array.
Item ItemList::handleItem(Item::Form form, const ArrayImpl& array) {
  if (array.depth() >= kMaxNesting) throw NestingTooDeepException();
  depth_ = std::max(depth_, array.depth());
  Item item;
  item.form_ = form;
  item.array_ = const_cast<ArrayImpl*>(&array);
  array.retain();
  return item;
}

Item ItemList::scalarItem(ArrayType type, const void* value) {
  return Item::ofScalar(type, keepScalar(type, value));
}

const void* ItemList::keepScalar(ArrayType type, const void* value) {
  const size_t size = elementSize(type);
  return size > sizeof(uint64_t) ? store(value, size) : value;
}

Item ItemList::textItem(Item::Form form, std::string_view utf8) {
  return Item::ofText(form, storeText(utf8));
}

Item ItemList::stringItem(std::optional<std::string_view> utf8) {
  return utf8 ? textItem(Item::Form::kString, *utf8) : Item::missing();
}

std::string_view ItemList::storeText(std::string_view utf8) {
  if (utf8.size() > kLongestText) throw std::bad_alloc();
  return {store(utf8.data(), utf8.size()), utf8.size()};
}

const char* ItemList::store(const void* bytes, size_t size) {
  if (!arena_) arena_ = std::make_shared<Arena>();
  return arena_->store(bytes, size);
}

}  // namespace foundation::zorvandata
