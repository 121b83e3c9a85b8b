#include "to_array/date_time_converters.h"

#include "to_array/date_time_objects.h"
#include "to_array/time_zone_name.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::Items;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

const DateTimeObjects& objectsOrThrow() {
  const DateTimeObjects* objects = dateTimeObjects();
  if (!objects) throw PythonErrorSet();
  return *objects;
}

// An object of class datetime, of which `appendData` puts the data.
template <class AppendData>
void appendDatetime(Encoder& to, std::string_view zone, const AppendData& appendData) {
  const Level level(to);
  to.tape().openRecord(ArrayType::VALUE_OBJECT, to.shape(Encoder::kDatetime));
  appendData();
  to.tape().text("");
  to.tape().text(zone);
  to.tape().closeRecord();
}

void appendTicks(Encoder& to, std::string_view zone, const std::optional<NumpyTicks>& ticks) {
  const std::optional<Array> times = ticks ? ticks->toTimes() : std::nullopt;
  if (!times) throw PythonErrorSet();
  appendDatetime(to, zone, [&] { to.tape().array(*times); });
}

// The difference to the epoch is exact, and has utcoffset() taken off when there is a zone.
TimePair timeOf(const DateTimeObjects& objects, PyObject* datetime, bool isAware) {
  constexpr int64_t kSecondsPerDay = 86'400;
  constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
  const PyObjectWithGuard& epoch = isAware ? objects.utcEpoch : objects.naiveEpoch;
  const auto sinceEpoch = checked(PyNumber_Subtract(datetime, epoch.get()));
  const auto parts = readTimedelta(sinceEpoch.get());
  if (!parts) throw PythonErrorSet();
  const int64_t seconds = parts->days * kSecondsPerDay + parts->seconds;
  return pairFromMicroseconds(seconds * kMicrosecondsPerSecond + parts->microseconds);
}

// The text of the zone; the interpreter's own zones say the same for every date if it is a name.
std::string zoneText(Encoder& to, const DateTimeObjects& objects, PyObject* aware,
                     PyObject* tzinfo) {
  if (const std::string* known = to.knownZone(tzinfo)) return *known;
  const bool isOwn = DateTimeObjects::is(tzinfo, objects.timezone) ||
                     DateTimeObjects::is(tzinfo, objects.zoneInfo);
  if (!isOwn) to.beforeForeignCode();
  const auto text = timeZoneText(aware, tzinfo);
  if (!text) throw PythonErrorSet();
  const bool isName = !text->empty() && text->front() != '+' && text->front() != '-';
  if (isOwn && (isName || DateTimeObjects::is(tzinfo, objects.timezone))) {
    to.rememberZone(tzinfo, *text);
  }
  return *text;
}

}  // namespace

void PyDatetimeToDatetime::append(Encoder& to, PyObject* obj, const Options&) const {
  const DateTimeObjects& objects = objectsOrThrow();
  const auto tzinfo = checked(PyObject_GetAttr(obj, objects.tzinfo.get()));
  const bool isAware = tzinfo.get() != Py_None;
  const std::string zone = isAware ? zoneText(to, objects, obj, tzinfo.get()) : std::string();
  if (DateTimeObjects::is(obj, objects.datetime)) {
    const TimePair time = timeOf(objects, obj, isAware);
    return appendDatetime(to, zone, [&] { to.tape().complexReal(time.real(), time.imag()); });
  }
  // A pandas.Timestamp gives all it holds as a datetime64, of the UTC instant when there is a zone.
  const auto datetime64 = checked(PyObject_CallMethod(obj, "to_datetime64", nullptr));
  appendTicks(to, zone, NumpyTicks::read(datetime64.get()));
}

void PyNumpyDatetime64ArrayToDatetime::append(Encoder& to, PyObject* obj, const Options&) const {
  appendTicks(to, "", NumpyTicks::read(obj));
}

std::optional<Array> datetimeOfTicks(const std::optional<NumpyTicks>& ticks) {
  const std::optional<Array> times = ticks ? ticks->toTimes() : std::nullopt;
  if (!times) return std::nullopt;
  const Array none = foundation::zorvandata::makeCharRow(u"");
  return makeArray(ArrayType::VALUE_OBJECT, Dimensions::scalar(), Items({*times, none, none}),
                   foundation::zorvandata::makeLayout("datetime", {"data", "fmt", "tz"}));
}

}  // namespace PythonZorvanDataArray::detail
