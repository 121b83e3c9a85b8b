#include "to_array/duration_converters.h"

#include "to_array/date_time_objects.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::Items;
using PythonUtil::checked;
using PythonUtil::PythonErrorSet;

namespace {

// An object of class duration, of which `appendMillis` puts the milliseconds.
template <class AppendMillis>
void appendDuration(Encoder& to, const AppendMillis& appendMillis) {
  const Level level(to);
  to.tape().openRecord(ArrayType::VALUE_OBJECT, to.shape(Encoder::kDuration));
  appendMillis();
  to.tape().text("");
  to.tape().closeRecord();
}

void appendTicks(Encoder& to, const std::optional<NumpyTicks>& ticks) {
  const std::optional<Array> lengths = ticks ? ticks->toLengths() : std::nullopt;
  if (!lengths) throw PythonErrorSet();
  appendDuration(to, [&] { to.tape().array(*lengths); });
}

}  // namespace

void PyTimedeltaToDuration::append(Encoder& to, PyObject* obj, const Options&) const {
  const DateTimeObjects* objects = dateTimeObjects();
  if (!objects) throw PythonErrorSet();
  if (!DateTimeObjects::is(obj, objects->timedelta)) {
    // A pandas.Timedelta gives all it holds as a timedelta64.
    const auto timedelta64 = checked(PyObject_CallMethod(obj, "to_timedelta64", nullptr));
    return appendTicks(to, NumpyTicks::read(timedelta64.get()));
  }
  // Python's division of one timedelta by another gives the nearest double.
  const auto millis = checked(PyNumber_TrueDivide(obj, objects->millisecond.get()));
  appendDuration(to, [&] { to.tape().real(PyFloat_AsDouble(millis.get())); });
}

void PyNumpyTimedelta64ToDuration::append(Encoder& to, PyObject* obj, const Options&) const {
  appendTicks(to, NumpyTicks::read(obj));
}

std::optional<Array> durationOfTicks(const std::optional<NumpyTicks>& ticks) {
  const std::optional<Array> lengths = ticks ? ticks->toLengths() : std::nullopt;
  if (!lengths) return std::nullopt;
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(),
                   Items({*lengths, foundation::zorvandata::makeCharRow(u"")}),
                   foundation::zorvandata::makeLayout("duration", {"millis", "fmt"}));
}

}  // namespace PythonZorvanDataArray::detail
