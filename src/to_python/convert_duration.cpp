// The engine's duration as a datetime.timedelta or numpy.timedelta64.
#include <cmath>

#include "to_python/decoder.h"
#include "to_python/numpy_times.h"
#include "to_python/time_values.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::kindOf;
using foundation::zorvandata::RecordReader;
using foundation::zorvandata::TapeReader;
using foundation::zorvandata::TypedArray;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::raise;

namespace {

constexpr char kClass[] = "duration";

// Days are taken off first, because timedelta reaches further than 64 bits count microseconds; the
// remainder is exact.
PyObjectWithGuard makeTimedeltaOf(double milliseconds) {
  constexpr double kDay = 86'400'000;
  constexpr double kMostDays = 1e9;
  const double rest = std::fmod(milliseconds, kDay);
  const double days = (milliseconds - rest) / kDay;
  if (!(std::abs(days) <= kMostDays)) {
    raise(PyExc_OverflowError, "ZORVAN duration is out of the range of timedelta");
  }
  return checked(makeTimedelta(static_cast<int64_t>(days), std::llround(rest * 1000)));
}

PyObjectWithGuard makeScalar(double milliseconds) {
  if (std::isnan(milliseconds)) {
    raise(PyExc_TypeError, "conversion of ZORVAN duration scalar 'NaT' to Python not supported");
  }
  const std::optional<int64_t> nanoseconds = neededNanoseconds(milliseconds);
  return nanoseconds ? checked(makeNumpyTime(kTimedelta64, *nanoseconds))
                     : makeTimedeltaOf(milliseconds);
}

}  // namespace

PyObjectWithGuard makeDuration(const RecordReader& object) {
  requireProperty(object, kClass, "fmt", {ArrayType::CHAR});
  TapeReader value = requireProperty(object, kClass, "millis", {ArrayType::DOUBLE});
  if (value.peek() == kindOf(ArrayType::DOUBLE)) {
    value.kind();
    return makeScalar(value.real());
  }
  const TypedArray<double> millis(value.array());
  if (millis.getNumberOfElements() == 1) return makeScalar(millis[0]);
  const auto times = countTimes(millis, kClass);
  if (!times) throw PythonUtil::PythonErrorSet();
  return checked(makeNumpyTimes(kTimedelta64, *times));
}

}  // namespace PythonZorvanDataArray::detail
