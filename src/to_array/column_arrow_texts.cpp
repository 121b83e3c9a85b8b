#include "to_array/column_arrow_texts.h"

#include <boost/numeric/conversion/cast.hpp>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "to_array/pandas_objects.h"
#include "types/ndpy_array_bridge.h"
#include "util/py_object_guard.h"
#include "util/python_error.h"
#include "zorvandata/array_impl.h"
#include "zorvandata/item_column.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::makeColumn;
using foundation::zorvandata::TextColumn;
using foundation::zorvandata::TextColumnBuilder;
using PythonUtil::PyObjectWithGuard;

namespace {

// One of the buffers of an Arrow array; empty where it has none.
class ArrowBuffer {
 public:
  // False with a Python error set.
  bool read(PyObject* buffer) {
    if (buffer == Py_None) return true;
    std::optional<Array> bytes = PythonNdPyArray::arrayFromBuffer(buffer);
    if (!bytes) return false;
    bytes_ = std::move(*bytes);
    return true;
  }
  const char* data() const {
    if (size() == 0) return nullptr;
    return reinterpret_cast<const char*>(bytes_.impl().buffer().data());
  }
  size_t size() const { return bytes_.getNumberOfElements(); }
  // The bytes from `offset` on, shared with Arrow.
  Buffer part(size_t offset, size_t size) const {
    const auto storage = bytes_.impl().buffer().toStorage();
    return Buffer::lent(storage, storage->data() + offset, size);
  }

 private:
  Array bytes_;
};

// A piece of a column: `count` texts from position `start` of the buffers on.
struct ArrowTexts {
  ArrowBuffer validity;  // a bit each; empty when there is no gap
  ArrowBuffer offsets;   // one more than there are texts
  ArrowBuffer texts;
  size_t offsetWidth = 0;
  size_t start = 0;
  size_t count = 0;  // at least one

