// Bound on how deeply conversions may nest, so that hostile depth is an error and never a crash.
//
// Every level of a recursion holds one guard for as long as it runs:
//
//   const NestingGuard guard(kMaxNesting);
//   if (!guard) return std::nullopt;  // RecursionError is set
//
// The levels are counted per thread, over all recursions that are under way in it, because they
// share its stack. The interpreter's own recursion check comes on top of the count: it alone does
// not protect the C stack once a user raises the recursion limit. No operation throws.
#pragma once

#include "util/python_api.h"

namespace PythonUtil {

// Leaves each level 1 KiB of a 512 KiB thread stack, and half of the stack to everyone else.
inline constexpr int kMaxNesting = 256;

class NestingGuard {
 public:
  explicit NestingGuard(int limit) noexcept;
  ~NestingGuard() noexcept;

  NestingGuard(const NestingGuard&) = delete;
  NestingGuard& operator=(const NestingGuard&) = delete;

  // False when the level was refused; a RecursionError is then set.
  explicit operator bool() const noexcept { return entered_; }

 private:
  bool entered_;
};

}  // namespace PythonUtil
