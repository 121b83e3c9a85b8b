#include "to_array/time_zone_name.h"

#include <cstdio>
#include <string_view>

#include "to_array/date_time_objects.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectWithGuard;

namespace {

constexpr int64_t kSecondsPerDay = 86'400;

bool isErrorOfUnknownName() {
  return PyErr_ExceptionMatches(PyExc_KeyError) || PyErr_ExceptionMatches(PyExc_ValueError) ||
         PyErr_ExceptionMatches(PyExc_OSError);
}

// Whether zoneinfo.ZoneInfo accepts the name; absent with a Python error set.
std::optional<bool> isKnownZone(const DateTimeObjects& objects, const std::string& name) {
  if (name.empty()) return false;
  const auto text = PyObjectWithGuard::owned(
      PyUnicode_FromStringAndSize(name.data(), static_cast<Py_ssize_t>(name.size())));
  if (!text) return std::nullopt;
  const auto zone = PyObjectWithGuard::owned(
      PyObject_CallFunctionObjArgs(objects.zoneInfo.get(), text.get(), nullptr));
  if (zone) return true;
  if (!isErrorOfUnknownName()) return std::nullopt;
  PyErr_Clear();
  return false;
}

// The value of the attribute as a name of a zone, without the directory of zone files before it;
// empty when there is none, absent with a Python error set.
std::optional<std::string> readName(PyObject* tzinfo, const PyObjectWithGuard& attribute) {
  const auto value = PyObjectWithGuard::owned(PyObject_GetAttr(tzinfo, attribute.get()));
  if (!value) {
    if (!PyErr_ExceptionMatches(PyExc_AttributeError)) return std::nullopt;
    PyErr_Clear();
    return "";
  }
  if (!PyUnicode_Check(value.get())) return "";
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(value.get(), &size);
  if (!utf8) {
    if (!PyErr_ExceptionMatches(PyExc_UnicodeError)) return std::nullopt;
    PyErr_Clear();
    return "";
  }
  std::string name(utf8, static_cast<size_t>(size));
  constexpr std::string_view kDirectory = "/zoneinfo/";
  const size_t directory = name.rfind(kDirectory);
  if (directory != std::string::npos) name.erase(0, directory + kDirectory.size());
  return name;
}

// The name that zoneinfo knows the zone by; empty when there is none, absent with a Python error
// set.
std::optional<std::string> zoneName(const DateTimeObjects& objects, PyObject* tzinfo) {
  for (const auto attribute :
       {&DateTimeObjects::key, &DateTimeObjects::zone, &DateTimeObjects::filename}) {
    std::optional<std::string> name = readName(tzinfo, objects.*attribute);
    if (!name) return std::nullopt;
    const std::optional<bool> known = isKnownZone(objects, *name);
    if (!known) return std::nullopt;
    if (*known) return name;
  }
  return "";
}

// What `utcoffset` gives; absent with a Python error set.
std::optional<TimedeltaParts> utcOffset(PyObject* aware) {
  const auto offset = PyObjectWithGuard::owned(PyObject_CallMethod(aware, "utcoffset", nullptr));
  if (!offset) return std::nullopt;
  if (offset.get() != Py_None) return readTimedelta(offset.get());
  setPythonErrorStr(PyExc_TypeError,
                    "conversion of a datetime to ZORVAN not supported: its time zone gives no "
                    "offset from UTC");
  return std::nullopt;
}

std::optional<std::string> offsetText(const TimedeltaParts& offset) {
  if (offset.microseconds != 0) {
    setPythonErrorStr(PyExc_ValueError,
                      "conversion of a datetime to ZORVAN not supported: its offset from UTC is no "
                      "whole number of seconds");
    return std::nullopt;
  }
  // A subclass of timedelta may make up its parts.
  const bool isNegative = offset.days < 0;
  const bool isPlausible = offset.days >= -1 && offset.days <= 0 && offset.seconds >= 0 &&
                           offset.seconds < kSecondsPerDay;
  const int64_t total = isNegative ? kSecondsPerDay - offset.seconds : offset.seconds;
  if (!isPlausible || total >= kSecondsPerDay) {
    setPythonErrorStr(PyExc_ValueError,
                      "conversion of a datetime to ZORVAN not supported: its offset from UTC is "
                      "not less than a day");
    return std::nullopt;
  }
  const auto hours = static_cast<int>(total / 3600);
  const auto minutes = static_cast<int>(total / 60 % 60);
  const auto seconds = static_cast<int>(total % 60);
  char text[32];
  std::snprintf(text, sizeof text, seconds ? "%c%02d:%02d:%02d" : "%c%02d:%02d",
                isNegative ? '-' : '+', hours, minutes, seconds);
  return text;
}

}  // namespace

std::optional<std::string> timeZoneText(PyObject* aware, PyObject* tzinfo) {
  const DateTimeObjects* objects = dateTimeObjects();
  if (!objects) return std::nullopt;
  std::string name;
  if (!DateTimeObjects::is(tzinfo, objects->timezone)) {
    std::optional<std::string> known = zoneName(*objects, tzinfo);
    if (!known) return std::nullopt;
    name = std::move(*known);
    // No other class can be relied upon to give an offset.
    if (!name.empty() && DateTimeObjects::is(tzinfo, objects->zoneInfo)) return name;
  }
  const std::optional<TimedeltaParts> offset = utcOffset(aware);
  if (!offset) return std::nullopt;
  if (!name.empty()) return name;
  return offsetText(*offset);
}

}  // namespace PythonZorvanDataArray::detail
