// The elements of numpy's datetime64 and timedelta64 arrays and scalars, which no buffer exports.
#pragma once

#include <optional>
#include <string>

#include "dataarray/time_pair.h"
#include "util/python_api.h"
#include "zorvandata/array.h"

namespace PythonZorvanDataArray::detail {

// Counts of a unit of time; the least 64-bit integer is NaT.
class NumpyTicks {
 public:
  // Reads an array of any shape and layout, or a scalar. The counts share the memory of the array
  // as other numbers do, and what keeps it. Absent with a Python error set; TypeError for what is
  // neither, whatever it is called.
  static std::optional<NumpyTicks> read(PyObject* obj);

  // The position of the first NaT, if there is one.
  std::optional<size_t> firstNaT() const;

  // Times since 1970 as complex doubles, and lengths of time as doubles, in milliseconds and in the
  // shape of what was read; computed when they are written out. Absent with a Python error set:
  // OverflowError for a value beyond what dataarray/time_pair.h counts, TypeError for anything but
  // NaT in a unit that says nothing about time, or nothing about lengths of time.
  std::optional<foundation::zorvandata::Array> toTimes() const;
  std::optional<foundation::zorvandata::Array> toLengths() const;

 private:
  NumpyTicks(foundation::zorvandata::Array counts, std::optional<TickUnit> unit,
             std::string unitName)
      : counts_(std::move(counts)), unit_(unit), unitName_(std::move(unitName)) {}

  bool areAllNaT() const;
  // `isMeaningful`: whether ticks of the unit other than NaT have a value at all. `conversion` is
  // to elements of type T.
  template <class T>
  std::optional<foundation::zorvandata::Array> toMilliseconds(
      const char* typeName, bool isMeaningful, TickUnit::Conversion conversion) const;

  foundation::zorvandata::Array counts_;
  std::optional<TickUnit> unit_;  // absent for numpy's generic unit
  std::string unitName_;
};

}  // namespace PythonZorvanDataArray::detail
