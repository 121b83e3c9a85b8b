#include "to_array/column_texts.h"

#include "to_array/column_arrow_texts.h"
#include "to_array/column_converter.h"
#include "to_array/column_objects.h"
#include "to_array/plain_columns.h"
#include "to_array/text_converters.h"
#include "util/py_object_guard.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// The texts of a column, gaps as empty ones; absent with a Python error set.
std::optional<ItemList> readTexts(PyObject* series) {
  const PyObjectWithGuard list = listOfItems(series);
  if (!list) return std::nullopt;
  std::optional<ItemList> texts = textColumn(list.get(), ArrayType::ZORVAN_STRING);
  if (texts || PyErr_Occurred()) return texts;
  PyStrToCharOrString converter;
  const std::optional<ConvertToZorvanDataArray::Options> options = getOptionsWithinTable();
  const Py_ssize_t count = PyList_Size(list.get());
  ItemList items;
  items.reserve(static_cast<size_t>(count));
  for (Py_ssize_t i = 0; i < count; ++i) {
    // Borrowed from a list that nobody else has.
    PyObject* item = PyList_GetItem(list.get(), i);
    if (!item) return std::nullopt;
    // What is no text in such a column is a gap.
    if (!PyUnicode_Check(item)) {
      items.appendString("");
    } else if (!converter.appendTo(items, item, options)) {
      return std::nullopt;
    }
  }
  return items;
}

}  // namespace

std::optional<Array> convertTextColumn(PyObject* series) {
  std::optional<ItemList> texts = readArrowTexts(series);
  if (!texts && !PyErr_Occurred()) texts = readTexts(series);
  if (!texts) return std::nullopt;
  const Dimensions dims(texts->size(), 1);
  return makeArray(ArrayType::ZORVAN_STRING, dims, std::move(*texts));
}

}  // namespace PythonZorvanDataArray::detail
