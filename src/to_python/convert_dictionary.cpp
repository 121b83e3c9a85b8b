// The engine's dictionary as a zorvan.dictionary.
#include "to_python/converter_factory.h"
#include "to_python/element_visitor.h"
#include "to_python/zorvan_object_to_py_object.h"
#include "types/zorvan_dictionary_type.h"
#include "util/nesting_guard.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::applyVisitor;
using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::StructArray;
using foundation::zorvandata::ValueObject;
using foundation::zorvandata::ZorvanFieldIdentifier;
using foundation::zorvandata::ZorvanPropertyIdentifier;
using PythonUtil::PyObjectWithGuard;

namespace {

bool hasField(const StructArray& data, const ZorvanFieldIdentifier& name) {
  for (const ZorvanFieldIdentifier& field : data.getFieldNames()) {
    if (field == name) return true;
  }
  return false;
}

PyObject* failWith(const std::string& text) {
  setPythonErrorStr(PyExc_ValueError, text);
  return nullptr;
}

// How many keys or values an array holds: a char array is one text.
size_t entries(const Array& array) {
  return array.getType() == ArrayType::CHAR ? 1 : array.getNumberOfElements();
}

PyObject* entry(const Array& array, size_t i,
                const ConvertZDAToPyObjectFactory::Converter& converter) {
  return applyVisitor(array, ConvertElementToPythonVisitor(i, converter));
}

// A single key may have an array without elements as its value, which then stands for itself.
bool isLoneEmptyValue(const Array& keys, const Array& values) {
  return entries(keys) == 1 && entries(values) == 0;
}

PyObject* valueEntry(const Array& keys, const Array& values, size_t i,
                     const ConvertZDAToPyObjectFactory::Converter& converter) {
  return isLoneEmptyValue(keys, values) ? converter->convert(values) : entry(values, i, converter);
}

// Whether there are converters for single elements of the array; sets ValueError if not.
bool hasConvertibleElements(const Array& array) {
  if (array.getType() != ArrayType::ENUMERATION && array.getType() != ArrayType::OBJECT)
    return true;
  failWith(formatMessage(UnspecifiedTypeNotConvertibleToZORVANDotDictionary));
  return false;
}

bool fill(PyObject* dict, const Array& keys, const Array& values) {
  if (!hasConvertibleElements(keys) || !hasConvertibleElements(values)) return false;
  const auto keyConverter = ConvertZDAToPyObjectFactory::getConverter(keys, true);
  if (!keyConverter) return false;
  const auto valueConverter =
      ConvertZDAToPyObjectFactory::getConverter(values, !isLoneEmptyValue(keys, values));
  if (!valueConverter) return false;
  for (size_t i = 0; i < entries(keys); ++i) {
    const auto key = PyObjectWithGuard::owned(entry(keys, i, keyConverter));
    if (!key) return false;
    const auto value = PyObjectWithGuard::owned(valueEntry(keys, values, i, valueConverter));
    if (!value || PyDict_SetItem(dict, key.get(), value.get()) != 0) return false;
  }
  if (static_cast<size_t>(PyDict_Size(dict)) == entries(keys)) return true;
  failWith("keys of a ZORVAN dictionary are equal in Python");
  return false;
}

}  // namespace

PyObject* ZorvanObjectToPyObject::convertDictionary(const Array& array) const {
  static const ZorvanFieldIdentifier unconfigured("Unconfigured");
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;
  if (array.getNumberOfElements() != 1) {
    return failWith("only a scalar dictionary can be returned from ZORVAN");
  }
  const ValueObject dictionary = array[0];
  const ZorvanPropertyIdentifier property("data");
  if (!dictionary.hasProperty(property)) {
    return failWith(formatMessage(PropertyNotFoundInObject, "data", "dictionary"));
  }
  const StructArray data(dictionary[property]);
  if (data.getNumberOfElements() != 1) {
    return failWith("the data of a ZORVAN dictionary is not a scalar struct");
  }
  const auto dict = PyObjectWithGuard::owned(PyDict_New());
  if (!dict) return nullptr;
  if (!hasField(data, unconfigured)) {
    for (const char* name : {"Key", "Value"}) {
      if (!hasField(data, ZorvanFieldIdentifier(name))) {
        return failWith(formatMessage(PropertyNotFoundInObject, name, "dictionary"));
      }
    }
    const Array keys = data[0][ZorvanFieldIdentifier("Key")];
    const Array values = data[0][ZorvanFieldIdentifier("Value")];
    if (entries(keys) != entries(values) && !isLoneEmptyValue(keys, values)) {
      return failWith("a ZORVAN dictionary has " + std::to_string(entries(keys)) + " keys and " +
                      std::to_string(entries(values)) + " values");
    }
    if (!fill(dict.get(), keys, values)) return nullptr;
  }
  return zorvanDictionary_new_with_contents(dict.get());
}

}  // namespace PythonZorvanDataArray::detail
