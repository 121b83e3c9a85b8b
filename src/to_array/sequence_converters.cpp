#include "to_array/sequence_converters.h"

#include "to_array/argument_scope.h"
#include "to_array/converter_factory.h"
#include "to_array/plain_columns.h"
#include "to_array/plain_records.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// A 1-by-count cell array; `next(i)` gives a guard on the i-th element, empty with an error set
// when there is none.
template <class Next>
std::optional<Array> toCell(Py_ssize_t count, Next&& next) {
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level || count < 0) return std::nullopt;
  ItemList items(ArgumentScope::arena());
  items.reserve(static_cast<size_t>(count));
  for (Py_ssize_t i = 0; i < count; ++i) {
    const PyObjectWithGuard element = next(i);
    if (!element || !appendZDA(items, element.get())) return std::nullopt;
  }
  return makeArray(ArrayType::CELL, Dimensions::row(static_cast<size_t>(count)), std::move(items));
}

// A list or tuple of elements that are alike and many. Absent when they are not, or with a Python
// error set.
std::optional<Array> toColumns(PyObject* listOrTuple, Py_ssize_t count) {
  if (count < static_cast<Py_ssize_t>(foundation::zorvandata::kColumnFrom)) return std::nullopt;
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return std::nullopt;
  std::optional<ItemList> items = uniformColumn(listOrTuple);
  if (!items && !PyErr_Occurred()) items = recordColumn(listOrTuple);
  if (!items) return std::nullopt;
  const Dimensions dims = Dimensions::row(items->size());
  return makeArray(ArrayType::CELL, dims, std::move(*items));
}

}  // namespace

std::optional<Array> PyListToCell::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const Py_ssize_t count = PyList_Size(obj);
  if (auto columns = toColumns(obj, count); columns || PyErr_Occurred()) return columns;
  // Converting an element can run Python code, which may shorten the list: then PyList_GetItem
  // raises IndexError.
  return toCell(count, [obj](Py_ssize_t i) {
    PyObject* item = PyList_GetItem(obj, i);
    if (item != obj) return PyObjectWithGuard::newReference(item);
    setPythonErrorStr(PyExc_ValueError, formatMessage(RecurListNotSupported));
    return PyObjectWithGuard();
  });
}

std::optional<Array> PyTupleToCell::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const Py_ssize_t count = PyTuple_Size(obj);
  if (auto columns = toColumns(obj, count); columns || PyErr_Occurred()) return columns;
  return toCell(count, [obj](Py_ssize_t i) {
    return PyObjectWithGuard::newReference(PyTuple_GetItem(obj, i));
  });
}

std::optional<Array> PySetToCell::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const auto copy = PyObjectWithGuard::owned(PySet_New(obj));
  if (!copy) return std::nullopt;
  return toCell(PySet_Size(copy.get()),
                [&copy](Py_ssize_t) { return PyObjectWithGuard::owned(PySet_Pop(copy.get())); });
}

}  // namespace PythonZorvanDataArray::detail
