#include "util/nesting_guard.h"

namespace PythonUtil {

namespace {

thread_local int depth = 0;

bool enter(int limit) noexcept {
  if (depth >= limit) {
    PyErr_Format(PyExc_RecursionError, "nesting deeper than %d levels not supported", limit);
    return false;
  }
  if (Py_EnterRecursiveCall(" while converting a nested value") != 0) {
    return false;
  }
  ++depth;
  return true;
}

}  // namespace

NestingGuard::NestingGuard(int limit) noexcept : entered_(enter(limit)) {}

NestingGuard::~NestingGuard() noexcept {
  if (entered_) {
    --depth;
    Py_LeaveRecursiveCall();
  }
}

}  // namespace PythonUtil
