// Text columns that Arrow keeps: read from its memory, without an object for each text.
#pragma once

#include <optional>

#include "util/python_api.h"
#include "zorvandata/item_list.h"

namespace PythonZorvanDataArray::detail {

// The texts of a series as strings, gaps as empty ones. Absent without an error when Arrow does not
// keep them, or in a form of its own; absent with a Python error set when asking fails. Throws like
// foundation::zorvandata::toUtf16 where the memory holds no texts.
std::optional<foundation::zorvandata::ItemList> readArrowTexts(PyObject* series);

}  // namespace PythonZorvanDataArray::detail
