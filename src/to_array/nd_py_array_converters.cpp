#include "to_array/nd_py_array_converters.h"

#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard_getter.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;

std::optional<bool> ConvertNdPyArray::isComplex(PyObject* obj) {
  const auto attribute = PythonUtil::PyObjectGuardGetter::getAttrString(obj, "_is_complex", true);
  if (!attribute) return std::nullopt;
  const int truth = PyObject_IsTrue(attribute.get());
  if (truth < 0) return std::nullopt;
  return truth != 0;
}

std::optional<Array> ConvertNdPyArray::toZDA(PyObject* obj, ArrayType type) {
  if (!PythonNdPyArray::ndpyCapsule) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(CapsuleIsNull));
    return std::nullopt;
  }
  if (!obj) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(NullNotSupported));
    return std::nullopt;
  }
  std::optional<Array> array = PythonNdPyArray::arrayFromTypedObject(obj, type);
  if (!array) setPythonErrorStr(PyExc_TypeError, formatMessage(CapsuleUnableToRetrieveObject));
  return array;
}

std::optional<Array> NdPyLogicalToLogical::convert(PyObject* obj, const std::optional<Options>&) {
  return toZDA(obj, ArrayType::LOGICAL);
}

}  // namespace PythonZorvanDataArray::detail
