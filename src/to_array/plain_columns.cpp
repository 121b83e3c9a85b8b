#include "to_array/plain_columns.h"

#include <array>
#include <vector>

#include "to_array/argument_scope.h"
#include "to_array/converter_factory.h"
#include "to_array/utf8_reader.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ArrayType;
using foundation::zorvandata::Buffer;
using foundation::zorvandata::ItemList;
using foundation::zorvandata::kColumnFrom;
using foundation::zorvandata::kLongestRepeated;
using foundation::zorvandata::makeColumn;
using foundation::zorvandata::RepeatedTextColumn;
using foundation::zorvandata::ScalarColumn;
using foundation::zorvandata::TextColumn;
using foundation::zorvandata::TextColumnBuilder;

namespace {

// Every `at` below gives a borrowed reference to the element at a position.

struct ListElements {
  PyObject* list;
  PyObject* operator()(size_t i) const { return PyList_GetItem(list, static_cast<Py_ssize_t>(i)); }
};

struct TupleElements {
  PyObject* tuple;
  PyObject* operator()(size_t i) const {
    return PyTuple_GetItem(tuple, static_cast<Py_ssize_t>(i));
  }
};

// Elements of one type as numbers; `read` returns false with a Python error set.
template <class T, class At, class Read>
std::optional<ItemList> numbers(size_t count, const At& at, PyTypeObject* type, const Read& read) {
  Buffer elements = Buffer::uninitialized(count * sizeof(T));
  T* out = reinterpret_cast<T*>(elements.mutableData());
  for (size_t i = 0; i < count; ++i) {
    PyObject* obj = at(i);
    if (Py_TYPE(obj) != type || !read(obj, out[i])) return std::nullopt;
  }
  constexpr ArrayType kType = foundation::zorvandata::ArrayTypeOf<T>::value;
  return makeColumn(ScalarColumn{kType, std::move(elements)});
}

// Much faster than PyLong_AsLongLong, whose error it leaves.
bool readInt(PyObject* obj, int64_t& value) {
  static_assert(sizeof(long) == sizeof(int64_t));
  int overflow = 0;
  value = PyLong_AsLongAndOverflow(obj, &overflow);
  if (overflow) PyLong_AsLongLong(obj);
  return !overflow;
}

template <class At>
std::optional<TextColumn> distinctTexts(size_t count, const At& at, ArrayType type) {
  Utf8Reader reader;
  PythonUtil::PyObjectWithGuard copy;
  TextColumnBuilder texts(type, count);
  for (size_t i = 0; i < count; ++i) {
    PyObject* obj = at(i);
    if (Py_TYPE(obj) != &PyUnicode_Type) return std::nullopt;
    const std::string_view text = reader.read(obj, copy);
    if (!text.data()) return std::nullopt;
    texts.append(text);
  }
  return texts.finish();
}

// Numbers the objects that it sees by their identity, up to a number that is worth it.
class IdentityTable {
 public:
  static constexpr uint32_t kMost = 1024;

  // kMost for an object that is one too many.
  uint32_t numberOf(PyObject* obj) {
    const auto address = reinterpret_cast<uintptr_t>(obj);
    size_t at = (address >> 4) * 0x9E3779B97F4A7C15u >> 53;
    while (slots_[at].object != obj) {
      if (!slots_[at].object) return add(obj, slots_[at]);
      at = (at + 1) % slots_.size();
    }
    return slots_[at].number;
  }
  const std::vector<PyObject*>& objects() const { return objects_; }

 private:
  struct Slot {
    PyObject* object;
    uint32_t number;
  };

  uint32_t add(PyObject* obj, Slot& slot) {
    const auto number = static_cast<uint32_t>(objects_.size());
    if (number == kMost) return kMost;
    objects_.push_back(obj);
    slot = {obj, number};
    return number;
  }

