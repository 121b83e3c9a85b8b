#include "to_array/pandas_objects.h"

#include <memory>

#include "to_array/date_time_objects.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectWithGuard;

namespace {

PyObjectWithGuard attribute(const PyObjectWithGuard& obj, const char* name) {
  return PyObjectWithGuard::owned(PyObject_GetAttrString(obj.get(), name));
}

std::unique_ptr<PandasObjects> makeObjects() {
  const auto pandas = PyObjectWithGuard::owned(PyImport_ImportModule("pandas"));
  if (!pandas) return nullptr;
  auto made = std::make_unique<PandasObjects>();
  const bool isComplete = (made->rangeIndex = attribute(pandas, "RangeIndex")) &&
                          (made->na = attribute(pandas, "NA")) &&
                          (made->nat = attribute(pandas, "NaT"));
  return isComplete ? std::move(made) : nullptr;
}

// The attribute as text; absent with a Python error set.
std::optional<std::string> textAttribute(const PyObjectWithGuard& obj, const char* name) {
  const PyObjectWithGuard text = attribute(obj, name);
  Py_ssize_t size = 0;
  const char* utf8 = text ? PyUnicode_AsUTF8AndSize(text.get(), &size) : nullptr;
  if (!utf8) return std::nullopt;
  return std::string(utf8, static_cast<size_t>(size));
}

// How Arrow calls the items of a dtype that is Arrow's; empty for all others. Sets no error.
std::string arrowTypeName(const PyObjectWithGuard& dtype) {
  const PyObjectWithGuard type = attribute(dtype, "pyarrow_dtype");
  const auto text = PyObjectWithGuard::owned(type ? PyObject_Str(type.get()) : nullptr);
  const char* utf8 = text ? PyUnicode_AsUTF8AndSize(text.get(), nullptr) : nullptr;
  std::string name = utf8 ? utf8 : "";
  PyErr_Clear();
  return name;
}

}  // namespace

const PandasObjects* pandasObjects() {
  static const PandasObjects* objects = nullptr;
  if (!objects) objects = makeObjects().release();
  return objects;
}

bool isPandasDataFrame(PyObject* obj) { return isInstanceOf(obj, "pandas", "DataFrame"); }
bool isPandasSeries(PyObject* obj) { return isInstanceOf(obj, "pandas", "Series"); }

PyObjectWithGuard getItemByPosition(PyObject* iloc, Py_ssize_t position) {
  const auto index = PyObjectWithGuard::owned(PyLong_FromSsize_t(position));
  auto item = PyObjectWithGuard::owned(index ? PyObject_GetItem(iloc, index.get()) : nullptr);
  if (!item) {
    setPythonErrorStr(PyExc_IndexError, formatMessage(UnableToRetrieveObject, position));
  }
  return item;
}

void setUnsupportedColumnItem(PyObject* item) {
  setPythonErrorStr(PyExc_TypeError,
                    formatMessage(UnsupportedDataFrameColumnTypeError, getUnqualifiedName(item)));
}

PyObjectWithGuard arrowArrayOf(PyObject* series) {
  const auto values = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "array"));
  return PyObjectWithGuard::owned(
      values ? PyObject_CallMethod(values.get(), "__arrow_array__", nullptr) : nullptr);
}

std::optional<ColumnType> ColumnType::read(PyObject* series) {
  const auto dtype = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "dtype"));
  if (!dtype) return std::nullopt;
  const bool isNumpy = isInstanceOf(dtype.get(), "numpy", "dtype");
  const std::optional<std::string> name = isNumpy ? std::string() : textAttribute(dtype, "name");
  if (!name) return std::nullopt;
  const std::optional<std::string> kind = textAttribute(dtype, "kind");
  if (!kind) return std::nullopt;
  const PyObjectWithGuard itemType = attribute(dtype, "type");
  if (!itemType) return std::nullopt;
  ColumnType type;
  type.name = *name;
  type.kind = kind->empty() ? '\0' : kind->front();
  type.isNumpy = isNumpy;
  const std::string arrow = arrowTypeName(dtype);
  type.isArrow = !arrow.empty();
  // pandas 1.5 takes Arrow's texts for objects.
  type.isText = itemType.get() == reinterpret_cast<PyObject*>(&PyUnicode_Type) ||
                arrow == "string" || arrow == "large_string";
  return type;
}

}  // namespace PythonZorvanDataArray::detail
