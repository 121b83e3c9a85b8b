#include "to_python/table_arrow_texts.h"

#include <array>
#include <cstring>
#include <vector>

#include "to_python/imported_attribute.h"
#include "util/py_object_guard.h"
#include "zorvandata/item_column.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::Item;
using foundation::zorvandata::ItemColumn;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::Storage;
using foundation::zorvandata::TextColumn;
using foundation::zorvandata::TextColumnBuilder;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

// For fewer it takes longer to find out how pandas keeps them.
constexpr size_t kFew = 1000;

TextColumn gatherTexts(const ItemList& strings) {
  const size_t count = strings.size();
  TextColumnBuilder builder(ArrayType::ZORVAN_STRING, count);
  Buffer present = Buffer::zeros((count + 7) / 8);
  std::byte* bits = present.mutableData();
  bool anyMissing = false;
  for (size_t i = 0; i < count; ++i) {
    const Item text = strings[i];
    const bool isMissing = text.form() == Item::Form::kMissing;
    builder.append(isMissing ? std::string_view() : text.utf8());
    if (!isMissing) bits[i / 8] |= std::byte{1} << (i % 8);
    anyMissing |= isMissing;
  }
  TextColumn column = builder.finish();
  if (anyMissing) column.present = std::move(present);
  return column;
}

// The texts at the positions, one after the other.
template <class Position>
TextColumn gatherTexts(const TextColumn& distinct, const Position* positions, size_t count) {
  // Most are short: a copy of fixed size is one instruction, and may write beyond the text.
  constexpr size_t kShort = 16;
  struct Text {
    std::array<char, kShort> start;
    std::string_view whole;
  };
  std::vector<Text> texts(distinct.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    texts[i].whole = distinct.text(i);
    texts[i].whole.copy(texts[i].start.data(), kShort);
  }
  Buffer offsets = Buffer::uninitialized((count + 1) * sizeof(int64_t));
  auto* offset = reinterpret_cast<int64_t*>(offsets.mutableData());
  size_t size = 0;
  for (size_t i = 0; i < count; ++i) {
    offset[i] = static_cast<int64_t>(size);
    size += texts[static_cast<size_t>(positions[i])].whole.size();
  }
  offset[count] = static_cast<int64_t>(size);
  Buffer bytes = Buffer::uninitialized(size + kShort);
  std::byte* out = bytes.mutableData();
  for (size_t i = 0; i < count; ++i) {
    const Text& text = texts[static_cast<size_t>(positions[i])];
    std::memcpy(out, text.start.data(), kShort);
    if (text.whole.size() > kShort) std::memcpy(out, text.whole.data(), text.whole.size());
    out += text.whole.size();
  }
  return {
      ArrayType::ZORVAN_STRING, std::move(offsets), Buffer::shared(bytes.toStorage(), size), {}};
}

// Surrogates, and nothing else in stored text, have ED and a byte from A0 on.
bool hasSurrogates(const TextColumn& column) {
  const std::string_view bytes = column.all();
  if (column.isAscii || foundation::zorvandata::isAscii(bytes)) return false;
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

constexpr char kCapsule[] = "zorvan.storage";

void releaseStorage(PyObject* capsule) {
  delete static_cast<std::shared_ptr<Storage>*>(PyCapsule_GetPointer(capsule, kCapsule));
}

// Python's share of the memory.
PyObjectWithGuard holderOf(const Buffer& buffer) {
  auto share = std::make_unique<std::shared_ptr<Storage>>(buffer.toStorage());
  auto capsule = PyObjectWithGuard::owned(PyCapsule_New(share.get(), kCapsule, releaseStorage));
  if (capsule) static_cast<void>(share.release());
  return capsule;
}

// A pyarrow.Buffer on the memory, which nobody may write to any more.
PyObjectWithGuard arrowBuffer(const Buffer& buffer) {
  static ImportedAttribute makeBuffer("pyarrow", "foreign_buffer");
  if (!makeBuffer.get()) return {};
  const PyObjectWithGuard holder = holderOf(buffer);
  if (!holder) return {};
  const auto* storage =
      static_cast<std::shared_ptr<Storage>*>(PyCapsule_GetPointer(holder.get(), kCapsule));
  return PyObjectWithGuard::owned(PyObject_CallFunction(
      makeBuffer.get(), "nnO", reinterpret_cast<Py_ssize_t>((*storage)->data()),
      static_cast<Py_ssize_t>(buffer.size()), holder.get()));
}

PyObjectWithGuard arrowArray(const TextColumn& column) {
  static ImportedAttribute arrayClass("pyarrow", "LargeStringArray");
  if (!arrayClass.get()) return {};
  const auto offsets = arrowBuffer(column.offsets);
  if (!offsets) return {};
  const auto bytes = arrowBuffer(column.bytes);
  if (!bytes) return {};
  const auto present = column.present.size() > 0 ? arrowBuffer(column.present)
                                                 : PyObjectWithGuard::newReference(Py_None);
  if (!present) return {};
  return PyObjectWithGuard::owned(PyObject_CallMethod(arrayClass.get(), "from_buffers", "nOOO",
                                                      static_cast<Py_ssize_t>(column.size()),
                                                      offsets.get(), bytes.get(), present.get()));
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

std::optional<PyObject*> makeTexts(const TextColumn& column, const PyObjectWithGuard& dtype) {
  static ImportedAttribute makeArray("pandas", "array");
  if (hasSurrogates(column)) return std::nullopt;
  const PyObjectWithGuard texts = arrowArray(column);
  if (!texts || !makeArray.get()) return nullptr;
  return PyObject_CallFunctionObjArgs(makeArray.get(), texts.get(), dtype.get(), nullptr);
}

}  // namespace

std::optional<PyObject*> makeArrowTexts(const ItemList& strings) {
  if (strings.size() < kFew) return std::nullopt;
  const PyObjectWithGuard dtype = arrowTextType();
  if (!dtype) return std::nullopt;
  const ItemColumn* column = strings.column();
  const auto* texts = column ? column->as<TextColumn>() : nullptr;
  return makeTexts(texts ? *texts : gatherTexts(strings), dtype);
}

template <class Position>
std::optional<PyObject*> makeArrowTexts(const TextColumn& distinct, const Position* positions,
                                        size_t count) {
  if (count < kFew) return std::nullopt;
  const PyObjectWithGuard dtype = arrowTextType();
  if (!dtype) return std::nullopt;
  return makeTexts(gatherTexts(distinct, positions, count), dtype);
}

#define ZORVAN_INSTANTIATE(Position) \
  template std::optional<PyObject*> makeArrowTexts(const TextColumn&, const Position*, size_t);
ZORVAN_INSTANTIATE(int8_t)
ZORVAN_INSTANTIATE(uint8_t)
ZORVAN_INSTANTIATE(int16_t)
ZORVAN_INSTANTIATE(uint16_t)
ZORVAN_INSTANTIATE(int32_t)
ZORVAN_INSTANTIATE(uint32_t)
ZORVAN_INSTANTIATE(int64_t)
ZORVAN_INSTANTIATE(uint64_t)
#undef ZORVAN_INSTANTIATE

}  // namespace PythonZorvanDataArray::detail
