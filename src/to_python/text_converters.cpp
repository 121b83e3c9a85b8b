#include "to_python/text_converters.h"

#include "to_python/column_to_py_list.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "zorvandata/text.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;

namespace {

PyObject* decodeUtf16(std::u16string_view units) {
  int byteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? -1 : 1;
  return PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(units.data()),
                               static_cast<Py_ssize_t>(units.size() * sizeof(char16_t)), "strict",
                               &byteOrder);
}

}  // namespace

// The stored form holds lone surrogates, which UTF-8 has no room for; what is wrong with them is
// told in terms of the UTF-16 text that the array shows.
PyObject* makeText(std::string_view utf8) {
  PyObject* text =
      PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "strict");
  if (text || !PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) return text;
  PyErr_Clear();
  return decodeUtf16(foundation::zorvandata::toUtf16(utf8));
}

PyObject* CharToPyStr::convert(const Array& array) const {
  foundation::zorvandata::detail::checkType(array, ArrayType::CHAR);
  if (!isVector(array)) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(CharArrayFromZorvan));
    return nullptr;
  }
  const auto* units = reinterpret_cast<const char16_t*>(array.impl().buffer().data());
  return decodeUtf16({units, array.getNumberOfElements()});
}

PyObject* CharToPyStr::convertItem(const ItemList& items, size_t i) const {
  const Item item = items[i];
  if (item.form() != Item::Form::kText) return ConvertZDAToPyObject::convertItem(items, i);
  return makeText(item.utf8());
}

PyObject* ZVStringToPyStr::convert(const Array& array) const {
  foundation::zorvandata::detail::checkType(array, ArrayType::ZORVAN_STRING);
  foundation::zorvandata::detail::checkIndex(array, index_);
  return convertItem(array.impl().items(), index_);
}

PyObject* ZVStringToPyStr::convertItem(const ItemList& items, size_t i) const {
  const Item item = items[i];
  switch (item.form()) {
    case Item::Form::kString:
      return makeText(item.utf8());
    case Item::Form::kMissing:
      return Py_NewRef(Py_None);
    default:
      return ConvertZDAToPyObject::convertItem(items, i);
  }
}

PyObject* ZVStringToPyList::convert(const Array& array) const {
  foundation::zorvandata::detail::checkType(array, ArrayType::ZORVAN_STRING);
  if (!isVector(array)) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(StringArrayFromZorvan));
    return nullptr;
  }
  return itemsToList(array.impl().items(), Empties::kAsTheyAre);
}

}  // namespace PythonZorvanDataArray::detail
