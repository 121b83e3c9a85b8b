#include "module/keyword_args.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "util/py_object_guard.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray {
namespace {

using PythonUtil::PyObjectWithGuard;

// The UTF-8 text of a str; what cannot be encoded shows as escapes.
std::string utf8Of(PyObject* text) {
  const auto bytes =
      PyObjectWithGuard::owned(PyUnicode_AsEncodedString(text, "utf-8", "backslashreplace"));
  if (!bytes) throw PythonUtil::PythonErrorSet();
  return std::string(PyBytes_AsString(bytes.get()), static_cast<size_t>(PyBytes_Size(bytes.get())));
}

bool fail(KeywordArgs& result, PyObject* type, const std::string& message) {
  setPythonErrorStr(type, message);
  result.failed = true;
  return false;
}

bool parseSchema(PyObject* value, KeywordArgs& result) {
  if (!PyUnicode_Check(value)) {
    return fail(result, PyExc_ValueError,
                "Value of keyword argument 'schema' was not a string as expected");
  }
  const std::string text = utf8Of(value);
  if (text != "ZORVAN_PARAMS" && text != "ZORVAN_RESULT") {
    return fail(result, PyExc_ValueError, "Invalid value ('" + text + "') for keyword 'schema'");
  }
  result.schema = text == "ZORVAN_PARAMS" ? 1 : 2;
  return true;
}

bool storeNargout(long number, KeywordArgs& result) {
  if (number < 0) {
    return fail(
        result, PyExc_ValueError,
        "Value of keyword argument 'nargout' (" + std::to_string(number) + ") was less than zero");
  }
  result.nargout = number;
  return true;
}

bool parseNargoutText(PyObject* value, KeywordArgs& result) {
  const std::string text = utf8Of(value);
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || errno == ERANGE) {
    return fail(
        result, PyExc_ValueError,
        "Keyword argument 'nargout' was not a string corresponding to a number as expected");
  }
  return storeNargout(number, result);
}

// An int too large for a long reads as -1 and is refused as such.
void parseNargoutInt(PyObject* value, KeywordArgs& result) {
  const long number = PyLong_AsLong(value);
  if (number == -1) PyErr_Clear();
  storeNargout(number, result);
}

// Reads one keyword; false when no further one is to be looked at.
bool parseKeyword(PyObject* key, PyObject* value, KeywordMode mode, KeywordArgs& result) {
  if (!PyUnicode_Check(key)) {
    return fail(result, PyExc_TypeError, "Key of keyword argument was not a string as expected");
  }
  const std::string name = utf8Of(key);
  if (name == "schema") return parseSchema(value, result);
  if (mode == KeywordMode::kToPython) return true;
  if (name != "nargout") {
    return fail(result, PyExc_ValueError, "Key ('" + name + "') for keyword is invalid");
  }
  if (PyUnicode_Check(value)) return parseNargoutText(value, result);
  if (PyLong_Check(value)) {
    parseNargoutInt(value, result);
    return false;
  }
  return fail(result, PyExc_ValueError,
              "Value of keyword argument 'nargout' was not a string or int as expected");
}

}  // namespace

KeywordArgs parseKeywordArgs(PyObject* kwargs, KeywordMode mode) {
  KeywordArgs result;
  result.schema = static_cast<uint32_t>(mode) + 1;
  if (!kwargs) return result;
  // No Python code runs while the dict is walked, so that the borrowed references hold.
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t position = 0; PyDict_Next(kwargs, &position, &key, &value);) {
    if (!parseKeyword(key, value, mode, result)) break;
  }
  return result;
}

}  // namespace PythonZorvanDataArray
