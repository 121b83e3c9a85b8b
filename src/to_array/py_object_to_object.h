// A zorvan.object goes back as the engine value that it holds: whole, or the element that its
// indices select.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// IndexError when some, but not all dimensions are indexed.
class PyObjectToObject final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

}  // namespace PythonZorvanDataArray::detail
