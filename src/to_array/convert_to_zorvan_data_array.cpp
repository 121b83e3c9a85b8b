#include "to_array/convert_to_zorvan_data_array.h"

#include "dataarray/array_predicates.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ItemList;

std::optional<Array> ConvertToZorvanDataArray::convert(PyObject*, const std::optional<Options>&) {
  return std::nullopt;
}

bool ConvertToZorvanDataArray::appendTo(ItemList& items, PyObject* obj,
                                        const std::optional<Options>& options) {
  const std::optional<Array> array = convert(obj, options);
  if (!isValidArr(array) || PyErr_Occurred()) return false;
  items.append(*array);
  return true;
}

}  // namespace PythonZorvanDataArray::detail
