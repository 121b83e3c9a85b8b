#include "to_python/convert_zda_to_nd_py_array.h"

#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;

PyObject* ConvertZDAToNdPyArray::convert(const Array& array) const { return toNdPyArray(array); }

PyObject* toNdPyArray(const Array& array) {
  if (!PythonNdPyArray::ndpyCapsule) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(CapsuleIsNull));
    return nullptr;
  }
  return PythonNdPyArray::ndArrayFromArray(array);
}

}  // namespace PythonZorvanDataArray::detail
