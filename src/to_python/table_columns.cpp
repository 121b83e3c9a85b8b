#include "to_python/table_columns.h"

#include <string>

#include "to_python/imported_attribute.h"
#include "to_python/numpy_times.h"
#include "to_python/table_arrow_texts.h"
#include "to_python/table_categories.h"
#include "to_python/table_image.h"
#include "to_python/vectors.h"
#include "types/ndpy_array_bridge.h"
#include "util/message_catalogue.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::RecordReader;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;
using PythonUtil::raise;

namespace {

// NULL for a type that numpy has not.
const char* numpyName(ArrayType type) {
  constexpr int kFirst = codeOf(ArrayType::DOUBLE);
  constexpr const char* kNames[] = {"float64", "float32", "int8",       "uint8",
                                    "int16",   "uint16",  "int32",      "uint32",
                                    "int64",   "uint64",  "complex128", "complex64"};
  if (type == ArrayType::LOGICAL) return "bool";
  const int i = codeOf(type) - kFirst;
  return 0 <= i && i < static_cast<int>(std::size(kNames)) ? kNames[i] : nullptr;
}

bool isRowOrColumn(const Array& values) {
  const foundation::zorvandata::Dimensions& dims = values.dimensions();
  return dims.count() == 2 && (dims[0] <= 1 || dims[1] == 1);
}

void checkObject(std::string_view className) {
  for (const char* known : {"categorical", "datetime", "duration", "dictionary"}) {
    if (className == known) return;
  }
  raise(PyExc_TypeError, className == "timetable"
                             ? formatMessage(UnsupportedNestedTimeTableConversion)
                             : formatMessage(UnsupportedInputArrayTypeError, className));
}

// One-dimensional. It takes over the memory if nobody shares it.
PyObjectWithGuard makeNumpyColumn(const Array& values) {
  static ImportedAttribute attribute("numpy", "asarray");
  const auto asarray = checked(Py_XNewRef(attribute.get()));
  const auto dtype = checked(Py_BuildValue("{ss}", "dtype", numpyName(values.getType())));
  if (!PythonNdPyArray::ndpyCapsule) raise(PyExc_ValueError, formatMessage(CapsuleIsNull));
  const auto memory = checked(PythonNdPyArray::ndArrayFromArray(values));
  const auto arguments = checked(PyTuple_Pack(1, memory.get()));
  const auto matrix = checked(PyObject_Call(asarray.get(), arguments.get(), dtype.get()));
  return checked(PyObject_CallMethod(matrix.get(), "reshape", "i", -1));
}

// The text of each row of a char array that is one row or one column.
PyObjectWithGuard makeCharColumn(const Array& values) {
  const auto* units = reinterpret_cast<const char16_t*>(values.impl().buffer().data());
  const size_t rows = values.dimensions()[0];
  const size_t columns = values.dimensions()[1];
  return checked(makeList(rows, [&](size_t row) {
    return makeText(std::u16string_view(units + row * columns, columns)).release();
  }));
}

// A list of str, None for missing ones, or a pandas array.
PyObjectWithGuard makeStringColumn(const Array& values) {
  if (auto arrow = makeArrowTexts(values.impl().texts())) return std::move(*arrow);
  return makeTexts(values.impl().texts());
}

// A pandas.Series of the objects in a list as they are.
PyObjectWithGuard makeObjectColumn(const PyObjectWithGuard& list) {
  static ImportedAttribute attribute("pandas", "Series");
  const auto series = checked(Py_XNewRef(attribute.get()));
  const auto arguments = checked(PyTuple_Pack(1, list.get()));
  const auto options = checked(Py_BuildValue("{ss}", "dtype", "object"));
  return checked(PyObject_Call(series.get(), arguments.get(), options.get()));
}

// The index of the zone's times, given those of UTC without a zone.
PyObjectWithGuard makeZonedTimes(const PyObjectWithGuard& times, const PyObjectWithGuard& zone) {
  static ImportedAttribute attribute("pandas", "DatetimeIndex");
  const auto datetimeIndex = checked(Py_XNewRef(attribute.get()));
  const auto naive =
      checked(PyObject_CallFunctionObjArgs(datetimeIndex.get(), times.get(), nullptr));
  const auto utc = checked(PyObject_CallMethod(naive.get(), "tz_localize", "s", "UTC"));
  return checked(PyObject_CallMethod(utc.get(), "tz_convert", "(O)", zone.get()));
}

PyObjectWithGuard makeNumpyTimeColumn(NumpyTimeClass timeClass, const Array& times,
                                      const char* className) {
  const auto counts = countTimes(times, className);
  if (!counts) throw PythonErrorSet();
  const auto matrix = checked(makeNumpyTimes(timeClass, *counts));
  return checked(PyObject_CallMethod(matrix.get(), "reshape", "i", -1));
}

}  // namespace

void checkVariable(const Array& values) {
  const ArrayType type = values.getType();
  switch (type) {
    case ArrayType::VALUE_OBJECT:
      return checkObject(valueObjectClass(values));
    case ArrayType::CHAR:
      if (!isRowOrColumn(values)) raise(PyExc_ValueError, formatMessage(CharArrayFromZorvan));
      return;
    case ArrayType::HANDLE_OBJECT_REF:
      raise(PyExc_TypeError, formatMessage(UnsupportedHandleObjectReference));
    case ArrayType::CELL:
    case ArrayType::ZORVAN_STRING:
      return;
    default:
      break;
  }
  if (numpyName(type)) return;
  if (isSparse(values)) refuseSparse();
  raise(PyExc_TypeError, formatMessage(UnsupportedZorvanType, nameOf(type)));
}

PyObjectWithGuard makeTimeColumn(const Array& times) {
  if (valueObjectClass(times) == "duration") {
    return makeNumpyTimeColumn(kTimedelta64, propertyOf(times, "millis", {ArrayType::DOUBLE}),
                               "duration");
  }
  const Array data = propertyOf(times, "data", {ArrayType::COMPLEX_DOUBLE, ArrayType::DOUBLE});
  const auto zone = zoneOf(RecordReader(times));
  auto column = makeNumpyTimeColumn(kDatetime64, data, "datetime");
  return zone.get() == Py_None ? std::move(column) : makeZonedTimes(column, zone);
}

PyObjectWithGuard makeColumn(Decoder& decoder, const Array& values) {
  const std::string_view className = valueObjectClass(values);
  if (className == "datetime" || className == "duration") return makeTimeColumn(values);
  if (className == "categorical") return makeCategoricalColumn(values);
  switch (values.getType()) {
    case ArrayType::CHAR:
      return makeCharColumn(values);
    case ArrayType::ZORVAN_STRING:
      return makeStringColumn(values);
    case ArrayType::CELL:
      return makeObjectColumn(decoder.list(values.impl().items(), Empties::kAsLists));
    case ArrayType::VALUE_OBJECT:
      return makeObjectColumn(checked(makeList(values.getNumberOfElements(), [&](size_t i) {
        return decoder.array(foundation::zorvandata::detail::elementAsArray(values, i)).release();
      })));
    default:
      return makeNumpyColumn(values);
  }
}

}  // namespace PythonZorvanDataArray::detail
