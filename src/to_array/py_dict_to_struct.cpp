#include "to_array/py_dict_to_struct.h"

#include "to_array/converter_factory.h"
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

// The field name of a key; empty, with ValueError set, when it is none.
std::string fieldName(PyObject* key) {
  if (!PyUnicode_Check(key)) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(NonTextFieldName));
    return "";
  }
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(key, &size);
  if (utf8 && size > 0) return std::string(utf8, static_cast<size_t>(size));
  PyErr_Clear();
  setPythonErrorStr(PyExc_ValueError, formatMessage(EmptyStructFieldName));
  return "";
}

}  // namespace

std::optional<Array> PyDictToStruct::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return std::nullopt;

  // All keys first, and the values held: converting a value can run code that changes the dict.
  std::vector<std::string> names;
  std::vector<PyObjectWithGuard> values;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(obj, &position, &key, &value);) {
    std::string name = fieldName(key);
    if (name.empty()) return std::nullopt;
    names.push_back(std::move(name));
    values.push_back(PyObjectWithGuard::newReference(value));
  }
  auto layout = foundation::zorvandata::makeLayout("", std::move(names));

  ItemList items;
  items.reserve(values.size());
  for (const PyObjectWithGuard& field : values) {
    if (field.get() == obj) {
      setPythonErrorStr(PyExc_ValueError, formatMessage(RecurDictNotSupported));
      return std::nullopt;
    }
    if (!appendZDA(items, field.get())) return std::nullopt;
  }
  return makeArray(ArrayType::STRUCT, Dimensions::scalar(), std::move(items), std::move(layout));
}

}  // namespace PythonZorvanDataArray::detail
