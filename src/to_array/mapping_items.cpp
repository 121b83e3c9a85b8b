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

}  // namespace

void MappingItems::reserve(size_t count) {
  keys_.reserve(count);
  values_.reserve(count);
}

void MappingItems::readDict(PyObject* dict) {
  areFromDict_ = true;
  reserve(boost::numeric_cast<size_t>(PyDict_Size(dict)));
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dict, &position, &key, &value);) {
    keys_.push_back(PyObjectWithGuard::newReference(key));
    values_.push_back(PyObjectWithGuard::newReference(value));
  }
}

// The keys in the mapping's order; the values looked up without its methods. Already the walk over
// an OrderedDict asks the keys for their hashes.
void MappingItems::readOrderedDict(Encoder& to, PyObject* dict) {
  if (!hasPlainKeys(dict)) to.beforeForeignCode();
  areFromDict_ = true;
  const auto keys = checked(PySequence_List(dict));
  const Py_ssize_t count = PyList_Size(keys.get());
  reserve(boost::numeric_cast<size_t>(count));
  for (Py_ssize_t i = 0; i < count; ++i) {
    auto key = PyObjectWithGuard::newReference(PyList_GetItem(keys.get(), i));
    PyObject* value = PyDict_GetItemWithError(dict, key.get());
    if (!value) {
      if (!PyErr_Occurred()) PyErr_SetObject(PyExc_KeyError, key.get());
      throw PythonErrorSet();
    }
    keys_.push_back(std::move(key));
    values_.push_back(PyObjectWithGuard::newReference(value));
  }
}

void MappingItems::readByProtocol(PyObject* mapping) {
  asked_ = PyObjectWithGuard::newReference(mapping);
  const size_t length = itemCount(mapping);
  const auto keys = checked(PyMapping_Keys(mapping));
  const Py_ssize_t found = PyList_Size(keys.get());
  for (Py_ssize_t i = 0; i < found; ++i) {
    keys_.push_back(PyObjectWithGuard::newReference(PyList_GetItem(keys.get(), i)));
  }
  compareLength(length);
}

PyObjectWithGuard MappingItems::value(Encoder& to, size_t i) const {
  if (!asked_) return PyObjectWithGuard::newReference(values_[i].get());
  to.beforeForeignCode();
  return checked(PyObject_GetItem(asked_.get(), keys_[i].get()));
}

void MappingItems::checkLength(Encoder& to) const {
  if (!asked_) return;
  to.beforeForeignCode();
  compareLength(itemCount(asked_.get()));
}

void MappingItems::compareLength(size_t length) const {
  if (size() == length) return;
  raise(PyExc_RuntimeError, "mapping of type '" + getUnqualifiedName(asked_.get()) +
                                "' changed while it was read or misstates its length: " +
                                std::to_string(size()) + " keys, length " + std::to_string(length));
}

MappingItems readMapping(Encoder& to, PyObject* obj) {
  MappingItems items;
  if (isOrderedDict(obj)) {
    items.readOrderedDict(to, obj);
    return items;
  }
  to.beforeForeignCode();
  const PyObjectWithGuard mapping = getDictPtr(obj);
  if (PyDict_CheckExact(mapping.get())) {
    items.readDict(mapping.get());
  } else if (isOrderedDict(mapping.get())) {
    items.readOrderedDict(to, mapping.get());
  } else {
    items.readByProtocol(mapping.get());
  }
  return items;
}

}  // namespace PythonZorvanDataArray::detail
