#include "to_array/text_converters.h"

#include <cstring>

#include "util/message_catalogue.h"
#include "util/py_object_guard.h"
#include "util/py_object_guard_getter.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

// Reads the UTF-8 of str objects. Asking a str for its UTF-8 is free for ASCII text, but leaves a
// second copy of any other text inside the str for as long as it lives; so after the first text
// that is not ASCII the copy is made outside, until an ASCII text comes again.
class Utf8Reader {
 public:
  // The view is valid while `obj` and `copy` are alive. Its data is NULL, with a Python error set,
  // when the text has no UTF-8 form.
  std::string_view read(PyObject* obj, PyObjectWithGuard& copy) {
    const bool isShort = PyUnicode_GetLength(obj) <= kLongestInside;
    return lastWasAscii_ && isShort ? readInside(obj) : readOutside(obj, copy);
  }

 private:
  std::string_view readInside(PyObject* obj) {
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(obj, &size);
    return noted(obj, utf8, size);
  }

  std::string_view readOutside(PyObject* obj, PyObjectWithGuard& copy) {
    copy = PyObjectWithGuard::owned(PyUnicode_AsUTF8String(obj));
    if (!copy) return {};
    return noted(obj, PyBytes_AsString(copy.get()), PyBytes_Size(copy.get()));
  }

  std::string_view noted(PyObject* obj, const char* utf8, Py_ssize_t size) {
    if (!utf8) return {};
    lastWasAscii_ = size == PyUnicode_GetLength(obj);
    return {utf8, static_cast<size_t>(size)};
  }

  // A copy of a longer text would be too much to leave behind.
  static constexpr Py_ssize_t kLongestInside = 4096;

  bool lastWasAscii_ = true;
};

PyStrToCharOrString& sharedConverter() {
  static PyStrToCharOrString converter;
  return converter;
}

}  // namespace

std::optional<std::u16string> PyStrToCharOrString::convertToUstring(PyObject* obj) {
  if (!obj) return std::nullopt;
  const auto bytes = PyObjectWithGuard::owned(PyUnicode_AsUTF16String(obj));
  if (!bytes) return std::nullopt;
  const char* data = PyBytes_AsString(bytes.get());
  if (!data) return std::nullopt;
  const auto size = static_cast<size_t>(PyBytes_Size(bytes.get()));
  // The encoder writes a byte-order mark first.
  constexpr size_t kUnit = sizeof(char16_t);
  std::u16string text(size < kUnit ? 0 : size / kUnit - 1, u'\0');
  if (!text.empty()) std::memcpy(text.data(), data + kUnit, text.size() * kUnit);
  return text;
}

std::optional<Array> PyStrToCharOrString::convert(PyObject* obj,
                                                  const std::optional<Options>& options) {
  const std::optional<std::u16string> text = convertToUstring(obj);
  if (!text) return std::nullopt;
  if (options && options->getConvertPyStrToString()) return getFactory().createScalar(*text);
  return getFactory().createCharArray(*text);
}

bool PyStrToCharOrString::appendTo(ItemList& items, PyObject* obj,
                                   const std::optional<Options>& options) {
  static Utf8Reader reader;
  PyObjectWithGuard copy;
  const std::string_view text = reader.read(obj, copy);
  if (!text.data()) {
    // The error that users know is the one of the UTF-16 encoder.
    PyErr_Clear();
    return ConvertToZorvanDataArray::appendTo(items, obj, options);
  }
  if (options && options->getConvertPyStrToString()) {
    items.appendString(text);
  } else {
    items.appendText(text);
  }
  return true;
}

std::optional<std::u16string> convertPyStrToUstring(PyObject* obj) {
  return sharedConverter().convertToUstring(obj);
}

std::string convertPyStrToString(PyObject* obj) {
  const std::optional<std::u16string> text = convertPyStrToUstring(obj);
  return text ? PythonUtil::ustrToAsciiStr(*text) : std::string();
}

std::string pyObjAsStdString(PyObject* obj) {
  using PythonUtil::PyObjectGuardGetter;
  if (!PyObjectGuardGetter::getAttrString(obj, "__str__", false)) {
    const std::string message = formatMessage(AttributeNotRetrieved, "__str__");
    setPythonErrorStr(PyExc_AttributeError, message);
    setPythonErrorStr(PyExc_IndexError, message);
  }
  if (!obj) return "";
  const auto text = PyObjectWithGuard::owned(PyObject_CallMethod(obj, "__str__", nullptr));
  return convertPyStrToString(text.get());
}

}  // namespace PythonZorvanDataArray::detail
