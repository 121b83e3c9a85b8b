// Pickling: class, size, complexity and the bytes of the elements, little-endian in column-major
// order. With protocol 5 the bytes are a PickleBuffer on the array's own memory.
#pragma once

#include "python_api.h"

namespace ndarray {

PyObject* reduceArray(PyObject* self, PyObject* protocol) noexcept;
// Class method _from_memory(size, is_complex, memory); copies the memory. ValueError when its
// length is not what the size needs.
PyObject* arrayFromMemory(PyObject* type, PyObject* args) noexcept;

}  // namespace ndarray
