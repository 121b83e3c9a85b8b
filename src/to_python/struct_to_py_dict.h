// Converter of structs to dicts.
#pragma once

#include <optional>

#include "to_python/convert_zda_to_py_object.h"

namespace PythonZorvanDataArray::detail {

// One element of a struct array becomes a dict with its fields in their order. Without an index
// the array must have exactly one element.
class StructToPyDict : public ConvertZDAToPyObject {
 public:
  PyObject* convert(const foundation::zorvandata::Array& array) const override;
  PyObject* convertItem(const foundation::zorvandata::ItemList& items, size_t i) const override;

  // Position of the element that convert takes; only for instances of one's own.
  void setIndex(size_t index) { index_ = index; }

 private:
  std::optional<size_t> index_;
};

}  // namespace PythonZorvanDataArray::detail
