// Columns of dtypes for texts alone: `string` in every storage, the `str` of pandas 3, Arrow's.
#pragma once

#include <optional>

#include "util/py_object_guard.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// A string array of one column; gaps, in any row, become empty texts. Throws PythonErrorSet: a text
// with a lone surrogate leaves the interpreter's UnicodeEncodeError.
foundation::zorvandata::Array convertTextColumn(PyObject* series);

// What an item other than exactly a str is among texts.
enum class AmongTexts { kText, kGap, kNeither };

// Likewise of a list that nobody else has; absent when it holds anything that is neither.
std::optional<foundation::zorvandata::Array> textsOfList(const PythonUtil::PyObjectWithGuard& list,
                                                         AmongTexts (*isWhat)(PyObject*));

}  // namespace PythonZorvanDataArray::detail
