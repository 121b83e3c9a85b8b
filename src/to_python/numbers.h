// Elements of numeric and logical arrays as Python numbers.
#pragma once

#include <complex>
#include <type_traits>

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

template <class T>
struct IsComplexNumber : std::false_type {};
template <class T>
struct IsComplexNumber<std::complex<T>> : std::true_type {};

// New reference to the bool, int, float or complex that an element is; NULL with a Python error
// set.
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
  } else {
    return PyLong_FromLongLong(value);
  }
}

}  // namespace PythonZorvanDataArray::detail
