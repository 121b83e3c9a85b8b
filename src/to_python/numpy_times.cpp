#include "to_python/numpy_times.h"

#include <algorithm>

#include "to_python/imported_attribute.h"
#include "types/ndpy_array_bridge.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Dimensions;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

// The extents in reverse, as a tuple of ints.
PyObjectWithGuard reversedShape(const Dimensions& dims) {
  const auto count = static_cast<Py_ssize_t>(dims.count());
  auto shape = PyObjectWithGuard::owned(PyTuple_New(count));
  for (Py_ssize_t i = 0; shape && i < count; ++i) {
    PyObject* extent = PyLong_FromSize_t(dims[static_cast<size_t>(count - 1 - i)]);
    if (!extent || PyTuple_SetItem(shape.get(), i, extent) != 0) return {};
  }
  return shape;
}

}  // namespace

PyObject* makeNumpyTimes(NumpyTimeClass timeClass, const TimeCounts& times) {
  static ImportedAttribute asarray("numpy", "asarray");
  if (!asarray.get()) return nullptr;
  const auto memory = PyObjectWithGuard::owned(PythonNdPyArray::ndArrayFromArray(times.counts));
  if (!memory) return nullptr;
  const auto integers =
      PyObjectWithGuard::owned(PyObject_CallFunctionObjArgs(asarray.get(), memory.get(), nullptr));
  if (!integers) return nullptr;
  const char dtype[] = {timeClass.code, '8', '[', times.nanoseconds ? 'n' : 'u', 's', ']', '\0'};
  return PyObject_CallMethod(integers.get(), "view", "s", dtype);
}

PyObject* makeNumpyTime(NumpyTimeClass timeClass, int64_t nanoseconds) {
  const auto numpy = PyObjectGuardGetter::getModule("numpy", true);
  if (!numpy) return nullptr;
  return PyObject_CallMethod(numpy.get(), timeClass.name, "Ls", static_cast<long long>(nanoseconds),
                             "ns");
}

PyObject* makeNumpyNaT() {
  static ImportedAttribute datetime64("numpy", "datetime64");
  return datetime64.get() ? PyObject_CallFunction(datetime64.get(), "ss", "NaT", "us") : nullptr;
}

// The array of the reversed extents in row-major order, transposed.
PyObject* makeNumpyObjects(const Dimensions& dims, const NextObjects& next) {
  static ImportedAttribute makeEmpty("numpy", "empty");
  if (!makeEmpty.get()) return nullptr;
  const auto shape = reversedShape(dims);
  if (!shape) return nullptr;
  const auto size = static_cast<Py_ssize_t>(dims.elements());
  const auto row =
      PyObjectWithGuard::owned(PyObject_CallFunction(makeEmpty.get(), "ns", size, "O"));
  if (!row) return nullptr;
  constexpr Py_ssize_t kPart = 8192;
  for (Py_ssize_t first = 0; first < size; first += kPart) {
    const Py_ssize_t count = std::min(kPart, size - first);
    const auto part = next(static_cast<size_t>(count));
    if (!part || PySequence_SetSlice(row.get(), first, first + count, part.get()) != 0) {
      return nullptr;
    }
  }
  const auto reversed =
      PyObjectWithGuard::owned(PyObject_CallMethod(row.get(), "reshape", "(O)", shape.get()));
  return reversed ? PyObject_CallMethod(reversed.get(), "transpose", nullptr) : nullptr;
}

}  // namespace PythonZorvanDataArray::detail
