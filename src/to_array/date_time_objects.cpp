#include "to_array/date_time_objects.h"

#include <memory>

namespace PythonZorvanDataArray::detail {

using PythonUtil::PyObjectWithGuard;

namespace {

PyObjectWithGuard attribute(const PyObjectWithGuard& obj, const char* name) {
  return PyObjectWithGuard::owned(PyObject_GetAttrString(obj.get(), name));
}

PyObjectWithGuard interned(const char* name) {
  return PyObjectWithGuard::owned(PyUnicode_InternFromString(name));
}

PyObjectWithGuard epoch(const PyObjectWithGuard& datetime, PyObject* tzinfo) {
  return PyObjectWithGuard::owned(
      PyObject_CallFunction(datetime.get(), "iiiiiiiO", 1970, 1, 1, 0, 0, 0, 0, tzinfo));
}

PyObjectWithGuard millisecond(const PyObjectWithGuard& timedelta) {
  return PyObjectWithGuard::owned(PyObject_CallFunction(timedelta.get(), "iii", 0, 0, 1000));
}

std::unique_ptr<DateTimeObjects> makeObjects() {
  const auto module = PyObjectWithGuard::owned(PyImport_ImportModule("datetime"));
  if (!module) return nullptr;
  const auto zones = PyObjectWithGuard::owned(PyImport_ImportModule("zoneinfo"));
  if (!zones) return nullptr;
  auto made = std::make_unique<DateTimeObjects>();
  PyObjectWithGuard utc;
  const bool isComplete =
      (made->datetime = attribute(module, "datetime")) &&
      (made->timedelta = attribute(module, "timedelta")) &&
      (made->timezone = attribute(module, "timezone")) &&
      (made->zoneInfo = attribute(zones, "ZoneInfo")) && (utc = attribute(made->timezone, "utc")) &&
      (made->naiveEpoch = epoch(made->datetime, Py_None)) &&
      (made->utcEpoch = epoch(made->datetime, utc.get())) &&
      (made->millisecond = millisecond(made->timedelta)) && (made->tzinfo = interned("tzinfo")) &&
      (made->days = interned("days")) && (made->seconds = interned("seconds")) &&
      (made->microseconds = interned("microseconds")) && (made->key = interned("key")) &&
      (made->zone = interned("zone")) && (made->filename = interned("_filename"));
  return isComplete ? std::move(made) : nullptr;
}

// False with a Python error set when the attribute is no integer of 64 bits.
bool readInteger(PyObject* obj, const PyObjectWithGuard& name, int64_t& value) {
  const auto number = PyObjectWithGuard::owned(PyObject_GetAttr(obj, name.get()));
  if (!number) return false;
  value = PyLong_AsLongLong(number.get());
  return value != -1 || !PyErr_Occurred();
}

bool isExactly(PyObject* obj, PyObjectWithGuard DateTimeObjects::*type) {
  const DateTimeObjects* objects = dateTimeObjects();
  if (!objects) PyErr_Clear();
  return objects && DateTimeObjects::is(obj, objects->*type);
}

}  // namespace

const DateTimeObjects* dateTimeObjects() {
  static const DateTimeObjects* objects = nullptr;
  if (!objects) objects = makeObjects().release();
  return objects;
}

std::optional<TimedeltaParts> readTimedelta(PyObject* delta) {
  const DateTimeObjects* objects = dateTimeObjects();
  TimedeltaParts parts{};
  if (!objects || !readInteger(delta, objects->days, parts.days) ||
      !readInteger(delta, objects->seconds, parts.seconds) ||
      !readInteger(delta, objects->microseconds, parts.microseconds)) {
    return std::nullopt;
  }
  return parts;
}

bool isInstanceOf(PyObject* obj, const char* module, const char* name) {
  const auto moduleName = PyObjectWithGuard::owned(PyUnicode_FromString(module));
  const auto imported =
      PyObjectWithGuard::owned(moduleName ? PyImport_GetModule(moduleName.get()) : nullptr);
  const auto type =
      PyObjectWithGuard::owned(imported ? PyObject_GetAttrString(imported.get(), name) : nullptr);
  if (!type) PyErr_Clear();
  return type && PyType_Check(type.get()) &&
         PyType_IsSubtype(Py_TYPE(obj), reinterpret_cast<PyTypeObject*>(type.get())) != 0;
}

bool isDatetime(PyObject* obj) { return isExactly(obj, &DateTimeObjects::datetime); }
bool isTimedelta(PyObject* obj) { return isExactly(obj, &DateTimeObjects::timedelta); }

bool isNumpyDatetime64(PyObject* obj) { return isInstanceOf(obj, "numpy", "datetime64"); }
bool isNumpyTimedelta64(PyObject* obj) { return isInstanceOf(obj, "numpy", "timedelta64"); }
bool isPandasTimestamp(PyObject* obj) { return isInstanceOf(obj, "pandas", "Timestamp"); }
bool isPandasTimedelta(PyObject* obj) { return isInstanceOf(obj, "pandas", "Timedelta"); }

}  // namespace PythonZorvanDataArray::detail
