// Converters of one-element numeric and logical arrays to Python numbers.
#pragma once

#include <complex>
#include <type_traits>

#include "to_python/convert_zda_to_py_object.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

bool isArrayComplex(const foundation::zorvandata::Array& array);

template <class T>
struct IsComplexNumber : std::false_type {};
template <class T>
struct IsComplexNumber<std::complex<T>> : std::true_type {};

// New reference to the Python number that an element is: bool, int, float or complex.
template <class T>
PyObject* convertNumericElem(T value) {
  if constexpr (IsComplexNumber<T>::value) {
    return PyComplex_FromDoubles(static_cast<double>(value.real()),
                                 static_cast<double>(value.imag()));
  } else if constexpr (std::is_same_v<T, bool>) {
    return PyBool_FromLong(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    return PyFloat_FromDouble(static_cast<double>(value));
  } else if constexpr (std::is_same_v<T, uint64_t>) {
    return PyLong_FromUnsignedLongLong(value);
  } else if constexpr (std::is_same_v<T, int64_t>) {
    return PyLong_FromLongLong(value);
  } else if constexpr (std::is_same_v<T, uint32_t>) {
    return PyLong_FromUnsignedLong(value);
  } else {
    return PyLong_FromLong(value);
  }
}

// ValueError when there is no element.
template <class T>
PyObject* convertFirstElement(const foundation::zorvandata::TypedArray<T>& array) {
  if (array.isEmpty()) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(ArrayIsEmpty));
    return nullptr;
  }
  return convertNumericElem<T>(array[0]);
}

// The first element of an array of T or of its complex twin.
template <class T>
PyObject* convertRealOrComplexFirstElement(const foundation::zorvandata::Array& array) {
  using foundation::zorvandata::TypedArray;
  if (isArrayComplex(array)) return convertFirstElement(TypedArray<std::complex<T>>(array));
  return convertFirstElement(TypedArray<T>(array));
}

// Serves a number type and its complex twin.
template <class T>
class ScalarToPyNumber : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override {
    return convertRealOrComplexFirstElement<T>(array);
  }
  PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const override {
    using foundation::zorvandata::Item;
    const Item item = items[i];
    if (item.form() != Item::Form::kScalar) return ConvertZDAToPyObject::convertItem(items, i);
    if (isComplex(item.type())) return convertNumericElem(item.scalar<std::complex<T>>());
    return convertNumericElem(item.scalar<T>());
  }
};

using Int8ToPyLong = ScalarToPyNumber<int8_t>;
using Uint8ToPyLong = ScalarToPyNumber<uint8_t>;
using Int16ToPyLong = ScalarToPyNumber<int16_t>;
using Uint16ToPyLong = ScalarToPyNumber<uint16_t>;
using Int32ToPyLong = ScalarToPyNumber<int32_t>;
using Uint32ToPyLong = ScalarToPyNumber<uint32_t>;
using Int64ToPyLong = ScalarToPyNumber<int64_t>;
using Uint64ToPyLong = ScalarToPyNumber<uint64_t>;
using DoubleToPyFloat = ScalarToPyNumber<double>;
using SingleToPyFloat = ScalarToPyNumber<float>;

class LogicalToPyBool : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
  PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const override;
};

}  // namespace PythonZorvanDataArray::detail
