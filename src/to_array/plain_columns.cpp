#include "to_array/plain_columns.h"

#include "to_array/sequence_elements.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::ArrayTypeOf;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::elementSize;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::kColumnFrom;
using foundation::zorvandata::kLongestRepeated;
using foundation::zorvandata::makeColumn;
using foundation::zorvandata::RepeatedTextColumn;
using foundation::zorvandata::ScalarColumn;
using foundation::zorvandata::TextColumnBuilder;

namespace {

// Elements of one type as numbers; `read` returns false with a Python error set. A loop that knows
// the type: through PlainGatherer it takes 1.4 times as long.
template <class T, class Read>
std::optional<ItemList> numbers(const Sequence& sequence, PyTypeObject* type, const Read& read) {
  const size_t count = sequence.size();
  Buffer elements = Buffer::uninitialized(count * sizeof(T));
  T* out = reinterpret_cast<T*>(elements.mutableData());
  for (size_t i = 0; i < count; ++i) {
    PyObject* obj = sequence[i];
    if (Py_TYPE(obj) != type || !read(obj, out[i])) return std::nullopt;
  }
  return makeColumn(ScalarColumn{ArrayTypeOf<T>::value, std::move(elements)});
}

bool readFloat(PyObject* obj, double& value) {
  value = PyFloat_AsDouble(obj);
  return true;
}

// Much faster than PyLong_AsLongLong, whose error it leaves.
bool readInt(PyObject* obj, int64_t& value) {
  static_assert(sizeof(long) == sizeof(int64_t));
  int overflow = 0;
  value = PyLong_AsLongAndOverflow(obj, &overflow);
  if (overflow) PyLong_AsLongLong(obj);
  return !overflow;
}

bool readBool(PyObject* obj, bool& value) {
  value = obj == Py_True;
  return true;
}

std::optional<ItemList> texts(const Sequence& sequence, ArrayType type) {
  const size_t count = sequence.size();
  TextGatherer gatherer(type, count);
  for (size_t i = 0; i < count; ++i) {
    if (i + kAhead < count) __builtin_prefetch(sequence[i + kAhead]);
    if (!gatherer.append(sequence[i])) return std::nullopt;
  }
  return gatherer.finish();
}

// The element type of the numbers that objects of a plain type become, UNKNOWN for texts.
ArrayType numberType(PyTypeObject* type) {
  return type == &PyFloat_Type  ? ArrayType::DOUBLE
         : type == &PyLong_Type ? ArrayType::INT64
         : type == &PyBool_Type ? ArrayType::LOGICAL
                                : ArrayType::UNKNOWN;
}

}  // namespace

bool isPlain(PyObject* obj) {
  PyTypeObject* type = Py_TYPE(obj);
  return type == &PyFloat_Type || type == &PyLong_Type || type == &PyUnicode_Type ||
         type == &PyBool_Type;
}

TextGatherer::TextGatherer(ArrayType type, size_t count)
    : type_(type), count_(count), texts_(type, count) {
  constexpr size_t kWorthIt = 256;
  if (count < kWorthIt) return;
  repeated_ = std::make_unique<Repeated>();
  repeated_->positions = Buffer::uninitialized(count * sizeof(uint32_t));
  repeated_->position = reinterpret_cast<uint32_t*>(repeated_->positions.mutableData());
}

bool TextGatherer::appendRepeated(PyObject* obj) {
  const uint32_t number = repeated_->table.numberOf(obj);
  if (number == IdentityTable::kMost) return unfold() && appendText(obj);
  repeated_->position[repeated_->count++] = number;
  return true;
}

bool TextGatherer::unfold() {
  const std::unique_ptr<Repeated> repeated = std::move(repeated_);
  for (size_t i = 0; i < repeated->count; ++i) {
    if (!appendText(repeated->table.objects()[repeated->position[i]])) return false;
  }
  return true;
}

// Absent without an error when the texts are too many or too long.
std::optional<ItemList> TextGatherer::finishRepeated() {
  const std::vector<PyObject*>& objects = repeated_->table.objects();
  if (objects.size() > count_ / 4) return std::nullopt;
  TextColumnBuilder distinct(type_, objects.size());
  for (PyObject* obj : objects) {
    PythonUtil::PyObjectWithGuard copy;
    const std::string_view text = reader_.read(obj, copy);
    if (!text.data() || text.size() > kLongestRepeated) return std::nullopt;
    distinct.append(text);
  }
  return makeColumn(RepeatedTextColumn{distinct.finish(), std::move(repeated_->positions)});
}

std::optional<ItemList> TextGatherer::finish() {
  if (repeated_) {
    std::optional<ItemList> column = finishRepeated();
    if (column || PyErr_Occurred() || !unfold()) return column;
  }
  return makeColumn(texts_.finish());
}

PlainGatherer::PlainGatherer(PyObject* first, size_t count) : type_(Py_TYPE(first)) {
  if (type_ == &PyUnicode_Type) {
    texts_.emplace(ArrayType::CHAR, count);
  } else {
    elements_ = Buffer::uninitialized(count * elementSize(numberType(type_)));
    next_ = elements_.mutableData();
  }
}

bool PlainGatherer::append(PyObject* obj) {
  if (Py_TYPE(obj) != type_) return false;
  if (type_ == &PyFloat_Type) {
    put(PyFloat_AsDouble(obj));
    return true;
  }
  if (type_ == &PyLong_Type) {
    int64_t value = 0;
    const bool isRead = readInt(obj, value);
    put(value);
    return isRead;
  }
  if (type_ == &PyUnicode_Type) return texts_->append(obj);
  put(obj == Py_True);
  return true;
}

std::optional<ItemList> PlainGatherer::finish() {
  if (texts_) return texts_->finish();
  return makeColumn(ScalarColumn{numberType(type_), std::move(elements_)});
}

std::optional<ItemList> uniformColumn(PyObject* listOrTuple) {
  const Sequence sequence(listOrTuple);
  if (sequence.size() < kColumnFrom) return std::nullopt;
  PyTypeObject* type = Py_TYPE(sequence[0]);
  if (type == &PyFloat_Type) return numbers<double>(sequence, type, readFloat);
  if (type == &PyLong_Type) return numbers<int64_t>(sequence, type, readInt);
  if (type == &PyBool_Type) return numbers<bool>(sequence, type, readBool);
  return type == &PyUnicode_Type ? texts(sequence, ArrayType::CHAR) : std::nullopt;
}

std::optional<ItemList> textColumn(PyObject* list, ArrayType type) {
  return texts(Sequence(list), type);
}

}  // namespace PythonZorvanDataArray::detail
