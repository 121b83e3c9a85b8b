#include "util/python_error.h"

#include <new>
#include <string_view>

#include "util/py_object_guard.h"
#include "zorvandata/exception.h"
#include "zorvandata/limits.h"

namespace PythonUtil {

namespace {

// Needs no C++ memory, so that it works in the catch block of an allocation failure. Should Python
// have none either, its MemoryError is what stays pending.
void setError(PyObject* type, std::string_view message) noexcept {
  PyErr_Clear();  // decoding may call Python code, which must not see an error pending
  const auto text = PyObjectWithGuard::owned(PyUnicode_DecodeUTF8(
      message.data(), static_cast<Py_ssize_t>(message.size()), "backslashreplace"));
  if (text) {
    PyErr_SetObject(type, text.get());
  }
}

}  // namespace

void setPythonErrorStr(PyObject* type, const std::string& message) noexcept {
  setError(type, message);
}

std::string ustrToAsciiStr(const std::u16string& message) {
  std::string ascii;
  for (const char16_t unit : message) {
    if (unit <= 127) {
      ascii.push_back(static_cast<char>(unit));
    }
  }
  return ascii;
}

void setPythonErrorUstr(PyObject* type, const std::u16string& message) {
  setPythonErrorStr(type, ustrToAsciiStr(message));
}

void setPythonErrorFromException() noexcept {
  try {
    throw;
  } catch (const PythonErrorSet&) {
    // The error that it announces is the one to report.
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const foundation::zorvandata::NestingTooDeepException&) {
    PyErr_Format(PyExc_RecursionError, "nesting deeper than %d levels not supported",
                 foundation::zorvandata::kMaxNesting);
  } catch (const std::exception& exception) {
    setError(PyExc_ValueError, exception.what());
  } catch (...) {
    setError(PyExc_ValueError, "Unknown exception");
  }
}

}  // namespace PythonUtil

namespace PythonZorvanDataArray {

void setPythonErrorStr(PyObject* type, const std::string& message) noexcept {
  PythonUtil::setPythonErrorStr(type, message);
}

void setPythonErrorUstr(PyObject* type, const std::u16string& message) {
  PythonUtil::setPythonErrorUstr(type, message);
}

}  // namespace PythonZorvanDataArray
