#include "to_array/bytes_converters.h"

#include <cstring>

#include "util/reference.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using PythonUtil::PyObjectWithGuard;

namespace {

// `lend` gives the bytes as those of an array that outlives this call.
template <class Lend>
void appendRow(Encoder& to, const char* bytes, Py_ssize_t size, const Lend& lend) {
  if (!bytes || size < 0) throw PythonUtil::PythonErrorSet();
  const Dimensions dims = Dimensions::row(static_cast<size_t>(size));
  if (size == 1) return to.tape().scalar(ArrayType::UINT8, bytes);
  if (dims.elements() >= foundation::zorvandata::kDenseBelow) {
    return to.tape().array(makeDense(ArrayType::UINT8, dims, lend()));
  }
  uint8_t* out = to.tape().dense(ArrayType::UINT8, dims);
  if (size > 0) std::memcpy(out, bytes, dims.elements());
}

}  // namespace

void PyBytesToUint8::append(Encoder& to, PyObject* obj, const Options&) const {
  const char* bytes = PyBytes_AsString(obj);
  const Py_ssize_t size = PyBytes_Size(obj);
  appendRow(to, bytes, size, [=] {
    auto owner = std::make_shared<const PyObjectWithGuard>(PyObjectWithGuard::newReference(obj));
    return Buffer::lent(std::move(owner), bytes, static_cast<size_t>(size));
  });
}

// Others may change a bytearray, or its size.
void PyByteArrayToUint8::append(Encoder& to, PyObject* obj, const Options&) const {
  const char* bytes = PyByteArray_AsString(obj);
  const Py_ssize_t size = PyByteArray_Size(obj);
  appendRow(to, bytes, size, [=] { return Buffer::copyOf(bytes, static_cast<size_t>(size)); });
}

}  // namespace PythonZorvanDataArray::detail
