// The engine's table as a pandas.DataFrame.
#include "to_python/cell_to_py_list.h"
#include "to_python/data_frame_assembly.h"
#include "to_python/imported_attribute.h"
#include "to_python/numpy_times.h"
#include "to_python/table_categories.h"
#include "to_python/table_columns.h"
#include "to_python/table_flattening.h"
#include "to_python/time_values.h"
#include "to_python/vectors.h"
#include "to_python/zorvan_object_to_py_object.h"
#include "util/nesting_guard.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using PythonUtil::PyObjectWithGuard;

namespace {

// The index of the zone's times, given those of UTC without a zone.
PyObject* makeZonedTimes(PyObject* times, PyObject* zone) {
  static ImportedAttribute datetimeIndex("pandas", "DatetimeIndex");
  if (!datetimeIndex.get()) return nullptr;
  const auto naive =
      PyObjectWithGuard::owned(PyObject_CallFunctionObjArgs(datetimeIndex.get(), times, nullptr));
  if (!naive) return nullptr;
  const auto utc =
      PyObjectWithGuard::owned(PyObject_CallMethod(naive.get(), "tz_localize", "s", "UTC"));
  return utc ? PyObject_CallMethod(utc.get(), "tz_convert", "(O)", zone) : nullptr;
}

PyObject* makeNumpyTimeColumn(NumpyTimeClass timeClass, const Array& times, const char* className) {
  const auto counts = countTimes(times, className);
  if (!counts) return nullptr;
  const auto matrix = PyObjectWithGuard::owned(makeNumpyTimes(timeClass, *counts));
  return matrix ? PyObject_CallMethod(matrix.get(), "reshape", "i", -1) : nullptr;
}

// Whether a column has as many rows as the first one, of which `rows` tells from then on.
bool checkHeight(PyObject* column, const std::string& name, std::optional<Py_ssize_t>& rows) {
  const Py_ssize_t height = PyObject_Size(column);
  if (height < 0) return false;
  if (!rows) rows = height;
  if (height == *rows) return true;
  setTableError("variable '" + name + "' of ZORVAN table has " + std::to_string(height) +
                " rows, those before it have " + std::to_string(*rows));
  return false;
}

}  // namespace

PyObject* ZorvanObjectToPyObject::processDurationAndDateTimeColumnData(const Array& column) const {
  if (valueObjectClass(column) == "duration") {
    const auto millis = propertyOf(column, "millis", {ArrayType::DOUBLE});
    return millis ? makeNumpyTimeColumn(kTimedelta64, *millis, "duration") : nullptr;
  }
  const auto data = propertyOf(column, "data", {ArrayType::COMPLEX_DOUBLE, ArrayType::DOUBLE});
  if (!data) return nullptr;
  const auto zone = PyObjectWithGuard::owned(convertTimeZone({column.impl()}));
  if (!zone) return nullptr;
  auto times = PyObjectWithGuard::owned(makeNumpyTimeColumn(kDatetime64, *data, "datetime"));
  if (!times || zone.get() == Py_None) return times.release();
  return makeZonedTimes(times.get(), zone.get());
}

PyObject* ZorvanObjectToPyObject::processColumnData(const Array& column) const {
  const std::string& className = valueObjectClass(column);
  if (className == "datetime" || className == "duration") {
    return processDurationAndDateTimeColumnData(column);
  }
  if (className == "categorical") return makeCategoricalColumn(column);
  switch (column.getType()) {
    case ArrayType::CHAR:
      return makeCharColumn(column);
    case ArrayType::ZORVAN_STRING:
      return makeStringColumn(column);
    case ArrayType::CELL: {
      static const CellToPyList toList;
      const auto list = PyObjectWithGuard::owned(toList.convert(column));
      return list ? makeObjectColumn(list.get()) : nullptr;
    }
    case ArrayType::VALUE_OBJECT: {
      const auto list =
          PyObjectWithGuard::owned(makeList(column.getNumberOfElements(), [&](size_t i) {
            return convert(foundation::zorvandata::detail::elementAsArray(column, i));
          }));
      return list ? makeObjectColumn(list.get()) : nullptr;
    }
    default:
      return createNumpyArray(column);
  }
}

PyObject* ZorvanObjectToPyObject::convertTable(const Array& array) const {
  if (!canMakeDataFrames()) return convertToGenericZorvanDotObject(array);
  const PythonUtil::NestingGuard level(PythonUtil::kMaxNesting);
  if (!level) return nullptr;
  const auto image = readTable(array);
  if (!image) return nullptr;
  const auto variables = flattenNestedTable(image->variables);
  if (!variables) return nullptr;

  std::vector<std::string> names;
  std::map<std::string, bool> seenOnce;
  std::vector<PyObjectWithGuard> columns;
  std::optional<Py_ssize_t> rows;
  for (const TableVariable& variable : *variables) {
    addAndTrackColName(names, seenOnce, variable.name);
    columns.push_back(PyObjectWithGuard::owned(processColumnData(variable.values)));
    if (!columns.back()) return nullptr;
    if (!checkHeight(columns.back().get(), variable.name, rows)) return nullptr;
  }
  const auto dict =
      PyObjectWithGuard::owned(createDataDictWithUniqueNames(seenOnce, columns, names));
  if (!dict) return nullptr;
  auto frame = PyObjectWithGuard::owned(makeDataFrame(dict.get()));
  if (!frame) return nullptr;
  if (!image->rowNames.empty() && !updateDataFrameIndex(image->rowNames, frame.get())) {
    return nullptr;
  }
  return frame.release();
}

}  // namespace PythonZorvanDataArray::detail
