// References to single elements of an array, as Array::operator[] returns them.
//
// They point at the array handle they came from and are valid while it is. Casts that do not match
// the element throw InvalidArrayTypeException.
#pragma once

#include <optional>
#include <string>

#include "zorvandata/array.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/exception.h"
#include "zorvandata/identifiers.h"

namespace foundation::zorvandata {

class CharArray;
class StructArray;
class ValueObjectArray;

namespace detail {

// The element at a linear index as T, one of the types TypedArray views; throws when T does not
// match the array. No index check.
template <class T>
T readElement(const Array& array, size_t index) {
  if (array.getType() != ArrayTypeOf<T>::value) {
    throw InvalidArrayTypeException(std::string("the element is of an array of type ") +
                                    nameOf(array.getType()));
  }
  if constexpr (isDense(ArrayTypeOf<T>::value)) {
    return reinterpret_cast<const T*>(array.impl().buffer().data())[index];
  } else {
    return T::of(array, index);
  }
}
template <>
std::optional<std::u16string> readElement<std::optional<std::u16string>>(const Array&, size_t);
template <>
Array readElement<Array>(const Array&, size_t);

// Writes an element; throws when T does not match the array. No index check.
void writeDenseElement(Array& array, ArrayType type, size_t index, const void* value);
void writeElement(Array& array, size_t index, const Array& value);
void writeElement(Array& array, size_t index, const std::optional<std::u16string>& value);
template <class T, class = std::enable_if_t<isDense(ArrayTypeOf<T>::value)>>
void writeElement(Array& array, size_t index, T value) {
  writeDenseElement(array, ArrayTypeOf<T>::value, index, &value);
}

// The field's or property's value in one element; throws InvalidFieldNameException when there is
// no such name.
Array readField(const Array& array, size_t index, const std::string& name);
// Sets it. A value object gains a property that it has not; a struct does not gain fields.
void writeField(Array& array, size_t index, const std::string& name, const Array& value);

void checkIndex(const Array& array, size_t index);

// Sets an element to what another one of an array of the same type is: numbers, characters,
// strings and cell elements; throws InvalidArrayTypeException for all others.
void copyElement(Array& to, size_t toIndex, const Array& from, size_t fromIndex);

// Throws InvalidFieldNameException when the property names another class than the objects'.
void checkPropertyClass(const Array& objects, const ZorvanPropertyIdentifier& property);

// The element as a 1-by-1 array of the same type; a cell's element as the array that it is.
Array elementAsArray(const Array& array, size_t index);

}  // namespace detail

// A string element: has_value() tells a missing string from a present one.
class ZORVANStringReferenceExt {
 public:
  explicit ZORVANStringReferenceExt(std::optional<std::u16string> value)
      : value_(std::move(value)) {}
  bool has_value() const { return value_.has_value(); }
  // Throws MissingStringException.
  operator std::u16string() const;  // NOLINT: a cast is the interface

 private:
  std::optional<std::u16string> value_;
};

class ArrayReferenceExt {
 public:
  // Throws EArrayIndexOutOfRange.
  ArrayReferenceExt(const Array& array, size_t index) : array_(&array), index_(index) {
    detail::checkIndex(array, index);
  }

  // The element as T: a number, a bool, char16_t, Array (cells), StructElement, ValueObject,
  // HandleObjectRef, Enumeration or an optional text.
  template <class T, class = decltype(ArrayTypeOf<T>::value)>
  operator T() const {  // NOLINT: a cast is the interface
    return detail::readElement<T>(*array_, index_);
  }
  // A cell element as the view that it is.
  operator CharArray() const;                 // NOLINT: a cast is the interface
  operator StructArray() const;               // NOLINT: a cast is the interface
  operator ValueObjectArray() const;          // NOLINT: a cast is the interface
  operator ZORVANStringReferenceExt() const;  // NOLINT: a cast is the interface

  // A field of a struct element, a property of a value object.
  Array operator[](const ZorvanFieldIdentifier& field) const;
  Array operator[](const ZorvanPropertyIdentifier& property) const;
  Array operator[](const char* name) const { return (*this)[ZorvanFieldIdentifier(name)]; }

  // The element seen as an array.
  ArrayType getType() const { return asArray().getType(); }
  std::vector<size_t> getDimensions() const { return asArray().getDimensions(); }
  size_t getNumberOfElements() const { return asArray().getNumberOfElements(); }
  bool isEmpty() const { return asArray().isEmpty(); }

 protected:
  friend std::u16string castToString(const ArrayReferenceExt& element);

  Array asArray() const { return detail::elementAsArray(*array_, index_); }

  const Array* array_;
  size_t index_;
};

// The text of a string element, or of a char or string array in a cell; throws
// MissingStringException for a missing one.
std::u16string castToString(const ArrayReferenceExt& element);

// A field or property of one element, for writing.
class FieldElementRef {
 public:
  FieldElementRef(Array& array, size_t index, std::string name)
      : array_(&array), index_(index), name_(std::move(name)) {}
  FieldElementRef& operator=(const Array& value) {
    detail::writeField(*array_, index_, name_, value);
    return *this;
  }
  FieldElementRef(const FieldElementRef&) = default;
  // Sets the field to what the other one is; one's own value stays.
  FieldElementRef& operator=(const FieldElementRef& other) {
    if (&other != this) detail::writeField(*array_, index_, name_, Array(other));
    return *this;
  }
  operator Array() const {  // NOLINT: a cast is the interface
    return detail::readField(*array_, index_, name_);
  }

 private:
  Array* array_;
  size_t index_;
  std::string name_;
};

class ArrayElementRef : public ArrayReferenceExt {
 public:
  ArrayElementRef(Array& array, size_t index) : ArrayReferenceExt(array, index), target_(&array) {}

  template <class T>
  ArrayElementRef& operator=(const T& value) {
    detail::writeElement(*target_, index_, value);
    return *this;
  }
  ArrayElementRef(const ArrayElementRef&) = default;
  // Copies the element that the other refers to.
  ArrayElementRef& operator=(const ArrayElementRef& other) {
    if (&other != this) detail::copyElement(*target_, index_, *other.target_, other.index_);
    return *this;
  }
  FieldElementRef operator[](const ZorvanFieldIdentifier& field) {
    return {*target_, index_, field.getString()};
  }
  // Throws InvalidFieldNameException for a property of another class.
  FieldElementRef operator[](const ZorvanPropertyIdentifier& property) {
    detail::checkPropertyClass(*target_, property);
    return {*target_, index_, property.getPropertyName()};
  }
  FieldElementRef operator[](const char* name) { return {*target_, index_, name}; }

 private:
  Array* target_;
};

}  // namespace foundation::zorvandata
