#include "to_array/column_arrow_texts.h"

#include <algorithm>
#include <boost/numeric/conversion/cast.hpp>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "to_array/pandas_objects.h"
#include "types/ndpy_array_bridge.h"
#include "util/reference.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::ByteStream;
using foundation::zorvandata::kLongestVarint;
using foundation::zorvandata::ShortByteStream;
using foundation::zorvandata::Texts;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

// One of the buffers of an Arrow array, which shares its memory; empty where it has none.
Buffer bufferOf(PyObject* buffer) {
  if (buffer == Py_None) return {};
  const std::optional<Array> bytes = PythonNdPyArray::arrayFromBuffer(buffer);
  if (!bytes) throw PythonErrorSet();
  return bytes->impl().buffer();
}

const char* bytesOf(const Buffer& buffer) { return reinterpret_cast<const char*>(buffer.data()); }

// Below zero is beyond every text.
template <class Offset>
uint64_t readOffset(const char* at) {
  Offset offset;
  std::memcpy(&offset, at, sizeof(Offset));
  return static_cast<uint64_t>(static_cast<int64_t>(offset));
}

// A piece of a column: `count` texts from position `start` of the buffers on.
struct ArrowTexts {
  Buffer validity;  // a bit each; empty when there is no gap
  Buffer offsets;   // one more than there are texts
  Buffer texts;
  size_t offsetWidth = 0;
  size_t start = 0;
  size_t count = 0;  // at least one
  // Found with the codes.
  size_t size = 0;          // of all texts
  bool hidesTexts = false;  // where gaps are

  // NULL when there is no gap.
  const char* bits() const { return validity.size() > 0 ? bytesOf(validity) : nullptr; }
  bool isGap(const char* bits, size_t i) const {
    const size_t bit = start + i;
    return bits && ((bits[bit / 8] >> (bit % 8)) & 1) == 0;
  }
  uint64_t offsetAt(size_t i) const {
    const char* at = bytesOf(offsets) + (start + i) * offsetWidth;
    return offsetWidth == sizeof(int32_t) ? readOffset<int32_t>(at) : readOffset<int64_t>(at);
  }
  // Whether there is all the memory that it takes.
  bool isWhole() const {
    const size_t end = start + count;
    return offsets.size() / offsetWidth > end &&
           (validity.size() == 0 || validity.size() > (end - 1) / 8);
  }
};

bool isText(const PyObjectWithGuard& obj, const char* text) {
  return obj && PyUnicode_Check(obj.get()) &&
         PyUnicode_CompareWithASCIIString(obj.get(), text) == 0;
}

// Whether the dtype says that Arrow keeps the texts. Sets no error.
bool isKeptByArrow(PyObject* series) {
  const auto find = [](PyObject* obj, const char* name) {
    auto found = PyObjectWithGuard::owned(PyObject_GetAttrString(obj, name));
    PyErr_Clear();
    return found;
  };
  const PyObjectWithGuard dtype = find(series, "dtype");
  if (!dtype) return false;
  if (find(dtype.get(), "pyarrow_dtype")) return true;
  const PyObjectWithGuard storage = find(dtype.get(), "storage");
  return isText(storage, "pyarrow") || isText(storage, "pyarrow_numpy");
}

// Width of the offsets of the piece's type, 0 for a type that is laid out in another way.
size_t offsetWidth(const PyObjectWithGuard& piece) {
  const auto type = PyObjectWithGuard::owned(PyObject_GetAttrString(piece.get(), "type"));
  const auto name = PyObjectWithGuard::owned(type ? PyObject_Str(type.get()) : nullptr);
  PyErr_Clear();
  if (isText(name, "string")) return sizeof(int32_t);
  return isText(name, "large_string") ? sizeof(int64_t) : 0;
}

[[noreturn]] void throwBroken() {
  throw std::invalid_argument("the Arrow memory of a pandas.DataFrame column is broken");
}

ArrowTexts readPiece(const PyObjectWithGuard& piece, size_t width) {
  const Py_ssize_t start = PyLong_AsSsize_t(attributeOf(piece.get(), "offset").get());
  if (start == -1 && PyErr_Occurred()) throw PythonErrorSet();
  const Py_ssize_t count = PyObject_Size(piece.get());
  if (count < 0) throw PythonErrorSet();
  const auto buffers = checked(PySequence_Tuple(resultOf(piece.get(), "buffers").get()));
  PyObject* validity = nullptr;
  PyObject* offsets = nullptr;
  PyObject* texts = nullptr;
  if (!PyArg_ParseTuple(buffers.get(), "OOO", &validity, &offsets, &texts)) throw PythonErrorSet();
  ArrowTexts read;
  read.offsetWidth = width;
  read.start = boost::numeric_cast<size_t>(start);
  read.count = boost::numeric_cast<size_t>(count);
  read.validity = bufferOf(validity);
  read.offsets = bufferOf(offsets);
  read.texts = bufferOf(texts);
  return read;
}

