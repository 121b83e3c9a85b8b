// The engine's duration as a datetime.timedelta or numpy.timedelta64.
#include <cmath>

#include "to_python/numpy_times.h"
#include "to_python/time_objects.h"
#include "to_python/time_values.h"
#include "to_python/zorvan_object_to_py_object.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::TypedArray;

namespace {

constexpr char kClass[] = "duration";

// Days are taken off first, because timedelta reaches further than 64 bits count microseconds; the
// remainder is exact.
PyObject* makeTimedeltaOf(double milliseconds) {
  constexpr double kDay = 86'400'000;
  constexpr double kMostDays = 1e9;
  const double rest = std::fmod(milliseconds, kDay);
  const double days = (milliseconds - rest) / kDay;
  if (!(std::abs(days) <= kMostDays)) {
    setPythonErrorStr(PyExc_OverflowError, "ZORVAN duration is out of the range of timedelta");
    return nullptr;
  }
  return makeTimedelta(static_cast<int64_t>(days), std::llround(rest * 1000));
}

PyObject* makeScalar(double milliseconds) {
  if (std::isnan(milliseconds)) {
    setPythonErrorStr(PyExc_TypeError,
                      "conversion of ZORVAN duration scalar 'NaT' to Python not supported");
    return nullptr;
  }
  const std::optional<int64_t> nanoseconds = neededNanoseconds(milliseconds);
  return nanoseconds ? makeNumpyTime(kTimedelta64, *nanoseconds) : makeTimedeltaOf(milliseconds);
}

}  // namespace

PyObject* ZorvanObjectToPyObject::convertDuration(const ObjectElement& object) const {
  if (!typedProperty(object, kClass, "fmt", {ArrayType::CHAR})) return nullptr;
  const auto position = typedProperty(object, kClass, "millis", {ArrayType::DOUBLE});
  if (!position) return nullptr;
  const ItemList& items = object.objects.items();
  if (items[*position].form() == Item::Form::kScalar) {
    return makeScalar(items[*position].scalar<double>());
  }
  const TypedArray<double> millis(items.get(*position));
  if (millis.getNumberOfElements() == 1) return makeScalar(millis[0]);
  const auto times = countTimes(millis, kClass);
  return times ? makeNumpyTimes(kTimedelta64, *times) : nullptr;
}

}  // namespace PythonZorvanDataArray::detail
