#include "to_array/argument_scope.h"

#include <algorithm>
#include <utility>

namespace PythonZorvanDataArray::detail {

using foundation::zorvandata::Arena;
using foundation::zorvandata::Layout;
using PythonUtil::PyObjectWithGuard;

namespace {

// Of a thread: while Python code runs within a conversion, other threads may convert too.
thread_local ArgumentScope* current = nullptr;

bool isSame(const PyObjectWithGuard& a, const PyObjectWithGuard& b) { return a.get() == b.get(); }

}  // namespace

ArgumentScope::ArgumentScope() : outer_(std::exchange(current, this)) {}

ArgumentScope::~ArgumentScope() { current = outer_; }

std::shared_ptr<Arena> ArgumentScope::arena() {
  if (!current || std::exchange(current->isFirstRequest_, false)) return nullptr;
  if (!current->arena_) current->arena_ = std::make_shared<Arena>();
  return current->arena_;
}

std::shared_ptr<const Layout> ArgumentScope::layoutOf(const DictKeys& keys) {
  if (!current || !current->layout_) return nullptr;
  const DictKeys& known = current->keys_;
  const bool same = std::equal(keys.begin(), keys.end(), known.begin(), known.end(), isSame);
  return same ? current->layout_ : nullptr;
}

void ArgumentScope::remember(DictKeys keys, std::shared_ptr<const Layout> layout) {
  if (!current) return;
  current->keys_ = std::move(keys);
  current->layout_ = std::move(layout);
}

}  // namespace PythonZorvanDataArray::detail
