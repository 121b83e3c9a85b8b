// Fields of messages put together by hand, for forms that no encoder here writes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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

// What packed fields and kinds of tapes hold.
inline std::string numbers(const std::vector<uint64_t>& values) {
  std::string all;
  for (const uint64_t value : values) all += varint(value);
  return all;
}

inline std::string repeated(const std::string& piece, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += piece;
  return all;
}
inline std::string zeros(size_t count) { return std::string(count, '\0'); }

// Fields of arrays; of a tape the kinds, which other fields of it may follow.
inline std::string ofType(uint64_t code) { return number(1, code); }
inline std::string dims(uint64_t rows, uint64_t columns) {
  return bytes(2, numbers({rows, columns}));
}
inline std::string tape(const std::vector<uint64_t>& kinds, const std::string& streams = "") {
  return bytes(1, numbers(kinds)) + streams;
}
inline std::string onTape(const std::vector<uint64_t>& kinds, const std::string& streams = "") {
  return bytes(7, tape(kinds, streams));
}

}  // namespace wire
