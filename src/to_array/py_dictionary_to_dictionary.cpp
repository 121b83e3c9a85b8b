#include "to_array/py_dictionary_to_dictionary.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_set>

#include "bridge/data_array_protobuf_bridge.h"
#include "dataarray/array_predicates.h"
#include "to_array/argument_scope.h"
#include "to_array/converter_factory.h"
#include "util/message_catalogue.h"
#include "util/nesting_guard.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayFactory;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::ClassInfo;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::ZorvanClassIdentifier;
using foundation::zorvandata::ZorvanPropertyIdentifier;
using PythonUtil::PyObjectWithGuard;

namespace {

using Options = ConvertToZorvanDataArray::Options;

Options getOptionsWithinDict() {
  Options options;
  options.setConvertPyStrToString(true);
  return options;
}

Array getVersionNumber(const ArrayFactory& factory) { return factory.createScalar(uint64_t{1}); }

// The dictionary around its data.
Array wrapData(const ArrayFactory& factory, const Array& data) {
  const ClassInfo info(ZorvanClassIdentifier("dictionary"),
                       {ZorvanPropertyIdentifier("dictionary.data")});
  Array dictionary = factory.createValueObjectScalar(info);
  dictionary[0]["data"] = data;
  return dictionary;
}

Array makeUnconfiguredDictionary(const ArrayFactory& factory) {
  Array data = factory.createStructArray({1, 1}, {"Version", "Unconfigured"});
  data[0]["Version"] = getVersionNumber(factory);
  data[0]["Unconfigured"] = factory.createScalar(true);
  return wrapData(factory, data);
}

Array makeConfiguredDictionary(const ArrayFactory& factory, const Array& keys,
                               const Array& values) {
  Array data = factory.createStructArray(
      {1, 1}, {"Version", "IsKeyCombined", "IsValueCombined", "Key", "Value"});
  data[0]["Version"] = getVersionNumber(factory);
  data[0]["IsKeyCombined"] = factory.createScalar(shouldBeMarkedCombined(keys));
  data[0]["IsValueCombined"] = factory.createScalar(shouldBeMarkedCombined(values));
  data[0]["Key"] = keys;
  data[0]["Value"] = values;
  return wrapData(factory, data);
}

bool arrayDimsAreCompatible(size_t keyElements, size_t valueElements) {
  return keyElements != 1 || valueElements <= 1;
}

// Whether every object's type is the first one's or a subtype of it.
bool isHomogeneous(const std::vector<PyObjectWithGuard>& objects) {
  PyTypeObject* first = Py_TYPE(objects.front().get());
  return std::all_of(objects.begin(), objects.end(), [first](const PyObjectWithGuard& object) {
    return PyType_IsSubtype(Py_TYPE(object.get()), first) != 0;
  });
}

std::optional<ItemList> convertAll(const std::vector<PyObjectWithGuard>& objects) {
  const std::optional<Options> options = getOptionsWithinDict();
  ItemList items(ArgumentScope::arena());
  items.reserve(objects.size());
  for (const PyObjectWithGuard& object : objects) {
    if (!appendZDA(items, object.get(), options)) return std::nullopt;
  }
  return items;
}

bool allOf(const ItemList& items, Item::Form form, ArrayType type) {
  return std::all_of(items.begin(), items.end(),
                     [=](const Item& item) { return item.form() == form && item.type() == type; });
}

Array combineDoubles(const ItemList& items, const Dimensions& dims) {
  Buffer buffer = Buffer::uninitialized(items.size() * sizeof(double));
  std::byte* out = buffer.mutableData();
  for (const Item item : items) {
    std::memcpy(out, item.scalarData(), sizeof(double));
    out += sizeof(double);
  }
  return makeDense(ArrayType::DOUBLE, dims, std::move(buffer));
}

// Several keys or values as one N-by-1 array.
Array storeItems(ItemList items, bool homogeneous) {
  const Dimensions dims(items.size(), 1);
  if (homogeneous && allOf(items, Item::Form::kString, ArrayType::ZORVAN_STRING)) {
    return makeArray(ArrayType::ZORVAN_STRING, dims, std::move(items));
  }
  if (homogeneous && allOf(items, Item::Form::kScalar, ArrayType::DOUBLE)) {
    return combineDoubles(items, dims);
  }
  return makeArray(ArrayType::CELL, dims, std::move(items));
}

// Objects that differ to Python may be one and the same to the engine. The keys of a dict that are
// all of the same plain type cannot.
bool mayCollapse(const MappingItems& items) {
  if (!items.fromDict) return true;
  PyTypeObject* first = Py_TYPE(items.keys.front().get());
  const bool plain = first == &PyUnicode_Type || first == &PyLong_Type || first == &PyFloat_Type;
  return !plain || std::any_of(items.keys.begin(), items.keys.end(),
                               [=](const auto& key) { return Py_TYPE(key.get()) != first; });
}

// Equal to nothing, itself included.
bool isNaN(const Item& item) {
  return item.form() == Item::Form::kScalar && item.type() == ArrayType::DOUBLE &&
         std::isnan(item.scalar<double>());
}

// Sets ValueError and returns false when two keys are the same array.
bool checkDistinct(const ItemList& keys) {
  using zds::client::zorvandata::protobuf::serializedArray;
  std::unordered_set<std::string_view> texts;
  std::unordered_set<std::string> others;
  texts.reserve(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    const Item key = keys[i];
    if (isNaN(key)) continue;
    const bool isNew = key.form() == Item::Form::kString
                           ? texts.insert(key.utf8()).second
                           : others.insert(serializedArray(keys.get(i))).second;
    if (isNew) continue;
    setPythonErrorStr(PyExc_ValueError,
                      "key at position " + std::to_string(i) +
                          " of the mapping is the same to ZORVAN as one before it");
    return false;
  }
  return true;
}

Array wrapInCell(const ArrayFactory& factory, const Array& value) {
  return factory.createCellArray({1, 1}, {value});
}

std::optional<Array> makeDictionaryWithOneKeyValuePair(const ArrayFactory& factory,
                                                       const MappingItems& items) {
  const std::optional<Options> options = getOptionsWithinDict();
  const std::optional<Array> key = createZDA(items.keys[0].get(), options);
  if (!isValidArr(key) || PyErr_Occurred()) return std::nullopt;
  const std::optional<Array> value = createZDA(items.values[0].get(), options);
  if (!isValidArr(value) || PyErr_Occurred()) return std::nullopt;
  const Array storedKey = key->getNumberOfElements() != 1 && shouldBeStoredAsCell(*key)
                              ? wrapInCell(factory, *key)
                              : *key;
  const Array storedValue = shouldBeStoredAsCell(*value) ? wrapInCell(factory, *value) : *value;
  if (!arrayDimsAreCompatible(storedKey.getNumberOfElements(), storedValue.getNumberOfElements())) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(KeyValueDimsMustMatch));
    return std::nullopt;
  }
  return makeConfiguredDictionary(factory, storedKey, storedValue);
}

