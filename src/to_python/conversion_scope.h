// What holds for the length of one conversion to Python.
#pragma once

#include <memory>
#include <vector>

#include "util/py_object_guard.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

// Pauses the cyclic garbage collector: a result is a tree of many new containers, which it would
// search again and again in vain. The state found is restored; scopes may be nested.
class ConversionScope {
 public:
  ConversionScope();
  ~ConversionScope();
  ConversionScope(const ConversionScope&) = delete;
  ConversionScope& operator=(const ConversionScope&) = delete;

 private:
  bool collecting_;
};

// The field names of a layout as str objects.
using FieldKeys = std::vector<PythonUtil::PyObjectWithGuard>;

// NULL with a Python error set when a name is no text.
std::shared_ptr<const FieldKeys> makeFieldKeys(const foundation::zorvandata::Layout& layout);

// The same for layouts that many structs share: made once and kept until the conversion ends.
std::shared_ptr<const FieldKeys> sharedFieldKeys(
    const std::shared_ptr<const foundation::zorvandata::Layout>& layout);

}  // namespace PythonZorvanDataArray::detail
