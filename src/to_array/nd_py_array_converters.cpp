#include "to_array/nd_py_array_converters.h"

#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard_getter.h"
#include "util/reference.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using PythonUtil::raise;

bool ConvertNdPyArray::isComplex(PyObject* obj) {
  const auto attribute = PythonUtil::PyObjectGuardGetter::getAttrString(obj, "_is_complex", true);
  if (!attribute) throw PythonUtil::PythonErrorSet();
  const int truth = PyObject_IsTrue(attribute.get());
  PythonUtil::check(truth);
  return truth != 0;
}

void ConvertNdPyArray::appendTyped(Encoder& to, PyObject* obj, ArrayType type) {
  if (!PythonNdPyArray::ndpyCapsule) raise(PyExc_TypeError, formatMessage(CapsuleIsNull));
  const std::optional<Array> array = PythonNdPyArray::arrayFromTypedObject(obj, type);
  if (!array) raise(PyExc_TypeError, formatMessage(CapsuleUnableToRetrieveObject));
  to.tape().array(*array);
}

void NdPyLogicalToLogical::append(Encoder& to, PyObject* obj, const Options&) const {
  appendTyped(to, obj, ArrayType::LOGICAL);
}

}  // namespace PythonZorvanDataArray::detail
