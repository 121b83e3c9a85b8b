#include "to_array/encoder.h"

#include <cstring>
#include <memory>

#include "to_array/converter_factory.h"
#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/limits.h"
#include "zorvandata/tape_reader.h"
#include "zorvandata/text.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Array;
using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::ByteStream;
using foundation::zorvandata::Dimensions;
using foundation::zorvandata::kindOf;
using foundation::zorvandata::kLongestCodePoint;
using foundation::zorvandata::kLongestVarint;
using foundation::zorvandata::kMaxNesting;
using foundation::zorvandata::TapeBuilder;
using foundation::zorvandata::writeUtf8;
using foundation::zorvandata::writeVarint;
using foundation::zorvandata::zigzag;
using PythonUtil::checked;
using PythonUtil::PyObjectWithGuard;
using PythonUtil::PythonErrorSet;
using PythonUtil::raise;

namespace {

// How far ahead objects are fetched into the cache, in which long lists of them are not.
constexpr size_t kAhead = 8;

// Borrowed; NULL with IndexError set beyond the end.
PyObject* itemOf(PyObject* sequence, size_t i, bool isList) {
  const auto at = static_cast<Py_ssize_t>(i);
  return isList ? PyList_GetItem(sequence, at) : PyTuple_GetItem(sequence, at);
}

int64_t integerOf(PyObject* exactInt) {
  static_assert(sizeof(long) == sizeof(int64_t));
  int overflow = 0;
  const int64_t value = PyLong_AsLongAndOverflow(exactInt, &overflow);
  if (overflow == 0) return value;
  PyLong_AsLongLong(exactInt);  // whose error users know
  throw PythonErrorSet();
}

// The error that users know is the one of the UTF-16 encoder.
[[noreturn]] void failToEncode(PyObject* str) {
  if (!PyErr_Occurred() || PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) {
    PyErr_Clear();
    const auto refused = PyObjectWithGuard::owned(PyUnicode_AsUTF16String(str));
  }
  throw PythonErrorSet();
}

// Whether a text of so many characters is long enough to be lent to the tape.
bool isLent(Py_ssize_t length) {
  return length >= static_cast<Py_ssize_t>(foundation::zorvandata::kLentTextFrom);
}

// References to the keys and values of a dict, as they are when it is walked.
class DictItems {
 public:
  explicit DictItems(PyObject* dict) {
    const auto count = static_cast<size_t>(PyDict_Size(dict));
    if (count > kFew) {
      many_ = std::make_unique<PyObject*[]>(2 * count);
      keys_ = many_.get();
      values_ = keys_ + count;
    }
    for (Py_ssize_t position = 0;
         size_ < count && PyDict_Next(dict, &position, keys_ + size_, values_ + size_); ++size_) {
      Py_INCREF(values_[size_]);
    }
  }
  ~DictItems() {
    for (size_t i = 0; i < size_; ++i) Py_DECREF(values_[i]);
  }
  DictItems(const DictItems&) = delete;
  DictItems& operator=(const DictItems&) = delete;

  size_t size() const { return size_; }
  // Borrowed from the dict: for as long as no Python code has run.
  PyObject* const* keys() const { return keys_; }
  PyObject* value(size_t i) const { return values_[i]; }

 private:
  static constexpr size_t kFew = 16;

  PyObject* few_[2 * kFew];
  std::unique_ptr<PyObject*[]> many_;
  PyObject** keys_ = few_;
  PyObject** values_ = few_ + kFew;
  size_t size_ = 0;
};

}  // namespace

Level::Level(const Encoder& encoder) {
  if (encoder.levels() >= kMaxNesting) {
    PyErr_Format(PyExc_RecursionError, "nesting deeper than %d levels not supported", kMaxNesting);
    throw PythonErrorSet();
  }
}

void Encoder::append(PyObject* obj, const ConversionOptions& options) {
  PyTypeObject* type = Py_TYPE(obj);
  if (type == &PyUnicode_Type) return appendText(obj, options.getConvertPyStrToString());
  if (type == &PyLong_Type) return tape_.integer(integerOf(obj));
  if (type == &PyFloat_Type) return tape_.real(PyFloat_AsDouble(obj));
  if (type == &PyBool_Type) return tape_.logical(obj == Py_True);
  if (type == &PyDict_Type) return appendDict(obj);
  if (type == &PyList_Type || type == &PyTuple_Type) return appendSequence(obj);
  converterOf(obj).append(*this, obj, options);
}

