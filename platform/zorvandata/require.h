// Checks of messages.
#pragma once

#include "zorvandata/exception.h"

namespace foundation::zorvandata {

[[noreturn, gnu::cold, gnu::noinline]] inline void refuse(const char* what) {
  throw MalformedMessageException(what);
}

// Throws MalformedMessageException with what is wrong unless something holds.
inline void require(bool holds, const char* what) {
  if (__builtin_expect(!holds, 0)) refuse(what);
}

}  // namespace foundation::zorvandata
