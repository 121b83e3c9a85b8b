#include "to_array/numpy_info.h"

#include <string>

#include "to_array/text_converters.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard_getter.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

char numPyDtypeKindAsChar(PyObject* obj) {
  const auto dtype = PyObjectGuardGetter::getAttrString(obj, "dtype", true);
  if (!dtype) return 0;
  const auto kind = PyObjectGuardGetter::getAttrString(dtype.get(), "kind", true);
  if (!kind) return 0;
  if (PyUnicode_Check(kind.get())) {
    const std::string text = convertPyStrToString(kind.get());
    if (!text.empty()) return text[0];
    PyErr_Clear();
  }
  setPythonErrorStr(PyExc_AttributeError,
                    formatMessage(AttributeNotRetrieved, "Unable to retrieve kind from string"));
  return 0;
}

std::optional<bool> hasMaskedElements(PyObject* obj) {
  const auto name = PyObjectWithGuard::owned(PyUnicode_FromString("numpy.ma"));
  if (!name) return std::nullopt;
  const auto ma = PyObjectWithGuard::owned(PyImport_GetModule(name.get()));
  if (!ma && PyErr_Occurred()) return std::nullopt;
  if (!ma || ma.get() == Py_None) return false;
  const auto type = PyObjectGuardGetter::getAttrString(ma.get(), "MaskedArray", true);
  if (!type) return std::nullopt;
  const int isMasked = PyObject_IsInstance(obj, type.get());
  if (isMasked < 0) return std::nullopt;
  if (isMasked == 0) return false;
  const auto answer =
      PyObjectWithGuard::owned(PyObject_CallMethod(ma.get(), "is_masked", "O", obj));
  if (!answer) return std::nullopt;
  const int truth = PyObject_IsTrue(answer.get());
  if (truth < 0) return std::nullopt;
  return truth != 0;
}

}  // namespace PythonZorvanDataArray::detail
