#include "to_array/date_time_converters.h"

#include "to_array/date_time_objects.h"
#include "to_array/time_zone_name.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// `items` holds the data.
Array makeDatetime(ItemList items, std::string_view zone) {
  static const auto layout = foundation::zorvandata::makeLayout("datetime", {"data", "fmt", "tz"});
  items.appendText("");
  items.appendText(zone);
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), std::move(items), layout);
}

std::optional<ItemList> itemsOfTicks(const std::optional<NumpyTicks>& ticks) {
  const std::optional<Array> times = ticks ? ticks->toTimes() : std::nullopt;
  if (!times) return std::nullopt;
  ItemList items;
  items.append(*times);
  return items;
}

// The difference to the epoch is exact, and has utcoffset() taken off when there is a zone.
std::optional<ItemList> itemsOfDatetime(const DateTimeObjects& objects, PyObject* datetime,
                                        bool isAware) {
  constexpr int64_t kSecondsPerDay = 86'400;
  constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
  const PyObjectWithGuard& epoch = isAware ? objects.utcEpoch : objects.naiveEpoch;
  const auto sinceEpoch = PyObjectWithGuard::owned(PyNumber_Subtract(datetime, epoch.get()));
  const auto parts = sinceEpoch ? readTimedelta(sinceEpoch.get()) : std::nullopt;
  if (!parts) return std::nullopt;
  const int64_t seconds = parts->days * kSecondsPerDay + parts->seconds;
  ItemList items;
  items.appendScalar(pairFromMicroseconds(seconds * kMicrosecondsPerSecond + parts->microseconds));
  return items;
}

// A pandas.Timestamp gives all it holds as a datetime64, of the UTC instant when there is a zone.
std::optional<ItemList> itemsOfTimestamp(PyObject* timestamp) {
  const auto datetime64 =
      PyObjectWithGuard::owned(PyObject_CallMethod(timestamp, "to_datetime64", nullptr));
  if (!datetime64) return std::nullopt;
  return itemsOfTicks(NumpyTicks::read(datetime64.get()));
}

}  // namespace

std::optional<Array> PyDatetimeToDatetime::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  const DateTimeObjects* objects = dateTimeObjects();
  if (!objects) return std::nullopt;
  const auto tzinfo = PyObjectWithGuard::owned(PyObject_GetAttr(obj, objects->tzinfo.get()));
  if (!tzinfo) return std::nullopt;
  const bool isAware = tzinfo.get() != Py_None;
  const auto zone = isAware ? timeZoneText(obj, tzinfo.get()) : std::string();
  if (!zone) return std::nullopt;
  std::optional<ItemList> items = DateTimeObjects::is(obj, objects->datetime)
                                      ? itemsOfDatetime(*objects, obj, isAware)
                                      : itemsOfTimestamp(obj);
  if (!items) return std::nullopt;
  return makeDatetime(std::move(*items), *zone);
}

std::optional<Array> PyNumpyDatetime64ArrayToDatetime::convert(PyObject* obj,
                                                               const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  return datetimeOfTicks(NumpyTicks::read(obj));
}

std::optional<Array> datetimeOfTicks(const std::optional<NumpyTicks>& ticks) {
  std::optional<ItemList> items = itemsOfTicks(ticks);
  if (!items) return std::nullopt;
  return makeDatetime(std::move(*items), "");
}

}  // namespace PythonZorvanDataArray::detail
