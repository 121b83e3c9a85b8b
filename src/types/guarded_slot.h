// Where C++ code runs as a slot of a Python type: no exception gets past this.
#pragma once

#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

// The result of `body`. An exception that it throws becomes a Python error, as
// `setPythonErrorFromException` has it, and the result is `failure`.
template <class Result, class Body>
Result guardedSlot(Result failure, Body body) noexcept {
  try {
    return body();
  } catch (...) {
    PythonUtil::setPythonErrorFromException();
    return failure;
  }
}

}  // namespace PythonZorvanDataArray::detail
