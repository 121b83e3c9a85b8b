// Sequences of plain values as columns, without a converter's call for each of them.
//
// Plain are the values of exactly the types float, int, bool and str: to read one runs no Python
// code, so that borrowed references hold, until one fails. Then nothing borrowed is touched again.
#pragma once

#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "to_array/utf8_reader.h"
#include "util/py_object_guard.h"
#include "zorvandata/item_column.h"

namespace PythonZorvanDataArray::detail {

bool isPlain(PyObject* obj);

// How far ahead objects are fetched into the cache, in which long lists of them are not.
constexpr size_t kAhead = 8;

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

  std::vector<Slot> slots_ = std::vector<Slot>(size_t{2} * kMost);  // one for each value of 11 bits
  std::vector<PyObject*> objects_;
};

// Gathers str objects that stay alive meanwhile: few that come again and again as such, others one
// after the other.
class TextGatherer {
 public:
  // Of so many elements of type CHAR or ZORVAN_STRING.
  TextGatherer(foundation::zorvandata::ArrayType type, size_t count);

  // False when the object is not exactly a str, or with UnicodeEncodeError set for a lone
  // surrogate.
  bool append(PyObject* obj) {
    if (Py_TYPE(obj) != &PyUnicode_Type) return false;
    return repeated_ ? appendRepeated(obj) : appendText(obj);
  }
  // Of exactly as many elements as were announced; absent with a Python error set, like above.
  std::optional<foundation::zorvandata::ItemList> finish();

 private:
  struct Repeated {
    IdentityTable table;
    foundation::zorvandata::Buffer positions;
    uint32_t* position = nullptr;  // in that memory
    size_t count = 0;
  };

  bool appendRepeated(PyObject* obj);
  bool appendText(PyObject* obj) {
    PythonUtil::PyObjectWithGuard copy;
    const std::string_view text = reader_.read(obj, copy);
    if (!text.data()) return false;
    texts_.append(text);
    return true;
  }
  // Gives up on repetition.
  bool unfold();
  std::optional<foundation::zorvandata::ItemList> finishRepeated();

  foundation::zorvandata::ArrayType type_;
  size_t count_;
  std::unique_ptr<Repeated> repeated_;
  foundation::zorvandata::TextColumnBuilder texts_;
  Utf8Reader reader_;
};

// Gathers plain values, all of the type of the first one.
class PlainGatherer {
 public:
  PlainGatherer(PyObject* first, size_t count);

  // False when the value is of another type, or with a Python error set: OverflowError for an int
  // beyond 64 bits, or like TextGatherer::append.
  bool append(PyObject* obj);
  std::optional<foundation::zorvandata::ItemList> finish();

 private:
  template <class T>
  void put(T value) {
    std::memcpy(next_, &value, sizeof(T));
    next_ += sizeof(T);
  }

  PyTypeObject* type_;
  foundation::zorvandata::Buffer elements_;
  std::byte* next_ = nullptr;
  std::optional<TextGatherer> texts_;
};

// The elements of a list or a tuple if all are plain and of one type and there are enough of them
// to be worth it. Absent otherwise; with a Python error set when one of them fails.
std::optional<foundation::zorvandata::ItemList> uniformColumn(PyObject* listOrTuple);

// The texts of a list of exactly str objects as elements of type CHAR or ZORVAN_STRING; absent like
// above.
std::optional<foundation::zorvandata::ItemList> textColumn(PyObject* list,
                                                           foundation::zorvandata::ArrayType type);

}  // namespace PythonZorvanDataArray::detail
