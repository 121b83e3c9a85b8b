#include "to_array/text_converters.h"

#include <cstring>

#include "util/py_object_guard.h"
#include "util/python_error.h"

namespace PythonZorvanDataArray::detail {

std::optional<std::u16string> convertPyStrToUstring(PyObject* obj) {
  using PythonUtil::PyObjectWithGuard;
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

std::string convertPyStrToString(PyObject* obj) {
  const std::optional<std::u16string> text = convertPyStrToUstring(obj);
  return text ? PythonUtil::ustrToAsciiStr(*text) : std::string();
}

}  // namespace PythonZorvanDataArray::detail
