// Texts and lists have one dimension: which arrays can become one, and how a list is filled.
#pragma once

#include "util/py_object_guard.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// Whether the array is 1-by-N, M-by-1 or a matrix without columns or rows.
inline bool isVector(const foundation::zorvandata::Array& array) {
  const foundation::zorvandata::Dimensions& dims = array.dimensions();
  return dims.count() <= 2 && !(dims[0] >= 2 && dims[1] > 1);
}

// New reference to a list of makeItem(0), makeItem(1), ...; NULL with a Python error set as soon as
// one of them is NULL. makeItem returns new references and may throw.
template <class MakeItem>
PyObject* makeList(size_t count, MakeItem makeItem) {
  auto list = PythonUtil::PyObjectWithGuard::owned(PyList_New(static_cast<Py_ssize_t>(count)));
  if (!list) return nullptr;
  for (size_t i = 0; i < count; ++i) {
    PyObject* item = makeItem(i);
    if (!item || PyList_SetItem(list.get(), static_cast<Py_ssize_t>(i), item) != 0) return nullptr;
  }
  return list.release();
}

}  // namespace PythonZorvanDataArray::detail
