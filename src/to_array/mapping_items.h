// The items of any Python mapping, read once and held.
#pragma once

#include <vector>

#include "to_array/encoder.h"
#include "util/py_object_guard.h"

namespace PythonZorvanDataArray::detail {

struct MappingItems {
  std::vector<PythonUtil::PyObjectWithGuard> keys;
  std::vector<PythonUtil::PyObjectWithGuard> values;  // as many
  // The keys are those of a dict, so no two of them are equal.
  bool fromDict = false;

  size_t size() const { return keys.size(); }
};

// The items in the mapping's own order: of a zorvan.dictionary or a UserDict those of the mapping
// inside, of a ChainMap those of its maps merged, the first map winning. `to` has its memory
// settled before Python code runs.
//
// Throws PythonErrorSet: IndexError for objects that are no mapping (they have no `keys`), for an
// uninitialised zorvan.dictionary and for a ChainMap without maps, TypeError for a UserDict without
// data, RuntimeError for a mapping that changes while it is read or lies about its length. What a
// mapping itself raises passes through.
MappingItems readMapping(Encoder& to, PyObject* obj);

}  // namespace PythonZorvanDataArray::detail
