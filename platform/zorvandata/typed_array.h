// Typed views of arrays. A view is a handle like the array it was made from; making one of an
// array of another type throws InvalidArrayTypeException.
#pragma once

#include <iterator>
#include <string>

#include "zorvandata/element_references.h"
#include "zorvandata/elements.h"
#include "zorvandata/exception.h"

namespace foundation::zorvandata {

namespace detail {

// Throws InvalidArrayTypeException unless the array is of the type.
void checkType(const Array& array, ArrayType type);

// Forward iterator over elements that are made when asked for.
template <class T>
class ElementIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = T;
  using difference_type = std::ptrdiff_t;
  using pointer = const T*;
  using reference = T;

  ElementIterator(const Array& array, size_t index) : array_(&array), index_(index) {}
  T operator*() const { return readElement<T>(*array_, index_); }
  ElementIterator& operator++() {
    ++index_;
    return *this;
  }
  ElementIterator operator++(int) { return ElementIterator(*array_, index_++); }
  bool operator==(const ElementIterator& other) const { return index_ == other.index_; }
  bool operator!=(const ElementIterator& other) const { return index_ != other.index_; }

 private:
  const Array* array_;
  size_t index_;
};

}  // namespace detail

template <class T>
class TypedArray : public Array {
 public:
  static constexpr ArrayType kType = ArrayTypeOf<T>::value;

  explicit TypedArray(Array array) : Array(std::move(array)) { detail::checkType(*this, kType); }

  // Elements in linear order. Writing to the array ends the iterators.
  auto begin() const {
    if constexpr (isDense(kType)) {
      return data();
    } else {
      return detail::ElementIterator<T>(*this, 0);
    }
  }
  auto end() const {
    if constexpr (isDense(kType)) {
      return data() + getNumberOfElements();
    } else {
      return detail::ElementIterator<T>(*this, getNumberOfElements());
    }
  }

  T operator[](size_t index) const {
    detail::checkIndex(*this, index);
    return detail::readElement<T>(*this, index);
  }
  ArrayElementRef operator[](size_t index) { return ArrayElementRef(*this, index); }

 private:
  const T* data() const { return reinterpret_cast<const T*>(impl().buffer().data()); }
};

class CharArray : public TypedArray<char16_t> {
 public:
  using TypedArray::TypedArray;
  // All characters in linear order.
  std::u16string toUTF16() const { return std::u16string(begin(), end()); }
  // Throws NonAsciiCharInInputDataException when a code unit is not ASCII.
  std::string toAscii() const;
};

class StructArray : public TypedArray<StructElement> {
 public:
  using TypedArray::TypedArray;
  std::vector<ZorvanFieldIdentifier> getFieldNames() const;
  size_t getNumberOfFields() const { return impl().layout()->names.size(); }
};

class ValueObjectArray : public TypedArray<ValueObject> {
 public:
  using TypedArray::TypedArray;
  using TypedArray::operator[];
  ClassInfo getClassInfo() const;
  // The dimensions that the engine shows for the array.
  std::vector<size_t> getExternalDimensions() const { return getDimensions(); }
  bool hasArrayProperty(const ZorvanPropertyIdentifier& property) const;
  // The property of the only element; of several (or no) elements a cell array of the array's
  // dimensions that holds each one's. Throws InvalidFieldNameException when there is none.
  Array operator[](const ZorvanPropertyIdentifier& property) const;
};

// Compressed sparse columns, rows and column starts counted from zero.
class SparseArray : public Array {
 public:
  explicit SparseArray(Array array);
  const std::vector<size_t>& getRows() const { return impl().sparse().rows; }
  const std::vector<size_t>& getColumnStarts() const { return impl().sparse().columnStarts; }
  size_t getNumberOfNonZeros() const { return getRows().size(); }
  // The stored values as a 1-by-N array of the value type.
  Array getValues() const;
};

}  // namespace foundation::zorvandata
