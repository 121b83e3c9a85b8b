#include "to_array/column_objects.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "dataarray/array_predicates.h"
#include "to_array/column_converter.h"
#include "to_array/converter_factory.h"
#include "to_array/pandas_objects.h"
#include "to_array/plain_columns.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayImpl;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::elementSize;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// What a walk over the items finds.
struct Survey {
  bool isHeterogeneous = false;
  PyObjectWithGuard missing;  // the first gap, if any
};

Survey hasNanOrHeterogeneous(const PyObjectWithGuard& list, const PandasObjects& pandas) {
  Survey survey;
  const Py_ssize_t count = PyList_Size(list.get());
  PyTypeObject* type = Py_TYPE(PyList_GetItem(list.get(), 0));
  for (Py_ssize_t i = 1; i < count && !(survey.isHeterogeneous && survey.missing); ++i) {
    PyObject* item = PyList_GetItem(list.get(), i);
    if (Py_TYPE(item) == type) continue;
    if (!pandas.isMissing(item)) {
      survey.isHeterogeneous = true;
    } else if (!survey.missing) {
      survey.missing = PyObjectWithGuard::newReference(item);
    }
  }
  return survey;
}

// Errors that say more than that an item cannot be converted.
bool isErrorToKeep() {
  return !PyErr_ExceptionMatches(PyExc_Exception) || PyErr_ExceptionMatches(PyExc_OverflowError) ||
         PyErr_ExceptionMatches(PyExc_MemoryError) || PyErr_ExceptionMatches(PyExc_RecursionError);
}

// All items converted, gaps being what `appendGap` makes of them; absent with a Python error set.
template <class AppendGap>
std::optional<ItemList> convertItems(const PyObjectWithGuard& list, const AppendGap& appendGap) {
  const PandasObjects* pandas = pandasObjects();
  if (!pandas) return std::nullopt;
  const std::optional<ConvertToZorvanDataArray::Options> options = getOptionsWithinTable();
  const Py_ssize_t count = PyList_Size(list.get());
  ItemList items;
  items.reserve(static_cast<size_t>(count));
  for (Py_ssize_t i = 0; i < count; ++i) {
    const auto item = PyObjectWithGuard::newReference(PyList_GetItem(list.get(), i));
    if (!item) return std::nullopt;
    if (pandas->isMissing(item.get()) && appendGap(items)) continue;
    if (appendZDA(items, item.get(), options)) continue;
    if (!isErrorToKeep()) setUnsupportedColumnItem(item.get());
    return std::nullopt;
  }
  return items;
}

// For columns in which a gap has no way over.
std::optional<ItemList> convertItems(const PyObjectWithGuard& list) {
  return convertItems(list, [](ItemList&) { return false; });
}

std::optional<Array> makeColumn(ArrayType type, std::optional<ItemList> items) {
  if (!items) return std::nullopt;
  const Dimensions dims(items->size(), 1);
  return makeArray(type, dims, std::move(*items));
}

std::optional<Array> makeCells(const PyObjectWithGuard& list) {
  return makeColumn(ArrayType::CELL, convertItems(list));
}

std::optional<Array> makeTexts(const PyObjectWithGuard& list) {
  std::optional<ItemList> texts = textColumn(list.get(), ArrayType::ZORVAN_STRING);
  if (texts) return makeColumn(ArrayType::ZORVAN_STRING, std::move(texts));
  PyErr_Clear();  // told below, in words about the column
  return makeColumn(ArrayType::ZORVAN_STRING, convertItems(list, [](ItemList& items) {
                      items.appendString("");
                      return true;
                    }));
}

// Gaps are NaN in a column of floating-point numbers.
std::optional<Array> makeNumbers(const PyObjectWithGuard& list, ArrayType type) {
  std::optional<ItemList> items = convertItems(list, [type](ItemList& numbers) {
    if (type == ArrayType::DOUBLE) numbers.appendScalar(std::nan(""));
    if (type == ArrayType::SINGLE) numbers.appendScalar(std::nanf(""));
    return isRealFloatingPointType(type);
  });
  if (!items) return std::nullopt;
  const bool isUniform = std::all_of(items->begin(), items->end(), [type](const Item& item) {
    return item.form() == Item::Form::kScalar && item.type() == type;
  });
  if (!isUniform) return makeColumn(ArrayType::CELL, std::move(items));
  const size_t size = elementSize(type);
  Buffer buffer = Buffer::uninitialized(items->size() * size);
  std::byte* out = buffer.mutableData();
  for (const Item item : *items) {
    std::memcpy(out, item.scalarData(), size);
    out += size;
  }
  return makeDense(type, Dimensions(items->size(), 1), std::move(buffer));
}

