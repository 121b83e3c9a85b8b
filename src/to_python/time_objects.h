// Makers of the objects of Python's datetime module.
//
// They return new references, or NULL with a Python error set: an OverflowError where Python's
// classes have no room for a value.
#pragma once

#include <cstdint>
#include <memory>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// A datetime.timedelta of the sum; the parts may have different signs.
PyObject* makeTimedelta(int64_t days, int64_t microseconds);

// Makes datetime.datetime objects of counts of microseconds since 1970-01-01T00:00:00.
class DatetimeMaker {
 public:
  // `zone` is a tzinfo, and what is made is aware; or it is None, and what is made is naive. The
  // maker holds it. Empty, with a Python error set, when the datetime module or the zone fails.
  static std::shared_ptr<const DatetimeMaker> forZone(PyObject* zone);

  bool isAware() const { return static_cast<bool>(fromUtc_); }

  // With a zone the count is one of UTC: the result shows the zone's time and has the fold that
  // tells which of two equal times it is.
  PyObject* make(int64_t microseconds) const;

 private:
  DatetimeMaker() = default;
  PyObject* makeAware(int64_t microseconds) const;
  // The date and the time of day as they are counted, the zone put to them.
  PyObject* makeWallClock(int64_t microseconds) const;

  PyObject* datetime_ = nullptr;
  PythonUtil::PyObjectWithGuard zone_;
  PythonUtil::PyObjectWithGuard fromUtc_;  // the zone's method; empty without a zone
};

}  // namespace PythonZorvanDataArray::detail
