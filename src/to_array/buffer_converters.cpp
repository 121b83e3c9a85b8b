#include "to_array/buffer_converters.h"

#include "to_array/date_time_converters.h"
#include "to_array/duration_converters.h"
#include "to_array/numpy_info.h"
#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;

namespace {

// False with a Python error set: the mask would be lost.
bool checkNothingIsMasked(PyObject* obj) {
  const std::optional<bool> masked = hasMaskedElements(obj);
  if (masked && *masked) {
    setPythonErrorStr(PyExc_TypeError,
                      "conversion of a masked array with masked elements to ZORVAN not supported");
  }
  return masked && !*masked;
}

}  // namespace

std::optional<Array> convertBufferToZDA(PyObject* obj,
                                        const std::optional<ConvertToZorvanDataArray::Options>&) {
  if (!PythonNdPyArray::ndpyCapsule) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(CapsuleIsNull));
    return std::nullopt;
  }
  if (!obj || !checkNothingIsMasked(obj)) return std::nullopt;
  return PythonNdPyArray::arrayFromBuffer(obj);
}

std::optional<Array> NumpyNDArrayObjectToBuffer::convert(PyObject* obj,
                                                         const std::optional<Options>& options) {
  if (!obj) return std::nullopt;
  static PyNumpyDatetime64ArrayToDatetime datetime64Converter;
  static PyNumpyTimedelta64ToDuration timedelta64Converter;
  switch (numPyDtypeKindAsChar(obj)) {
    case 0:
      if (!PyErr_Occurred()) {
        setPythonErrorStr(
            PyExc_AttributeError,
            formatMessage(AttributeNotRetrieved, "Unable to retrieve kind from string"));
      }
      return std::nullopt;
    case 'M':
      if (!checkNothingIsMasked(obj)) return std::nullopt;
      return datetime64Converter.convert(obj, options);
    case 'm':
      if (!checkNothingIsMasked(obj)) return std::nullopt;
      return timedelta64Converter.convert(obj, options);
    default:
      return convertBufferToZDA(obj, options);
  }
}

}  // namespace PythonZorvanDataArray::detail
