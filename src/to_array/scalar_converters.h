// complex numbers and None; the other plain types are the encoder's own (encoder.h).
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// COMPLEX_DOUBLE.
class PyComplexToDouble final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

// Always TypeError.
class PyNoneToError final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
