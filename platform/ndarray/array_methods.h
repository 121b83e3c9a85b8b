// Methods and comparison of the array classes, as the C API calls them.
#pragma once

#include "python_api.h"

namespace ndarray {

PyObject* reshape(PyObject* self, PyObject* args) noexcept;
PyObject* toList(PyObject* self, PyObject*) noexcept;
PyObject* copyArray(PyObject* self, PyObject*) noexcept;
PyObject* deepCopyArray(PyObject* self, PyObject* memo) noexcept;
// Equal are arrays of the same element type (complex or not included), extents and elements; NaN
// differs from everything. Only == and != are defined.
PyObject* compareArrays(PyObject* self, PyObject* other, int operation) noexcept;
int containsElement(PyObject* self, PyObject* value) noexcept;

}  // namespace ndarray
