// bytes and bytearray become 1-by-N UINT8 arrays.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

class PyBytesToUint8 final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

class PyByteArrayToUint8 final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

}  // namespace PythonZorvanDataArray::detail
