// Converter of numeric and logical arrays of any number of elements to the array classes of the
// zorvan package. Shape, element type and complexity are kept.
#pragma once

#include "to_python/convert_zda_to_py_object.h"

namespace PythonZorvanDataArray::detail {

class ConvertZDAToNdPyArray : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
};

// New reference; ValueError when start-up has not bound the array package.
PyObject* toNdPyArray(const foundation::zorvandata::Array& array);

}  // namespace PythonZorvanDataArray::detail
