#include "to_array/column_converter.h"

#include "to_array/buffer_converters.h"
#include "to_array/column_categories.h"
#include "to_array/column_objects.h"
#include "to_array/column_texts.h"
#include "to_array/date_time_converters.h"
#include "to_array/date_time_objects.h"
#include "to_array/duration_converters.h"
#include "to_array/time_zone_name.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/array_factory.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using PythonUtil::check;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

template <class T>
T orThrow(std::optional<T> value) {
  if (!value) throw PythonErrorSet();
  return std::move(*value);
}

// A one-dimensional numpy array as one column of a matrix.
PyObjectWithGuard standUpright(const PyObjectWithGuard& values) {
  return checked(PyObject_CallMethod(values.get(), "reshape", "ii", -1, 1));
}

Array convertNumpyArray(const PyObjectWithGuard& values) {
  return orThrow(convertBufferToZDA(standUpright(values).get()));
}

// The values as a numpy array of the dtype; `keywords` is a new reference or NULL.
PyObjectWithGuard toNumpy(PyObject* series, PyObject* keywords) {
  const auto named = checked(keywords);
  const auto method = attributeOf(series, "to_numpy");
  const auto positional = checked(PyTuple_New(0));
  return checked(PyObject_Call(method.get(), positional.get(), named.get()));
}

// The numpy dtype that the extension dtype says is behind it; None when it says nothing.
PyObjectWithGuard numpyDtypeOf(PyObject* series) {
  const auto dtype = attributeOf(series, "dtype");
  auto behind = PyObjectWithGuard::owned(PyObject_GetAttrString(dtype.get(), "numpy_dtype"));
  if (behind) return behind;
  if (!PyErr_ExceptionMatches(PyExc_AttributeError)) throw PythonErrorSet();
  PyErr_Clear();
  return PyObjectWithGuard::newReference(Py_None);
}

// The position of the first gap, if there is one, NaN among them where the dtype has no other.
std::optional<Py_ssize_t> findGap(PyObject* series) {
  const int hasGap = PyObject_IsTrue(attributeOf(series, "hasnans").get());
  check(hasGap);
  if (hasGap == 0) return std::nullopt;
  const auto first = resultOf(resultOf(series, "isna").get(), "argmax");
  const Py_ssize_t position = PyNumber_AsSsize_t(first.get(), PyExc_OverflowError);
  if (position < 0) throw PythonErrorSet();
  return position;
}

PyObjectWithGuard itemAt(PyObject* series, Py_ssize_t position) {
  const auto iloc = attributeOf(series, "iloc");
  const auto index = PyObjectWithGuard::owned(PyLong_FromSsize_t(position));
  auto item = PyObjectWithGuard::owned(index ? PyObject_GetItem(iloc.get(), index.get()) : nullptr);
  if (!item) PythonUtil::raise(PyExc_IndexError, formatMessage(UnableToRetrieveObject, position));
  return item;
}

// Reports the item as one that has no way over.
[[noreturn]] void refuseGap(PyObject* series, Py_ssize_t gap) {
  refuseColumnItem(itemAt(series, gap).get());
}

// Arrow makes NaN and NaT of its gaps, and doubles of integers that have any.
PyObjectWithGuard arrowToNumpy(PyObject* series) {
  return resultOf(arrowArrayOf(series).get(), "to_numpy");
}

// Numbers and bools of an extension dtype that is not Arrow's.
PyObjectWithGuard nullableToNumpy(PyObject* series, char kind, bool hasGap) {
  const PyObjectWithGuard dtype = numpyDtypeOf(series);
  if (dtype.get() == Py_None) return toNumpy(series, PyDict_New());
  if (!hasGap) return toNumpy(series, Py_BuildValue("{s:O}", "dtype", dtype.get()));
  const auto type = kind == 'f' ? PyObjectWithGuard::newReference(dtype.get())
                                : checked(PyUnicode_FromString("float64"));
  return toNumpy(series, Py_BuildValue("{s:O,s:d}", "dtype", type.get(), "na_value", Py_NAN));
}

Array convertNullableNumbers(PyObject* series, const ColumnType& type) {
  const std::optional<Py_ssize_t> gap = findGap(series);
  if (type.kind == 'b' && gap) refuseGap(series, *gap);
  return convertNumpyArray(type.isArrow ? arrowToNumpy(series)
                                        : nullableToNumpy(series, type.kind, gap.has_value()));
}

