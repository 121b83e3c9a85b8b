// The items of any Python mapping: its keys, read once and held, and its values.
#pragma once

#include <vector>

#include "to_array/encoder.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

class MappingItems {
 public:
  size_t size() const { return keys_.size(); }
  const std::vector<PythonUtil::PyObjectWithGuard>& keys() const { return keys_; }
  // Whether the keys are those of a dict, so that no two of them are equal.
  bool areFromDict() const { return areFromDict_; }

  // The value of the i-th key. A mapping with methods of its own is asked for it only now, so that
  // each value is walked before the next one is made; `to` has its memory settled before.
  PythonUtil::PyObjectWithGuard value(Encoder& to, size_t i) const;
  // RuntimeError when such a mapping has changed its length since its keys were read.
  void checkLength(Encoder& to) const;

 private:
  friend MappingItems readMapping(Encoder& to, PyObject* obj);
  void readDict(PyObject* dict);
  void readOrderedDict(Encoder& to, PyObject* dict);
  void readByProtocol(PyObject* mapping);
  void reserve(size_t count);
  void compareLength(size_t length) const;

  std::vector<PythonUtil::PyObjectWithGuard> keys_;
  std::vector<PythonUtil::PyObjectWithGuard> values_;  // as many, unless there is an asked_
  PythonUtil::PyObjectWithGuard asked_;                // the mapping that is asked for each value
  bool areFromDict_ = false;
};

// The items in the mapping's own order: of a zorvan.dictionary or a UserDict those of the mapping
// inside, of a ChainMap those of its maps merged, the first map winning. `to` has its memory
// settled before Python code runs.
//
// Throws PythonErrorSet: IndexError for objects that are no mapping (they have no `keys`), for an
// uninitialised zorvan.dictionary and for a ChainMap without maps, TypeError for a UserDict without
// data, RuntimeError for a mapping that lies about its length. What a mapping itself raises passes
// through.
MappingItems readMapping(Encoder& to, PyObject* obj);

}  // namespace PythonZorvanDataArray::detail
