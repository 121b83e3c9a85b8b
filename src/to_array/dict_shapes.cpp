#include "to_array/dict_shapes.h"

#include <algorithm>
#include <set>
#include <string>

#include "util/message_catalogue.h"
#include "util/reference.h"
#include "zorvandata/exception.h"

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::ShapeBytes;
using foundation::zorvandata::TapeBuilder;

namespace {

// Longer ones do not come twice.
constexpr size_t kMostKeys = 256;

uint64_t hashOf(PyObject* const* keys, size_t count) {
  uint64_t hash = count;
  for (size_t i = 0; i < count; ++i) {
    hash = (hash ^ reinterpret_cast<uintptr_t>(keys[i]) >> 4) * 0x9E3779B97F4A7C15u;
  }
  return hash ^ hash >> 32;
}

std::string_view fieldName(PyObject* key) {
  if (!PyUnicode_Check(key)) PythonUtil::raise(PyExc_ValueError, formatMessage(NonTextFieldName));
  Py_ssize_t size = 0;
  const char* utf8 = PyUnicode_AsUTF8AndSize(key, &size);
  if (utf8 && size > 0) return {utf8, static_cast<size_t>(size)};
  PyErr_Clear();
  PythonUtil::raise(PyExc_ValueError, formatMessage(EmptyStructFieldName));
}

// The keys of a dict are different, but those of a type of their own may have the same text.
void checkDistinct(PyObject* const* keys, size_t count) {
  const auto isStr = [](PyObject* key) { return Py_TYPE(key) == &PyUnicode_Type; };
  if (std::all_of(keys, keys + count, isStr)) return;
  std::set<std::string_view> names;
  for (size_t i = 0; i < count; ++i) {
    const std::string_view name = fieldName(keys[i]);
    if (names.insert(name).second) continue;
    throw foundation::zorvandata::InvalidFieldNameException("'" + std::string(name) +
                                                            "' stands twice");
  }
}

}  // namespace

DictShapes::~DictShapes() {
  for (PyObject* key : keys_) Py_DECREF(key);
}

uint64_t DictShapes::find(TapeBuilder& tape, PyObject* const* keys, size_t count) {
  if (count == 0) return 0;
  const uint64_t expected = tape.expectedShape();
  if (expected < ofShape_.size() && isKnown(ofShape_[expected], keys, count)) return expected;
  const uint64_t hash = hashOf(keys, count);
  if (table_.empty()) {
    for (size_t i = 0; i < known_.size(); ++i) {
      if (isKnown(i, keys, count)) return known_[i].shape;
    }
  } else if (const uint32_t number = table_[slotOf(keys, count, hash)]) {
    return known_[number - 1].shape;
  }
  ShapeBytes bytes("", count);
  for (size_t i = 0; i < count; ++i) bytes.add(fieldName(keys[i]));
  checkDistinct(keys, count);
  const uint64_t shape = tape.shape(bytes.bytes());
  if (count <= kMostKeys) remember(shape, keys, count, hash);
  return shape;
}

bool DictShapes::isKnown(size_t index, PyObject* const* keys, size_t count) const {
  if (index >= known_.size() || known_[index].count != count) return false;
  // Mostly few: a call would take longer.
  PyObject* const* known = keys_.begin() + known_[index].first;
  for (size_t i = 0; i < count; ++i) {
    if (keys[i] != known[i]) return false;
  }
  return true;
}

// Where keys stand in the table, or would.
size_t DictShapes::slotOf(PyObject* const* keys, size_t count, uint64_t hash) const {
  size_t at = hash & (table_.size() - 1);
  while (table_[at] != 0) {
    const size_t index = table_[at] - 1;
    if (known_[index].hash == hash && isKnown(index, keys, count)) break;
    at = (at + 1) & (table_.size() - 1);
  }
  return at;
}

void DictShapes::remember(uint64_t shape, PyObject* const* keys, size_t count, uint64_t hash) {
  constexpr size_t kFew = 8;  // are as well compared one by one
  known_.push_back({shape, keys_.size(), count, hash});
  for (size_t i = 0; i < count; ++i) {
    keys_.push_back(keys[i]);
    Py_INCREF(keys[i]);
  }
  const auto number = static_cast<uint32_t>(known_.size());
  while (ofShape_.size() <= shape) ofShape_.push_back(UINT32_MAX);
  ofShape_[shape] = number - 1;
  if (known_.size() <= kFew) return;
  if (table_.size() >= 2 * known_.size()) {
    table_[slotOf(keys, count, hash)] = number;
    return;
  }
  table_.assign(std::max(4 * kFew, 2 * table_.size()), 0);
  for (size_t i = 0; i < known_.size(); ++i) {
    const Known& known = known_[i];
    table_[slotOf(keys_.begin() + known.first, known.count, known.hash)] =
        static_cast<uint32_t>(i + 1);
  }
}

}  // namespace PythonZorvanDataArray::detail
