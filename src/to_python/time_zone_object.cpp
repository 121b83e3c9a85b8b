#include "to_python/time_zone_object.h"

#include <optional>
#include <string>
#include <string_view>

#include "to_python/imported_attribute.h"
#include "to_python/time_objects.h"
#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectWithGuard;

namespace {

constexpr int64_t kSecond = 1'000'000;

bool isDigit(char c) { return '0' <= c && c <= '9'; }

// No zone's name begins like this.
bool beginsLikeOffset(std::string_view text) {
  return text[0] == '+' || text[0] == '-' || isDigit(text[0]);
}

// Seconds of "[+-]HH[:mm[:ss]]", always less than a day.
std::optional<int> parseOffset(std::string_view text) {
  if (isDigit(text[0]) || text.size() % 3 != 0 || text.size() > 9) return std::nullopt;
  int seconds = 0;
  int unit = 3600;
  size_t at = 0;
  for (const int bound : {24, 60, 60}) {
    if (at == text.size()) break;
    const std::string_view piece = text.substr(at, 3);
    if (at > 0 && piece[0] != ':') return std::nullopt;
    if (!isDigit(piece[1]) || !isDigit(piece[2])) return std::nullopt;
    const int number = (piece[1] - '0') * 10 + (piece[2] - '0');
    if (number >= bound) return std::nullopt;
    seconds += number * unit;
    unit /= 60;
    at += 3;
  }
  return text[0] == '-' ? -seconds : seconds;
}

PyObject* makeFixedZone(std::string_view text) {
  static ImportedAttribute timezone("datetime", "timezone");
  const std::optional<int> seconds = parseOffset(text);
  if (!seconds) {
    setPythonErrorStr(PyExc_ValueError,
                      formatMessage(UnexpectedTimeZoneFormat, "[+-]HH[:mm[:ss]]"));
    return nullptr;
  }
  if (!timezone.get()) return nullptr;
  const auto offset = PyObjectWithGuard::owned(makeTimedelta(0, *seconds * kSecond));
  return offset ? PyObject_CallFunctionObjArgs(timezone.get(), offset.get(), nullptr) : nullptr;
}

// Beside zones it does not know, zoneinfo has errors of its own for names that are no keys, leave
// its folders or are folders themselves.
PyObject* makeNamedZone(PyObject* name, std::string_view text) {
  static ImportedAttribute zoneInfo("zoneinfo", "ZoneInfo");
  if (!zoneInfo.get()) return nullptr;
  PyObject* zone = PyObject_CallFunctionObjArgs(zoneInfo.get(), name, nullptr);
  if (!zone && PyErr_ExceptionMatches(PyExc_Exception) &&
      !PyErr_ExceptionMatches(PyExc_MemoryError)) {
    setPythonErrorStr(PyExc_TypeError, formatMessage(TimeZoneUnsupportedInPython, text));
  }
  return zone;
}

}  // namespace

PyObject* makeTimeZone(PyObject* name) {
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(name, &size);
  if (!utf8) return nullptr;
  const std::string_view text(utf8, static_cast<size_t>(size));
  if (text.empty()) return Py_NewRef(Py_None);
  return beginsLikeOffset(text) ? makeFixedZone(text) : makeNamedZone(name, text);
}

}  // namespace PythonZorvanDataArray::detail
