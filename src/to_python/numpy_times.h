// numpy's own times: arrays and scalars of datetime64 and timedelta64, and arrays of objects.
//
// All return new references, or NULL with a Python error set: ImportError where there is no numpy.
#pragma once

#include <cstdint>

#include "to_python/time_counts.h"
#include "util/python_api.h"

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

// The scalar numpy.datetime64("NaT").
PyObject* makeNumpyNaT();

// An array of the objects in a list, which are no sequences, in column-major order.
PyObject* makeNumpyObjects(PyObject* list, const foundation::zorvandata::Dimensions& dims);

}  // namespace PythonZorvanDataArray::detail
