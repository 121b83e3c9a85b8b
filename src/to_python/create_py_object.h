// The way from a data array to a Python object.
#pragma once

#include "util/python_api.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray {

// New reference, or NULL with a Python error set; throws nothing. The memory of numeric arrays
// may pass into the result, so the caller converts an array once and then lets go of it.
PyObject* createPyObject(foundation::zorvandata::Array& array) noexcept;

}  // namespace PythonZorvanDataArray
