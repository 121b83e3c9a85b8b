// Objects that export a buffer, numpy arrays among them, become numeric or logical arrays that
// equal what numpy.asfortranarray would give, sharing their memory for the length of the call.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"
#include "to_array/nd_py_array_converters.h"

namespace PythonZorvanDataArray::detail {

// One dimension of N elements becomes 1-by-N, none 1-by-1. float16 is widened to single. TypeError
// for element types without a counterpart and for masked arrays with masked elements, whose mask
// would be lost; what the exporter raises passes through.
std::optional<foundation::zorvandata::Array> convertBufferToZDA(
    PyObject* obj, const std::optional<ConvertToZorvanDataArray::Options>& options);

class BufferProtocolObjectToBuffer final : public ConvertNdPyArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(
      PyObject* obj, const std::optional<Options>& options) override {
    return convertBufferToZDA(obj, options);
  }
};

class NumpyNDArrayObjectToBuffer final : public ConvertNdPyArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(
      PyObject* obj, const std::optional<Options>& options) override;
};

}  // namespace PythonZorvanDataArray::detail
