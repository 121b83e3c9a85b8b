// The interface of every converter from a Python object to the engine's values.
//
// Converters are stateless, shared, and called with the interpreter lock held; what belongs to one
// conversion is in the encoder that is passed along. They throw: PythonErrorSet with a Python error
// pending, exceptions of the data-array library or std::bad_alloc, all of which whoever the
// interpreter called turns into Python errors. An encoder is good for nothing after that.
#pragma once

#include <optional>

#include "to_array/encoder.h"
#include "util/python_api.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

class ConvertToZorvanDataArray {
 public:
  using Options = ConversionOptions;

  ConvertToZorvanDataArray() = default;
  ConvertToZorvanDataArray(const ConvertToZorvanDataArray&) = delete;
  ConvertToZorvanDataArray& operator=(const ConvertToZorvanDataArray&) = delete;
  virtual ~ConvertToZorvanDataArray() = default;

  // Appends the object as the next value.
  virtual void append(Encoder& to, PyObject* obj, const Options& options) const = 0;
};

}  // namespace PythonZorvanDataArray::detail
