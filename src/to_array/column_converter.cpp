#include "to_array/column_converter.h"

#include <string_view>

#include "to_array/buffer_converters.h"
#include "to_array/column_categories.h"
#include "to_array/column_objects.h"
#include "to_array/column_texts.h"
#include "to_array/converter_factory.h"
#include "to_array/date_time_converters.h"
#include "to_array/date_time_objects.h"
#include "to_array/duration_converters.h"
#include "to_array/pandas_objects.h"
#include "to_array/time_zone_name.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::standalone::ClientArrayFactory;
using PythonUtil::PyObjectWithGuard;

namespace {

using Options = ConvertToZorvanDataArray::Options;

Options initializeOptionsWithinTable() {
  Options options;
  options.setConvertPyStrToString(true);
  options.setOriginatedFromTable();
  return options;
}

// A one-dimensional numpy array as one column of a matrix.
PyObjectWithGuard standUpright(const PyObjectWithGuard& values) {
  return PyObjectWithGuard::owned(values ? PyObject_CallMethod(values.get(), "reshape", "ii", -1, 1)
                                         : nullptr);
}

std::optional<Array> convertNumpyArray(const PyObjectWithGuard& values) {
  const PyObjectWithGuard column = standUpright(values);
  if (!column) return std::nullopt;
  return convertBufferToZDA(column.get(), getOptionsWithinTable());
}

// The values as a numpy array of the dtype; `keywords` is a new reference or NULL.
PyObjectWithGuard toNumpy(PyObject* series, PyObject* keywords) {
  const auto named = PyObjectWithGuard::owned(keywords);
  const auto method = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "to_numpy"));
  const auto positional = PyObjectWithGuard::owned(PyTuple_New(0));
  if (!named || !method || !positional) return {};
  return PyObjectWithGuard::owned(PyObject_Call(method.get(), positional.get(), named.get()));
}

// The numpy dtype that the extension dtype says is behind it; None when it says nothing. Empty with
// a Python error set.
PyObjectWithGuard numpyDtypeOf(PyObject* series) {
  const auto dtype = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "dtype"));
  if (!dtype) return {};
  auto behind = PyObjectWithGuard::owned(PyObject_GetAttrString(dtype.get(), "numpy_dtype"));
  if (behind || !PyErr_ExceptionMatches(PyExc_AttributeError)) return behind;
  PyErr_Clear();
  return PyObjectWithGuard::newReference(Py_None);
}

constexpr Py_ssize_t kNoGap = -1;

// The position of the first gap, NaN among them where the dtype has no other, or kNoGap; absent
// with a Python error set.
std::optional<Py_ssize_t> findGap(PyObject* series) {
  const auto has = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "hasnans"));
  const int truth = has ? PyObject_IsTrue(has.get()) : -1;
  if (truth < 0) return std::nullopt;
  if (truth == 0) return kNoGap;
  const auto isGap = PyObjectWithGuard::owned(PyObject_CallMethod(series, "isna", nullptr));
  const auto first = PyObjectWithGuard::owned(
      isGap ? PyObject_CallMethod(isGap.get(), "argmax", nullptr) : nullptr);
  const Py_ssize_t position = first ? PyNumber_AsSsize_t(first.get(), PyExc_OverflowError) : -1;
  if (position < 0) return std::nullopt;
  return position;
}

PyObjectWithGuard itemAt(PyObject* series, Py_ssize_t position) {
  const auto iloc = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "iloc"));
  return iloc ? getItemByPosition(iloc.get(), position) : PyObjectWithGuard();
}

// Numbers and bools of an extension dtype.
std::optional<Array> convertNullableNumbers(PyObject* series, char kind) {
  const PyObjectWithGuard dtype = numpyDtypeOf(series);
  if (!dtype) return std::nullopt;
  if (dtype.get() == Py_None) return convertNumpyArray(toNumpy(series, PyDict_New()));
  if (kind == 'f') {
    return convertNumpyArray(
        toNumpy(series, Py_BuildValue("{s:O,s:d}", "dtype", dtype.get(), "na_value", Py_NAN)));
  }
  const std::optional<Py_ssize_t> gap = findGap(series);
  if (!gap) return std::nullopt;
  if (*gap == kNoGap) {
    return convertNumpyArray(toNumpy(series, Py_BuildValue("{s:O}", "dtype", dtype.get())));
  }
  if (kind == 'b') {
    const PyObjectWithGuard missing = itemAt(series, *gap);
    if (missing) setUnsupportedColumnItem(missing.get());
    return std::nullopt;
  }
  return convertNumpyArray(
      toNumpy(series, Py_BuildValue("{s:s,s:d}", "dtype", "float64", "na_value", Py_NAN)));
}

