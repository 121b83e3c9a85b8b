// numpy's own times: arrays and scalars of datetime64 and timedelta64, and arrays of objects.
//
// All return new references, or NULL with a Python error set: ImportError where there is no numpy.
#pragma once

#include <cstdint>
#include <functional>

#include "to_python/time_counts.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

// A class of numpy's times, by name and by the code of its arrays' dtype.
struct NumpyTimeClass {
  const char* name;
  char code;
};
inline constexpr NumpyTimeClass kDatetime64{"datetime64", 'M'};
inline constexpr NumpyTimeClass kTimedelta64{"timedelta64", 'm'};

// An array of the counts' shape. It takes over their memory if nobody shares it.
PyObject* makeNumpyTimes(NumpyTimeClass timeClass, const TimeCounts& times);

// A scalar of nanoseconds.
PyObject* makeNumpyTime(NumpyTimeClass timeClass, int64_t nanoseconds);

// The scalar numpy.datetime64("NaT", "us"): numpy means to refuse one without a unit.
PyObject* makeNumpyNaT();

// Gives so many objects, which are no sequences, as a list; empty with a Python error set.
using NextObjects = std::function<PythonUtil::PyObjectWithGuard(size_t count)>;

// An array of objects, asked for in column-major order, a part at a time: all of them in a list
// would take as much memory as the array. The first part that fails ends it.
PyObject* makeNumpyObjects(const foundation::zorvandata::Dimensions& dims, const NextObjects& next);

}  // namespace PythonZorvanDataArray::detail
