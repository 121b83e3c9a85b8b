#include "to_python/column_to_py_list.h"

#include <deque>

#include "to_python/conversion_scope.h"
#include "to_python/vectors.h"
#include "util/nesting_guard.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayImpl;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::FieldColumns;
using foundation::zorvandata::ItemColumn;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::RecordColumn;
using PythonUtil::PyObjectWithGuard;

namespace {

// The makers of the fields' values.
using FieldMakers = std::deque<ElementMaker>;

PyObject* makeDict(const FieldKeys& keys, FieldMakers& fields, size_t record) {
  auto dict = PyObjectWithGuard::owned(PyDict_New());
  if (!dict) return nullptr;
  for (size_t field = 0; field < keys.size(); ++field) {
    const auto value = PyObjectWithGuard::owned(fields[field].make(record));
    if (!value || PyDict_SetItem(dict.get(), keys[field].get(), value.get()) != 0) return nullptr;
  }
  return dict.release();
}

// Record by record, so that the values lie in memory beside the record that they are in.
PyObject* recordsToList(const ArrayImpl& records, const FieldColumns& columns) {
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;
  const bool areRows = records.type() == ArrayType::CELL;
  FieldMakers fields;
  for (const ItemList& field : columns.fields) {
    fields.emplace_back(field, areRows ? Empties::kAsLists : Empties::kAsTheyAre);
  }
  const size_t count = columns.fields.front().size();
  if (areRows) {
    return makeList(count, [&fields](size_t record) {
      return makeList(fields.size(),
                      [&fields, record](size_t field) { return fields[field].make(record); });
    });
  }
  const auto keys = sharedFieldKeys(records.layout());
  if (!keys) return nullptr;
  return makeList(count, [&](size_t record) { return makeDict(*keys, fields, record); });
}

// Objects have converters of their own.
bool areObjects(const RecordColumn& column) {
  const ArrayType type = column.records.getType();
  return type != ArrayType::CELL && type != ArrayType::STRUCT;
}

}  // namespace

PyObject* itemsToList(const ItemList& items, Empties empties) {
  const ItemColumn* column = items.column();
  if (!column) {
    return makeList(items.size(), [&](size_t i) { return makeElement(items, i, empties); });
  }
  const auto* records = column->as<RecordColumn>();
  if (records && records->fields() && !areObjects(*records)) {
    return recordsToList(records->records.impl(), *records->fields());
  }
  return ElementMaker(items, empties).makeAll();
}

}  // namespace PythonZorvanDataArray::detail
