// The elements of a list or a tuple, by position.
#pragma once

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// Does not hold the list or tuple, nor its elements.
class Sequence {
 public:
  explicit Sequence(PyObject* listOrTuple)
      : object_(listOrTuple), isList_(PyList_Check(listOrTuple)) {}
  static bool accepts(PyObject* obj) {
    return Py_TYPE(obj) == &PyList_Type || Py_TYPE(obj) == &PyTuple_Type;
  }

  size_t size() const {
    return static_cast<size_t>(isList_ ? PyList_Size(object_) : PyTuple_Size(object_));
  }
  // Borrowed reference; NULL with IndexError set beyond the end.
  PyObject* operator[](size_t i) const {
    const auto at = static_cast<Py_ssize_t>(i);
    return isList_ ? PyList_GetItem(object_, at) : PyTuple_GetItem(object_, at);
  }

 private:
  PyObject* object_;
  bool isList_;
};

}  // namespace PythonZorvanDataArray::detail
