// Converter of cell arrays to lists.
#pragma once

#include "to_python/convert_zda_to_py_object.h"

namespace PythonZorvanDataArray::detail {

// A vector of cells becomes a list; an element without elements, of whatever type, an empty list.
class CellToPyList : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
};

}  // namespace PythonZorvanDataArray::detail
