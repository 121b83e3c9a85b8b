#include "to_python/converter_factory.h"

#include <array>

#include "to_python/numeric_converters.h"
#include "to_python/text_converters.h"
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
  return find(array, forceScalar);
}

ConvertZDAToPyObjectFactory::Converter ConvertZDAToPyObjectFactory::getScalarConverter(
    ArrayType type) {
  return find(type, true);
}

ConvertZDAToPyObjectFactory::Converter ConvertZDAToPyObjectFactory::getMatrixConverter(
    ArrayType type) {
  return find(type, false);
}

const ConvertZDAToPyObjectFactory::Converter& ConvertZDAToPyObjectFactory::find(const Array& array,
                                                                                bool forceScalar) {
  static const Converter none;
  const ArrayType type = array.getType();
  if (isSparse(type)) {
    setSparseError();
    return none;
  }
  return find(type, forceScalar || array.getNumberOfElements() == 1);
}

const ConvertZDAToPyObjectFactory::Converter& ConvertZDAToPyObjectFactory::find(ArrayType type,
                                                                                bool isScalar) {
  using ByCode = std::array<Converter, codeOf(ArrayType::SPARSE_COMPLEX_DOUBLE) + 1>;
  const auto byCode = [](const ConverterMap& map) {
    ByCode table;
    for (const auto& [key, converter] : map) table.at(static_cast<size_t>(codeOf(key))) = converter;
    return table;
  };
  static const ByCode tables[] = {byCode(converterMaps().matrix), byCode(converterMaps().scalar)};
  const Converter& converter = tables[isScalar][static_cast<size_t>(codeOf(type))];
  if (!converter) setUnsupportedTypeError(type);
  return converter;
}

PyObject* ConvertZDAToPyObjectFactory::convertArray(const Array& array) {
  const ConvertZDAToPyObject* converter = find(array, false).get();
  return converter ? converter->convert(array) : nullptr;
}

PyObject* ConvertZDAToPyObjectFactory::convertElement(const ItemList& items, size_t i) {
  const Item item = items[i];
  const ArrayType type = item.type();
  switch (item.form()) {
    case Item::Form::kArray:
      return convertArray(items.get(i));
    case Item::Form::kText:
      return makeText(item.utf8());
    case Item::Form::kScalar:
      // The most frequent ones without a converter's call.
      if (type == ArrayType::DOUBLE) return convertNumericElem(item.scalar<double>());
      if (type == ArrayType::INT64) return convertNumericElem(item.scalar<int64_t>());
      break;
    default:
      break;
  }
  // All other forms are one element, or none.
  const ConvertZDAToPyObject* converter = find(type, item.form() != Item::Form::kEmpty).get();
  return converter ? converter->convertItem(items, i) : nullptr;
}

void setSparseError() { setPythonErrorStr(PyExc_TypeError, formatMessage(SparseNotSupported)); }

void setUnsupportedTypeError(ArrayType type) {
  setPythonErrorStr(PyExc_TypeError, formatMessage(UnsupportedZorvanType, codeOf(type)));
}

}  // namespace PythonZorvanDataArray::detail
