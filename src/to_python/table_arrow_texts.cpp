#include "to_python/table_arrow_texts.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "to_python/imported_attribute.h"
#include "util/reference.h"
#include "zorvandata/tape_reader.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Buffer;
using foundation::zorvandata::kTextNumbers;
using foundation::zorvandata::readVarint;
using foundation::zorvandata::Storage;
using foundation::zorvandata::takesNumber;
using foundation::zorvandata::TapeReader;
using foundation::zorvandata::Texts;
using PythonUtil::checked;
using PythonUtil::PyObjectGuardGetter;
using PythonUtil::PyObjectWithGuard;

namespace {

// For fewer it takes longer to find out how pandas keeps them.
constexpr size_t kFew = 1000;

// As Arrow lays out large strings.
struct ArrowTexts {
  explicit ArrowTexts(size_t texts)
      : count(texts), offsets(Buffer::uninitialized((texts + 1) * sizeof(int64_t))) {}
  int64_t* firstOffset() { return reinterpret_cast<int64_t*>(offsets.mutableData()); }

  size_t count;
  Buffer offsets;  // int64, one more than there are texts
  Buffer bytes;
  Buffer present;  // a bit each; empty when no text is missing
};

// A text that comes again and again. Most are short: a copy of fixed size is one instruction, and
// may write beyond the text.
struct Repeated {
  static constexpr size_t kShort = 16;

  Repeated() = default;
  explicit Repeated(std::string_view text) : whole(text) { text.copy(start.data(), kShort); }
  // To where there is room for kShort bytes more; returns the end.
  char* copyTo(char* out) const {
    std::memcpy(out, start.data(), kShort);
    if (whole.size() > kShort) std::memcpy(out, whole.data(), whole.size());
    return out + whole.size();
  }

  std::array<char, kShort> start;  // as far as the text goes
  std::string_view whole;
};

// So many bytes, which copy(out) writes: texts end to end.
template <class Copy>
Buffer gatherBytes(size_t size, const Copy& copy) {
  Buffer bytes = Buffer::uninitialized(size + Repeated::kShort);
  copy(reinterpret_cast<char*>(bytes.mutableData()));
  return Buffer::shared(bytes.toStorage(), size);
}

// Whether the next eight codes are of one byte each, and none of a missing text.
bool areShort(const uint8_t* codes) {
  uint64_t eight = 0;
  std::memcpy(&eight, codes, sizeof(eight));
  return ((eight | (eight - 0x0101010101010101)) & 0x8080808080808080) == 0;
}

// Offsets and bits of all texts; returns the size of their bytes.
size_t layOut(const Texts& texts, ArrowTexts& column) {
  constexpr size_t kByte = 8;
  std::array<uint8_t, kTextNumbers> lengths;  // by number
  size_t numbered = 0;
  const auto lengthOf = [&](uint64_t code) -> size_t {
    if (TapeReader::isNumber(code)) return lengths[code / 2];
    if (TapeReader::isMissing(code)) return 0;
    const size_t length = TapeReader::lengthOf(code);
    if (takesNumber(length)) lengths[numbered++ % kTextNumbers] = static_cast<uint8_t>(length);
    return length;
  };
  const auto* codes = reinterpret_cast<const uint8_t*>(texts.codes().data());
  int64_t* offset = column.firstOffset();
  Buffer present = Buffer::uninitialized((column.count + kByte - 1) / kByte);
  auto* bits = reinterpret_cast<uint8_t*>(present.mutableData());
  bool isAnyMissing = false;
  size_t size = 0;
  for (size_t i = 0; i < column.count; i += kByte) {
    const size_t count = std::min(kByte, column.count - i);
    const unsigned all = (1u << count) - 1;
    unsigned areThere = 0;
    if (!texts.areRepeated() && count == kByte && areShort(codes)) {
      for (size_t k = 0; k < kByte; ++k) {
        offset[i + k] = static_cast<int64_t>(size);
        size += TapeReader::lengthOf(*codes++);
      }
      areThere = all;
    } else {
      for (size_t k = 0; k < count; ++k) {
        const uint64_t code = readVarint(codes);
        areThere |= static_cast<unsigned>(!TapeReader::isMissing(code)) << k;
        offset[i + k] = static_cast<int64_t>(size);
        size += lengthOf(code);
      }
    }
    *bits++ = static_cast<uint8_t>(areThere);
    isAnyMissing |= areThere != all;
  }
  offset[column.count] = static_cast<int64_t>(size);
  if (isAnyMissing) column.present = std::move(present);
  return size;
}

// Writes the bytes of texts of which some are told by number.
void unfold(const Texts& texts, char* out) {
  std::vector<Repeated> numbered(kTextNumbers);
  size_t count = 0;
  const auto* codes = reinterpret_cast<const uint8_t*>(texts.codes().data());
  const auto* bytes = reinterpret_cast<const char*>(texts.bytes().data());
  for (size_t i = texts.size(); i > 0; --i) {
    const uint64_t code = readVarint(codes);
    if (TapeReader::isMissing(code)) continue;
    if (TapeReader::isNumber(code)) {
      out = numbered[code / 2].copyTo(out);
      continue;
    }
    const std::string_view text(bytes, TapeReader::lengthOf(code));
    out += text.copy(out, text.size());
    bytes += text.size();
    if (takesNumber(text.size())) numbered[count++ % kTextNumbers] = Repeated(text);
  }
}

ArrowTexts layOut(const Texts& texts) {
  ArrowTexts column(texts.size());
  const size_t size = layOut(texts, column);
  column.bytes = texts.areRepeated()
                     ? gatherBytes(size, [&texts](char* out) { unfold(texts, out); })
                     : texts.bytes();
  return column;
}

template <class Position>
ArrowTexts layOut(const std::vector<std::string>& distinct, const Position* positions,
                  size_t count) {
  const std::vector<Repeated> texts(distinct.begin(), distinct.end());
  ArrowTexts column(count);
  int64_t* offset = column.firstOffset();
  size_t size = 0;
  for (size_t i = 0; i < count; ++i) {
    offset[i] = static_cast<int64_t>(size);
    size += texts[static_cast<size_t>(positions[i])].whole.size();
  }
  offset[count] = static_cast<int64_t>(size);
  column.bytes = gatherBytes(size, [&](char* out) {
    for (size_t i = 0; i < count; ++i) out = texts[static_cast<size_t>(positions[i])].copyTo(out);
  });
  return column;
}

// Surrogates, and nothing else in stored text, have ED and a byte from A0 on.
bool hasSurrogates(std::string_view text) {
  for (size_t at = 0; (at = text.find('\xED', at)) != std::string_view::npos; ++at) {
    if (at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) >= 0xA0) return true;
  }
  return false;
}

