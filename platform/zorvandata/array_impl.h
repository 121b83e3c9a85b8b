// The value behind an Array handle: type, dimensions, and one of four kinds of content.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "zorvandata/array.h"
#include "zorvandata/buffer.h"
#include "zorvandata/items.h"
#include "zorvandata/texts.h"

namespace foundation::zorvandata {

// The class and the field or property names of struct, object, handle and enumeration arrays.
struct Layout {
  std::string className;
  std::vector<std::string> names;

  // Position of a name, or names.size().
  size_t find(const std::string& name) const;
};
bool operator==(const Layout& a, const Layout& b);

// A layout; throws InvalidFieldNameException when a name is empty or stands twice.
std::shared_ptr<const Layout> makeLayout(std::string className, std::vector<std::string> names);

// Compressed columns: the values of column j lie at positions columnStarts[j] up to
// columnStarts[j + 1], each with its row.
struct SparseContent {
  std::vector<size_t> rows;
  std::vector<size_t> columnStarts;
  Buffer values;
};

// Content by type:
//   dense types           Buffer, elements in column-major order, complex ones interleaved
//   HANDLE_OBJECT_REF     Buffer, one uint64, the reference number, an element
//   STRING, ENUMERATION   Texts, one (the member's name) an element
//   CELL                  Items, one an element
//   STRUCT, VALUE_OBJECT, OBJECT
//                         Items, names.size() x elements of them, all elements of the first
//                         field, then all of the second, ...
//   sparse types          SparseContent
//   UNKNOWN               no Items
class ArrayImpl {
  template <class T, class Variant>
  static auto& content(Variant& variant) {
    auto* found = std::get_if<T>(&variant);
    if (!found) throwWrongContent();
    return *found;
  }
  [[noreturn]] static void throwWrongContent();

 public:
  using Content = std::variant<Buffer, Texts, Items, std::shared_ptr<const SparseContent>>;

  ArrayImpl(ArrayType type, Dimensions dimensions, Content&& content,
            std::shared_ptr<const Layout> layout = nullptr);
  // A copy with no other owner.
  ArrayImpl(const ArrayImpl& other);
  ArrayImpl& operator=(const ArrayImpl&) = delete;

  ArrayType type() const { return type_; }
  const Dimensions& dimensions() const { return dimensions_; }
  size_t elements() const { return dimensions_.elements(); }

  // How many levels of arrays this one is, itself included; at most kMaxNesting.
  int depth() const;

  // Never null for types with names or a class.
  const std::shared_ptr<const Layout>& layout() const { return layout_; }

  // Each throws InvalidArrayTypeException when the content is of another kind.
  const Buffer& buffer() const { return content<Buffer>(content_); }
  Buffer& buffer() { return content<Buffer>(content_); }
  const Texts& texts() const { return content<Texts>(content_); }
  Texts& texts() { return content<Texts>(content_); }
  const Items& items() const { return content<Items>(content_); }
  Items& items() { return content<Items>(content_); }
  const SparseContent& sparse() const {
    return *content<std::shared_ptr<const SparseContent>>(content_);
  }

  // Position of an element of a field in items().
  size_t itemIndex(size_t field, size_t element) const { return field * elements() + element; }
  // Adds a field or property, empty in every element.
  void addName(const std::string& name);

  void retain() const noexcept { owners_.fetch_add(1, std::memory_order_relaxed); }
  void release() const noexcept;
  bool shared() const noexcept { return owners_.load(std::memory_order_acquire) > 1; }

 private:
  mutable std::atomic<size_t> owners_{1};
  ArrayType type_;
  Dimensions dimensions_;
  std::shared_ptr<const Layout> layout_;
  Content content_;
};

// A new array of its own; throws std::bad_alloc.
Array makeArray(ArrayType type, const Dimensions& dimensions, ArrayImpl::Content&& content,
                std::shared_ptr<const Layout> layout = nullptr);

// A dense array over a buffer; throws InvalidDimensionsException when the sizes do not match.
Array makeDense(ArrayType type, const Dimensions& dimensions, Buffer buffer);

// A sparse matrix. Throws InvalidDimensionsException unless columnStarts ascends from 0 to the
// number of rows, has one entry more than there are columns, the rows of each column ascend below
// the row count, and there is one value a row entry.
Array makeSparse(ArrayType type, const Dimensions& dimensions, SparseContent content);

// A 1-by-1 dense array of the bytes of one element.
Array makeScalar(ArrayType type, const void* value);

// A 1-by-N char array.
Array makeCharRow(std::u16string_view units);

}  // namespace foundation::zorvandata
