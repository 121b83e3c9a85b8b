// The typed arrays of the zorvan package become arrays of the same element type and shape, sharing
// their memory for the length of the call.
#pragma once

#include <complex>

#include "to_array/convert_to_zorvan_data_array.h"

namespace PythonZorvanDataArray::detail {

class ConvertNdPyArray : public ConvertToZorvanDataArray {
 protected:
  // TypeError when the object has no elements of that type to offer.
  static void appendTyped(Encoder& to, PyObject* obj, foundation::zorvandata::ArrayType type);
  // The truth of the object's "_is_complex".
  static bool isComplex(PyObject* obj);
};

// Arrays of T, or of its complex twin when they say so.
template <class T>
class NdPyNumberToNumber final : public ConvertNdPyArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options&) const override {
    using foundation::zorvandata::ArrayTypeOf;
    appendTyped(to, obj,
                isComplex(obj) ? ArrayTypeOf<std::complex<T>>::value : ArrayTypeOf<T>::value);
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
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

}  // namespace PythonZorvanDataArray::detail
