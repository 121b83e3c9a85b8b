// The shapes of the dicts of one conversion, known by their keys: dicts of one kind mostly have the
// very same str objects for keys, in the same order.
#pragma once

#include <cstdint>
#include <vector>

#include "util/python_api.h"
#include "zorvandata/tape_builder.h"

namespace PythonZorvanDataArray::detail {

class DictShapes {
 public:
  DictShapes() = default;
  ~DictShapes();
  DictShapes(const DictShapes&) = delete;
  DictShapes& operator=(const DictShapes&) = delete;

  // The number on the tape of the shape that these keys, in this order, are. Runs no Python code.
  // Throws PythonErrorSet with ValueError set for a key that is no nonempty text.
  uint64_t find(foundation::zorvandata::TapeBuilder& tape, PyObject* const* keys, size_t count);

 private:
  struct Known {
    uint64_t shape;
    size_t first;  // of its keys
    size_t count;
    uint64_t hash;
  };

  bool isKnown(size_t index, PyObject* const* keys, size_t count) const;
  void remember(uint64_t shape, PyObject* const* keys, size_t count, uint64_t hash);
  size_t slotOf(PyObject* const* keys, size_t count, uint64_t hash) const;

  // Most conversions meet few: those need no memory of their own.
  foundation::zorvandata::ShortVector<Known, 4> known_;
  foundation::zorvandata::ShortVector<PyObject*, 24> keys_;  // held
  // By the number of a shape, which of those known was met last.
  foundation::zorvandata::ShortVector<uint32_t, 8> ofShape_;
  std::vector<uint32_t> table_;  // indices of those known plus one, by hash, once they are many
};

}  // namespace PythonZorvanDataArray::detail
