#include "dataarray/time_pair.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace PythonZorvanDataArray::detail {

namespace {

constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
// What, in milliseconds, still fits 64 bits when counted in microseconds. The double nearest to it
// is the next whole number, which the time of most microseconds rounds to.
constexpr int64_t kMostMilliseconds = kMost / 1000;
constexpr int64_t kMillisecondsPerDay = 86'400'000;
// The Gregorian calendar repeats itself after 400 years.
constexpr int64_t kDaysPerEra = 146'097;
constexpr int64_t kMonthsPerEra = 4800;
constexpr int64_t kMostMonths =
    kMostMilliseconds / kMillisecondsPerDay / kDaysPerEra * kMonthsPerEra;

struct Split {
  int64_t milliseconds;
  double fraction;  // never of the other sign
};

// The whole and the broken milliseconds; absent where microseconds cannot be counted.
std::optional<Split> split(TimePair pair) {
  // Others may have put into the imaginary half what belongs into the real one: an exact sum.
  const double sum = pair.real() + pair.imag();
  const double part = sum - pair.real();
  const double rest = (pair.real() - (sum - part)) + (pair.imag() - part);
  if (!(std::abs(sum) <= static_cast<double>(kMostMilliseconds))) return std::nullopt;
  const auto whole = static_cast<int64_t>(sum);
  const double fraction = (sum - static_cast<double>(whole)) + rest;
  if (whole > 0 && fraction < 0) return Split{whole - 1, fraction + 1};
  if (whole < 0 && fraction > 0) return Split{whole + 1, fraction - 1};
  return Split{whole, fraction};
}

// The number, which is small, to the nearest whole one, halves away from zero.
int64_t rounded(double number) { return static_cast<int64_t>(number + std::copysign(0.5, number)); }

template <int64_t perMillisecond>
std::optional<int64_t> countOf(TimePair pair) {
  const std::optional<Split> time = split(pair);
  int64_t count = 0;
  if (!time || __builtin_mul_overflow(time->milliseconds, perMillisecond, &count) ||
      __builtin_add_overflow(count, rounded(time->fraction * perMillisecond), &count) ||
      count == kNoTick) {
    return std::nullopt;
  }
  return count;
}

// Days from 1970-01-01 to the first of a month in the Gregorian calendar. The year is taken to
// begin in March, so that a leap day is its last.
int64_t daysToMonth(int64_t monthsSince1970) {
  constexpr int64_t kDaysFromYearZeroTo1970 = 719'468;  // from 0000-03-01
  const int64_t months = monthsSince1970 + int64_t{1970} * 12 - 2;
  const int64_t era = (months >= 0 ? months : months - (kMonthsPerEra - 1)) / kMonthsPerEra;
  const int64_t monthOfEra = months - era * kMonthsPerEra;
  const int64_t year = monthOfEra / 12;
  const int64_t month = monthOfEra % 12;
  const int64_t dayOfYear = (153 * month + 2) / 5;
  const int64_t dayOfEra = year * 365 + year / 4 - year / 100 + dayOfYear;
  return era * kDaysPerEra + dayOfEra - kDaysFromYearZeroTo1970;
}

// Calls `put` with the index and the time of every tick of numerator / divisor milliseconds. The
// divisor is knownDivisor, which makes the division cheap, unless that is 0.
template <int64_t knownDivisor, class Put>
void eachLinear(const int64_t* ticks, size_t count, int64_t most, int64_t numerator,
                int64_t anyDivisor, const Put& put) {
  const int64_t divisor = knownDivisor != 0 ? knownDivisor : anyDivisor;
  for (size_t i = 0; i < count; ++i) {
    const int64_t tick = ticks[i];
    const bool isInRange = tick >= -most && tick <= most;
    put(i, isInRange ? pairOfQuotient(tick * numerator, divisor) : kNaT);
  }
}

template <class Put>
void eachCalendar(const int64_t* ticks, size_t count, int64_t most, int64_t months,
                  const Put& put) {
  for (size_t i = 0; i < count; ++i) {
    const int64_t tick = ticks[i];
    const bool isInRange = tick >= -most && tick <= most;
    put(i, isInRange ? pairOfQuotient(daysToMonth(tick * months) * kMillisecondsPerDay, 1) : kNaT);
  }
}

// What follows does its arithmetic on kBlock counts without any branch, as vector instructions need
// it. The functions return false, with worthless results, when a count is too large for that.
constexpr size_t kBlock = 256;

double doubleOf(uint64_t bits) {
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

uint64_t bitsOf(double number) {
  uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

// The doubles 2**52 and 2**84, whose last bits have room for a whole number of less than 2**52 and
// for such a multiple of 2**32.
constexpr uint64_t kUnitsBits = 0x4330'0000'0000'0000;
constexpr double kUnits = 0x1p52;
constexpr uint64_t kUpperBits = 0x4530'0000'0000'0000;
constexpr double kUpper = 0x1p84;

ZORVAN_VECTOR_WIDTHS bool divideBlock(const int64_t* __restrict counts, double divisor,
                                      std::byte* quotients) {
  LooseDouble* __restrict out = reinterpret_cast<LooseDouble*>(quotients);
  constexpr uint64_t kBias = uint64_t{1} << 51;
  uint64_t seen = 0;
  for (size_t i = 0; i < kBlock; ++i) {
    const uint64_t biased = static_cast<uint64_t>(counts[i]) + kBias;
    seen |= biased;
    const double number = doubleOf(biased | kUnitsBits) - (kUnits + static_cast<double>(kBias));
    out[i] = number / divisor;
  }
  return seen < 2 * kBias;
}

// The nearest whole number; of a number of less than 2**51.
inline double nearestWhole(double number) {
  constexpr double kShift = 0x1.8p52;
  return (number + kShift) - kShift;
}

// The same pairs as from pairOfQuotient, bit by bit.
template <int64_t divisor>
__attribute__((always_inline)) inline bool pairBlock(const int64_t* __restrict counts,
                                                     std::byte* pairs) {
  LooseDouble* __restrict out = reinterpret_cast<LooseDouble*>(pairs);
  static_assert(divisor == 1000 || divisor == 1'000'000);
  // Less than 2**51 milliseconds.
  constexpr uint64_t kBias = uint64_t{1} << (divisor == 1000 ? 59 : 62);
  constexpr uint64_t kExactInDouble = uint64_t{1} << 53;
  constexpr auto kDivisor = static_cast<double>(divisor);
  constexpr double kInverse = 1 / kDivisor;
  uint64_t seen = 0;
  for (size_t i = 0; i < kBlock; ++i) {
    const auto count = static_cast<uint64_t>(counts[i]);
    const uint64_t biased = count + kBias;
    seen |= biased;
    const double high = doubleOf(biased >> 32 | kUpperBits) - (kUpper + static_cast<double>(kBias));
    const double low = doubleOf((biased & 0xFFFF'FFFF) | kUnitsBits) - kUnits;
    const double number = high + low;

    // The quotient or one of its neighbours. Its halves can be multiplied without an error.
    const double guess = nearestWhole(number * kInverse);
    const double upperGuess = nearestWhole(guess * 0x1p-22) * 0x1p22;
    const double distance =
        ((high - upperGuess * kDivisor) - (guess - upperGuess) * kDivisor) + low;
    // One step towards zero if the distance has the other sign than the number.
    const double sign = std::copysign(1.0, high);
    const double step = nearestWhole(distance * sign * kInverse - (0.5 - 0.5 * kInverse)) * sign;
    const double whole = guess + step;
    const double rest = (distance - step * kDivisor) / kDivisor;

    const uint64_t isLarge = (count + kExactInDouble) / (2 * kExactInDouble);
    const uint64_t ifExact = (isLarge - 1) >> 63;  // 1 or 0
    const uint64_t mask = 0 - ifExact;
    const double nearest =
        doubleOf((bitsOf(number / kDivisor) & mask) | (bitsOf(whole + rest) & ~mask));
    out[2 * i] = nearest;
    out[2 * i + 1] = rest - (nearest - whole);
  }
  return seen < 2 * kBias;
}

ZORVAN_VECTOR_WIDTHS bool pairMicroseconds(const int64_t* counts, std::byte* pairs) {
  return pairBlock<1000>(counts, pairs);
}

ZORVAN_VECTOR_WIDTHS bool pairNanoseconds(const int64_t* counts, std::byte* pairs) {
  return pairBlock<1'000'000>(counts, pairs);
}

}  // namespace

std::optional<int64_t> nanosecondsOf(TimePair pair) { return countOf<1'000'000>(pair); }

std::optional<int64_t> microsecondsOf(TimePair pair) { return countOf<1000>(pair); }

bool needsNanoseconds(TimePair pair) {
  const std::optional<Split> time = split(pair);
  return time && rounded(time->fraction * 1e6) % 1000 != 0;
}

std::optional<TickUnit> TickUnit::make(std::string_view name, int64_t multiple) {
  struct Row {
    std::string_view name;
    int64_t months, numerator, denominator;
  };
  static constexpr Row kRows[] = {
      {"Y", 12, 0, 1},
      {"M", 1, 0, 1},
      {"W", 0, 7 * kMillisecondsPerDay, 1},
      {"D", 0, kMillisecondsPerDay, 1},
      {"h", 0, 3'600'000, 1},
      {"m", 0, 60'000, 1},
      {"s", 0, 1000, 1},
      {"ms", 0, 1, 1},
      {"us", 0, 1, 1000},
      {"ns", 0, 1, 1'000'000},
      {"ps", 0, 1, 1'000'000'000},
      {"fs", 0, 1, 1'000'000'000'000},
      {"as", 0, 1, 1'000'000'000'000'000},
  };
  if (multiple < 1 || multiple > std::numeric_limits<int32_t>::max()) return std::nullopt;
  for (const Row& row : kRows) {
    if (row.name != name) continue;
    const int64_t numerator = row.numerator * multiple;
    const int64_t common = std::gcd(numerator, row.denominator);
    TickUnit unit;
    unit.months_ = row.months * multiple;
    unit.numerator_ = numerator / common;
    unit.denominator_ = row.denominator / common;
    if (unit.months_ != 0) {
      unit.most_ = kMostMonths / unit.months_;
    } else {
      const bool isCoarse = unit.denominator_ < 1000;
      unit.most_ = (isCoarse ? kMostMilliseconds * unit.denominator_ : kMost) / unit.numerator_;
    }
    return unit;
  }
  return std::nullopt;
}

bool TickUnit::covers(const int64_t* ticks, size_t count) const {
  if (most_ == kMost) return true;
  return std::all_of(ticks, ticks + count, [this](int64_t tick) {
    return (tick >= -most_ && tick <= most_) || tick == kNoTick;
  });
}

template <class Put>
void TickUnit::eachTime(const int64_t* ticks, size_t count, const Put& put) const {
  if (months_ != 0) return eachCalendar(ticks, count, most_, months_, put);
  switch (denominator_) {
    case 1:
      return eachLinear<1>(ticks, count, most_, numerator_, 1, put);
    case 1000:
      return eachLinear<1000>(ticks, count, most_, numerator_, 1000, put);
    case 1'000'000:
      return eachLinear<1'000'000>(ticks, count, most_, numerator_, 1'000'000, put);
    default:
      return eachLinear<0>(ticks, count, most_, numerator_, denominator_, put);
  }
}

void TickUnit::toPairs(const int64_t* ticks, size_t count, std::byte* times) const {
  const bool isSimple = months_ == 0 && numerator_ == 1;
  const auto convert = isSimple && denominator_ == 1000        ? pairMicroseconds
                       : isSimple && denominator_ == 1'000'000 ? pairNanoseconds
                                                               : nullptr;
  for (size_t done = 0; done < count; done += kBlock) {
    const int64_t* block = ticks + done;
    std::byte* out = times + done * sizeof(TimePair);
    const size_t size = std::min(kBlock, count - done);
    if (convert && size == kBlock && convert(block, out)) continue;
    eachTime(block, size, [out](size_t i, TimePair time) {
      std::memcpy(out + i * sizeof time, &time, sizeof time);
    });
  }
}

void TickUnit::toMilliseconds(const int64_t* ticks, size_t count, std::byte* lengths) const {
  const auto divisor = static_cast<double>(denominator_);
  for (size_t done = 0; done < count; done += kBlock) {
    const int64_t* block = ticks + done;
    std::byte* out = lengths + done * sizeof(double);
    const size_t size = std::min(kBlock, count - done);
    if (numerator_ == 1 && size == kBlock && divideBlock(block, divisor, out)) continue;
    eachTime(block, size, [out](size_t i, TimePair time) {
      reinterpret_cast<LooseDouble*>(out)[i] = time.real();
    });
  }
}

}  // namespace PythonZorvanDataArray::detail
