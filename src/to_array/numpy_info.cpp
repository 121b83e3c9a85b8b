#include "to_array/numpy_info.h"

#include <string>

#include "to_array/text_converters.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard_getter.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

constexpr size_t kNoSize = static_cast<size_t>(-1);

// Sets IndexError and returns false when the object is no size.
bool readSize(PyObject* number, size_t& size) {
  size = number ? PyLong_AsSize_t(number) : kNoSize;
  if (size != kNoSize || !PyErr_Occurred()) return number != nullptr;
  setPythonErrorStr(PyExc_IndexError, "PyLong_AsSize_t returned error");
  return false;
}

bool readShape(PyObject* shape, std::vector<size_t>& dims) {
  if (!shape) return false;
  if (!PySequence_Check(shape)) {
    setPythonErrorStr(PyExc_IndexError, "object is not a sequence");
    return false;
  }
  const Py_ssize_t count = PySequence_Size(shape);
  for (Py_ssize_t i = 0; i < count; ++i) {
    const auto extent = PyObjectWithGuard::owned(PySequence_GetItem(shape, i));
    size_t size = 0;
    if (!extent || !readSize(extent.get(), size)) return false;
    dims.push_back(size);
  }
  return count >= 0;
}

}  // namespace

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

std::optional<FlattenedNumPyArray> getFlattenedNumPyArrayInfo(PyObject* obj) {
  const auto numpy = PyObjectGuardGetter::getModule("numpy", true);
  if (!numpy) return std::nullopt;
  FlattenedNumPyArray info;
  const auto size = PyObjectGuardGetter::getAttrString(obj, "size", false);
  if (!size) {
    setPythonErrorStr(PyExc_IndexError, formatMessage(AttributeNotRetrieved, "size"));
    return std::nullopt;
  }
  if (!readSize(size.get(), info.size)) return std::nullopt;
  const auto shape = PyObjectGuardGetter::getAttrString(obj, "shape", true);
  if (!readShape(shape.get(), info.dims)) return std::nullopt;

  const auto ndarray = PyObjectGuardGetter::getAttrString(numpy.get(), "ndarray", true);
  const auto flatten = PyObjectGuardGetter::getAttrString(ndarray.get(), "flatten", true);
  if (!flatten) return std::nullopt;
  const auto args = PyObjectWithGuard::owned(PyTuple_Pack(1, obj));
  const auto keywords = PyObjectWithGuard::owned(Py_BuildValue("{s:s}", "order", "F"));
  if (!args || !keywords) return std::nullopt;
  info.elements =
      PyObjectWithGuard::owned(PyObject_Call(flatten.get(), args.get(), keywords.get()));
  if (!info.elements) return std::nullopt;
  return info;
}

}  // namespace PythonZorvanDataArray::detail
