#include "to_array/plain_records.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "to_array/argument_scope.h"
#include "to_array/converter_factory.h"
#include "to_array/plain_columns.h"
#include "to_array/py_dict_to_struct.h"
#include "to_array/sequence_elements.h"
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

// Borrowed, from lists and dicts that nobody changes as long as no Python code runs: until a value
// fails.
using Objects = std::vector<PyObject*>;

// Gathers the values of one field: plain ones of one type or, if that is known not to do, of any.
class FieldGatherer {
 public:
  FieldGatherer(PyObject* first, size_t count, bool isMixed) : items_(ArgumentScope::arena()) {
    if (isMixed) {
      items_.reserve(count);
    } else {
      uniform_.emplace(first, count);
    }
  }

  // False when the value does not fit, or with a Python error set.
  bool append(PyObject* value) {
    return uniform_ ? uniform_->append(value) : isPlain(value) && appendZDA(items_, value);
  }
  std::optional<ItemList> finish() { return uniform_ ? uniform_->finish() : std::move(items_); }

 private:
  std::optional<PlainGatherer> uniform_;
  ItemList items_;
};

class RecordGatherer {
 public:
  RecordGatherer(const Objects& first, size_t count, const std::vector<bool>& isMixed) {
    for (size_t i = 0; i < first.size(); ++i)
      fields_.push_back(std::make_unique<FieldGatherer>(first[i], count, isMixed[i]));
  }

  size_t width() const { return fields_.size(); }
  // False when the value does not fit, or with a Python error set.
  bool append(size_t field, PyObject* value) {
    if (fields_[field]->append(value)) return true;
    if (!PyErr_Occurred() && isPlain(value)) mixed_ = field;
    return false;
  }
  // The field of one type in which a plain value of another type was met.
  std::optional<size_t> mixedField() const { return mixed_; }

  std::optional<ItemList> finish() {
    FieldColumns columns;
    columns.fields.reserve(fields_.size());
    for (const auto& field : fields_) {
      auto column = field->finish();
      if (!column) return std::nullopt;
      columns.fields.push_back(std::move(*column));
    }
    return makeColumn(std::move(columns));
  }

 private:
  std::vector<std::unique_ptr<FieldGatherer>> fields_;
  std::optional<size_t> mixed_;
};

// The columns of `count` records, the first of which has these values; appendRecord(gatherer, i)
// returns false when a record is not like the first. Values are taken record by record, as they lie
// in memory; once more from the start when a field turns out to be mixed. Absent when the records
// are not alike or not plain, or with a Python error set.
template <class AppendRecord>
std::optional<ItemList> gather(const Objects& first, size_t count,
                               const AppendRecord& appendRecord) {
  if (!std::all_of(first.begin(), first.end(), isPlain)) return std::nullopt;
  std::vector<bool> isMixed(first.size());
  while (true) {
    RecordGatherer gatherer(first, count, isMixed);
    size_t i = 0;
    while (i < count && appendRecord(gatherer, i)) ++i;
    if (i == count) return gatherer.finish();
    if (!gatherer.mixedField()) return std::nullopt;
    isMixed[*gatherer.mixedField()] = true;
  }
}

std::optional<ItemList> records(ArrayType type, const Dimensions& dims, ItemList columns,
                                std::shared_ptr<const Layout> layout) {
  return makeColumn(RecordColumn{makeArray(type, dims, std::move(columns), std::move(layout))});
}

bool appendRow(RecordGatherer& gatherer, PyObject* row) {
  if (!Sequence::accepts(row)) return false;
  const Sequence values(row);
  if (values.size() != gatherer.width()) return false;
  for (size_t i = 0; i < values.size(); ++i) {
    if (!gatherer.append(i, values[i])) return false;
  }
  return true;
}

std::optional<ItemList> rowColumn(const Sequence& rows) {
  const Sequence first(rows[0]);
  if (!foundation::zorvandata::isTall(rows.size(), first.size())) return std::nullopt;
  Objects values;
  for (size_t i = 0; i < first.size(); ++i) values.push_back(first[i]);
  std::optional<ItemList> columns =
      gather(values, rows.size(),
             [&rows](RecordGatherer& gatherer, size_t i) { return appendRow(gatherer, rows[i]); });
  if (!columns) return std::nullopt;
  return records(ArrayType::CELL, Dimensions(rows.size(), first.size()), std::move(*columns),
                 nullptr);
}

// The dict must have these keys, the very objects, in this order.
bool appendDict(RecordGatherer& gatherer, PyObject* dict, const Objects& keys) {
  if (Py_TYPE(dict) != &PyDict_Type) return false;
  size_t field = 0;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dict, &position, &key, &value); ++field) {
    if (field == keys.size() || key != keys[field]) return false;
    if (!gatherer.append(field, value)) return false;
  }
  return field == keys.size();
}

std::optional<ItemList> dictColumn(const Sequence& dicts) {
  Objects keys;
  Objects values;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(dicts[0], &position, &key, &value);) {
    keys.push_back(key);
    values.push_back(value);
  }
  if (keys.empty()) return std::nullopt;
  const size_t count = dicts.size();
  std::optional<ItemList> columns = gather(values, count, [&](RecordGatherer& gatherer, size_t i) {
    if (i + kAhead < count) __builtin_prefetch(dicts[i + kAhead]);
    return appendDict(gatherer, dicts[i], keys);
  });
  if (!columns) return std::nullopt;
  DictKeys held;
  for (PyObject* each : keys) held.push_back(PyObjectWithGuard::newReference(each));
  std::shared_ptr<const Layout> layout = layoutOfKeys(held);
  if (!layout) return std::nullopt;
  return records(ArrayType::STRUCT, Dimensions(count, 1), std::move(*columns), std::move(layout));
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
