// Points in time become scalar value objects of class "datetime" with the properties
//   data  complex double, in the shape of the value: milliseconds since 1970-01-01T00:00:00, of the
//         UTC instant when there is a zone, of the time on the clock otherwise; the real part plus
//         the imaginary one is exact to the nanosecond; NaN is NaT
//   fmt   char, empty: no display format
//   tz    char, the text of time_zone_name.h, or empty
//
// datetime.date and datetime.time alone are not supported.
#pragma once

#include "to_array/convert_to_zorvan_data_array.h"
#include "to_array/date_time_ticks.h"

namespace PythonZorvanDataArray::detail {

// datetime.datetime, and pandas.Timestamp with its nanoseconds. What a time zone raises passes
// through.
class PyDatetimeToDatetime final : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

// numpy.datetime64 of every unit. OverflowError beyond 292,277 years before and after 1970.
class PyNumpyDatetime64ArrayToDatetime : public ConvertToZorvanDataArray {
 public:
  void append(Encoder& to, PyObject* obj, const Options& options) const override;
};

// The same of ticks that were read before; absent ones give nothing and set no error.
std::optional<foundation::zorvandata::Array> datetimeOfTicks(
    const std::optional<NumpyTicks>& ticks);

// A scalar is an array without dimensions.
class PyNumpyDatetime64ScalarToDatetime final : public PyNumpyDatetime64ArrayToDatetime {};

}  // namespace PythonZorvanDataArray::detail