// Dates or durations, as datetime64 or timedelta64; zoned ones as UTC.
NumpyTicks readTicks(PyObject* series, const ColumnType& type) {
  const auto values = [&] {
    if (type.isArrow) return arrowToNumpy(series);
    if (type.isNumpy) return attributeOf(series, "values");
    const auto zoned = attributeOf(series, "array");
    const auto utc = checked(PyObject_CallMethod(zoned.get(), "tz_convert", "O", Py_None));
    return resultOf(utc.get(), "to_numpy");
  };
  return orThrow(NumpyTicks::read(standUpright(values()).get()));
}

// Before a date is made of a dtype with a zone, which may be of any class.
void beforeDates(FrameColumns& columns, PyObject* series) {
  const auto dtype = attributeOf(series, "dtype");
  const auto zone = PyObjectWithGuard::owned(PyObject_GetAttrString(dtype.get(), "tz"));
  PyErr_Clear();
  const DateTimeObjects* own = dateTimeObjects();
  if (!own) throw PythonErrorSet();
  const bool isOwn = !zone || zone.get() == Py_None || own->is(zone.get(), own->timezone) ||
                     own->is(zone.get(), own->zoneInfo);
  if (!isOwn) columns.beforeForeignCode();
}

// `first` is the item of the first row.
Array convertDates(PyObject* series, const ColumnType& type, PyObject* first) {
  const auto tzinfo = attributeOf(first, "tzinfo");
  const bool isZoned = tzinfo.get() != Py_None;
  const std::string zone = isZoned ? orThrow(timeZoneText(first, tzinfo.get())) : std::string();
  Array dates = orThrow(datetimeOfTicks(readTicks(series, type)));
  if (isZoned) dates[0]["tz"] = foundation::zorvandata::ArrayFactory().createCharArray(zone);
  return dates;
}

// Dates and durations of a numpy dtype; the ticks tell where the gaps are.
Array convertNumpyTimes(FrameColumns& columns, PyObject* series, const ColumnType& type) {
  const NumpyTicks ticks = readTicks(series, type);
  const std::optional<size_t> gap = ticks.firstNaT();
  // The first item is never taken for a gap: it fails by itself.
  if (gap == 0) {
    return toArray(columns.encoder(), itemAt(series, 0).get(), getOptionsWithinTable());
  }
  if (type.kind == 'm') return orThrow(durationOfTicks(ticks));
  if (gap) refuseGap(series, static_cast<Py_ssize_t>(*gap));
  return orThrow(datetimeOfTicks(ticks));
}

// Dates and durations of other dtypes.
Array convertTimes(FrameColumns& columns, PyObject* series, const ColumnType& type) {
  if (type.kind == 'm') return orThrow(durationOfTicks(readTicks(series, type)));
  beforeDates(columns, series);
  if (const std::optional<Py_ssize_t> gap = findGap(series)) refuseGap(series, *gap);
  const PyObjectWithGuard first = itemAt(series, 0);
  const bool isDate = isPandasTimestamp(first.get()) || isDatetime(first.get());
  return isDate ? convertDates(series, type, first.get()) : convertObjectColumn(columns, series);
}

}  // namespace

ConversionOptions getOptionsWithinTable() {
  ConversionOptions options;
  options.setConvertPyStrToString(true);
  options.setOriginatedFromTable();
  return options;
}

Array convertNumpyNumbers(PyObject* series) {
  return convertNumpyArray(attributeOf(series, "values"));
}

Array processColumnData(FrameColumns& columns, PyObject* series, const ColumnType& type) {
  if (type.name == "category") return handleCategoricalColumn(columns, series);
  if (type.isText) return convertTextColumn(series);
  switch (type.kind) {
    case 'M':
    case 'm':
      return type.isNumpy ? convertNumpyTimes(columns, series, type)
                          : convertTimes(columns, series, type);
    case 'b':
    case 'i':
    case 'u':
    case 'f':
    case 'c':
      return type.isNumpy ? convertNumpyNumbers(series) : convertNullableNumbers(series, type);
    default:
      return convertObjectColumn(columns, series);
  }
}

}  // namespace PythonZorvanDataArray::detail
