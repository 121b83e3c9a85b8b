#include "to_python/table_arrow_texts.h"

#include <cstring>

#include "to_python/convert_zda_to_nd_py_array.h"
#include "to_python/imported_attribute.h"
#include "util/py_object_guard.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::makeDense;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

// For fewer it takes longer to find out how pandas keeps them.
constexpr size_t kFew = 1000;

// The parts of an Arrow array of large strings.
struct TextBuffers {
  Buffer offsets;   // of each text in `bytes`, and of the end
  Buffer bytes;     // the texts end to end
  Buffer validity;  // a bit for each text, the least significant ones first
  bool anyMissing = false;
};

TextBuffers gatherTexts(size_t count, const TextAt& textAt) {
  TextBuffers buffers;
  buffers.offsets = Buffer::uninitialized((count + 1) * sizeof(int64_t));
  buffers.validity = Buffer::zeros((count + 7) / 8);
  auto* offsets = reinterpret_cast<int64_t*>(buffers.offsets.mutableData());
  std::byte* validity = buffers.validity.mutableData();
  offsets[0] = 0;
  for (size_t i = 0; i < count; ++i) {
    const auto text = textAt(i);
    offsets[i + 1] = offsets[i] + static_cast<int64_t>(text ? text->size() : 0);
    if (text) validity[i / 8] |= std::byte{1} << (i % 8);
    buffers.anyMissing |= !text;
  }
  buffers.bytes = Buffer::uninitialized(static_cast<size_t>(offsets[count]));
  std::byte* bytes = buffers.bytes.mutableData();
  for (size_t i = 0; i < count; ++i) {
    const auto text = textAt(i);
    if (text && !text->empty()) std::memcpy(bytes + offsets[i], text->data(), text->size());
  }
  return buffers;
}

// Surrogates, and nothing else in stored text, have ED and a byte from A0 on.
bool hasSurrogates(const Buffer& bytes) {
  const auto* next = reinterpret_cast<const unsigned char*>(bytes.data());
  const unsigned char* end = next + bytes.size();
  while (next < end) {
    next =
        static_cast<const unsigned char*>(std::memchr(next, 0xED, static_cast<size_t>(end - next)));
    if (!next) return false;
    ++next;
    if (next < end && *next >= 0xA0) return true;
  }
  return false;
}

// A pyarrow.Buffer on the memory.
PyObjectWithGuard arrowBuffer(ArrayType type, Buffer buffer) {
  static ImportedAttribute makeBuffer("pyarrow", "py_buffer");
  if (!makeBuffer.get()) return {};
  const size_t count = buffer.size() / elementSize(type);
  const auto memory = PyObjectWithGuard::owned(
      toNdPyArray(makeDense(type, Dimensions(count, 1), std::move(buffer))));
  if (!memory) return {};
  return PyObjectWithGuard::owned(
      PyObject_CallFunctionObjArgs(makeBuffer.get(), memory.get(), nullptr));
}

PyObjectWithGuard arrowArray(size_t count, TextBuffers buffers) {
  static ImportedAttribute arrayClass("pyarrow", "LargeStringArray");
  if (!arrayClass.get()) return {};
  const auto offsets = arrowBuffer(ArrayType::INT64, std::move(buffers.offsets));
  if (!offsets) return {};
  const auto bytes = arrowBuffer(ArrayType::UINT8, std::move(buffers.bytes));
  if (!bytes) return {};
  const auto validity = buffers.anyMissing
                            ? arrowBuffer(ArrayType::UINT8, std::move(buffers.validity))
                            : PyObjectWithGuard::newReference(Py_None);
  if (!validity) return {};
  return PyObjectWithGuard::owned(PyObject_CallMethod(arrayClass.get(), "from_buffers", "nOOO",
                                                      static_cast<Py_ssize_t>(count), offsets.get(),
                                                      bytes.get(), validity.get()));
}

// The dtype that pandas gives to texts if it has them in Arrow arrays; options decide on that, so
// it is asked each time. Empty otherwise, with no error set.
PyObjectWithGuard arrowTextType() {
  static ImportedAttribute series("pandas", "Series");
  PyObjectWithGuard dtype;
  if (series.get()) {
    const auto sample =
        PyObjectWithGuard::owned(PyObject_CallFunction(series.get(), "[s]", "text"));
    dtype = PyObjectGuardGetter::getAttrString(sample.get(), "dtype", false);
  }
  const auto storage = PyObjectGuardGetter::getAttrString(dtype.get(), "storage", false);
  const bool isArrow = storage && PyUnicode_Check(storage.get()) &&
                       PyUnicode_CompareWithASCIIString(storage.get(), "pyarrow") == 0;
  PyErr_Clear();
  return isArrow ? std::move(dtype) : PyObjectWithGuard();
}

}  // namespace

std::optional<PyObject*> makeArrowTexts(size_t count, const TextAt& textAt) {
  static ImportedAttribute makeArray("pandas", "array");
  if (count < kFew) return std::nullopt;
  const PyObjectWithGuard dtype = arrowTextType();
  if (!dtype) return std::nullopt;
  TextBuffers buffers = gatherTexts(count, textAt);
  if (hasSurrogates(buffers.bytes)) return std::nullopt;
  const PyObjectWithGuard texts = arrowArray(count, std::move(buffers));
  if (!texts || !makeArray.get()) return nullptr;
  return PyObject_CallFunctionObjArgs(makeArray.get(), texts.get(), dtype.get(), nullptr);
}

}  // namespace PythonZorvanDataArray::detail
