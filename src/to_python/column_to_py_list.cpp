#include "to_python/column_to_py_list.h"

#include <vector>

#include "to_python/conversion_scope.h"
#include "to_python/converter_factory.h"
#include "to_python/numeric_converters.h"
#include "to_python/text_converters.h"
#include "to_python/vectors.h"
#include "util/nesting_guard.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/item_column.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayImpl;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::FieldColumns;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemColumn;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::RecordColumn;
using foundation::zorvandata::RepeatedTextColumn;
using foundation::zorvandata::ScalarColumn;
using foundation::zorvandata::TextColumn;
using PythonUtil::PyObjectWithGuard;

namespace {

bool isWithoutElements(const Item& item) {
  switch (item.form()) {
    case Item::Form::kEmpty:
      return true;
    case Item::Form::kText:
      return item.utf8().empty();
    case Item::Form::kArray:
      return item.array().elements() == 0;
    default:
      return false;
  }
}

PyObject* convertItem(const ItemList& items, size_t i, Empties empties) {
  return empties == Empties::kAsLists && isWithoutElements(items[i])
             ? PyList_New(0)
             : ConvertZDAToPyObjectFactory::convertElement(items, i);
}

template <class T>
PyObject* numbersToList(const ScalarColumn& column) {
  return makeList(column.size(),
                  [&column](size_t i) { return convertNumericElem(column.value<T>(i)); });
}

PyObject* scalarsToList(const ScalarColumn& column) {
  switch (column.type) {
    case ArrayType::LOGICAL:
      return numbersToList<bool>(column);
#define ZORVAN_LIST(name, code, type) \
  case ArrayType::name:               \
    return numbersToList<type>(column);
      ZORVAN_REAL_NUMBER_TYPES(ZORVAN_LIST)
      ZORVAN_COMPLEX_NUMBER_TYPES(ZORVAN_LIST)
#undef ZORVAN_LIST
    default:
      setUnsupportedTypeError(column.type);
      return nullptr;
  }
}

PyObject* textToObject(const TextColumn& column, size_t i, Empties empties) {
  if (column.isMissing(i)) return Py_NewRef(Py_None);
  const std::string_view text = column.text(i);
  const bool isEmptyRow = text.empty() && column.type == ArrayType::CHAR;
  return isEmptyRow && empties == Empties::kAsLists ? PyList_New(0) : makeText(text);
}

// One str of many texts, out of which each is cut: for texts that are not ASCII half the work of
// decoding each of them.
class DecodedTexts {
 public:
  explicit DecodedTexts(const TextColumn& column) : column_(column) {}

  // The text at a position that never decreases; NULL with a Python error set.
  PyObject* next(size_t i) {
    if (i >= end_ && !decode(i)) return nullptr;
    const Py_ssize_t from = at_;
    at_ += characters(column_.text(i));
    return PyUnicode_Substring(chunk_.get(), from, at_);
  }

 private:
  bool decode(size_t first) {
    constexpr int64_t kChunk = 256 * 1024;
    const int64_t* offsets = column_.offset();
    end_ = first + 1;
    while (end_ < column_.size() && offsets[end_ + 1] - offsets[first] <= kChunk) ++end_;
    const char* bytes = column_.text(first).data();
    chunk_ = PyObjectWithGuard::owned(PyUnicode_DecodeUTF8(
        bytes, static_cast<Py_ssize_t>(offsets[end_] - offsets[first]), "strict"));
    at_ = 0;
    return static_cast<bool>(chunk_);
  }

  static Py_ssize_t characters(std::string_view utf8) {
    Py_ssize_t count = 0;
    for (const char byte : utf8) count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    return count;
  }

