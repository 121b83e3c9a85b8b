// A set becomes a 1-by-N cell array, in no particular order.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

class PySetToCell final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