uint64_t Encoder::shape(WellKnown which) {
  using foundation::zorvandata::ShapeBytes;
  if (wellKnown_[which] == 0) {
    const auto numberOf = [this](const ShapeBytes& bytes) { return tape_.shape(bytes.bytes()); };
    wellKnown_[which] =
        which == kDatetime     ? numberOf({"datetime", {"data", "fmt", "tz"}})
        : which == kDuration   ? numberOf({"duration", {"millis", "fmt"}})
        : which == kDictionary ? numberOf({"dictionary", {"data"}})
        : which == kDictionaryData
            ? numberOf({"", {"Version", "IsKeyCombined", "IsValueCombined", "Key", "Value"}})
            : numberOf({"", {"Version", "Unconfigured"}});
  }
  return wellKnown_[which];
}

const ConvertToZorvanDataArray& Encoder::converterOf(PyObject* obj) {
  auto* type = reinterpret_cast<PyObject*>(Py_TYPE(obj));
  if (lastType_.get() != type) {
    lastConverter_ = &ConvertToZorvanDataArrayFactory::findConverter(obj);
    lastType_ = PyObjectWithGuard::newReference(type);
  }
  return *lastConverter_;
}

void Encoder::appendSequence(PyObject* sequence, const Dimensions* grid,
                             const ConversionOptions& options) {
  const Level level(*this);
  const bool isList = PyList_Check(sequence);
  const auto count = static_cast<size_t>(isList ? PyList_Size(sequence) : PyTuple_Size(sequence));
  grid ? tape_.openGrid(*grid) : tape_.openCell(count);
  for (size_t i = 0; i < count;) {
    if (const uint8_t kind = tape_.uniformKind()) {
      i = appendUniform(sequence, i, count, kind);
      if (i == count) break;
    }
    // Converting an element can run Python code, which may shorten the list.
    PyObject* item = itemOf(sequence, i, isList);
    if (!item) throw PythonErrorSet();
    if (item == sequence) raise(PyExc_ValueError, formatMessage(RecurListNotSupported));
    const auto held = PyObjectWithGuard::newReference(item);
    tape_.element();
    append(item, options);
    ++i;
  }
  tape_.closeCell();
}

// Elements that are of one plain type, in loops that know it: no Python code runs in them. Returns
// the position of the first that is not.
size_t Encoder::appendUniform(PyObject* sequence, size_t from, size_t count, uint8_t kind) {
  const bool isList = PyList_Check(sequence);
  // `put` returns false for an item that is not for it.
  const auto each = [&](PyTypeObject* type, const auto& put) {
    size_t i = from;
    for (; i < count; ++i) {
      PyObject* item = itemOf(sequence, i, isList);
      if (!item) throw PythonErrorSet();
      if (Py_TYPE(item) != type || !put(item, i)) break;
    }
    tape_.countElements(i - from);
    return i;
  };
  // Numbers, at most so many bytes each, written by write(item, out) to a stream with room for all.
  const auto numbers = [&](PyTypeObject* type, ByteStream& stream, size_t size, const auto& write) {
    uint8_t* out = stream.room((count - from) * size);
    const size_t end = each(type, [&](PyObject* item, size_t) {
      out = write(item, out);
      return true;
    });
    stream.moveEnd(out);
    return end;
  };
  switch (static_cast<ArrayType>(kind)) {
    case ArrayType::DOUBLE:
      return numbers(&PyFloat_Type, tape_.realStream(), sizeof(double),
                     [](PyObject* item, uint8_t* out) {
                       const double value = PyFloat_AsDouble(item);
                       std::memcpy(out, &value, sizeof(value));
                       return out + sizeof(value);
                     });
    case ArrayType::INT64:
      return numbers(
          &PyLong_Type, tape_.intStream(), kLongestVarint,
          [](PyObject* item, uint8_t* out) { return writeVarint(zigzag(integerOf(item)), out); });
    case ArrayType::LOGICAL:
      return numbers(&PyBool_Type, tape_.intStream(), 1, [](PyObject* item, uint8_t* out) {
        *out = static_cast<uint8_t>(zigzag(item == Py_True));
        return out + 1;
      });
    case ArrayType::CHAR:
      return each(&PyUnicode_Type, [&](PyObject* item, size_t i) {
        if (i + kAhead < count) __builtin_prefetch(itemOf(sequence, i + kAhead, isList));
        if (isLent(PyUnicode_GetLength(item))) return false;
        withUtf8(item, [this](std::string_view utf8) { tape_.texts().append(utf8); });
        return true;
      });
    default:
      return from;
  }
}

