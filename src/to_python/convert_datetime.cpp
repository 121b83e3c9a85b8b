// The engine's datetime as a datetime.datetime or numpy.datetime64, or an array of them.
#include <string>
#include <vector>

#include "to_python/numpy_times.h"
#include "to_python/text_converters.h"
#include "to_python/time_objects.h"
#include "to_python/time_values.h"
#include "to_python/time_zone_object.h"
#include "to_python/vectors.h"
#include "to_python/zorvan_object_to_py_object.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::codeOf;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::TypedArray;
using foundation::zorvandata::ValueObject;
using foundation::zorvandata::ZorvanPropertyIdentifier;
using PythonUtil::PyObjectWithGuard;

namespace {

constexpr char kClass[] = "datetime";

template <class Time>
PyObject* makeScalar(Time time, const DatetimeMaker& maker) {
  if (isNaT(time)) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(NaTNotSupported));
    return nullptr;
  }
  if (const auto nanoseconds = neededNanoseconds(time)) {
    return makeNumpyTime(kDatetime64, *nanoseconds);
  }
  const std::optional<int64_t> microseconds = countMicroseconds(time, kClass);
  return microseconds ? maker.make(*microseconds) : nullptr;
}

PyObject* makeNaiveArray(const Array& data) {
  const auto times = countTimes(data, kClass);
  return times ? makeNumpyTimes(kDatetime64, *times) : nullptr;
}

PyObject* makeAwareArray(const Array& data, const DatetimeMaker& maker) {
  const auto nat = PyObjectWithGuard::owned(makeNumpyNaT());
  if (!nat) return nullptr;
  std::vector<int64_t> counts;
  size_t first = 0;
  return makeNumpyObjects(data.dimensions(), [&](size_t count) {
    counts.resize(count);
    if (!countMicrosecondsFrom(data, first, counts, kClass)) return PyObjectWithGuard();
    first += count;
    return PyObjectWithGuard::owned(makeList(count, [&](size_t i) {
      return counts[i] == kNaTCount ? Py_NewRef(nat.get()) : maker.make(counts[i]);
    }));
  });
}

PyObject* makeDates(const ItemList& items, size_t position, const DatetimeMaker& maker) {
  const Item item = items[position];
  const bool isComplex = item.type() == ArrayType::COMPLEX_DOUBLE;
  if (item.form() == Item::Form::kScalar) {
    return isComplex ? makeScalar(item.scalar<TimePair>(), maker)
                     : makeScalar(item.scalar<double>(), maker);
  }
  const Array data = items.get(position);
  if (data.getNumberOfElements() == 1) {
    return isComplex ? makeScalar(*TypedArray<TimePair>(data).begin(), maker)
                     : makeScalar(*TypedArray<double>(data).begin(), maker);
  }
  return maker.isAware() ? makeAwareArray(data, maker) : makeNaiveArray(data);
}

void setZoneTypeError(const Array& zone) {
  const auto& layout = zone.impl().layout();
  setPythonErrorStr(PyExc_TypeError,
                    layout && !layout->className.empty()
                        ? formatMessage(UnexpectedTimeZoneTypeAsStr, layout->className)
                        : formatMessage(UnexpectedTimeZoneTypeAsInt, codeOf(zone.getType())));
}

// The maker for the zone that was met last, which in a long list of dates is that of all.
struct LastZone {
  std::string name;
  std::shared_ptr<const DatetimeMaker> maker;
};

// Kept for good, so that nothing is released after the interpreter has gone.
LastZone& lastZone() {
  static auto& last = *new LastZone;
  return last;
}

}  // namespace

std::shared_ptr<const DatetimeMaker> ZorvanObjectToPyObject::datetimeMakerOf(
    const ObjectElement& object) const {
  const std::optional<size_t> position = findProperty(object, "tz");
  const Item tz = position ? object.objects.items()[*position] : Item();
  const bool isText = tz.form() == Item::Form::kText;
  if (isText && lastZone().maker && tz.utf8() == lastZone().name) return lastZone().maker;

  const auto zone = PyObjectWithGuard::owned(convertTimeZone(object));
  if (!zone) return nullptr;
  auto maker = DatetimeMaker::forZone(zone.get());
  if (isText && maker) lastZone() = {std::string(tz.utf8()), maker};
  return maker;
}

PyObject* ZorvanObjectToPyObject::convertTimeZone(const ObjectElement& element) const {
  static const CharToPyStr toText;
  const ValueObject object = Array::share(element.objects)[element.element];
  const ZorvanPropertyIdentifier property("tz");
  const ArrayType type = getPropertyValueType(object, property);
  if (type == ArrayType::UNKNOWN) {
    setPythonErrorStr(PyExc_ValueError, formatMessage(PropertyNotFoundInObject, "tz", kClass));
    return nullptr;
  }
  if (type != ArrayType::CHAR) {
    setZoneTypeError(object[property]);
    return nullptr;
  }
  const auto name = PyObjectWithGuard::owned(getPropertyValue(object, property, &toText));
  return name ? makeTimeZone(name.get()) : nullptr;
}

PyObject* ZorvanObjectToPyObject::convertDatetime(const ObjectElement& object) const {
  if (!typedProperty(object, kClass, "fmt", {ArrayType::CHAR})) return nullptr;
  const auto data =
      typedProperty(object, kClass, "data", {ArrayType::COMPLEX_DOUBLE, ArrayType::DOUBLE});
  if (!data) return nullptr;
  const auto maker = datetimeMakerOf(object);
  return maker ? makeDates(object.objects.items(), *data, *maker) : nullptr;
}

}  // namespace PythonZorvanDataArray::detail