// Dates or durations as one array of datetime64 or timedelta64; zoned ones as UTC.
PyObjectWithGuard timeValues(PyObject* series) {
  const PyObjectWithGuard dtype = numpyDtypeOf(series);
  if (!dtype) return {};
  if (dtype.get() == Py_None) {
    return PyObjectWithGuard::owned(PyObject_GetAttrString(series, "values"));
  }
  return toNumpy(series, Py_BuildValue("{s:O}", "dtype", dtype.get()));
}

std::optional<Array> convertDurations(PyObject* series) {
  PyNumpyTimedelta64ToDuration converter;
  const PyObjectWithGuard column = standUpright(timeValues(series));
  if (!column) return std::nullopt;
  return converter.convert(column.get(), getOptionsWithinTable());
}

// `first` is the item of the first row.
std::optional<Array> convertDates(PyObject* series, PyObject* first) {
  const auto tzinfo = PyObjectWithGuard::owned(PyObject_GetAttrString(first, "tzinfo"));
  if (!tzinfo) return std::nullopt;
  const bool isZoned = tzinfo.get() != Py_None;
  const auto zone = isZoned ? timeZoneText(first, tzinfo.get()) : std::string();
  if (!zone) return std::nullopt;
  PyNumpyDatetime64ArrayToDatetime converter;
  const PyObjectWithGuard column = standUpright(timeValues(series));
  std::optional<Array> dates =
      column ? converter.convert(column.get(), getOptionsWithinTable()) : std::nullopt;
  if (dates && isZoned) (*dates)[0]["tz"] = ClientArrayFactory().createCharArray(*zone);
  return dates;
}

// Dates and durations of whatever dtype.
std::optional<Array> convertTimes(PyObject* series, const ColumnType& type) {
  const std::optional<Py_ssize_t> gap = findGap(series);
  if (!gap) return std::nullopt;
  // The first item of a numpy dtype is never taken for a gap, and has no way over.
  const PyObjectWithGuard item = itemAt(series, *gap == kNoGap || type.isNumpy ? 0 : *gap);
  if (!item) return std::nullopt;
  if (*gap == 0 && type.isNumpy) return createZDA(item.get(), getOptionsWithinTable());
  if (type.kind == 'm') return convertDurations(series);
  if (*gap == kNoGap) {
    return isPandasTimestamp(item.get()) ? convertDates(series, item.get())
                                         : convertObjectColumn(series);
  }
  const PyObjectWithGuard missing = itemAt(series, *gap);
  if (missing) setUnsupportedColumnItem(missing.get());
  return std::nullopt;
}

}  // namespace

const Options& getOptionsWithinTable() {
  static const Options options = initializeOptionsWithinTable();
  return options;
}

std::optional<Array> convertNumpyNumbers(PyObject* series) {
  return convertNumpyArray(PyObjectWithGuard::owned(PyObject_GetAttrString(series, "values")));
}

std::optional<Array> processColumnData(PyObject* series) {
  const std::optional<ColumnType> type = ColumnType::read(series);
  if (!type) return std::nullopt;
  if (type->name == "category") return handleCategoricalColumn(series);
  if (type->isText) return convertTextColumn(series);
  switch (type->kind) {
    case 'M':
    case 'm':
      return convertTimes(series, *type);
    case 'b':
    case 'i':
    case 'u':
    case 'f':
    case 'c':
      return type->isNumpy ? convertNumpyNumbers(series)
                           : convertNullableNumbers(series, type->kind);
    default:
      return convertObjectColumn(series);
  }
}

}  // namespace PythonZorvanDataArray::detail