constexpr char kCapsule[] = "zorvan.storage";

void releaseStorage(PyObject* capsule) {
  delete static_cast<std::shared_ptr<Storage>*>(PyCapsule_GetPointer(capsule, kCapsule));
}

// A pyarrow.Buffer on the memory, which nobody may write to any more and of which it has a share.
PyObjectWithGuard arrowBuffer(const Buffer& buffer) {
  static ImportedAttribute attribute("pyarrow", "foreign_buffer");
  const auto makeBuffer = checked(Py_XNewRef(attribute.get()));
  auto share = std::make_unique<std::shared_ptr<Storage>>(buffer.toStorage());
  const auto address = reinterpret_cast<Py_ssize_t>((*share)->data());
  const auto holder = checked(PyCapsule_New(share.get(), kCapsule, releaseStorage));
  static_cast<void>(share.release());
  return checked(PyObject_CallFunction(makeBuffer.get(), "nnO", address,
                                       static_cast<Py_ssize_t>(buffer.size()), holder.get()));
}

PyObjectWithGuard arrowArray(const ArrowTexts& column) {
  static ImportedAttribute attribute("pyarrow", "LargeStringArray");
  const auto arrayClass = checked(Py_XNewRef(attribute.get()));
  const auto offsets = arrowBuffer(column.offsets);
  const auto bytes = arrowBuffer(column.bytes);
  const auto present = column.present.size() > 0 ? arrowBuffer(column.present)
                                                 : PyObjectWithGuard::newReference(Py_None);
  return checked(PyObject_CallMethod(arrayClass.get(), "from_buffers", "nOOO",
                                     static_cast<Py_ssize_t>(column.count), offsets.get(),
                                     bytes.get(), present.get()));
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

// A pandas array of what layOut() gives.
template <class LayOut>
std::optional<PyObjectWithGuard> makeTexts(size_t count, const LayOut& layOut) {
  static ImportedAttribute attribute("pandas", "array");
  if (count < kFew) return std::nullopt;
  const PyObjectWithGuard dtype = arrowTextType();
  if (!dtype) return std::nullopt;
  const std::optional<ArrowTexts> column = layOut();
  if (!column) return std::nullopt;
  const PyObjectWithGuard texts = arrowArray(*column);
  const auto makeArray = checked(Py_XNewRef(attribute.get()));
  return checked(PyObject_CallFunctionObjArgs(makeArray.get(), texts.get(), dtype.get(), nullptr));
}

}  // namespace

std::optional<PyObjectWithGuard> makeArrowTexts(const Texts& texts) {
  return makeTexts(texts.size(), [&texts]() -> std::optional<ArrowTexts> {
    const auto* bytes = reinterpret_cast<const char*>(texts.bytes().data());
    if (hasSurrogates({bytes, texts.bytes().size()})) return std::nullopt;
    return layOut(texts);
  });
}

template <class Position>
std::optional<PyObjectWithGuard> makeArrowTexts(const std::vector<std::string>& distinct,
                                                const Position* positions, size_t count) {
  return makeTexts(count, [&]() -> std::optional<ArrowTexts> {
    if (std::any_of(distinct.begin(), distinct.end(), hasSurrogates)) return std::nullopt;
    return layOut(distinct, positions, count);
  });
}

#define ZORVAN_INSTANTIATE(Position)                                                        \
  template std::optional<PyObjectWithGuard> makeArrowTexts(const std::vector<std::string>&, \
                                                           const Position*, size_t);
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