void Encoder::appendDict(PyObject* dict) {
  const Level level(*this);
  // All keys first, and the values held: converting a value can run code that changes the dict.
  const DictItems items(dict);
  tape_.openRecord(ArrayType::STRUCT, shapes_.find(tape_, items.keys(), items.size()));
  for (size_t i = 0; i < items.size(); ++i) {
    if (items.value(i) == dict) raise(PyExc_ValueError, formatMessage(RecurDictNotSupported));
    append(items.value(i));
  }
  tape_.closeRecord();
}

// Runs no Python code unless it fails.
template <class Use>
void Encoder::withUtf8(PyObject* str, const Use& use) {
  constexpr Py_ssize_t kShort = 256;
  const Py_ssize_t length = PyUnicode_GetLength(str);
  if (lastWasAscii_ && !isLent(length)) {
    Py_ssize_t size = 0;
    const char* utf8 = PyUnicode_AsUTF8AndSize(str, &size);
    if (!utf8) failToEncode(str);
    lastWasAscii_ = size == length;
    return use(std::string_view(utf8, static_cast<size_t>(size)));
  }
  if (length <= kShort) {
    Py_UCS4 units[kShort + 1];
    if (!PyUnicode_AsUCS4(str, units, kShort + 1, 0)) throw PythonErrorSet();
    char utf8[kLongestCodePoint * kShort];
    char* end = utf8;
    for (Py_ssize_t i = 0; i < length; ++i) {
      if ((units[i] & ~Py_UCS4{0x7FF}) == 0xD800) failToEncode(str);
      end = writeUtf8(units[i], end);
    }
    const auto size = static_cast<size_t>(end - utf8);
    lastWasAscii_ = size == static_cast<size_t>(length);
    return use(std::string_view(utf8, size));
  }
  const auto bytes = PyObjectWithGuard::owned(PyUnicode_AsUTF8String(str));
  if (!bytes) failToEncode(str);
  const auto size = static_cast<size_t>(PyBytes_Size(bytes.get()));
  lastWasAscii_ = size == static_cast<size_t>(length);
  use(std::string_view(PyBytes_AsString(bytes.get()), size));
}

// Long text is copied only once, into the message.
void Encoder::lendText(PyObject* str, ArrayType type) {
  const auto ascii = checked(PyObject_CallMethod(str, "isascii", nullptr));
  PyObjectWithGuard holder;
  const char* utf8 = nullptr;
  Py_ssize_t size = 0;
  if (ascii.get() == Py_True) {
    utf8 = PyUnicode_AsUTF8AndSize(str, &size);
    holder = PyObjectWithGuard::newReference(str);
  } else {
    holder = PyObjectWithGuard::owned(PyUnicode_AsUTF8String(str));
    if (holder) {
      utf8 = PyBytes_AsString(holder.get());
      size = PyBytes_Size(holder.get());
    }
  }
  if (!utf8) failToEncode(str);
  auto owner = std::make_shared<const PyObjectWithGuard>(std::move(holder));
  tape_.lentText(type, Buffer::lent(std::move(owner), utf8, static_cast<size_t>(size)));
}

void Encoder::appendText(PyObject* str, bool asString) {
  const ArrayType type = asString ? ArrayType::ZORVAN_STRING : ArrayType::CHAR;
  if (isLent(PyUnicode_GetLength(str))) return lendText(str, type);
  withUtf8(str, [this, asString](std::string_view utf8) {
    asString ? tape_.string(utf8) : tape_.text(utf8);
  });
}

void Encoder::appendStringElement(PyObject* str) {
  withUtf8(str, [this](std::string_view utf8) { tape_.stringElement(utf8); });
}

Array finish(Encoder& encoder) {
  const auto tape = encoder.tape().finish();
  return foundation::zorvandata::TapeReader(*tape).array();
}

Array toArray(Encoder& outer, PyObject* obj, const ConversionOptions& options) {
  // Not on the stack, of which a deep nest of values would take too much.
  const auto encoder = std::make_unique<Encoder>(outer);
  encoder->append(obj, options);
  return finish(*encoder);
}

}  // namespace PythonZorvanDataArray::detail
