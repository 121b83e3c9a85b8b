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

// Reports the item as one that has no way over.
std::optional<Array> refuseGap(PyObject* series, Py_ssize_t gap) {
  const PyObjectWithGuard missing = itemAt(series, gap);
  if (missing) setUnsupportedColumnItem(missing.get());
  return std::nullopt;
}

// Arrow makes NaN and NaT of its gaps, and doubles of integers that have any.
PyObjectWithGuard arrowToNumpy(PyObject* series) {
  const PyObjectWithGuard arrow = arrowArrayOf(series);
  return PyObjectWithGuard::owned(arrow ? PyObject_CallMethod(arrow.get(), "to_numpy", nullptr)
                                        : nullptr);
}

// Numbers and bools of an extension dtype that is not Arrow's.
PyObjectWithGuard nullableToNumpy(PyObject* series, char kind, bool hasGap) {
  const PyObjectWithGuard dtype = numpyDtypeOf(series);
  if (!dtype) return {};
  if (dtype.get() == Py_None) return toNumpy(series, PyDict_New());
  if (!hasGap) return toNumpy(series, Py_BuildValue("{s:O}", "dtype", dtype.get()));
  const auto type = kind == 'f' ? PyObjectWithGuard::newReference(dtype.get())
                                : PyObjectWithGuard::owned(PyUnicode_FromString("float64"));
  if (!type) return {};
  return toNumpy(series, Py_BuildValue("{s:O,s:d}", "dtype", type.get(), "na_value", Py_NAN));
}

std::optional<Array> convertNullableNumbers(PyObject* series, const ColumnType& type) {
  const std::optional<Py_ssize_t> gap = findGap(series);
  if (!gap) return std::nullopt;
  const bool hasGap = *gap != kNoGap;
  if (type.kind == 'b' && hasGap) return refuseGap(series, *gap);
  return convertNumpyArray(type.isArrow ? arrowToNumpy(series)
                                        : nullableToNumpy(series, type.kind, hasGap));
}

// Dates or durations as one array of datetime64 or timedelta64; zoned ones as UTC.
PyObjectWithGuard timeValues(PyObject* series, const ColumnType& type) {
  if (type.isArrow) return arrowToNumpy(series);
  if (type.isNumpy) return PyObjectWithGuard::owned(PyObject_GetAttrString(series, "values"));
  const auto zoned = PyObjectWithGuard::owned(PyObject_GetAttrString(series, "array"));
  const auto utc = PyObjectWithGuard::owned(
      zoned ? PyObject_CallMethod(zoned.get(), "tz_convert", "O", Py_None) : nullptr);
  return PyObjectWithGuard::owned(utc ? PyObject_CallMethod(utc.get(), "to_numpy", nullptr)
                                      : nullptr);
}

std::optional<Array> convertDurations(PyObject* series, const ColumnType& type) {
  PyNumpyTimedelta64ToDuration converter;
  const PyObjectWithGuard column = standUpright(timeValues(series, type));
  if (!column) return std::nullopt;
  return converter.convert(column.get(), getOptionsWithinTable());
}

// `first` is the item of the first row.
std::optional<Array> convertDates(PyObject* series, const ColumnType& type, PyObject* first) {
  const auto tzinfo = PyObjectWithGuard::owned(PyObject_GetAttrString(first, "tzinfo"));
  if (!tzinfo) return std::nullopt;
  const bool isZoned = tzinfo.get() != Py_None;
  const auto zone = isZoned ? timeZoneText(first, tzinfo.get()) : std::string();
  if (!zone) return std::nullopt;
  PyNumpyDatetime64ArrayToDatetime converter;
  const PyObjectWithGuard column = standUpright(timeValues(series, type));
  std::optional<Array> dates =
      column ? converter.convert(column.get(), getOptionsWithinTable()) : std::nullopt;
  if (dates && isZoned) (*dates)[0]["tz"] = ClientArrayFactory().createCharArray(*zone);
  return dates;
}

// Dates and durations of a numpy dtype; the ticks tell where the gaps are.
std::optional<Array> convertNumpyTimes(PyObject* series, const ColumnType& type) {
  const PyObjectWithGuard column = standUpright(timeValues(series, type));
  const std::optional<NumpyTicks> ticks = column ? NumpyTicks::read(column.get()) : std::nullopt;
  if (!ticks) return std::nullopt;
  const std::optional<size_t> gap = ticks->firstNaT();
  // The first item is never taken for a gap: it fails by itself.
  if (gap == 0) {
    const PyObjectWithGuard first = itemAt(series, 0);
    return first ? createZDA(first.get(), getOptionsWithinTable()) : std::nullopt;
  }
  if (type.kind == 'm') return durationOfTicks(ticks);
  return gap ? refuseGap(series, static_cast<Py_ssize_t>(*gap)) : datetimeOfTicks(ticks);
}

// Dates and durations of other dtypes.
std::optional<Array> convertTimes(PyObject* series, const ColumnType& type) {
  if (type.kind == 'm') return convertDurations(series, type);
  const std::optional<Py_ssize_t> gap = findGap(series);
  if (!gap) return std::nullopt;
  if (*gap != kNoGap) return refuseGap(series, *gap);
  const PyObjectWithGuard first = itemAt(series, 0);
  if (!first) return std::nullopt;
  const bool isDate = isPandasTimestamp(first.get()) || isDatetime(first.get());
  return isDate ? convertDates(series, type, first.get()) : convertObjectColumn(series);
}

}  // namespace

const Options& getOptionsWithinTable() {
  static const Options options = initializeOptionsWithinTable();
  return options;
}

std::optional<Array> convertNumpyNumbers(PyObject* series) {
  return convertNumpyArray(PyObjectWithGuard::owned(PyObject_GetAttrString(series, "values")));
}

std::optional<Array> processColumnData(PyObject* series, const ColumnType& type) {
  if (type.name == "category") return handleCategoricalColumn(series);
  if (type.isText) return convertTextColumn(series);
  switch (type.kind) {
    case 'M':
    case 'm':
      return type.isNumpy ? convertNumpyTimes(series, type) : convertTimes(series, type);
    case 'b':
    case 'i':
    case 'u':
    case 'f':
    case 'c':
      return type.isNumpy ? convertNumpyNumbers(series) : convertNullableNumbers(series, type);
    default:
      return convertObjectColumn(series);
  }
}

}  // namespace PythonZorvanDataArray::detail
