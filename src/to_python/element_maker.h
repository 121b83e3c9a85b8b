// Makes Python objects of the elements of a list, one by one and without a converter's call for
// each where they are a column.
#pragma once

#include <string_view>
#include <vector>

#include "util/py_object_guard.h"
#include "zorvandata/item_column.h"

namespace PythonZorvanDataArray::detail {

// What elements without elements become.
enum class Empties {
  kAsLists,   // an empty list each, as in cells
  kAsTheyAre  // what their converter makes of them, as in fields and string arrays
};

// New reference to an element of a list; NULL with a Python error set.
PyObject* makeElement(const foundation::zorvandata::ItemList& items, size_t i, Empties empties);

// One str of many texts, out of which each is cut: for texts that are not ASCII half the work of
// decoding each of them.
class DecodedTexts {
 public:
  explicit DecodedTexts(const foundation::zorvandata::TextColumn& column) : column_(column) {}

  // New reference to the text at a position, which never decreases from call to call; NULL with a
  // Python error set.
  PyObject* next(size_t i);

 private:
  // False when some of the texts cannot be decoded, which then happens one by one.
  bool decode(size_t first);

  const foundation::zorvandata::TextColumn& column_;
  PythonUtil::PyObjectWithGuard chunk_;
  size_t end_ = 0;
  Py_ssize_t at_ = 0;
};

class ElementMaker {
 public:
  // The list must outlive it. Making the distinct ones of repeated texts may fail: see make.
  ElementMaker(const foundation::zorvandata::ItemList& items, Empties empties);

  // New reference to the element at a position, which never decreases from call to call; NULL with
  // a Python error set.
  PyObject* make(size_t i);
  // New reference to a list of all elements; NULL with a Python error set.
  PyObject* makeAll();

 private:
  enum class Kind { kDouble, kInt64, kLogical, kTexts, kRepeated, kAny };

  template <class T>
  T number(size_t i) const {
    T value;
    std::memcpy(&value, numbers_ + i * sizeof(T), sizeof(T));
    return value;
  }
  PyObject* makeText(const foundation::zorvandata::TextColumn& column, size_t i);
  PyObject* makeRepeated(size_t i);

  const foundation::zorvandata::ItemList& items_;
  Empties empties_;
  Kind kind_ = Kind::kAny;
  const std::byte* numbers_ = nullptr;
  const foundation::zorvandata::TextColumn* texts_ = nullptr;
  const uint32_t* positions_ = nullptr;
  std::vector<DecodedTexts> decoded_;                // one of texts that are not ASCII
  std::vector<PythonUtil::PyObjectWithGuard> made_;  // the distinct texts met so far
};

}  // namespace PythonZorvanDataArray::detail