// Whether an item is one number or bool, rather than something that has elements, be it only one.
bool isNumber(PyObject* item, const Array& array) {
  return foundation::zorvandata::isDense(array.getType()) && array.dimensions().isScalar() &&
         !PySequence_Check(item);
}

// Dates and durations first hold their times, all else must be the same in all of them.
bool isSameButForTimes(const ArrayImpl& a, const ArrayImpl& b) {
  if (a.type() != b.type() || !(*a.layout() == *b.layout())) return false;
  for (size_t i = 1; i < a.items().size(); ++i) {
    if (a.items().get(i) != b.items().get(i)) return false;
  }
  return a.items().get(0).getType() == b.items().get(0).getType() &&
         a.items().get(0).dimensions().isScalar();
}

// One value object of them all; absent, with no error set, when they do not make one.
std::optional<Array> combineTimes(const ItemList& items) {
  const Array first = items.get(0);
  const std::string& className = first.impl().layout()->className;
  if (className != "datetime" && className != "duration") return std::nullopt;
  const ArrayType type = first.impl().items().get(0).getType();
  const size_t size = elementSize(type);
  Buffer buffer = Buffer::uninitialized(items.size() * size);
  std::byte* out = buffer.mutableData();
  for (size_t i = 0; i < items.size(); ++i) {
    const Array each = items.get(i);
    if (!isSameButForTimes(first.impl(), each.impl())) return std::nullopt;
    std::memcpy(out, each.impl().items()[0].scalarData(), size);
    out += size;
  }
  Array combined = first;
  combined.mutableImpl().items().set(
      0, makeDense(type, Dimensions(items.size(), 1), std::move(buffer)));
  return combined;
}

std::optional<Array> makeObjects(const PyObjectWithGuard& list) {
  std::optional<ItemList> items = convertItems(list);
  if (!items) return std::nullopt;
  if (std::optional<Array> times = combineTimes(*items)) return times;
  return makeColumn(ArrayType::CELL, std::move(items));
}

// pandas decides what a gap among integers is as a floating-point number.
std::optional<Array> makeFloats(PyObject* series) {
  const auto floats = PyObjectWithGuard::owned(PyObject_CallMethod(series, "astype", "s", "float"));
  if (!floats) return std::nullopt;
  return convertNumpyNumbers(floats.get());
}

}  // namespace

PyObjectWithGuard listOfItems(PyObject* series) {
  const auto objects =
      PyObjectWithGuard::owned(PyObject_CallMethod(series, "to_numpy", "s", "object"));
  auto list = PyObjectWithGuard::owned(
      objects ? PyObject_CallMethod(objects.get(), "tolist", nullptr) : nullptr);
  if (!list || PyList_Check(list.get())) return list;
  setPythonErrorStr(PyExc_TypeError, "'tolist' of pandas.DataFrame column gave no list");
  return {};
}

std::optional<Array> convertObjectColumn(PyObject* series) {
  const PandasObjects* pandas = pandasObjects();
  const PyObjectWithGuard list = pandas ? listOfItems(series) : PyObjectWithGuard();
  if (!list) return std::nullopt;
  const auto first = PyObjectWithGuard::newReference(PyList_GetItem(list.get(), 0));
  if (!first) {
    setPythonErrorStr(PyExc_IndexError, formatMessage(UnableToRetrieveObject, 0));
    return std::nullopt;
  }
  const std::optional<Array> array = createZDA(first.get(), getOptionsWithinTable());
  if (!isValidArr(array) || PyErr_Occurred()) return std::nullopt;
  const ArrayType type = array->getType();
  const Survey survey = hasNanOrHeterogeneous(list, *pandas);
  if (survey.isHeterogeneous) return makeCells(list);
  if (type == ArrayType::ZORVAN_STRING) return makeTexts(list);
  if (isNumber(first.get(), *array)) {
    return survey.missing && isRealIntegerType(type) ? makeFloats(series) : makeNumbers(list, type);
  }
  return type == ArrayType::VALUE_OBJECT ? makeObjects(list) : makeCells(list);
}

}  // namespace PythonZorvanDataArray::detail
