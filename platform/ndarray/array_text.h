// The text of an array: an expression that makes it again, as long as the array is short.
#pragma once

#include "python_api.h"

namespace ndarray {

// Slot tp_repr. Shortest digits that give the same element back; "..." in place of the middle of
// long dimensions once the array has more than 200 elements, followed by its size.
PyObject* represent(PyObject* self) noexcept;

}  // namespace ndarray
