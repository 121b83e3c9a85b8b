// What reading dates and times needs of Python: classes of the datetime and zoneinfo modules, and
// ways to tell real instances of foreign classes from those that merely bear their names.
//
// The datetime interface of the C API is no part of the stable ABI; all reading goes by attributes
// and operators. numpy and pandas are never imported here: whoever has an instance has the module.
#pragma once

#include <cstdint>
#include <optional>

#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

struct DateTimeObjects {
  PythonUtil::PyObjectWithGuard datetime, timedelta, timezone, zoneInfo;  // classes
  // 1970-01-01T00:00:00 without a zone and in UTC.
  PythonUtil::PyObjectWithGuard naiveEpoch, utcEpoch;
  PythonUtil::PyObjectWithGuard millisecond;  // a timedelta
  // Interned names of attributes.
  PythonUtil::PyObjectWithGuard tzinfo, days, seconds, microseconds, key, zone, filename;

  // Whether the object is of exactly that class.
  static bool is(PyObject* obj, const PythonUtil::PyObjectWithGuard& type) {
    return reinterpret_cast<PyObject*>(Py_TYPE(obj)) == type.get();
  }
};

// Made on first use and never destroyed. NULL, with a Python error set, when a module cannot be
// had.
const DateTimeObjects* dateTimeObjects();

// A length of time in the parts that Python keeps; `seconds` and `microseconds` count up from zero.
struct TimedeltaParts {
  int64_t days;
  int64_t seconds;
  int64_t microseconds;
};

// Absent with a Python error set.
std::optional<TimedeltaParts> readTimedelta(PyObject* delta);

// Whether the object is of the class that bears this name in an imported module, or of a class
// derived from it. No hook of Python runs for the test itself, and no error is set.
bool isInstanceOf(PyObject* obj, const char* module, const char* name);

// Exactly the class of the datetime module; no error is set.
bool isDatetime(PyObject* obj);
bool isTimedelta(PyObject* obj);

bool isNumpyDatetime64(PyObject* obj);
bool isNumpyTimedelta64(PyObject* obj);
bool isPandasTimestamp(PyObject* obj);
bool isPandasTimedelta(PyObject* obj);

}  // namespace PythonZorvanDataArray::detail
