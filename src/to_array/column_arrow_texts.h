// Text columns that Arrow keeps: read from its memory, without an object for each text.
#pragma once

#include <optional>

#include "util/python_api.h"
#include "zorvandata/texts.h"

namespace PythonZorvanDataArray::detail {

// The texts of a series, gaps as empty ones; they may share Arrow's memory, which is trusted to
// hold texts. Absent when Arrow does not keep them, or in a form of its own. Throws PythonErrorSet,
// and exceptions of the library where the memory is no such thing.
std::optional<foundation::zorvandata::Texts> readArrowTexts(PyObject* series);

}  // namespace PythonZorvanDataArray::detail
