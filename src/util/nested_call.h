// The interpreter's own bound on recursion in C++: one for each level, for as long as it runs.
#pragma once

#include "util/python_api.h"
#include "util/python_error.h"

namespace PythonUtil {

class NestedCall {
 public:
  // Throws PythonErrorSet with RecursionError set.
  NestedCall() {
    if (Py_EnterRecursiveCall(" while converting a nested value") != 0) throw PythonErrorSet();
  }
  ~NestedCall() { Py_LeaveRecursiveCall(); }
  NestedCall(const NestedCall&) = delete;
  NestedCall& operator=(const NestedCall&) = delete;
};

}  // namespace PythonUtil
