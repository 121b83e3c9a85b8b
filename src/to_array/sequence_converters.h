// list, tuple and set become 1-by-N cell arrays, element by element.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// ValueError for a list that is an element of itself; other cycles end as RecursionError.
class PyListToCell final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

class PyTupleToCell final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

// In no particular order.
class PySetToCell final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

}  // namespace PythonZorvanDataArray::detail
