#include "to_array/buffer_converters.h"

#include "to_array/date_time_converters.h"
#include "to_array/duration_converters.h"
#include "to_array/numpy_info.h"
#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/reference.h"

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

std::optional<Array> convertBufferToZDA(PyObject* obj) {
  if (!PythonNdPyArray::ndpyCapsule) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(CapsuleIsNull));
    return std::nullopt;
  }
  if (!obj || !checkNothingIsMasked(obj)) return std::nullopt;
  return PythonNdPyArray::arrayFromBuffer(obj);
}

namespace {

// Exporting a buffer runs Python code where the type is written in Python.
void beforeExport(Encoder& to, PyObject* obj) {
  if ((PyType_GetFlags(Py_TYPE(obj)) & Py_TPFLAGS_HEAPTYPE) != 0) to.beforeForeignCode();
}

void appendArray(Encoder& to, const std::optional<Array>& array) {
  if (!array) throw PythonUtil::PythonErrorSet();
  to.tape().array(*array);
}

}  // namespace

void BufferProtocolObjectToBuffer::append(Encoder& to, PyObject* obj, const Options&) const {
  beforeExport(to, obj);
  appendArray(to, convertBufferToZDA(obj));
}

void NumpyNDArrayObjectToBuffer::append(Encoder& to, PyObject* obj, const Options& options) const {
  static const PyNumpyDatetime64ArrayToDatetime datetime64Converter;
  static const PyNumpyTimedelta64ToDuration timedelta64Converter;
  beforeExport(to, obj);
  const char kind = numPyDtypeKindAsChar(obj);
  if (kind == 0) throw PythonUtil::PythonErrorSet();
  if (kind != 'M' && kind != 'm') return appendArray(to, convertBufferToZDA(obj));
  if (!checkNothingIsMasked(obj)) throw PythonUtil::PythonErrorSet();
  if (kind == 'M') return datetime64Converter.append(to, obj, options);
  timedelta64Converter.append(to, obj, options);
}

}  // namespace PythonZorvanDataArray::detail
