// A plain dict becomes a 1-by-1 struct with one field a key, in insertion order.
#pragma once

#include "to_array/argument_scope.h"
#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

// The layout of a dict's keys; NULL with ValueError set for a key that is no str, that is empty or
// cannot be encoded.
std::shared_ptr<const foundation::zorvandata::Layout> layoutOfKeys(const DictKeys& keys);

// ValueError for a key that is no str, that is empty or cannot be encoded, and for a dict that is
// a value of itself. Field names are not held to the engine's identifier rules.
class PyDictToStruct final : public ConvertToZorvanDataArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

}  // namespace PythonZorvanDataArray::detail
