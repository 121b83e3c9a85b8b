// The typed arrays of the zorvan package become arrays of the same element type and shape, sharing
// their memory for the length of the call.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

class ConvertNdPyArray : public ConvertToZorvanDataArray {
 protected:
  // Empty, with TypeError set, when the object has no elements of that type to offer.
  std::optional<foundation::zorvandata::Array> toZDA(PyObject* obj,
                                                     foundation::zorvandata::ArrayType type);
  // The truth of the object's "_is_complex"; absent with a Python error set.
  std::optional<bool> isComplex(PyObject* obj);
};

// Arrays of T, or of its complex twin when they say so.
template <class T>
class NdPyNumberToNumber final : public ConvertNdPyArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override {
    using foundation::zorvandata::ArrayTypeOf;
    const std::optional<bool> complex = isComplex(obj);
    if (!complex) return std::nullopt;
    return toZDA(obj, *complex ? ArrayTypeOf<std::complex<T>>::value : ArrayTypeOf<T>::value);
  }
};

using NdPyDoubleToDouble = NdPyNumberToNumber<double>;
using NdPySingleToSingle = NdPyNumberToNumber<float>;
using NdPyInt8ToInt8 = NdPyNumberToNumber<int8_t>;
using NdPyUint8ToUint8 = NdPyNumberToNumber<uint8_t>;
using NdPyInt16ToInt16 = NdPyNumberToNumber<int16_t>;
using NdPyUint16ToUint16 = NdPyNumberToNumber<uint16_t>;
using NdPyInt32ToInt32 = NdPyNumberToNumber<int32_t>;
using NdPyUint32ToUint32 = NdPyNumberToNumber<uint32_t>;
using NdPyInt64ToInt64 = NdPyNumberToNumber<int64_t>;
using NdPyUint64ToUint64 = NdPyNumberToNumber<uint64_t>;

class NdPyLogicalToLogical final : public ConvertNdPyArray {
 public:
  std::optional<foundation::zorvandata::Array> convert(PyObject* obj,
                                                       const std::optional<Options>&) override;
};

}  // namespace PythonZorvanDataArray::detail