// The pieces that hold any texts, made sure of. Absent when Arrow keeps them in a form of its own.
std::optional<std::vector<ArrowTexts>> readPieces(PyObject* series) {
  const auto list =
      checked(PySequence_List(attributeOf(arrowArrayOf(series).get(), "chunks").get()));
  const Py_ssize_t rows = PyObject_Size(series);
  if (rows < 0) throw PythonErrorSet();
  std::vector<ArrowTexts> pieces;
  size_t total = 0;
  const auto count = static_cast<size_t>(PyList_Size(list.get()));
  for (size_t i = 0; i < count; ++i) {
    const PyObjectWithGuard piece = listItem(list, i);
    const size_t width = offsetWidth(piece);
    if (width == 0) return std::nullopt;
    ArrowTexts texts = readPiece(piece, width);
    if (texts.count == 0) continue;
    if (!texts.isWhole()) throwBroken();
    total += texts.count;
    pieces.push_back(std::move(texts));
  }
  if (total != boost::numeric_cast<size_t>(rows)) throwBroken();
  return pieces;
}

// Each offset is read once, as Arrow's memory may be written to. Gaps are empty texts.
template <class Offset>
void appendCodes(ArrowTexts& piece, ByteStream& codes) {
  constexpr size_t kMost = 1024;
  const char* bits = piece.bits();
  const char* offset = bytesOf(piece.offsets) + piece.start * sizeof(Offset);
  uint64_t from = readOffset<Offset>(offset);
  uint64_t lengths = from;  // of all, or'ed: those of offsets that do not ascend are huge
  uint64_t size = 0;
  uint64_t hidden = 0;
  for (size_t i = 0; i < piece.count;) {
    const size_t end = std::min(piece.count, i + kMost);
    uint8_t* out = codes.room(kMost * kLongestVarint);
    for (; i < end; ++i) {
      offset += sizeof(Offset);
      const uint64_t to = readOffset<Offset>(offset);
      uint64_t length = to - from;
      from = to;
      lengths |= length;
      if (piece.isGap(bits, i)) hidden += std::exchange(length, 0);
      size += length;
      out = foundation::zorvandata::writeVarint(2 * (length + 1), out);
    }
    codes.moveEnd(out);
  }
  if (lengths > INT64_MAX || from > piece.texts.size()) throwBroken();
  piece.size = size;
  piece.hidesTexts = hidden > 0;
}

// The bytes of the texts, which Arrow has end to end.
Buffer sharedTexts(const ArrowTexts& piece) {
  const auto storage = piece.texts.toStorage();
  return Buffer::lent(storage, storage->data() + piece.offsetAt(0), piece.size);
}

// The bytes of the texts put end to end.
Buffer joinedTexts(const std::vector<ArrowTexts>& pieces) {
  size_t size = 0;
  for (const ArrowTexts& piece : pieces) size += piece.size;
  Buffer buffer = Buffer::uninitialized(size);
  std::byte* out = buffer.mutableData();
  for (const ArrowTexts& piece : pieces) {
    const auto append = [&](uint64_t from, uint64_t to) {
      if (to == from) return;
      std::memcpy(out, bytesOf(piece.texts) + from, to - from);
      out += to - from;
    };
    if (!piece.hidesTexts) {
      append(piece.offsetAt(0), piece.offsetAt(piece.count));
      continue;
    }
    for (size_t i = 0; i < piece.count; ++i) {
      if (!piece.isGap(piece.bits(), i)) append(piece.offsetAt(i), piece.offsetAt(i + 1));
    }
  }
  return buffer;
}

}  // namespace

std::optional<Texts> readArrowTexts(PyObject* series) {
  if (!isKeptByArrow(series)) return std::nullopt;
  std::optional<std::vector<ArrowTexts>> pieces = readPieces(series);
  if (!pieces) return std::nullopt;
  ShortByteStream<64> codes;
  size_t count = 0;
  for (ArrowTexts& piece : *pieces) {
    piece.offsetWidth == sizeof(int32_t) ? appendCodes<int32_t>(piece, codes)
                                         : appendCodes<int64_t>(piece, codes);
    count += piece.count;
  }
  const bool isOnePiece = pieces->size() == 1 && !pieces->front().hidesTexts;
  Texts texts(count, Buffer::copyOf(codes.data(), codes.size()),
              isOnePiece ? sharedTexts(pieces->front()) : joinedTexts(*pieces), false);
  const bool isTrusted = isOnePiece && pieces->front().offsetWidth == sizeof(int64_t);
  if (!isTrusted) {
    foundation::zorvandata::checkTexts({bytesOf(texts.codes()), texts.codes().size()},
                                       {bytesOf(texts.bytes()), texts.bytes().size()});
  }
  return texts;
}

}  // namespace PythonZorvanDataArray::detail