std::optional<Array> makeDictionaryOfSeveral(const ArrayFactory& factory,
                                             const MappingItems& items) {
  std::optional<ItemList> keys = convertAll(items.keys);
  if (!keys || (mayCollapse(items) && !checkDistinct(*keys))) return std::nullopt;
  std::optional<ItemList> values = convertAll(items.values);
  if (!values) return std::nullopt;
  return makeConfiguredDictionary(factory, storeItems(std::move(*keys), isHomogeneous(items.keys)),
                                  storeItems(std::move(*values), isHomogeneous(items.values)));
}

}  // namespace

std::optional<Array> PyDictionaryToDictionary::convert(PyObject* obj,
                                                       const std::optional<Options>&) {
  // An item of a dictionary lies three arrays deep: in the object, in its data, in a cell.
  const PythonUtil::NestingGuard object(PythonUtil::kMaxNesting);
  if (!object) return std::nullopt;
  const PythonUtil::NestingGuard data(PythonUtil::kMaxNesting);
  if (!data) return std::nullopt;
  const PythonUtil::NestingGuard cell(PythonUtil::kMaxNesting);
  if (!cell) return std::nullopt;

  const std::optional<MappingItems> items = readMapping(obj);
  if (!items) return std::nullopt;
  if (items->size() == 0) return makeUnconfiguredDictionary(getFactory());
  if (items->size() == 1) return makeDictionaryWithOneKeyValuePair(getFactory(), *items);
  return makeDictionaryOfSeveral(getFactory(), *items);
}

}  // namespace PythonZorvanDataArray::detail
