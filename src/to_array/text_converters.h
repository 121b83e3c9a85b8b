// The ways in which code other than the encoder reads the text of a Python object.
#pragma once

#include <optional>
#include <string>

#include "util/python_api.h"

namespace PythonZorvanDataArray::detail {

// The text as UTF-16 code units in native byte order; absent with a Python error set, which for a
// lone surrogate is the interpreter's UnicodeEncodeError.
std::optional<std::u16string> convertPyStrToUstring(PyObject* obj);

// The ASCII part of the text; empty, with a Python error set, when there is none to be had.
std::string convertPyStrToString(PyObject* obj);

}  // namespace PythonZorvanDataArray::detail