  const TextColumn& column_;
  PyObjectWithGuard chunk_;
  size_t end_ = 0;
  Py_ssize_t at_ = 0;
};

PyObject* textsToList(const TextColumn& column, Empties empties) {
  if (!foundation::zorvandata::isAscii(column.all())) {
    DecodedTexts texts(column);
    PyObject* list = makeList(column.size(), [&](size_t i) {
      return column.text(i).empty() ? textToObject(column, i, empties) : texts.next(i);
    });
    if (list || !PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) return list;
    // A lone surrogate; the text that has it tells what is wrong.
    PyErr_Clear();
  }
  return makeList(column.size(), [&](size_t i) { return textToObject(column, i, empties); });
}

// Each distinct text is made once; empty lists are never shared.
PyObject* repeatedToList(const RepeatedTextColumn& column, Empties empties) {
  const auto distinct = PyObjectWithGuard::owned(textsToList(column.distinct, empties));
  if (!distinct) return nullptr;
  const uint32_t* positions = column.position();
  return makeList(column.size(), [&](size_t i) {
    PyObject* text = PyList_GetItem(distinct.get(), static_cast<Py_ssize_t>(positions[i]));
    return text && PyList_Check(text) ? PyList_New(0) : Py_XNewRef(text);
  });
}

// The values of records, a list for each field.
class FieldLists {
 public:
  // False with a Python error set.
  bool read(const FieldColumns& columns, Empties empties) {
    for (const ItemList& field : columns.fields) {
      lists_.push_back(PyObjectWithGuard::owned(itemsToList(field, empties)));
      if (!lists_.back()) return false;
    }
    return true;
  }
  size_t count() const { return lists_.size(); }
  // Borrowed reference.
  PyObject* value(size_t record, size_t field) const {
    return PyList_GetItem(lists_[field].get(), static_cast<Py_ssize_t>(record));
  }

 private:
  std::vector<PyObjectWithGuard> lists_;
};

PyObject* makeDict(const FieldKeys& keys, const FieldLists& fields, size_t record) {
  auto dict = PyObjectWithGuard::owned(PyDict_New());
  if (!dict) return nullptr;
  for (size_t field = 0; field < keys.size(); ++field) {
    PyObject* value = fields.value(record, field);
    if (!value || PyDict_SetItem(dict.get(), keys[field].get(), value) != 0) return nullptr;
  }
  return dict.release();
}

PyObject* recordsToList(const ArrayImpl& records, const FieldColumns& columns) {
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;
  const bool areRows = records.type() == ArrayType::CELL;
  FieldLists fields;
  if (!fields.read(columns, areRows ? Empties::kAsLists : Empties::kAsTheyAre)) return nullptr;
  const size_t count = columns.fields.front().size();
  if (areRows) {
    return makeList(count, [&](size_t record) {
      return makeList(fields.count(),
                      [&](size_t field) { return Py_XNewRef(fields.value(record, field)); });
    });
  }
  const auto keys = sharedFieldKeys(records.layout());
  if (!keys) return nullptr;
  return makeList(count, [&](size_t record) { return makeDict(*keys, fields, record); });
}

// The columns of structs and of rows of cells; NULL for other elements.
const FieldColumns* fieldColumns(const RecordColumn& column) {
  const ArrayImpl& records = column.records.impl();
  const bool areObjects = records.type() != ArrayType::CELL && records.type() != ArrayType::STRUCT;
  const ItemColumn* fields = areObjects ? nullptr : records.items().column();
  return fields ? fields->as<FieldColumns>() : nullptr;
}

}  // namespace

PyObject* itemsToList(const ItemList& items, Empties empties) {
  if (const ItemColumn* column = items.column()) {
    if (const auto* scalars = column->as<ScalarColumn>()) return scalarsToList(*scalars);
    if (const auto* texts = column->as<TextColumn>()) return textsToList(*texts, empties);
    if (const auto* texts = column->as<RepeatedTextColumn>()) {
      return repeatedToList(*texts, empties);
    }
    const auto* records = column->as<RecordColumn>();
    const FieldColumns* fields = records ? fieldColumns(*records) : nullptr;
    if (fields) return recordsToList(records->records.impl(), *fields);
  }
  return makeList(items.size(), [&](size_t i) { return convertItem(items, i, empties); });
}

}  // namespace PythonZorvanDataArray::detail
