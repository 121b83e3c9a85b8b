#include "to_python/time_counts.h"

#include <algorithm>
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

// Unsigned, because of numbers that are too large it is anything.
uint64_t lastBits(double shifted) {
  uint64_t bits = 0;
  std::memcpy(&bits, &shifted, sizeof bits);
  return bits - 0x4338'0000'0000'0000;  // the bits of kShift
}

double fractionOf(TimePair time) {
  return (time.real() - ((time.real() + kShift) - kShift)) + time.imag();
}

template <int64_t perMillisecond>
constexpr double kNear = perMillisecond == kNanoseconds ? 0x1p43 : 0x1p50;

// The count of a time that is near enough; others, NaT among them, are left to careful arithmetic.
template <int64_t perMillisecond>
bool countQuickly(TimePair time, int64_t& count) {
  if (!(std::abs(time.real()) < kNear<perMillisecond> && std::abs(time.imag()) <= 1.0))
    return false;
  const double fraction = fractionOf(time) * static_cast<double>(perMillisecond);
  count = static_cast<int64_t>(lastBits(time.real() + kShift) * perMillisecond +
                               lastBits(fraction + kShift));
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

constexpr size_t kBlock = 256;

// What a whole block of counts is worth.
struct BlockFlags {
  bool allNear;   // else worthless
  bool allWhole;  // whether the counts, when they are microseconds, say all
};

uint64_t bitsOfSize(double number) {
  uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits & INT64_MAX;
}

// Does for kBlock times what countQuickly and isWholeMicroseconds do for one, without a branch, as
// vector instructions need it. Sizes are compared by their bits, NaN being beyond all.
template <bool isPair>
__attribute__((always_inline)) inline BlockFlags countBlock(const LooseDouble* __restrict parts,
                                                            int64_t perMillisecond, double near,
                                                            int64_t* __restrict counts) {
  const uint64_t nearBits = bitsOfSize(near);
  const uint64_t oneBits = bitsOfSize(1.0);
  const uint64_t finerBits = bitsOfSize(0.5e-3);
  const auto scale = static_cast<double>(perMillisecond);
  uint64_t tooFar = 0;  // in the first bit, as in tooFine
  uint64_t tooFine = 0;
  for (size_t i = 0; i < kBlock; ++i) {
    const TimePair time = isPair ? TimePair(parts[2 * i], parts[2 * i + 1]) : pairOf(parts[i]);
    tooFar |= (nearBits - 1 - bitsOfSize(time.real())) | (oneBits - bitsOfSize(time.imag()));
    const double whole = (time.real() + kShift) - kShift;
    const double fraction = (time.real() - whole) + time.imag();
    const double us = (fraction * 1e3 + kShift) - kShift;
    uint64_t fine = finerBits - 1 - bitsOfSize(fraction * 1e3 - us);
    if (!isPair) fine &= 0 - bitsOfSize((whole * 1e3 + us) / 1e3 - time.real());
    tooFine |= fine;
    counts[i] = static_cast<int64_t>(lastBits(time.real() + kShift) *
                                         static_cast<uint64_t>(perMillisecond) +
                                     lastBits(fraction * scale + kShift));
  }
  return {tooFar >> 63 == 0, tooFine >> 63 == 0};
}

ZORVAN_VECTOR_WIDTHS BlockFlags countBlockOf(const TimePair* times, int64_t perMillisecond,
                                             double near, int64_t* counts) {
  return countBlock<true>(reinterpret_cast<const LooseDouble*>(times), perMillisecond, near,
                          counts);
}

ZORVAN_VECTOR_WIDTHS BlockFlags countBlockOf(const double* times, int64_t perMillisecond,
                                             double near, int64_t* counts) {
  return countBlock<false>(times, perMillisecond, near, counts);
}

// The times of a message lie at any address.
template <class Time>
Time timeAt(const Time* times, size_t i) {
  Time time;
  std::memcpy(&time, reinterpret_cast<const std::byte*>(times) + i * sizeof(Time), sizeof(Time));
  return time;
}

// Counts times up to the first that has no count or, where that is asked for, needs nanoseconds;
// returns how many.
template <int64_t perMillisecond, bool stopsAtFiner, class Time>
size_t countEach(const Time* times, size_t size, int64_t* counts) {
  for (size_t i = 0; i < size; ++i) {
    const Time time = timeAt(times, i);
    if (countQuickly<perMillisecond>(pairOf(time), counts[i]) &&
        (!stopsAtFiner || isWholeMicroseconds(time, counts[i]))) {
      continue;
    }
    if (stopsAtFiner && neededNanoseconds(time)) return i;
    const std::optional<int64_t> count = countCarefully<perMillisecond>(pairOf(time));
    if (!count) return i;
    counts[i] = *count;
  }
  return size;
}

// Likewise, block by block; one by one only where a block holds anything out of the ordinary.
template <int64_t perMillisecond, bool stopsAtFiner, class Time>
size_t countAll(const Time* times, size_t size, int64_t* counts) {
  for (size_t done = 0; done < size; done += kBlock) {
    const size_t left = std::min(kBlock, size - done);
    if (left == kBlock) {
      const BlockFlags flags =
          countBlockOf(times + done, perMillisecond, kNear<perMillisecond>, counts + done);
      if (flags.allNear && (!stopsAtFiner || flags.allWhole)) continue;
    }
    const size_t counted =
        countEach<perMillisecond, stopsAtFiner>(times + done, left, counts + done);
    if (counted < left) return done + counted;
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
bool countMicrosecondsFrom(const TypedArray<Time>& array, size_t first,
                           std::vector<int64_t>& counts, const char* className) {
  const Time* times = array.begin() + first;
  const size_t done = countAll<kMicroseconds, false>(times, counts.size(), counts.data());
  if (done == counts.size()) return true;
  setRangeError(pairOf(timeAt(times, done)), className, false);
  return false;
}

template <class Time>
std::optional<TimeCounts> countTimes(const TypedArray<Time>& array, const char* className) {
  const Time* times = array.begin();
  const size_t size = array.getNumberOfElements();
  Buffer buffer = Buffer::uninitialized(size * sizeof(int64_t));
  auto* counts = reinterpret_cast<int64_t*>(buffer.mutableData());

  size_t done = countAll<kMicroseconds, true>(times, size, counts);
  const bool nanoseconds = done < size && neededNanoseconds(timeAt(times, done));
  if (nanoseconds) done = countAll<kNanoseconds, false>(times, size, counts);
  if (done < size) {
    setRangeError(pairOf(timeAt(times, done)), className, nanoseconds);
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

bool countMicrosecondsFrom(const Array& times, size_t first, std::vector<int64_t>& counts,
                           const char* className) {
  return times.getType() == ArrayType::COMPLEX_DOUBLE
             ? countMicrosecondsFrom(TypedArray<TimePair>(times), first, counts, className)
             : countMicrosecondsFrom(TypedArray<double>(times), first, counts, className);
}

std::optional<TimeCounts> countTimes(const Array& times, const char* className) {
  return times.getType() == ArrayType::COMPLEX_DOUBLE
             ? countTimes(TypedArray<TimePair>(times), className)
             : countTimes(TypedArray<double>(times), className);
}

}  // namespace PythonZorvanDataArray::detail
