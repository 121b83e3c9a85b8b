#include "to_array/pandas_objects.h"

#include <memory>

#include "to_array/date_time_objects.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

std::unique_ptr<PandasObjects> makeObjects() {
  const auto pandas = checked(PyImport_ImportModule("pandas"));
  auto made = std::make_unique<PandasObjects>();
  made->dataFrame = attributeOf(pandas.get(), "DataFrame");
  made->rangeIndex = attributeOf(pandas.get(), "RangeIndex");
  made->na = attributeOf(pandas.get(), "NA");
  made->nat = attributeOf(pandas.get(), "NaT");
  return made;
}

std::string textAttribute(const PyObjectWithGuard& obj, const char* name) {
  const auto text = attributeOf(obj.get(), name);
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(text.get(), &size);
  if (!utf8) throw PythonErrorSet();
  return std::string(utf8, static_cast<size_t>(size));
}

// How Arrow calls the items of a dtype that is Arrow's; empty for all others. Sets no error.
std::string arrowTypeName(const PyObjectWithGuard& dtype) {
  const auto type = PyObjectWithGuard::owned(PyObject_GetAttrString(dtype.get(), "pyarrow_dtype"));
  const auto text = PyObjectWithGuard::owned(type ? PyObject_Str(type.get()) : nullptr);
  const char* utf8 = text ? PyUnicode_AsUTF8AndSize(text.get(), nullptr) : nullptr;
  std::string name = utf8 ? utf8 : "";
  PyErr_Clear();
  return name;
}

}  // namespace

const PandasObjects& pandasObjects() {
  static const PandasObjects* objects = nullptr;
  if (!objects) objects = makeObjects().release();
  return *objects;
}

PyObjectWithGuard attributeOf(PyObject* obj, const char* name) {
  return checked(PyObject_GetAttrString(obj, name));
}

PyObjectWithGuard resultOf(PyObject* obj, const char* method) {
  return checked(PyObject_CallMethod(obj, method, nullptr));
}

PyObjectWithGuard listItem(const PyObjectWithGuard& list, size_t position) {
  return checked(Py_XNewRef(PyList_GetItem(list.get(), static_cast<Py_ssize_t>(position))));
}

PyObjectWithGuard arrowArrayOf(PyObject* series) {
  return resultOf(attributeOf(series, "array").get(), "__arrow_array__");
}

bool isPandasDataFrame(PyObject* obj) { return isInstanceOf(obj, "pandas", "DataFrame"); }
bool isPandasSeries(PyObject* obj) { return isInstanceOf(obj, "pandas", "Series"); }

bool isPlain(PyObject* obj) {
  PyTypeObject* type = Py_TYPE(obj);
  return type == &PyUnicode_Type || type == &PyFloat_Type || type == &PyLong_Type ||
         type == &PyBool_Type || obj == Py_None;
}

bool arePlain(PyObject* sequence) {
  const Py_ssize_t count = PySequence_Size(sequence);
  if (count < 0) throw PythonErrorSet();
  for (Py_ssize_t i = 0; i < count; ++i) {
    if (!isPlain(checked(PySequence_GetItem(sequence, i)).get())) return false;
  }
  return true;
}

void refuseColumnItem(PyObject* item) {
  PyErr_Clear();  // of the item's conversion: asking for names calls what must not see it pending
  PythonUtil::raise(PyExc_TypeError,
                    formatMessage(UnsupportedDataFrameColumnTypeError, getUnqualifiedName(item)));
}

ColumnType ColumnType::read(PyObject* series) {
  const auto dtype = attributeOf(series, "dtype");
  ColumnType type;
  type.isNumpy = isInstanceOf(dtype.get(), "numpy", "dtype");
  if (!type.isNumpy) type.name = textAttribute(dtype, "name");
  const std::string kind = textAttribute(dtype, "kind");
  type.kind = kind.empty() ? '\0' : kind.front();
  const auto itemType = attributeOf(dtype.get(), "type");
  const std::string arrow = arrowTypeName(dtype);
  type.isArrow = !arrow.empty();
  // pandas 1.5 takes Arrow's texts for objects.
  type.isText = itemType.get() == reinterpret_cast<PyObject*>(&PyUnicode_Type) ||
                arrow == "string" || arrow == "large_string";
  return type;
}

}  // namespace PythonZorvanDataArray::detail
