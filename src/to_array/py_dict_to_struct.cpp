#include "to_array/py_dict_to_struct.h"

#include <algorithm>

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
using foundation::zorvandata::Layout;
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

struct Fields {
  std::shared_ptr<const Layout> layout;
  std::vector<PyObjectWithGuard> values;
};

// Absent with ValueError set.
std::optional<Fields> readFields(PyObject* dict) {
  const auto count = static_cast<size_t>(std::max<Py_ssize_t>(PyDict_Size(dict), 0));
  DictKeys keys;
  keys.reserve(count);
  Fields fields;
  fields.values.reserve(count);
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dict, &position, &key, &value);) {
    keys.push_back(PyObjectWithGuard::newReference(key));
    fields.values.push_back(PyObjectWithGuard::newReference(value));
  }
  fields.layout = ArgumentScope::layoutOf(keys);
  if (fields.layout) return fields;
  fields.layout = layoutOfKeys(keys);
  if (!fields.layout) return std::nullopt;
  ArgumentScope::remember(std::move(keys), fields.layout);
  return fields;
}

}  // namespace

std::shared_ptr<const Layout> layoutOfKeys(const DictKeys& keys) {
  std::vector<std::string> names;
  names.reserve(keys.size());
  for (const PyObjectWithGuard& key : keys) {
    names.push_back(fieldName(key.get()));
    if (names.back().empty()) return nullptr;
  }
  return foundation::zorvandata::makeLayout("", std::move(names));
}

std::optional<Array> PyDictToStruct::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return std::nullopt;

  // All keys first, and the values held: converting a value can run code that changes the dict.
  const std::optional<Fields> fields = readFields(obj);
  if (!fields) return std::nullopt;
  const std::vector<PyObjectWithGuard>& values = fields->values;

  ItemList items(ArgumentScope::arena());
  items.reserve(values.size());
  for (const PyObjectWithGuard& field : values) {
    if (field.get() == obj) {
      setPythonErrorStr(PyExc_ValueError, formatMessage(RecurDictNotSupported));
      return std::nullopt;
    }
    if (!appendZDA(items, field.get())) return std::nullopt;
  }
  return makeArray(ArrayType::STRUCT, Dimensions::scalar(), std::move(items), fields->layout);
}

}  // namespace PythonZorvanDataArray::detail
