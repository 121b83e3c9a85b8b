#include "to_array/mapping_items.h"

#include <boost/numeric/conversion/cast.hpp>

#include "to_array/pandas_objects.h"
#include "types/zorvan_dictionary_type.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard_getter.h"
#include "util/reference.h"
#include "util/type_names.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::checked;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;
using PythonUtil::raise;

namespace {

// The maps merged into a new dict.
PyObjectWithGuard mergeChainMap(PyObject* chain) {
  const auto maps = PyObjectGuardGetter::getAttrString(chain, "maps", false);
  if (!maps) raise(PyExc_IndexError, formatMessage(AttributeNotRetrieved, "maps"));
  const auto unreadable = [] {
    raise(PyExc_IndexError, formatMessage(ChainMapContentsNotRetrieved));
  };
  const Py_ssize_t count = PySequence_Size(maps.get());
  if (count < 0) unreadable();
  if (count == 0) raise(PyExc_IndexError, formatMessage(ChainMapLengthUnexpected, count));
  auto merged = checked(PyDict_New());
  for (Py_ssize_t i = 0; i < count; ++i) {
    const auto map = PyObjectWithGuard::owned(PySequence_GetItem(maps.get(), i));
    if (!map || PyDict_Merge(merged.get(), map.get(), 0) != 0) unreadable();
  }
  return merged;
}

// Throws when the object raised.
bool isMapping(PyObject* obj) {
  if (PyList_Check(obj) || PyTuple_Check(obj) || !PyMapping_Check(obj)) return false;
  if (PyObjectWithGuard::owned(PyObject_GetAttrString(obj, "keys"))) return true;
  if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw PythonErrorSet();
  PyErr_Clear();
  return false;
}

// The mapping to read in place of the object.
PyObjectWithGuard getDictPtr(PyObject* obj) {
  if (isZorvanDictionary(obj)) {
    auto contents = PyObjectWithGuard::newReference(zorvanDictionary_contents(obj));
    if (contents) return contents;
    raise(PyExc_IndexError, formatMessage(UninitializedDictionary));
  }
  const std::string typeName = getUnqualifiedName(obj);
  if (typeName == "ChainMap") return mergeChainMap(obj);
  auto mapping = PyObjectWithGuard::newReference(obj);
  if (typeName == "UserDict") {
    mapping = PyObjectGuardGetter::getAttrString(obj, "data", false);
    if (!mapping) raise(PyExc_TypeError, formatMessage(NoDataAttributeInUserDict));
  }
  if (isMapping(mapping.get())) return mapping;
  raise(PyExc_IndexError,
        formatMessage(TypeNotConvertibleToZORVANDictionary, getUnqualifiedName(mapping.get())));
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

// How many items the mapping says it has.
size_t itemCount(PyObject* mapping) {
  const Py_ssize_t count = PyDict_Check(mapping)       ? PyDict_Size(mapping)
                           : PySequence_Check(mapping) ? PySequence_Size(mapping)
                                                       : PyMapping_Size(mapping);
  if (count >= 0) return boost::numeric_cast<size_t>(count);
  if (PyErr_ExceptionMatches(PyExc_ValueError)) reportNegativeLength(mapping);
  throw PythonErrorSet();
}

MappingItems readByProtocol(PyObject* mapping) {
  const size_t count = itemCount(mapping);
  const auto keys = checked(PyMapping_Keys(mapping));
  const Py_ssize_t found = PyList_Size(keys.get());
  MappingItems items;
  items.keys.reserve(boost::numeric_cast<size_t>(found));
  items.values.reserve(boost::numeric_cast<size_t>(found));
  for (Py_ssize_t i = 0; i < found; ++i) {
    auto key = PyObjectWithGuard::newReference(PyList_GetItem(keys.get(), i));
    auto value = checked(PyObject_GetItem(mapping, key.get()));
    items.keys.push_back(std::move(key));
    items.values.push_back(std::move(value));
  }
  const size_t after = itemCount(mapping);
  if (items.size() == count && after == count) return items;
  raise(PyExc_RuntimeError,
        "mapping of type '" + getUnqualifiedName(mapping) +
            "' changed while it was read or misstates its length: " + std::to_string(items.size()) +
            " keys, length " + std::to_string(after));
}

// Whether a dict of this type keeps its own order and has no methods written in Python: what its
// items are then needs no code of anybody else's.
bool isOrderedDict(PyObject* mapping) {
  if (!PyDict_Check(mapping) || (PyType_GetFlags(Py_TYPE(mapping)) & Py_TPFLAGS_HEAPTYPE) != 0) {
    return false;
  }
  return typeNameOf(Py_TYPE(mapping)) == "collections.OrderedDict";
}

bool hasPlainKeys(PyObject* dict) {
  PyObject* key = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dict, &position, &key, nullptr);) {
    if (!isPlain(key)) return false;
  }
  return true;
}

// The keys in the mapping's order; the values looked up without its methods. Already the walk over
// an OrderedDict asks the keys for their hashes.
MappingItems readOrderedDict(Encoder& to, PyObject* mapping) {
  if (!hasPlainKeys(mapping)) to.beforeForeignCode();
  const auto keys = checked(PySequence_List(mapping));
  const Py_ssize_t count = PyList_Size(keys.get());
  MappingItems items;
  items.fromDict = true;
  items.keys.reserve(boost::numeric_cast<size_t>(count));
  items.values.reserve(boost::numeric_cast<size_t>(count));
  for (Py_ssize_t i = 0; i < count; ++i) {
    auto key = PyObjectWithGuard::newReference(PyList_GetItem(keys.get(), i));
    PyObject* value = PyDict_GetItemWithError(mapping, key.get());
    if (!value) {
      if (!PyErr_Occurred()) PyErr_SetObject(PyExc_KeyError, key.get());
      throw PythonErrorSet();
    }
    items.keys.push_back(std::move(key));
    items.values.push_back(PyObjectWithGuard::newReference(value));
  }
  return items;
}

}  // namespace

MappingItems readMapping(Encoder& to, PyObject* obj) {
  if (isOrderedDict(obj)) return readOrderedDict(to, obj);
  to.beforeForeignCode();
  const PyObjectWithGuard mapping = getDictPtr(obj);
  if (PyDict_CheckExact(mapping.get())) return readDict(mapping.get());
  if (isOrderedDict(mapping.get())) return readOrderedDict(to, mapping.get());
  return readByProtocol(mapping.get());
}

}  // namespace PythonZorvanDataArray::detail
