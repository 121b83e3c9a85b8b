// A zorvan.object goes back as the engine value that it holds: whole, or the element that its
// indices select.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// IndexError when some, but not all dimensions are indexed.
class PyObjectToObject final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
