// Fields of messages put together by hand, for forms that no encoder here writes.
#pragma once

#include <cstdint>
#include <string>

namespace wire {

inline std::string varint(uint64_t value) {
  std::string out;
  for (; value >= 0x80; value >>= 7) out.push_back(static_cast<char>(value | 0x80));
  out.push_back(static_cast<char>(value));
  return out;
}

inline std::string number(uint64_t field, uint64_t value) {
  return varint(field << 3) + varint(value);
}

// A length-delimited field that claims a length of its own choice.
inline std::string claiming(uint64_t field, uint64_t length, const std::string& content) {
  return varint(field << 3 | 2) + varint(length) + content;
}

inline std::string bytes(uint64_t field, const std::string& content) {
  return claiming(field, content.size(), content);
}

}  // namespace wire
