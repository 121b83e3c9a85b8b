// Look-ups that hand out guards and report failures in fixed words.
//
// Every guard returned owns its reference; it is empty on failure. A NULL object and an empty or
// NULL name give an empty guard and set nothing. Otherwise a failure replaces whatever error the
// look-up raised by the one named below, or just clears it if `reportFailure` is false. Python code
// may run in all of them. They throw nothing but std::bad_alloc.
#pragma once

#include "util/py_object_guard.h"

namespace PythonUtil {

class PyObjectGuardGetter {
 public:
  // The attribute of `object`; reports AttributeError. No error is pending after a success.
  static PyObjectWithGuard getAttrString(PyObject* object, const char* name, bool reportFailure);

  // The imported module; reports ImportError.
  static PyObjectWithGuard getModule(const char* name, bool reportFailure);

  // The result of calling the method; always reports AttributeError.
  static PyObjectWithGuard callMethodNoArgs(PyObject* object, const char* name);
};

}  // namespace PythonUtil
