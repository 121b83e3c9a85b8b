#include "to_array/plain_records.h"

#include <vector>

#include "to_array/argument_scope.h"
#include "to_array/plain_columns.h"
#include "to_array/py_dict_to_struct.h"
#include "util/nesting_guard.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/item_column.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::FieldColumns;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::kColumnFrom;
using foundation::zorvandata::Layout;
using foundation::zorvandata::makeArray;
using foundation::zorvandata::makeColumn;
using foundation::zorvandata::RecordColumn;
using PythonUtil::PyObjectWithGuard;

namespace {

// Borrowed, from lists and dicts that nobody changes as long as no Python code runs.
using Objects = std::vector<PyObject*>;

class Sequence {
 public:
  explicit Sequence(PyObject* listOrTuple)
      : object_(listOrTuple), isList_(PyList_Check(listOrTuple)) {}
  static bool accepts(PyObject* obj) {
    return Py_TYPE(obj) == &PyList_Type || Py_TYPE(obj) == &PyTuple_Type;
  }

  size_t size() const {
    return static_cast<size_t>(isList_ ? PyList_Size(object_) : PyTuple_Size(object_));
  }
  PyObject* operator[](size_t i) const {
    const auto at = static_cast<Py_ssize_t>(i);
    return isList_ ? PyList_GetItem(object_, at) : PyTuple_GetItem(object_, at);
  }

 private:
  PyObject* object_;
  bool isList_;
};

// The columns of a table of values that lie row by row; absent with a Python error set.
std::optional<ItemList> columnsOf(const Objects& values, size_t width) {
  FieldColumns columns;
  columns.fields.reserve(width);
  for (size_t field = 0; field < width; ++field) {
    auto column = plainItems({values.data() + field, values.size() / width, width});
    if (!column) return std::nullopt;
    columns.fields.push_back(std::move(*column));
  }
  return makeColumn(std::move(columns));
}

std::optional<ItemList> records(ArrayType type, const Dimensions& dims, const Objects& values,
                                size_t width, std::shared_ptr<const Layout> layout) {
  std::optional<ItemList> columns = columnsOf(values, width);
  if (!columns) return std::nullopt;
  return makeColumn(RecordColumn{makeArray(type, dims, std::move(*columns), std::move(layout))});
}

// False when the row is not a sequence of `width` plain values.
bool gatherRow(PyObject* row, size_t width, Objects& values) {
  if (!Sequence::accepts(row)) return false;
  const Sequence sequence(row);
  if (sequence.size() != width) return false;
  for (size_t i = 0; i < width; ++i) {
    values.push_back(sequence[i]);
    if (!isPlain(values.back())) return false;
  }
  return true;
}

std::optional<ItemList> rowColumn(const Sequence& rows) {
  const size_t count = rows.size();
  const size_t width = Sequence(rows[0]).size();
  if (!foundation::zorvandata::isTall(count, width)) return std::nullopt;
  Objects values;
  values.reserve(count * width);
  for (size_t i = 0; i < count; ++i) {
    if (!gatherRow(rows[i], width, values)) return std::nullopt;
  }
  return records(ArrayType::CELL, Dimensions(count, width), values, width, nullptr);
}

// False when the dict does not have these keys, the very objects, with plain values.
bool gatherFields(PyObject* dict, const Objects& keys, Objects& values) {
  if (Py_TYPE(dict) != &PyDict_Type) return false;
  size_t field = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dict, &position, &key, &value); ++field) {
    if (field == keys.size() || key != keys[field] || !isPlain(value)) return false;
    values.push_back(value);
  }
  return field == keys.size();
}

std::optional<ItemList> dictColumn(const Sequence& dicts) {
  Objects keys;
  PyObject* key = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dicts[0], &position, &key, nullptr);) {
    keys.push_back(key);
  }
  if (keys.empty()) return std::nullopt;
  const size_t count = dicts.size();
  Objects values;
  for (size_t i = 0; i < count; ++i) {
    if (!gatherFields(dicts[i], keys, values)) return std::nullopt;
    // Only of dicts that are alike there will be as many.
    if (i == 0) values.reserve(count * keys.size());
  }
  DictKeys held;
  for (PyObject* each : keys) held.push_back(PyObjectWithGuard::newReference(each));
  std::shared_ptr<const Layout> layout = layoutOfKeys(held);
  if (!layout) return std::nullopt;
  return records(ArrayType::STRUCT, Dimensions(count, 1), values, keys.size(), std::move(layout));
}

}  // namespace

std::optional<ItemList> recordColumn(PyObject* listOrTuple) {
  const Sequence elements(listOrTuple);
  if (elements.size() < kColumnFrom) return std::nullopt;
  const bool ofDicts = Py_TYPE(elements[0]) == &PyDict_Type;
  if (!ofDicts && !Sequence::accepts(elements[0])) return std::nullopt;
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return std::nullopt;
  return ofDicts ? dictColumn(elements) : rowColumn(elements);
}

}  // namespace PythonZorvanDataArray::detail
