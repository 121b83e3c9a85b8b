// Setting Python exceptions from C++.
//
// The setters replace any pending error. Text is taken for UTF-8; bytes that are not come out as
// "\xNN" escapes, so bad text never hides the error it describes. `type` is an exception class.
#pragma once

#include <exception>
#include <string>

#include "util/python_api.h"

namespace PythonUtil {

// Thrown with a Python error pending, by code that can report failure in no other way.
class PythonErrorSet : public std::exception {
 public:
  const char* what() const noexcept override { return "a Python error is set"; }
};

void setPythonErrorStr(PyObject* type, const std::string& message) noexcept;

// The ASCII code units of `message`, in order; all others are dropped.
std::string ustrToAsciiStr(const std::u16string& message);

// Only the ASCII code units of `message` are kept.
void setPythonErrorUstr(PyObject* type, const std::u16string& message);

// Turns the exception being handled into a Python error; call it in a catch block where C++ meets
// the interpreter. PythonErrorSet keeps the pending error, std::bad_alloc becomes MemoryError,
// arrays nested too deeply RecursionError, everything else ValueError with the exception's own
// text.
void setPythonErrorFromException() noexcept;

}  // namespace PythonUtil

namespace PythonZorvanDataArray {

void setPythonErrorStr(PyObject* type, const std::string& message) noexcept;
void setPythonErrorUstr(PyObject* type, const std::u16string& message);

}  // namespace PythonZorvanDataArray
