// Categorical variables of the engine's tables as columns of texts.
#pragma once

#include "util/py_object_guard.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// The name of each row's category, empty where it is undefined: a list of str or a pandas array.
// Throws PythonErrorSet: ValueError for codes that no category has.
PythonUtil::PyObjectWithGuard makeCategoricalColumn(
    const foundation::zorvandata::Array& categorical);

}  // namespace PythonZorvanDataArray::detail
