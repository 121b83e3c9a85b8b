// Lengths of time become scalar value objects of class "duration" with the properties
//   millis  double, in the shape of the value: milliseconds, the nearest double; NaN is NaT
//   fmt     char, empty: no display format
//
// The nearest double is exact to the nanosecond up to 50 days and to the microsecond up to 139
// years; what is longer is rounded.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"
#include "to_array/date_time_ticks.h"

namespace PythonZorvanDataArray::detail {

// datetime.timedelta, and pandas.Timedelta with its nanoseconds.
class PyTimedeltaToDuration final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

// numpy.timedelta64, arrays and scalars. TypeError for units that are no length of time: years,
// months, the generic one. OverflowError beyond 292,277 years.
class PyNumpyTimedelta64ToDuration final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

// The same of ticks that were read before; absent ones give nothing and set no error.
std::optional<foundation::zorvandata::Array> durationOfTicks(
    const std::optional<NumpyTicks>& ticks);

}  // namespace PythonZorvanDataArray::detail
