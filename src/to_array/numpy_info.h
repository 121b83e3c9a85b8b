// Questions to numpy objects, asked through Python: numpy is a guest at run time and never needed
// to build or to start.
#pragma once

#include <optional>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// The first character of `obj.dtype.kind`; 0 with AttributeError set when there is none.
char numPyDtypeKindAsChar(PyObject* obj);

// Whether obj is a numpy masked array in which an element is masked; absent with a Python error
// set when numpy cannot tell. Never imports numpy.
std::optional<bool> hasMaskedElements(PyObject* obj);

}  // namespace PythonZorvanDataArray::detail