  std::vector<Slot> slots_ = std::vector<Slot>(2 * kMost);  // one for each value of 11 bits
  std::vector<PyObject*> objects_;
};

// Texts of few objects that come again and again; absent, with no error set, when they do not.
template <class At>
std::optional<RepeatedTextColumn> repeatedTexts(size_t count, const At& at, ArrayType type) {
  constexpr size_t kWorthIt = 256;
  if (count < kWorthIt) return std::nullopt;
  IdentityTable table;
  Buffer positions = Buffer::uninitialized(count * sizeof(uint32_t));
  auto* out = reinterpret_cast<uint32_t*>(positions.mutableData());
  for (size_t i = 0; i < count; ++i) {
    PyObject* obj = at(i);
    if (Py_TYPE(obj) != &PyUnicode_Type) return std::nullopt;
    out[i] = table.numberOf(obj);
    if (out[i] == IdentityTable::kMost) return std::nullopt;
  }
  const std::vector<PyObject*>& objects = table.objects();
  if (objects.size() > count / 4) return std::nullopt;
  const ObjectSpan span{objects.data(), objects.size()};
  std::optional<TextColumn> texts = distinctTexts(span.count, span, type);
  PyErr_Clear();
  if (!texts) return std::nullopt;
  for (size_t i = 0; i < texts->size(); ++i) {
    if (texts->text(i).size() > kLongestRepeated) return std::nullopt;
  }
  return RepeatedTextColumn{std::move(*texts), std::move(positions)};
}

template <class At>
std::optional<ItemList> texts(size_t count, const At& at, ArrayType type) {
  if (auto repeated = repeatedTexts(count, at, type)) return makeColumn(std::move(*repeated));
  auto distinct = distinctTexts(count, at, type);
  if (!distinct) return std::nullopt;
  return makeColumn(std::move(*distinct));
}

template <class At>
std::optional<ItemList> uniform(size_t count, const At& at) {
  if (count < kColumnFrom) return std::nullopt;
  PyTypeObject* type = Py_TYPE(at(0));
  if (type == &PyFloat_Type) {
    return numbers<double>(count, at, type, [](PyObject* obj, double& value) {
      value = PyFloat_AsDouble(obj);
      return true;
    });
  }
  if (type == &PyLong_Type) {
    return numbers<int64_t>(count, at, type, readInt);
  }
  if (type == &PyBool_Type) {
    return numbers<bool>(count, at, type, [](PyObject* obj, bool& value) {
      value = obj == Py_True;
      return true;
    });
  }
  return type == &PyUnicode_Type ? texts(count, at, ArrayType::CHAR) : std::nullopt;
}

}  // namespace

bool isPlain(PyObject* obj) {
  PyTypeObject* type = Py_TYPE(obj);
  return type == &PyFloat_Type || type == &PyLong_Type || type == &PyUnicode_Type ||
         type == &PyBool_Type;
}

std::optional<ItemList> uniformColumn(PyObject* listOrTuple) {
  if (PyList_Check(listOrTuple)) {
    const Py_ssize_t count = PyList_Size(listOrTuple);
    return uniform(static_cast<size_t>(count), ListElements{listOrTuple});
  }
  const Py_ssize_t count = PyTuple_Size(listOrTuple);
  return uniform(static_cast<size_t>(count), TupleElements{listOrTuple});
}

std::optional<ItemList> uniformColumn(const ObjectSpan& objects) {
  return uniform(objects.count, objects);
}

std::optional<ItemList> textColumn(PyObject* list, ArrayType type) {
  return texts(static_cast<size_t>(PyList_Size(list)), ListElements{list}, type);
}

std::optional<ItemList> plainItems(const ObjectSpan& objects) {
  std::optional<ItemList> column = uniformColumn(objects);
  if (column || PyErr_Occurred()) return column;
  ItemList items(ArgumentScope::arena());
  items.reserve(objects.count);
  for (size_t i = 0; i < objects.count; ++i) {
    if (!appendZDA(items, objects(i))) return std::nullopt;
  }
  return items;
}

}  // namespace PythonZorvanDataArray::detail
