#include "to_array/duration_converters.h"

#include "to_array/date_time_objects.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// `items` holds the milliseconds.
Array makeDuration(ItemList items) {
  static const auto layout = foundation::zorvandata::makeLayout("duration", {"millis", "fmt"});
  items.appendText("");
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), std::move(items), layout);
}

}  // namespace

std::optional<Array> durationOfTicks(const std::optional<NumpyTicks>& ticks) {
  const std::optional<Array> lengths = ticks ? ticks->toLengths() : std::nullopt;
  if (!lengths) return std::nullopt;
  ItemList items;
  items.append(*lengths);
  return makeDuration(std::move(items));
}

std::optional<Array> PyTimedeltaToDuration::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const DateTimeObjects* objects = dateTimeObjects();
  if (!objects) return std::nullopt;
  if (!DateTimeObjects::is(obj, objects->timedelta)) {
    // A pandas.Timedelta gives all it holds as a timedelta64.
    const auto timedelta64 =
        PyObjectWithGuard::owned(PyObject_CallMethod(obj, "to_timedelta64", nullptr));
    return timedelta64 ? durationOfTicks(NumpyTicks::read(timedelta64.get())) : std::nullopt;
  }
  // Python's division of one timedelta by another gives the nearest double.
  const auto millis =
      PyObjectWithGuard::owned(PyNumber_TrueDivide(obj, objects->millisecond.get()));
  if (!millis) return std::nullopt;
  ItemList items;
  items.appendScalar(PyFloat_AsDouble(millis.get()));
  return makeDuration(std::move(items));
}

std::optional<Array> PyNumpyTimedelta64ToDuration::convert(PyObject* obj,
                                                           const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  return durationOfTicks(NumpyTicks::read(obj));
}

}  // namespace PythonZorvanDataArray::detail
