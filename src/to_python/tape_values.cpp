#include "to_python/tape_values.h"

#include <algorithm>
#include <utility>

#include "to_python/numbers.h"
#include "util/message_catalogue.h"
#include "util/nested_call.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::ContainerHead;
using foundation::zorvandata::kindOf;
using foundation::zorvandata::kTextNumbers;
using foundation::zorvandata::RecordReader;
using foundation::zorvandata::ShapeReader;
using foundation::zorvandata::takesNumber;
using foundation::zorvandata::Tape;
using foundation::zorvandata::TapeReader;
using PythonUtil::checked;
using PythonUtil::NestedCall;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;

namespace {

// Longer structs seldom come twice.
constexpr size_t kManyKeys = 256;

PyObject* orThrow(PyObject* newReference) {
  if (!newReference) throw PythonErrorSet();
  return newReference;
}

// In line, which the interpreter's own is not.
PyObject* newReference(PyObject* object) {
  Py_INCREF(object);
  return object;
}

// Takes over the reference.
void put(PyObject* list, size_t i, PyObject* item) {
  if (PyList_SetItem(list, static_cast<Py_ssize_t>(i), item) != 0) throw PythonErrorSet();
}

PyObject* makeEmptyList() { return orThrow(PyList_New(0)); }

Py_ssize_t charactersOf(std::string_view utf8) {
  Py_ssize_t count = 0;
  for (const char byte : utf8) count += (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  return count;
}

PyObject* makeComplexInteger(TapeReader& reader, bool isUnsigned64) {
  const auto part = [&] {
    const int64_t value = reader.integer();
    return isUnsigned64 ? static_cast<double>(static_cast<uint64_t>(value))
                        : static_cast<double>(value);
  };
  const double real = part();
  return PyComplex_FromDoubles(real, part());
}

}  // namespace

TapeValues::TapeValues(Decoder& decoder, const Tape& tape)
    : decoder_(decoder), outer_(std::exchange(decoder.innermost_, this)), tape_(tape) {
  constexpr size_t kLong = 4096;
  decodesSingly_ = tape.text.size() < kLong || foundation::zorvandata::isAscii(tape.text);
}

TapeValues::~TapeValues() {
  decoder_.innermost_ = outer_;
  for (PyObject* key : keys_) Py_XDECREF(key);
}

PyObjectWithGuard TapeValues::item(TapeReader& reader, Empties empties) {
  return PyObjectWithGuard::owned(make(reader, empties));
}

PyObject* TapeValues::make(TapeReader& reader, Empties empties) {
  const uint8_t next = reader.peek();
  const auto type = static_cast<ArrayType>(next);
  switch (next) {
    case kindOf(ArrayType::DOUBLE):
    case kindOf(ArrayType::SINGLE):
      reader.kind();
      return orThrow(PyFloat_FromDouble(reader.real()));
    case kindOf(ArrayType::INT64):
      reader.kind();
      return orThrow(PyLong_FromLongLong(reader.integer()));
    case kindOf(ArrayType::UINT64):
      reader.kind();
      return orThrow(PyLong_FromUnsignedLongLong(static_cast<uint64_t>(reader.integer())));
    case kindOf(ArrayType::LOGICAL):
      reader.kind();
      return orThrow(PyBool_FromLong(reader.integer() != 0));
    case kindOf(ArrayType::CHAR):
    case kindOf(ArrayType::ZORVAN_STRING):
      reader.kind();
      return makeText(reader, type == ArrayType::CHAR ? empties : Empties::kAsTheyAre);
    case kindOf(ArrayType::COMPLEX_DOUBLE):
    case kindOf(ArrayType::COMPLEX_SINGLE): {
      reader.kind();
      const double real = reader.real();
      return orThrow(PyComplex_FromDoubles(real, reader.real()));
    }
    case kindOf(ArrayType::CELL):
    case foundation::zorvandata::kind::kRun:
      return makeList(reader);
    case kindOf(ArrayType::STRUCT):
      return makeDict(reader);
    case kindOf(ArrayType::VALUE_OBJECT):
      return makeObject(reader);
    case kindOf(ArrayType::OBJECT):
    case foundation::zorvandata::kind::kChild:
    case foundation::zorvandata::kind::kDense:
    case foundation::zorvandata::kind::kStrings:
    case foundation::zorvandata::kind::kGrid:
      return makeArray(reader, empties);
    default:
      break;
  }
  reader.kind();
  if (isComplex(type)) {
    return orThrow(makeComplexInteger(reader, type == ArrayType::COMPLEX_UINT64));
  }
  return orThrow(PyLong_FromLongLong(reader.integer()));
}

PyObject* TapeValues::makeText(TapeReader& reader, Empties empties) {
  const uint64_t code = reader.textCode();
  if (TapeReader::isNumber(code)) return makeNumbered(reader, code);
  if (TapeReader::isMissing(code)) return Py_NewRef(Py_None);
  if (empties == Empties::kAsLists && TapeReader::lengthOf(code) == 0) return makeEmptyList();
  const std::string_view text = reader.spelled(code);
  auto made = detail::makeText(text);
  if (tape_.repeatsTexts && takesNumber(text.size())) {
    const size_t serial = reader.numberedTexts() - 1;
    numbered(serial) = {PyObjectWithGuard::newReference(made.get()), serial};
  }
  return made.release();
}

TapeValues::Numbered& TapeValues::numbered(size_t serial) {
  if (numbered_.empty()) numbered_.resize(kTextNumbers);
  return numbered_[serial % kTextNumbers];
}

// A text that stands again is the object that it was where it stood first, or was met first.
PyObject* TapeValues::makeNumbered(const TapeReader& reader, uint64_t code) {
  const size_t serial = reader.serialOf(code);
  Numbered& known = numbered(serial);
  if (!known.text || known.serial != serial) {
    known = {detail::makeText(tape_.numberedText(serial)), serial};
  }
  return newReference(known.text.get());
}

PyObject* TapeValues::makeList(TapeReader& reader) {
  const ContainerHead head(reader);
  PyObjectWithGuard made = list(reader, head.items, head.isRun, Empties::kAsLists);
  if (head.isRun) reader.moveTo(head.end);
  return made.release();
}

PyObjectWithGuard TapeValues::list(TapeReader& reader, size_t count, bool isRun, Empties empties) {
  const NestedCall call;
  auto list = checked(PyList_New(static_cast<Py_ssize_t>(count)));
  const uint8_t* first = reader.mark();
  if (isRun && count > 0 && fillUniform(list.get(), reader, count, empties)) return list;
  for (size_t i = 0; i < count; ++i) {
    if (isRun) reader.moveTo(first);
    put(list.get(), i, make(reader, empties));
  }
  return list;
}

// Runs of one plain kind, in loops that know it.
bool TapeValues::fillUniform(PyObject* list, TapeReader& reader, size_t count, Empties empties) {
  switch (static_cast<ArrayType>(reader.peek())) {
    case ArrayType::DOUBLE: {
      const char* reals = reader.reals(count);
      for (size_t i = 0; i < count; ++i) {
        double value = 0;
        std::memcpy(&value, reals + i * sizeof(value), sizeof(value));
        put(list, i, orThrow(PyFloat_FromDouble(value)));
      }
      return true;
    }
    case ArrayType::INT64:
      reader.integers(count, [list](size_t i, int64_t value) {
        put(list, i, orThrow(PyLong_FromLong(value)));
      });
      return true;
    case ArrayType::LOGICAL:
      reader.integers(count, [list](size_t i, int64_t value) {
        put(list, i, newReference(value != 0 ? Py_True : Py_False));
      });
      return true;
    case ArrayType::CHAR:
      fillTexts(list, reader, count, empties);
      return true;
    default:
      return false;
  }
}

void TapeValues::fillTexts(PyObject* list, TapeReader& reader, size_t count, Empties empties) {
  if (decodesSingly_) return fillSingly(list, reader, 0, count, empties);
  for (size_t i = 0; i < count;) i = fillDecoded(list, reader, i, count, empties);
}

void TapeValues::fillSingly(PyObject* list, TapeReader& reader, size_t from, size_t end,
                            Empties empties) {
  for (size_t i = from; i < end; ++i) put(list, i, makeText(reader, empties));
}

// Texts that are not ASCII are decoded many at a time and cut: that takes less than decoding each.
// Returns the end of those that were made, of one at least.
size_t TapeValues::fillDecoded(PyObject* list, TapeReader& reader, size_t from, size_t count,
                               Empties empties) {
  constexpr size_t kMost = size_t{256} * 1024;
  TapeReader ahead = reader;
  size_t end = from;
  size_t bytes = 0;
  const char* first = nullptr;
  for (; end < count && bytes < kMost; ++end) {
    const uint64_t code = ahead.textCode();
    if (TapeReader::isNumber(code)) break;
    const std::string_view text = ahead.spelled(code);
    // Joined to the one before, a text that is none by itself could become one.
    if (!text.empty() && (static_cast<unsigned char>(text.front()) & 0xC0) == 0x80) break;
    if (!first) first = text.data();
    bytes += text.size();
  }
  end = std::max(end, from + 1);
  PyObjectWithGuard chunk;
  if (end - from > 1) {
    chunk = PyObjectWithGuard::owned(
        PyUnicode_DecodeUTF8(first, static_cast<Py_ssize_t>(bytes), "strict"));
    if (!chunk && !PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) throw PythonErrorSet();
    PyErr_Clear();  // the text that is to blame tells what is wrong
  }
  if (!chunk) {
    fillSingly(list, reader, from, end, empties);
    return end;
  }
  Py_ssize_t at = 0;
  for (size_t i = from; i < end; ++i) {
    const std::string_view text = reader.spelled(reader.textCode());
    if (text.empty() && empties == Empties::kAsLists) {
      put(list, i, makeEmptyList());
      continue;
    }
    const Py_ssize_t start = at;
    at += charactersOf(text);
    put(list, i, orThrow(PyUnicode_Substring(chunk.get(), start, at)));
  }
  return end;
}

TapeValues::Shape& TapeValues::shapeOf(uint64_t number) {
  while (shapes_.size() <= number) shapes_.push_back({});
  return shapes_[number];
}

PyObject* TapeValues::makeDict(TapeReader& reader) {
  const NestedCall call;
  const ContainerHead head(reader);
  Shape& shape = shapeOf(head.shape);
  const bool isFirst = !std::exchange(shape.isMet, true);
  if (isFirst && head.items > kManyKeys) return makeLongDict(reader, head);
  if (shape.keys != head.items) {
    shape.firstKey = static_cast<uint32_t>(keys_.size());
    ShapeReader names(tape_, head.shape);
    for (size_t i = 0; i < head.items; ++i) {
      keys_.push_back(nullptr);
      keys_.back() = detail::makeText(names.next()).release();
    }
    shape.keys = static_cast<uint32_t>(head.items);
  }
  // Other structs may be met meanwhile: what is known of this one moves.
  const size_t firstKey = shape.firstKey;
  auto dict = checked(PyDict_New());
  for (size_t i = 0; i < head.items; ++i) {
    const auto value = item(reader, Empties::kAsTheyAre);
    PythonUtil::check(PyDict_SetItem(dict.get(), keys_[firstKey + i], value.get()));
  }
  return dict.release();
}

// The first of its shape, whose keys are not kept.
PyObject* TapeValues::makeLongDict(TapeReader& reader, const ContainerHead& head) {
  ShapeReader names(tape_, head.shape);
  auto dict = checked(PyDict_New());
  for (size_t i = 0; i < head.items; ++i) {
    const auto key = detail::makeText(names.next());
    const auto value = item(reader, Empties::kAsTheyAre);
    PythonUtil::check(PyDict_SetItem(dict.get(), key.get(), value.get()));
  }
  return dict.release();
}

PyObject* TapeValues::makeObject(TapeReader& reader) {
  const TapeReader start = reader;
  const uint64_t number = ContainerHead(reader).shape;
  Becomes& becomes = shapeOf(number).becomes;
  if (becomes == Becomes::kUnknown) {
    const std::string_view name = ShapeReader(tape_, number).className();
    becomes = name == "datetime"   ? Becomes::kDatetime
              : name == "duration" ? Becomes::kDuration
              : name == "missing"  ? Becomes::kNone
                                   : Becomes::kArray;
  }
  reader = start;
  if (becomes == Becomes::kArray) return decoder_.array(reader.array()).release();
  const RecordReader object(reader);
  if (becomes == Becomes::kNone) return Py_NewRef(Py_None);
  return (becomes == Becomes::kDatetime ? makeDatetime(decoder_, object) : makeDuration(object))
      .release();
}

PyObject* TapeValues::makeArray(TapeReader& reader, Empties empties) {
  const Array array = reader.array();
  if (array.isEmpty() && empties == Empties::kAsLists) return makeEmptyList();
  return decoder_.array(array).release();
}

}  // namespace PythonZorvanDataArray::detail
