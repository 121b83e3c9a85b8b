// Objects that export a buffer, numpy arrays among them, become numeric or logical arrays that
// equal what numpy.asfortranarray would give, sharing their memory for the length of the call.
#pragma once

#include <optional>

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// One dimension of N elements becomes 1-by-N, none 1-by-1. float16 is widened to single. TypeError
// for element types without a counterpart and for masked arrays with masked elements, whose mask
// would be lost; what the exporter raises passes through. Absent with a Python error set.
std::optional<foundation::zorvandata::Array> convertBufferToZDA(PyObject* obj);

class BufferProtocolObjectToBuffer final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

class NumpyNDArrayObjectToBuffer final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