  bool isGap(size_t i) const {
    const size_t bit = start + i;
    return validity.size() > 0 && ((validity.data()[bit / 8] >> (bit % 8)) & 1) == 0;
  }
  // Whether there is all the memory that it takes.
  bool isWhole() const {
    const size_t end = start + count;
    return offsets.size() / offsetWidth > end &&
           (validity.size() == 0 || validity.size() > (end - 1) / 8);
  }
};

PyObjectWithGuard attribute(PyObject* obj, const char* name) {
  return PyObjectWithGuard::owned(PyObject_GetAttrString(obj, name));
}

bool isText(const PyObjectWithGuard& obj, const char* text) {
  return obj && PyUnicode_Check(obj.get()) &&
         PyUnicode_CompareWithASCIIString(obj.get(), text) == 0;
}

// Whether the dtype says that Arrow keeps the texts. Sets no error.
bool isKeptByArrow(PyObject* series) {
  const PyObjectWithGuard dtype = attribute(series, "dtype");
  const bool isArrows = dtype && attribute(dtype.get(), "pyarrow_dtype");
  PyErr_Clear();
  if (isArrows || !dtype) return isArrows;
  const PyObjectWithGuard storage = attribute(dtype.get(), "storage");
  PyErr_Clear();
  return isText(storage, "pyarrow") || isText(storage, "pyarrow_numpy");
}

// The pieces of the column as a list; empty with a Python error set.
PyObjectWithGuard piecesOf(PyObject* series) {
  const PyObjectWithGuard arrow = arrowArrayOf(series);
  const PyObjectWithGuard chunks = arrow ? attribute(arrow.get(), "chunks") : PyObjectWithGuard();
  return PyObjectWithGuard::owned(chunks ? PySequence_List(chunks.get()) : nullptr);
}

// Width of the offsets of the piece's type, 0 for a type that is laid out in another way.
size_t offsetWidth(PyObject* piece) {
  const PyObjectWithGuard type = attribute(piece, "type");
  const auto name = PyObjectWithGuard::owned(type ? PyObject_Str(type.get()) : nullptr);
  PyErr_Clear();
  if (isText(name, "string")) return sizeof(int32_t);
  return isText(name, "large_string") ? sizeof(int64_t) : 0;
}

// Absent with a Python error set.
std::optional<ArrowTexts> readPiece(PyObject* piece) {
  const PyObjectWithGuard offset = attribute(piece, "offset");
  if (!offset) return std::nullopt;
  const Py_ssize_t start = PyLong_AsSsize_t(offset.get());
  if (start == -1 && PyErr_Occurred()) return std::nullopt;
  const Py_ssize_t count = PyObject_Size(piece);
  if (count < 0) return std::nullopt;
  const auto buffers = PyObjectWithGuard::owned(PyObject_CallMethod(piece, "buffers", nullptr));
  PyObject* validity = nullptr;
  PyObject* offsets = nullptr;
  PyObject* texts = nullptr;
  const auto tuple = PyObjectWithGuard::owned(buffers ? PySequence_Tuple(buffers.get()) : nullptr);
  if (!tuple || !PyArg_ParseTuple(tuple.get(), "OOO", &validity, &offsets, &texts)) {
    return std::nullopt;
  }
  ArrowTexts read;
  read.start = boost::numeric_cast<size_t>(start);
  read.count = boost::numeric_cast<size_t>(count);
  if (!read.validity.read(validity) || !read.offsets.read(offsets) || !read.texts.read(texts)) {
    return std::nullopt;
  }
  return read;
}

[[noreturn]] void throwBroken() {
  throw std::invalid_argument("the Arrow memory of a pandas.DataFrame column is broken");
}

// Appends the texts, gaps as empty ones. `Offset` is the type of the offsets.
template <class Offset>
void appendPiece(const ArrowTexts& piece, TextColumnBuilder& column) {
  const auto offsetAt = [&piece](size_t i) {
    Offset offset;
    std::memcpy(&offset, piece.offsets.data() + (piece.start + i) * sizeof(Offset), sizeof(Offset));
    return static_cast<size_t>(offset);
  };
  const std::string_view texts(piece.texts.data(), piece.texts.size());
  const bool ascii = foundation::zorvandata::isAscii(texts);
  size_t from = offsetAt(0);
  for (size_t i = 0; i < piece.count; ++i) {
    const size_t to = offsetAt(i + 1);
    if (to < from || to > texts.size() || to - from > UINT32_MAX) throwBroken();
    const std::string_view text = piece.isGap(i) ? "" : texts.substr(from, to - from);
    if (!ascii) foundation::zorvandata::checkUtf8(text);
    column.append(text);
    from = to;
  }
}

// Whether a piece's texts can be shared as they are: nothing stands where there is a gap.
bool canBeShared(const ArrowTexts& piece, const int64_t* offsets) {
  if (piece.validity.size() == 0) return true;
  for (size_t i = 0; i < piece.count; ++i) {
    if (piece.isGap(i) && offsets[i + 1] != offsets[i]) return false;
  }
  return true;
}

// The texts in Arrow's own memory; absent when they cannot be shared. The offsets are copied:
// Python code that comes later may still write to Arrow's.
std::optional<TextColumn> sharedTexts(const ArrowTexts& piece) {
  Buffer offsets = Buffer::copyOf(piece.offsets.data() + piece.start * sizeof(int64_t),
                                  (piece.count + 1) * sizeof(int64_t));
  if (!canBeShared(piece, reinterpret_cast<const int64_t*>(offsets.data()))) return std::nullopt;
  return TextColumn::checkedOffsets(ArrayType::ZORVAN_STRING, std::move(offsets),
                                    piece.texts.part(0, piece.texts.size()));
}

TextColumn joinedTexts(const std::vector<ArrowTexts>& pieces, size_t count) {
  TextColumnBuilder column(ArrayType::ZORVAN_STRING, count);
  for (const ArrowTexts& piece : pieces) {
    if (piece.offsetWidth == sizeof(int32_t)) {
      appendPiece<int32_t>(piece, column);
    } else {
      appendPiece<int64_t>(piece, column);
    }
  }
  return column.finish();
}

// The pieces that hold any texts, made sure of. Absent when Arrow keeps them in a form of its own,
// or with a Python error set.
std::optional<std::vector<ArrowTexts>> readPieces(const PyObjectWithGuard& list) {
  std::vector<ArrowTexts> pieces;
  const Py_ssize_t count = PyList_Size(list.get());
  for (Py_ssize_t i = 0; i < count; ++i) {
    const auto piece = PyObjectWithGuard::newReference(PyList_GetItem(list.get(), i));
    const size_t width = piece ? offsetWidth(piece.get()) : 0;
    if (width == 0) return std::nullopt;
    std::optional<ArrowTexts> texts = readPiece(piece.get());
    if (!texts) return std::nullopt;
    if (texts->count == 0) continue;
    texts->offsetWidth = width;
    if (!texts->isWhole()) throwBroken();
    pieces.push_back(std::move(*texts));
  }
  return pieces;
}

}  // namespace

std::optional<ItemList> readArrowTexts(PyObject* series) {
  if (!isKeptByArrow(series)) return std::nullopt;
  const PyObjectWithGuard list = piecesOf(series);
  const Py_ssize_t rows = list ? PyObject_Size(series) : -1;
  if (rows < 0) return std::nullopt;
  const std::optional<std::vector<ArrowTexts>> pieces = readPieces(list);
  if (!pieces) return std::nullopt;
  size_t count = 0;
  for (const ArrowTexts& piece : *pieces) count += piece.count;
  if (count != boost::numeric_cast<size_t>(rows)) throwBroken();
  if (pieces->size() == 1 && pieces->front().offsetWidth == sizeof(int64_t)) {
    if (auto shared = sharedTexts(pieces->front())) return makeColumn(std::move(*shared));
  }
  return makeColumn(joinedTexts(*pieces, count));
}

}  // namespace PythonZorvanDataArray::detail
