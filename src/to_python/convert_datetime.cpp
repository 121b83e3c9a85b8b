// The engine's datetime as a datetime.datetime or numpy.datetime64, or an array of them.
#include <string>
#include <vector>

#include "to_python/decoder.h"
#include "to_python/numpy_times.h"
#include "to_python/time_values.h"
#include "to_python/time_zone_object.h"
#include "to_python/vectors.h"
#include "util/message_catalogue.h"
#include "zorvandata/text.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::kindOf;
using foundation::zorvandata::RecordReader;
using foundation::zorvandata::TapeReader;
using foundation::zorvandata::TypedArray;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;
using PythonUtil::raise;

namespace {

constexpr char kClass[] = "datetime";

template <class Time>
PyObjectWithGuard makeScalar(Time time, const DatetimeMaker& maker) {
  if (isNaT(time)) raise(PyExc_TypeError, formatMessage(NaTNotSupported));
  if (const auto nanoseconds = neededNanoseconds(time)) {
    return checked(makeNumpyTime(kDatetime64, *nanoseconds));
  }
  const std::optional<int64_t> microseconds = countMicroseconds(time, kClass);
  if (!microseconds) throw PythonErrorSet();
  return checked(maker.make(*microseconds));
}

PyObjectWithGuard makeNaiveArray(const Array& data) {
  const auto times = countTimes(data, kClass);
  if (!times) throw PythonErrorSet();
  return checked(makeNumpyTimes(kDatetime64, *times));
}

PyObjectWithGuard makeAwareArray(const Array& data, const DatetimeMaker& maker) {
  const auto nat = checked(makeNumpyNaT());
  std::vector<int64_t> counts;
  size_t first = 0;
  return checked(makeNumpyObjects(data.dimensions(), [&](size_t count) {
    counts.resize(count);
    if (!countMicrosecondsFrom(data, first, counts, kClass)) return PyObjectWithGuard();
    first += count;
    return PyObjectWithGuard::owned(makeList(count, [&](size_t i) {
      return counts[i] == kNaTCount ? Py_NewRef(nat.get()) : maker.make(counts[i]);
    }));
  }));
}

PyObjectWithGuard makeDates(TapeReader data, const DatetimeMaker& maker) {
  if (data.peek() == kindOf(ArrayType::COMPLEX_DOUBLE)) {
    data.kind();
    const double real = data.real();
    return makeScalar(TimePair(real, data.real()), maker);
  }
  const Array times = data.array();
  const bool isComplex = times.getType() == ArrayType::COMPLEX_DOUBLE;
  if (times.getNumberOfElements() == 1) {
    return isComplex ? makeScalar(*TypedArray<TimePair>(times).begin(), maker)
                     : makeScalar(*TypedArray<double>(times).begin(), maker);
  }
  return maker.isAware() ? makeAwareArray(times, maker) : makeNaiveArray(times);
}

[[noreturn]] void refuseZone(const Array& zone) {
  const auto& layout = zone.impl().layout();
  raise(PyExc_TypeError, layout && !layout->className.empty()
                             ? formatMessage(UnexpectedTimeZoneTypeAsStr, layout->className)
                             : formatMessage(UnexpectedTimeZoneTypeAsInt, codeOf(zone.getType())));
}

}  // namespace

PyObjectWithGuard zoneOf(const RecordReader& object) {
  const TapeReader* zone = object.find("tz");
  if (!zone) raise(PyExc_ValueError, formatMessage(PropertyNotFoundInObject, "tz", kClass));
  const Array text = TapeReader(*zone).array();
  if (text.getType() != ArrayType::CHAR) refuseZone(text);
  Decoder decoder;
  return checked(makeTimeZone(decoder.array(text).get()));
}

const DatetimeMaker& Decoder::datetimeMaker(const RecordReader& object) {
  // In a long list of dates all are in one zone.
  const TapeReader* zone = object.find("tz");
  std::optional<std::string_view> name;
  if (zone && zone->peek() == kindOf(ArrayType::CHAR)) {
    TapeReader text = *zone;
    text.kind();
    name = text.text();
    if (lastMaker_ && lastZone_ == name) return *lastMaker_;
  }
  auto maker = DatetimeMaker::forZone(zoneOf(object).get());
  if (!maker) throw PythonErrorSet();
  lastMaker_ = std::move(maker);
  lastZone_ = name;
  return *lastMaker_;
}

PyObjectWithGuard makeDatetime(Decoder& decoder, const RecordReader& object) {
  requireProperty(object, kClass, "fmt", {ArrayType::CHAR});
  const TapeReader data =
      requireProperty(object, kClass, "data", {ArrayType::COMPLEX_DOUBLE, ArrayType::DOUBLE});
  return makeDates(data, decoder.datetimeMaker(object));
}

}  // namespace PythonZorvanDataArray::detail
