// What the converters share for the length of one argument's conversion.
#pragma once

#include <memory>
#include <vector>

#include "util/py_object_guard.h"
#include "zorvandata/array_impl.h"

namespace PythonZorvanDataArray::detail {

using DictKeys = std::vector<PythonUtil::PyObjectWithGuard>;

// One is current in a thread at a time; a conversion that Python code starts within another one has
// its own.
class ArgumentScope {
 public:
  ArgumentScope();
  ~ArgumentScope();
  ArgumentScope(const ArgumentScope&) = delete;
  ArgumentScope& operator=(const ArgumentScope&) = delete;

  // Storage for the texts of all containers but the first that asks, which has its own, so that a
  // small call needs none of this; NULL for that one and outside of any scope.
  static std::shared_ptr<foundation::zorvandata::Arena> arena();

  // The layout of the dict converted last, if its keys were these very objects in this order: the
  // dicts of a list are often alike. NULL otherwise.
  static std::shared_ptr<const foundation::zorvandata::Layout> layoutOf(const DictKeys& keys);
  // Remembers a layout together with its keys.
  static void remember(DictKeys keys, std::shared_ptr<const foundation::zorvandata::Layout> layout);

 private:
  bool isFirstRequest_ = true;
  std::shared_ptr<foundation::zorvandata::Arena> arena_;
  DictKeys keys_;
  std::shared_ptr<const foundation::zorvandata::Layout> layout_;
  ArgumentScope* outer_;
};

}  // namespace PythonZorvanDataArray::detail
