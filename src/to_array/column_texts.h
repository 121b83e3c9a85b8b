// Columns of dtypes for texts alone: `string` in every storage, the `str` of pandas 3, Arrow's.
#pragma once

#include <optional>

#include "util/python_api.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// A string array of one column; gaps, in any row, become empty texts. Absent with a Python error
// set: a text with a lone surrogate leaves the interpreter's UnicodeEncodeError.
std::optional<foundation::zorvandata::Array> convertTextColumn(PyObject* series);

}  // namespace PythonZorvanDataArray::detail
