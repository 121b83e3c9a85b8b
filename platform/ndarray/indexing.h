// Item access: x[i, j], x[1:], x[..., 0], x[:, 0] = 7, iteration.
//
// A key is an int, a slice, an Ellipsis or a tuple of them; ints count from the end when negative;
// dimensions without an index are taken whole. One int for each dimension selects an element;
// anything else selects an array with as many dimensions as before, in which a dimension indexed
// by an int has extent 1. Slots as the C API defines them.
#pragma once

#include "python_api.h"

namespace ndarray {

Py_ssize_t firstExtent(PyObject* self) noexcept;
PyObject* getItem(PyObject* self, PyObject* key) noexcept;
// Stores one number in every selected element; deletion is refused.
int setItem(PyObject* self, PyObject* key, PyObject* value) noexcept;
// x[index] with an index that already counts from the start.
PyObject* getRow(PyObject* self, Py_ssize_t index) noexcept;

}  // namespace ndarray
