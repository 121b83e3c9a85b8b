#include <gtest/gtest.h>

#include <cstring>

#include "dataarray/time_pair.h"

namespace PythonZorvanDataArray::detail {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr int64_t kMost = std::numeric_limits<int64_t>::max();

std::pair<uint64_t, uint64_t> bitsOf(const TimePair& time) {
  uint64_t halves[2];
  std::memcpy(halves, &time, sizeof halves);
  return {halves[0], halves[1]};
}

TEST(TimePair, CountsComeBackOverTheWholeRange) {
  for (int shift = 0; shift < 63; ++shift) {
    for (const int64_t nudge : {-1, 0, 1}) {
      for (const int64_t count : {(kMost >> shift) + (shift ? nudge : 0), -(kMost >> shift)}) {
        EXPECT_EQ(nanosecondsOf(pairFromNanoseconds(count)), count);
        EXPECT_EQ(microsecondsOf(pairFromMicroseconds(count)), count);
        EXPECT_EQ(needsNanoseconds(pairFromNanoseconds(count)), count % 1000 != 0);
        EXPECT_FALSE(needsNanoseconds(pairFromMicroseconds(count)));
      }
    }
  }
}

TEST(TimePair, RealPartIsTheNearestDouble) {
  for (int64_t count = 1; count < 5'000'000; count += 7) {
    ASSERT_EQ(pairFromNanoseconds(count).real(), static_cast<double>(count) / 1e6);
    ASSERT_EQ(pairFromMicroseconds(-count).real(), static_cast<double>(-count) / 1e3);
  }
}

TEST(TimePair, PairsOfOthersAreReadToTheNearestCount) {
  struct Case {
    TimePair pair;
    std::optional<int64_t> nanoseconds, microseconds;
  };
  const Case cases[] = {
      {{0, 1e12}, 1'000'000'000'000'000'000, 1'000'000'000'000'000},
      {{1e12, -1e12}, 0, 0},
      {{-1, 0.25}, -750'000, -750},
      {{1, -0.0004}, 999'600, 1000},
      {{0.4e-6, 0}, 0, 0},
      {{-0.6e-6, 0}, -1, 0},
      {{9.3e12, 0}, std::nullopt, 9'300'000'000'000'000},
      {{9.3e15, 0}, std::nullopt, std::nullopt},
      {{-9223372036854776.0, 0.192}, std::nullopt, std::nullopt},
      {{1e300, 0}, std::nullopt, std::nullopt},
      {{1, -kInf}, std::nullopt, std::nullopt},
      {{kNan, 0}, std::nullopt, std::nullopt},
      {{0, kNan}, std::nullopt, std::nullopt},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(::testing::PrintToString(each.pair));
    EXPECT_EQ(nanosecondsOf(each.pair), each.nanoseconds);
    EXPECT_EQ(microsecondsOf(each.pair), each.microseconds);
  }
}

TEST(TickUnit, OnlyNumpysUnitsAreMade) {
  for (const char* name : {"", "generic", "S", "y", "us "}) EXPECT_FALSE(TickUnit::make(name, 1));
  for (const int64_t multiple : {int64_t{0}, int64_t{-1}, int64_t{1} << 31}) {
    EXPECT_FALSE(TickUnit::make("as", multiple));
  }
}

TEST(TickUnit, RangesEndWhereTheyAreSaidTo) {
  struct Case {
    const char* name;
    int64_t multiple, most;
  };
  const Case cases[] = {
      {"Y", 1, 292'000},
      {"M", 25, 140'160},
      {"W", 2147483647, 0},
      {"ms", 1, kMost / 1000},
      {"us", 7, kMost / 7},
      {"us", 1000, kMost / 1000},
      {"as", 2147483647, kMost / 2147483647},
  };
  for (const auto& [name, multiple, most] : cases) {
    SCOPED_TRACE(name);
    const TickUnit unit = TickUnit::make(name, multiple).value();
    const int64_t inside[] = {most, -most, kNoTick}, outside[] = {most + 1, -most - 1};
    EXPECT_TRUE(unit.covers(inside, 3));
    TimePair times[3];
    unit.toPairs(inside, 3, reinterpret_cast<std::byte*>(times));
    EXPECT_TRUE(!isNaT(times[0]) && !isNaT(times[1]) && isNaT(times[2]));
    EXPECT_TRUE(microsecondsOf(times[0]) && microsecondsOf(times[1]));
    for (const int64_t& tick : outside) EXPECT_FALSE(unit.covers(&tick, 1));
    unit.toPairs(outside, 2, reinterpret_cast<std::byte*>(times));
    EXPECT_TRUE(isNaT(times[0]) && isNaT(times[1]));
  }
}

// Long runs of ticks are converted by arithmetic of their own, unless one of them is too large.
TEST(TickUnit, RunsAreConvertedLikeSingleTicks) {
  constexpr size_t kRun = 256;
  for (const char* name : {"us", "ns"}) {
    const TickUnit unit = TickUnit::make(name, 1).value();
    const int64_t divisor = *name == 'u' ? 1000 : 1'000'000;
    uint64_t random = 1;
    for (int shift = 0; shift < 63; ++shift) {
      SCOPED_TRACE(name + std::to_string(shift));
      int64_t ticks[kRun];
      for (size_t i = 0; i < kRun; ++i) {
        random = random * 6364136223846793005U + 1442695040888963407U;
        const auto tick = static_cast<int64_t>(random) >> shift;
        const int64_t edge = tick / divisor * divisor + static_cast<int64_t>(i / 4 % 3) - 1;
        ticks[i] = i % 4 == 0 ? edge : tick;
      }
      if (shift > 0) ticks[0] = -(kMost >> shift) - 1;
      if (shift > 0) ticks[1] = (kMost >> shift) + 1;
      TimePair times[kRun];
      double lengths[kRun];
      unit.toPairs(ticks, kRun, reinterpret_cast<std::byte*>(times));
      unit.toMilliseconds(ticks, kRun, reinterpret_cast<std::byte*>(lengths));
      for (size_t i = 0; i < kRun; ++i) {
        const TimePair expected = pairOfQuotient(ticks[i], divisor);
        ASSERT_EQ(bitsOf(times[i]), bitsOf(expected)) << ticks[i];
        ASSERT_EQ(lengths[i], expected.real()) << ticks[i];
      }
    }
  }
}

}  // namespace
}  // namespace PythonZorvanDataArray::detail
