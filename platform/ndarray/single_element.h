// Arrays of one element as Python numbers, as the C API calls for them.
//
// Null (truth: -1) with an exception set on failure: TypeError when there are more elements or none
// (truth: ValueError), and where a complex number stands for a real one.
#pragma once

#include "python_api.h"

namespace ndarray {

// int() cuts off fractions, as it does for a float.
PyObject* asInt(PyObject* self) noexcept;
PyObject* asFloat(PyObject* self) noexcept;
PyObject* asComplex(PyObject* self, PyObject*) noexcept;
// For the slots of integer classes.
PyObject* asIndex(PyObject* self) noexcept;
// NaN is true, as it is for a float.
int asTruth(PyObject* self) noexcept;

}  // namespace ndarray
