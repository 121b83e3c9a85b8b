// The constructor of the array classes.
#pragma once

#include "array_object.h"

namespace ndarray {

// Slot tp_new: cls([source], /, *, size=None, is_complex=False). Null with an exception set on
// failure.
PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwargs) noexcept;

// The extents that a sequence of ints gives.
Extents extentsFromPython(PyObject* sequence);

}  // namespace ndarray
