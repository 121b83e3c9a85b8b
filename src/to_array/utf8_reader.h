// The UTF-8 of str objects, at the least cost in time and memory.
#pragma once

#include <string_view>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// Asking a str for its UTF-8 is free for ASCII text, but leaves a second copy of any other text
// inside the str for as long as it lives; so after the first text that is not ASCII the copy is
// made outside, until an ASCII text comes again.
//
// Runs no Python code unless it fails: making the exception may start a garbage collection, and so
// any finalizer. After a failure no borrowed reference is worth anything.
class Utf8Reader {
 public:
  // The view is valid while `obj` and `copy` are alive. Its data is NULL, with the
  // UnicodeEncodeError of the UTF-16 encoder set, when the text has a lone surrogate.
  std::string_view read(PyObject* obj, PythonUtil::PyObjectWithGuard& copy) {
    const auto held = PythonUtil::PyObjectWithGuard::newReference(obj);
    const Py_ssize_t length = PyUnicode_GetLength(obj);
    Py_ssize_t size = 0;
    const char* utf8 = nullptr;
    if (lastWasAscii_ && length <= kLongestInside) {
      utf8 = PyUnicode_AsUTF8AndSize(obj, &size);
    } else {
      copy = PythonUtil::PyObjectWithGuard::owned(PyUnicode_AsUTF8String(obj));
      if (copy) {
        utf8 = PyBytes_AsString(copy.get());
        size = PyBytes_Size(copy.get());
      }
    }
    if (!utf8) return fail(obj);
    lastWasAscii_ = size == length;
    return {utf8, static_cast<size_t>(size)};
  }

 private:
  // The error that users know is the one of the UTF-16 encoder.
  static std::string_view fail(PyObject* obj) {
    if (PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) {
      PyErr_Clear();
      const auto refused = PythonUtil::PyObjectWithGuard::owned(PyUnicode_AsUTF16String(obj));
    }
    return {};
  }

  // A copy of a longer text would be too much to leave behind.
  static constexpr Py_ssize_t kLongestInside = 4096;

  bool lastWasAscii_ = true;
};

}  // namespace PythonZorvanDataArray::detail
