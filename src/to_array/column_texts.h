// Columns of dtypes for texts alone: `string` in every storage, the `str` of pandas 3, Arrow's.
#pragma once

#include <optional>

#include "to_array/pandas_objects.h"
#include "util/py_object_guard.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// A string array of one column; gaps, in any row, become empty texts. Throws PythonErrorSet: a text
// with a lone surrogate leaves the interpreter's UnicodeEncodeError.
foundation::zorvandata::Array convertTextColumn(PyObject* series);

// Likewise of a list that nobody else has. Of objects, where `objects` is given, only exactly str
// are texts, and absent is the array of a list in which others are anything but gaps.
std::optional<foundation::zorvandata::Array> textsOfList(const PythonUtil::PyObjectWithGuard& list,
                                                         const PandasObjects* objects);

}  // namespace PythonZorvanDataArray::detail
