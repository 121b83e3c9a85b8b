#include "util/py_object_guard_getter.h"

#include <string>

#include "util/message_catalogue.h"
#include "util/python_error.h"

namespace PythonUtil {

namespace messages = PythonZorvanDataArray::detail;

namespace {

bool isEmptyName(const char* name) { return name == nullptr || *name == '\0'; }

}  // namespace

PyObjectWithGuard PyObjectGuardGetter::getAttrString(PyObject* object, const char* name,
                                                     bool reportFailure) {
  if (object == nullptr || isEmptyName(name)) {
    return {};
  }
  auto attribute = PyObjectWithGuard::owned(PyObject_GetAttrString(object, name));
  PyErr_Clear();
  if (!attribute && reportFailure) {
    setPythonErrorStr(PyExc_AttributeError,
                      messages::formatMessage(messages::AttributeNotRetrieved, name));
  }
  return attribute;
}

PyObjectWithGuard PyObjectGuardGetter::getModule(const char* name, bool reportFailure) {
  if (isEmptyName(name)) {
    return {};
  }
  auto module = PyObjectWithGuard::owned(PyImport_ImportModule(name));
  if (module && PyErr_Occurred() == nullptr) {
    return module;
  }
  PyErr_Clear();
  if (reportFailure) {
    setPythonErrorStr(PyExc_ImportError,
                      std::string("failed to import module '").append(name).append("'"));
  }
  return {};
}

PyObjectWithGuard PyObjectGuardGetter::callMethodNoArgs(PyObject* object, const char* name) {
  if (object == nullptr || isEmptyName(name)) {
    return {};
  }
  auto result = PyObjectWithGuard::owned(PyObject_CallMethod(object, name, nullptr));
  if (!result) {
    setPythonErrorStr(PyExc_AttributeError,
                      messages::formatMessage(messages::MethodNotCalled, name));
  }
  return result;
}

}  // namespace PythonUtil
