// Categorical variables of the engine's tables as columns of texts.
#pragma once

#include "util/python_api.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// The name of each row's category, empty where it is undefined: new reference to a list of str or
// a pandas array, NULL with a Python error set. ValueError for codes that no category has.
PyObject* makeCategoricalColumn(const foundation::zorvandata::Array& categorical);

}  // namespace PythonZorvanDataArray::detail
