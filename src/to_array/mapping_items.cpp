#include "to_array/mapping_items.h"

#include <boost/numeric/conversion/cast.hpp>

#include "types/zorvan_dictionary_type.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard_getter.h"
#include "util/python_error.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

PyObjectWithGuard failWith(PyObject* type, const std::string& text) {
  setPythonErrorStr(type, text);
  return {};
}

// The maps merged into a new dict.
PyObjectWithGuard mergeChainMap(PyObject* chain) {
  const auto maps = PyObjectGuardGetter::getAttrString(chain, "maps", false);
  if (!maps) return failWith(PyExc_IndexError, formatMessage(AttributeNotRetrieved, "maps"));
  const auto unreadable = [] {
    return failWith(PyExc_IndexError, formatMessage(ChainMapContentsNotRetrieved));
  };
  const Py_ssize_t count = PySequence_Size(maps.get());
  if (count < 0) return unreadable();
  if (count == 0) {
    return failWith(PyExc_IndexError, formatMessage(ChainMapLengthUnexpected, count));
  }
  auto merged = PyObjectWithGuard::owned(PyDict_New());
  for (Py_ssize_t i = 0; merged && i < count; ++i) {
    const auto map = PyObjectWithGuard::owned(PySequence_GetItem(maps.get(), i));
    if (!map || PyDict_Merge(merged.get(), map.get(), 0) != 0) return unreadable();
  }
  return merged;
}

// False without a Python error when the object is no mapping, with one when it raised.
bool isMapping(PyObject* obj) {
  if (PyList_Check(obj) || PyTuple_Check(obj) || !PyMapping_Check(obj)) return false;
  if (PyObjectWithGuard::owned(PyObject_GetAttrString(obj, "keys"))) return true;
  if (PyErr_ExceptionMatches(PyExc_AttributeError)) PyErr_Clear();
  return false;
}

// The mapping to read in place of the object.
PyObjectWithGuard getDictPtr(PyObject* obj) {
  if (isZorvanDictionary(obj)) {
    auto contents = PyObjectWithGuard::newReference(zorvanDictionary_contents(obj));
    if (contents) return contents;
    return failWith(PyExc_IndexError, formatMessage(UninitializedDictionary));
  }
  const std::string typeName = getUnqualifiedName(obj);
  if (typeName == "ChainMap") return mergeChainMap(obj);
  if (typeName == "UserDict") {
    auto data = PyObjectGuardGetter::getAttrString(obj, "data", false);
    if (!data) return failWith(PyExc_TypeError, formatMessage(NoDataAttributeInUserDict));
    obj = data.get();
    if (isMapping(obj)) return data;
  } else if (isMapping(obj)) {
    return PyObjectWithGuard::newReference(obj);
  }
  if (PyErr_Occurred()) return {};
  return failWith(PyExc_IndexError,
                  formatMessage(TypeNotConvertibleToZORVANDictionary, getUnqualifiedName(obj)));
}

MappingItems readDict(PyObject* dict) {
  MappingItems items;
  items.fromDict = true;
  const auto count = boost::numeric_cast<size_t>(PyDict_Size(dict));
  items.keys.reserve(count);
  items.values.reserve(count);
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dict, &position, &key, &value);) {
    items.keys.push_back(PyObjectWithGuard::newReference(key));
    items.values.push_back(PyObjectWithGuard::newReference(value));
  }
  return items;
}

// The interpreter turns a negative length into a ValueError; here it has an error of its own. Any
// other ValueError, pending when this is called, stays.
void reportNegativeLength(PyObject* mapping) {
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  const auto length = PyObjectWithGuard::owned(PyObject_CallMethod(mapping, "__len__", nullptr));
  const long long count = length ? PyLong_AsLongLong(length.get()) : 0;
  PyErr_Restore(type, value, traceback);
  if (count >= 0) return;
  setPythonErrorStr(PyExc_IndexError, formatMessage(InvalidNumberOfElements, count));
}

// How many items the mapping says it has; absent with a Python error set.
std::optional<size_t> itemCount(PyObject* mapping) {
  const Py_ssize_t count = PyDict_Check(mapping)       ? PyDict_Size(mapping)
                           : PySequence_Check(mapping) ? PySequence_Size(mapping)
                                                       : PyMapping_Size(mapping);
  if (count >= 0) return boost::numeric_cast<size_t>(count);
  if (PyErr_ExceptionMatches(PyExc_ValueError)) reportNegativeLength(mapping);
  return std::nullopt;
}

std::optional<MappingItems> readByProtocol(PyObject* mapping) {
  const std::optional<size_t> count = itemCount(mapping);
  if (!count) return std::nullopt;
  const auto keys = PyObjectWithGuard::owned(PyMapping_Keys(mapping));
  if (!keys) return std::nullopt;
  const Py_ssize_t found = PyList_Size(keys.get());
  MappingItems items;
  for (Py_ssize_t i = 0; i < found; ++i) {
    auto key = PyObjectWithGuard::newReference(PyList_GetItem(keys.get(), i));
    auto value = PyObjectWithGuard::owned(PyObject_GetItem(mapping, key.get()));
    if (!value) return std::nullopt;
    items.keys.push_back(std::move(key));
    items.values.push_back(std::move(value));
  }
  const std::optional<size_t> after = itemCount(mapping);
  if (!after) return std::nullopt;
  if (items.size() == *count && *after == *count) return items;
  setPythonErrorStr(PyExc_RuntimeError,
                    "mapping of type '" + getUnqualifiedName(mapping) +
                        "' changed while it was read or misstates its length: " +
                        std::to_string(items.size()) + " keys, length " + std::to_string(*after));
  return std::nullopt;
}

}  // namespace

std::optional<MappingItems> readMapping(PyObject* obj) {
  if (!obj) {
    setPythonErrorStr(PyExc_IndexError, formatMessage(NullNotSupported));
    return std::nullopt;
  }
  const PyObjectWithGuard mapping = getDictPtr(obj);
  if (!mapping) return std::nullopt;
  if (PyDict_CheckExact(mapping.get())) return readDict(mapping.get());
  return readByProtocol(mapping.get());
}

}  // namespace PythonZorvanDataArray::detail
