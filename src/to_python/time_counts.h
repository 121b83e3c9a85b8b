// The engine's times, in milliseconds, as the counts of 64 bits that Python and numpy have.
//
// A count is the nearest whole one. Nothing here keeps state.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "dataarray/time_pair.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

inline bool isNaT(double milliseconds) { return std::isnan(milliseconds); }

// What numpy takes for NaT.
inline constexpr int64_t kNaTCount = INT64_MIN;

// The nanoseconds of a time, if there is room for them and microseconds would lose any. A double
// says no more than that it is the nearest one to what was meant: if it is so to a whole number of
// microseconds, that was it.
std::optional<int64_t> neededNanoseconds(double milliseconds);
std::optional<int64_t> neededNanoseconds(TimePair time);

// A time that is not NaT in microseconds. Nothing, with OverflowError set, when it is infinite or
// beyond 64 bits; `className`, here and below, is for the error's text.
std::optional<int64_t> countMicroseconds(double milliseconds, const char* className);
std::optional<int64_t> countMicroseconds(TimePair time, const char* className);

// The times of a DOUBLE or COMPLEX_DOUBLE array from a position on, of which there are as many as
// counts; NaT is kNaTCount. False, with OverflowError set, like above.
bool countMicrosecondsFrom(const foundation::zorvandata::Array& times, size_t first,
                           std::vector<int64_t>& counts, const char* className);

struct TimeCounts {
  foundation::zorvandata::Array counts;  // INT64, of the times' shape
  bool nanoseconds;                      // else microseconds
};

// All times of such an array: in microseconds, unless any of them needs nanoseconds. Nothing, with
// OverflowError set, like above.
std::optional<TimeCounts> countTimes(const foundation::zorvandata::Array& times,
                                     const char* className);

}  // namespace PythonZorvanDataArray::detail
