#include "to_array/column_categories.h"

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "to_array/text_converters.h"
#include "types/ndpy_array_bridge.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

using UniqueValues = std::unordered_set<std::string>;

// Rows by the category they are in: positions in the list, -1 for a gap.
struct Categories {
  PyObjectWithGuard list;
  Array positions;  // INT64

  size_t count() const { return static_cast<size_t>(PyList_Size(list.get())); }
  const int64_t* begin() const {
    return reinterpret_cast<const int64_t*>(positions.impl().buffer().data());
  }
  const int64_t* end() const { return begin() + positions.getNumberOfElements(); }
};

PyObjectWithGuard attribute(PyObject* obj, const char* name) {
  return PyObjectWithGuard::owned(PyObject_GetAttrString(obj, name));
}

PyObjectWithGuard call(const PyObjectWithGuard& obj, const char* method, const char* argument) {
  const char* format = argument ? "s" : nullptr;
  return PyObjectWithGuard::owned(obj ? PyObject_CallMethod(obj.get(), method, format, argument)
                                      : nullptr);
}

// Absent with a Python error set.
std::optional<Categories> readCategories(PyObject* series) {
  const PyObjectWithGuard values = attribute(series, "array");
  if (!values) return std::nullopt;
  Categories read;
  read.list = call(attribute(values.get(), "categories"), "tolist", nullptr);
  const PyObjectWithGuard codes =
      read.list ? call(attribute(values.get(), "codes"), "astype", "int64") : PyObjectWithGuard();
  std::optional<Array> positions =
      codes ? PythonNdPyArray::arrayFromBuffer(codes.get()) : std::nullopt;
  if (!positions) return std::nullopt;
  read.positions = std::move(*positions);
  const auto count = static_cast<int64_t>(read.count());
  for (const int64_t position : read) {
    if (position >= -1 && position < count) continue;
    setPythonErrorStr(PyExc_ValueError, "a code of a pandas.DataFrame column has no category");
    return std::nullopt;
  }
  return read;
}

// str(category) as UTF-8; absent with a Python error set.
std::optional<std::string> categoryText(const Categories& categories, int64_t position) {
  if (position < 0) return "";
  const auto category = PyObjectWithGuard::newReference(
      PyList_GetItem(categories.list.get(), static_cast<Py_ssize_t>(position)));
  const auto text = PyObjectWithGuard::owned(category ? PyObject_Str(category.get()) : nullptr);
  const std::optional<std::u16string> units = convertPyStrToUstring(text.get());
  if (!units) return std::nullopt;
  return foundation::zorvandata::toUtf8(*units);
}

Array getUniqueValuesCellArray(const UniqueValues& values) {
  ItemList names;
  names.reserve(values.size());
  for (const std::string& value : values) names.appendText(value);
  return makeArray(ArrayType::CELL, Dimensions(values.size(), 1), std::move(names));
}

// `textOf` is a text for each position plus one, NULL where no row is.
Array getTypedArrayFromUniqueValues(const UniqueValues& values, const Categories& categories,
                                    const std::vector<const std::string*>& textOf) {
  std::unordered_map<const std::string*, uint8_t> codeOfText;
  size_t code = 0;
  for (const std::string& value : values) codeOfText[&value] = static_cast<uint8_t>(++code);
  std::vector<uint8_t> codeOf(textOf.size());
  for (size_t i = 0; i < textOf.size(); ++i) {
    if (textOf[i]) codeOf[i] = codeOfText[textOf[i]];
  }
  const size_t rows = categories.positions.getNumberOfElements();
  Buffer buffer = Buffer::uninitialized(rows);
  auto* out = reinterpret_cast<uint8_t*>(buffer.mutableData());
  for (const int64_t position : categories) *out++ = codeOf[static_cast<size_t>(position + 1)];
  return makeDense(ArrayType::UINT8, Dimensions(rows, 1), std::move(buffer));
}

}  // namespace

std::optional<Array> handleCategoricalColumn(PyObject* series) {
  const std::optional<Categories> categories = readCategories(series);
  if (!categories) return std::nullopt;
  UniqueValues values;
  std::vector<const std::string*> textOf(categories->count() + 1);
  for (const int64_t position : *categories) {
    const std::string*& text = textOf[static_cast<size_t>(position + 1)];
    if (text) continue;
    std::optional<std::string> read = categoryText(*categories, position);
    if (!read) return std::nullopt;
    text = &*values.insert(std::move(*read)).first;
  }
  static const auto layout =
      foundation::zorvandata::makeLayout("categorical", {"categoryNames", "codes"});
  ItemList items;
  items.append(getUniqueValuesCellArray(values));
  items.append(getTypedArrayFromUniqueValues(values, *categories, textOf));
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), std::move(items), layout);
}

}  // namespace PythonZorvanDataArray::detail
