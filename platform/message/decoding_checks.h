// What every reader of arrays makes sure of.
#pragma once

#include <cstdint>
#include <string_view>

#include "zorvandata/element_types.h"
#include "zorvandata/exception.h"

namespace foundation::protobuf {

// Throws MalformedMessageException unless the condition holds.
inline void require(bool holds, const char* details) {
  if (!holds) throw zorvandata::MalformedMessageException(details);
}

// The type with the code; throws EArrayUnknownDataType.
inline zorvandata::ArrayType checkedType(uint64_t code) {
  if (code > INT32_MAX || !zorvandata::isKnownCode(static_cast<int64_t>(code))) {
    throw zorvandata::EArrayUnknownDataType();
  }
  return static_cast<zorvandata::ArrayType>(code);
}

// Logicals are bytes of 0 or 1; throws MalformedMessageException. Does nothing for other types.
inline void checkLogicals(zorvandata::ArrayType type, std::string_view elements) {
  if (type != zorvandata::ArrayType::LOGICAL) return;
  unsigned char all = 0;
  for (const char flag : elements) all |= static_cast<unsigned char>(flag);
  require(all <= 1, "a logical is not 0 or 1");
}

}  // namespace foundation::protobuf
