// References that are there: the makers throw where CPython returned NULL.
#pragma once

#include <string>

#include "util/py_object_guard.h"
#include "util/python_error.h"

namespace PythonUtil {

// Takes over a new reference; throws PythonErrorSet for NULL.
inline PyObjectWithGuard checked(PyObject* newReference) {
  if (!newReference) throw PythonErrorSet();
  return PyObjectWithGuard::owned(newReference);
}

// Throws PythonErrorSet when a function of the interpreter that returns -1 on failure has failed.
inline void check(int result) {
  if (result < 0) throw PythonErrorSet();
}

// Sets a Python error and throws PythonErrorSet.
[[noreturn]] inline void raise(PyObject* type, const std::string& message) {
  setPythonErrorStr(type, message);
  throw PythonErrorSet();
}

}  // namespace PythonUtil
