#include "to_python/converter_factory.h"

#include <array>

#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;

const ConvertZDAToPyObjectFactory::ConverterMaps& ConvertZDAToPyObjectFactory::converterMaps() {
  static const ConverterMaps maps = initConverterMap();
  return maps;
}

ConvertZDAToPyObjectFactory::Converter ConvertZDAToPyObjectFactory::getConverter(const Array& array,
                                                                                 bool forceScalar) {
  if (isSparse(array)) {
    setSparseError();
    return nullptr;
  }
  const bool scalar = forceScalar || array.getNumberOfElements() == 1;
  return scalar ? getScalarConverter(array.getType()) : getMatrixConverter(array.getType());
}

ConvertZDAToPyObjectFactory::Converter ConvertZDAToPyObjectFactory::getScalarConverter(
    ArrayType type) {
  const Converter* converter = find(converterMaps().scalar, type);
  return converter ? *converter : nullptr;
}

ConvertZDAToPyObjectFactory::Converter ConvertZDAToPyObjectFactory::getMatrixConverter(
    ArrayType type) {
  const Converter* converter = find(converterMaps().matrix, type);
  return converter ? *converter : nullptr;
}

const ConvertZDAToPyObjectFactory::Converter* ConvertZDAToPyObjectFactory::find(
    const ConverterMap& map, ArrayType type) {
  const auto found = map.find(type);
  if (found != map.end()) return &found->second;
  setUnsupportedTypeError(type);
  return nullptr;
}

PyObject* ConvertZDAToPyObjectFactory::convertElement(const ItemList& items, size_t i) {
  const Item item = items[i];
  if (item.form() == Item::Form::kArray) {
    const Array array = items.get(i);
    const Converter converter = getConverter(array, false);
    return converter ? converter->convert(array) : nullptr;
  }
  // All other forms are one element, or none, or a text, whose converter is the same either way.
  const ArrayType type = item.type();
  if (item.form() == Item::Form::kEmpty) {
    const Converter* converter = find(converterMaps().matrix, type);
    return converter ? (*converter)->convertItem(items, i) : nullptr;
  }
  if (const ConvertZDAToPyObject* converter = itemConverter(type)) {
    return converter->convertItem(items, i);
  }
  setUnsupportedTypeError(type);
  return nullptr;
}

const ConvertZDAToPyObject* ConvertZDAToPyObjectFactory::itemConverter(ArrayType type) {
  static const auto table = [] {
    std::array<const ConvertZDAToPyObject*, codeOf(ArrayType::SPARSE_COMPLEX_DOUBLE) + 1> byCode{};
    for (const auto& [key, converter] : converterMaps().scalar) {
      byCode.at(static_cast<size_t>(codeOf(key))) = converter.get();
    }
    return byCode;
  }();
  return table[static_cast<size_t>(codeOf(type))];
}

void setSparseError() { setPythonErrorStr(PyExc_TypeError, formatMessage(SparseNotSupported)); }

void setUnsupportedTypeError(ArrayType type) {
  setPythonErrorStr(PyExc_TypeError, formatMessage(UnsupportedZorvanType, codeOf(type)));
}

}  // namespace PythonZorvanDataArray::detail
