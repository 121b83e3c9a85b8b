#include "to_array/bytes_converters.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayFactory;
using foundation::zorvandata::ArrayType;

namespace {

std::optional<Array> toUint8Row(const ArrayFactory& factory, const char* bytes, Py_ssize_t size) {
  if (!bytes || size < 0) return std::nullopt;
  const auto count = static_cast<size_t>(size);
  return factory.createArrayWithData(ArrayType::UINT8, {1, count}, bytes, count);
}

}  // namespace

std::optional<Array> PyBytesToUint8::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  return toUint8Row(getFactory(), PyBytes_AsString(obj), PyBytes_Size(obj));
}

std::optional<Array> PyByteArrayToUint8::convert(PyObject* obj, const std::optional<Options>&) {
  if (!obj) return std::nullopt;
  return toUint8Row(getFactory(), PyByteArray_AsString(obj), PyByteArray_Size(obj));
}

}  // namespace PythonZorvanDataArray::detail
