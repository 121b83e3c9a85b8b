#include "to_python/time_counts.h"

#include <cstring>
#include <string>

#include "util/python_error.h"
#include "zorvandata/typed_array.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::makeDense;
using foundation::zorvandata::TypedArray;

namespace {

// Counts in a millisecond.
constexpr int64_t kMicroseconds = 1000;
constexpr int64_t kNanoseconds = 1'000'000;

TimePair pairOf(double milliseconds) { return {milliseconds, 0.0}; }
TimePair pairOf(TimePair time) { return time; }

// Added to a number of less than 2**51, this leaves no bits for a fraction: the sum is rounded to
// the nearest whole number, which then stands in its last bits.
constexpr double kShift = 0x1.8p52;

int64_t lastBits(double shifted) {
  int64_t bits = 0;
  std::memcpy(&bits, &shifted, sizeof bits);
  return bits - 0x4338'0000'0000'0000;  // the bits of kShift
}

double fractionOf(TimePair time) {
  return (time.real() - ((time.real() + kShift) - kShift)) + time.imag();
}

// The count of a time that is near enough; others, NaT among them, are left to careful arithmetic.
template <int64_t perMillisecond>
bool countQuickly(TimePair time, int64_t& count) {
  constexpr double kNear = perMillisecond == kNanoseconds ? 0x1p43 : 0x1p50;
  if (!(std::abs(time.real()) < kNear && std::abs(time.imag()) <= 1.0)) return false;
  const double fraction = fractionOf(time) * static_cast<double>(perMillisecond);
  count = lastBits(time.real() + kShift) * perMillisecond + lastBits(fraction + kShift);
  return true;
}

// Whether a count says all, to the nanosecond, about a time that is near enough.
bool isWholeMicroseconds(TimePair time, int64_t) {
  const double fraction = fractionOf(time) * 1e3;
  return std::abs(fraction - ((fraction + kShift) - kShift)) < 0.5e-3;
}
bool isWholeMicroseconds(double milliseconds, int64_t microseconds) {
  return isWholeMicroseconds(pairOf(milliseconds), microseconds) ||
         static_cast<double>(microseconds) / 1e3 == milliseconds;
}

template <int64_t perMillisecond>
std::optional<int64_t> countCarefully(TimePair time) {
  if (isNaT(time)) return kNaTCount;
  const auto count = perMillisecond == kNanoseconds ? nanosecondsOf(time) : microsecondsOf(time);
  return count == kNaTCount ? std::nullopt : count;
}

// Counts times up to the first that has no count or, where that is asked for, needs nanoseconds;
// returns how many.
template <int64_t perMillisecond, bool stopsAtFiner, class Time>
size_t countAll(const Time* times, size_t size, int64_t* counts) {
  for (size_t i = 0; i < size; ++i) {
    if (countQuickly<perMillisecond>(pairOf(times[i]), counts[i]) &&
        (!stopsAtFiner || isWholeMicroseconds(times[i], counts[i]))) {
      continue;
    }
    if (stopsAtFiner && neededNanoseconds(times[i])) return i;
    const std::optional<int64_t> count = countCarefully<perMillisecond>(pairOf(times[i]));
    if (!count) return i;
    counts[i] = *count;
  }
  return size;
}

void setRangeError(TimePair time, const char* className, bool nanoseconds) {
  std::string text("ZORVAN ");
  text.append(className);
  if (std::isinf(time.real()) || std::isinf(time.imag())) {
    text.append(" is infinite");
  } else {
    text.append(nanoseconds ? " is out of the range of nanoseconds, which others in its array need"
                            : " is out of the range of 64-bit microseconds");
  }
  setPythonErrorStr(PyExc_OverflowError, text);
}

template <class Time>
std::optional<TimeCounts> countTimes(const TypedArray<Time>& array, FinestUnit finest,
                                     const char* className) {
  const Time* times = array.begin();
  const size_t size = array.getNumberOfElements();
  Buffer buffer = Buffer::uninitialized(size * sizeof(int64_t));
  auto* counts = reinterpret_cast<int64_t*>(buffer.mutableData());

  const bool mayBeFiner = finest == FinestUnit::kNanosecond;
  size_t done = mayBeFiner ? countAll<kMicroseconds, true>(times, size, counts)
                           : countAll<kMicroseconds, false>(times, size, counts);
  const bool nanoseconds = mayBeFiner && done < size && neededNanoseconds(times[done]);
  if (nanoseconds) done = countAll<kNanoseconds, false>(times, size, counts);
  if (done < size) {
    setRangeError(pairOf(times[done]), className, nanoseconds);
    return std::nullopt;
  }
  return TimeCounts{makeDense(ArrayType::INT64, array.dimensions(), std::move(buffer)),
                    nanoseconds};
}

}  // namespace

std::optional<int64_t> neededNanoseconds(double milliseconds) {
  constexpr double kSparse = 0x1p43;  // from here on doubles are more than a microsecond apart
  int64_t microseconds = 0;
  if (!(std::abs(milliseconds) < kSparse) ||
      !countQuickly<kMicroseconds>(pairOf(milliseconds), microseconds) ||
      isWholeMicroseconds(milliseconds, microseconds)) {
    return std::nullopt;
  }
  return nanosecondsOf(pairOf(milliseconds));
}

std::optional<int64_t> neededNanoseconds(TimePair time) {
  return needsNanoseconds(time) ? nanosecondsOf(time) : std::nullopt;
}

std::optional<int64_t> countMicroseconds(double milliseconds, const char* className) {
  return countMicroseconds(pairOf(milliseconds), className);
}

std::optional<int64_t> countMicroseconds(TimePair time, const char* className) {
  const std::optional<int64_t> count = microsecondsOf(time);
  if (!count) setRangeError(time, className, false);
  return count;
}

std::optional<TimeCounts> countTimes(const Array& times, FinestUnit finest, const char* className) {
  return times.getType() == ArrayType::COMPLEX_DOUBLE
             ? countTimes(TypedArray<TimePair>(times), finest, className)
             : countTimes(TypedArray<double>(times), finest, className);
}

}  // namespace PythonZorvanDataArray::detail
