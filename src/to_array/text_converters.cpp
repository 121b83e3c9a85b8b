#include "to_array/text_converters.h"

#include <cstring>

#include "to_array/utf8_reader.h"
#include "util/message_catalogue.h"
#include "util/py_object_guard.h"
#include "util/py_object_guard_getter.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ItemList;
using PythonUtil::PyObjectWithGuard;

namespace {

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
  if (!text.data()) return false;
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
