// Times as the engine counts them: milliseconds since 1970-01-01T00:00:00 as a pair of doubles.
//
// The real part of a canonical pair is the double nearest to the value, the imaginary part what is
// missing from it: so the sum is exact to the nanosecond and beyond over the whole range, in which
// a value counted in microseconds fits 64 bits (292,277 years before and after 1970). A pair with a
// NaN is NaT. Pairs that others made need not be canonical.
//
// No function throws or keeps state. Those inline are called once for each element of an array.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

// Compiled for several widths of vectors, the best of which is picked at run time, where the
// platform knows how. For loops over blocks; nothing in them may depend on the width.
#if defined(__x86_64__) && defined(__GLIBC__) && __has_attribute(target_clones)
#define ZORVAN_VECTOR_WIDTHS __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define ZORVAN_VECTOR_WIDTHS
#endif

namespace PythonZorvanDataArray::detail {

using TimePair = std::complex<double>;

// A double at any address.
using LooseDouble [[gnu::aligned(1), gnu::may_alias]] = double;

inline constexpr TimePair kNaT{std::numeric_limits<double>::quiet_NaN(), 0.0};

inline bool isNaT(TimePair pair) { return std::isnan(pair.real()) || std::isnan(pair.imag()); }

// The pair of count / divisor milliseconds.
inline TimePair pairOfQuotient(int64_t count, int64_t divisor) {
  constexpr int64_t kExactInDouble = int64_t{1} << 53;
  const int64_t wholeCount = count / divisor;
  const auto whole = static_cast<double>(wholeCount);
  double rest = static_cast<double>(count % divisor) / static_cast<double>(divisor);
  // What the conversion to double lost; nothing when there are few enough milliseconds.
  if (divisor < 1024) rest += static_cast<double>(wholeCount - static_cast<int64_t>(whole));
  // The quotient of two exact numbers is the nearest double. So is the sum when it is large,
  // because the error of the rest then is too small to matter.
  const bool isExact = count > -kExactInDouble && count < kExactInDouble;
  const double nearest =
      isExact ? static_cast<double>(count) / static_cast<double>(divisor) : whole + rest;
  return {nearest, rest - (nearest - whole)};
}

inline TimePair pairFromMicroseconds(int64_t us) { return pairOfQuotient(us, 1000); }

inline TimePair pairFromNanoseconds(int64_t ns) { return pairOfQuotient(ns, 1'000'000); }

// The nearest count; absent for NaT, for infinities and beyond 64 bits, the least 64-bit value
// being left to mean NaT.
std::optional<int64_t> nanosecondsOf(TimePair pair);
std::optional<int64_t> microsecondsOf(TimePair pair);

// Whether the value, taken to the nearest nanosecond, is no whole number of microseconds. False
// for NaT and for what is no time at all.
bool needsNanoseconds(TimePair pair);

// The tick that is NaT.
inline constexpr int64_t kNoTick = std::numeric_limits<int64_t>::min();

// What numpy's datetime64 and timedelta64 count; milliseconds unless made by `make`.
class TickUnit {
 public:
  // The unit of `multiple` times what numpy calls `name` ("Y" to "as"); absent for other names and
  // for a multiple that is no positive 32-bit number.
  static std::optional<TickUnit> make(std::string_view name, int64_t multiple);

  // Months and years have no length of their own; they count days by the calendar.
  bool isCalendar() const { return months_ != 0; }

  // Whether all of the ticks are NaT or in range: within 64 bits when counted in microseconds (to
  // the last millisecond, by the calendar to 292,000 years), and multiples of fine units also when
  // multiplied out.
  bool covers(const int64_t* ticks, size_t count) const;

  // Writes the pairs of what the ticks, counted from 1970, mean; NaT for ticks out of range. The
  // bytes need not be aligned.
  void toPairs(const int64_t* ticks, size_t count, std::byte* times) const;
  // Likewise for lengths of time, as the nearest doubles. The unit must not be a calendar one.
  void toMilliseconds(const int64_t* ticks, size_t count, std::byte* lengths) const;
  using Conversion = decltype(&TickUnit::toPairs);

 private:
  template <class Put>
  void eachTime(const int64_t* ticks, size_t count, const Put& put) const;

  int64_t months_ = 0;
  // Milliseconds in one tick, as a reduced fraction.
  int64_t numerator_ = 1;
  int64_t denominator_ = 1;
  int64_t most_ = std::numeric_limits<int64_t>::max() / 1000;
};

}  // namespace PythonZorvanDataArray::detail
