// Varints: numbers of 64 bits in groups of 7, the lowest first, the high bit of a byte saying that
// another one follows; and zigzag, which makes small numbers of small signed ones.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace foundation::zorvandata {

constexpr size_t kLongestVarint = 10;

constexpr uint64_t zigzag(int64_t value) {
  return (static_cast<uint64_t>(value) << 1) ^ static_cast<uint64_t>(value >> 63);
}
constexpr int64_t unzigzag(uint64_t value) {
  return static_cast<int64_t>(value >> 1) ^ -static_cast<int64_t>(value & 1);
}

inline size_t varintSize(uint64_t value) {
  // 9/64 is a little less than 1/7: right for all 64 numbers of bits.
  const auto bits = static_cast<size_t>(64 - __builtin_clzll(value | 1));
  return (bits * 9 + 64) / 64;
}

// Writes to `out`, where there is room for kLongestVarint bytes, of which those after the number
// may be overwritten; returns the end of the number.
inline uint8_t* writeVarint(uint64_t value, uint8_t* out) {
  if (value < 0x80) {
    *out = static_cast<uint8_t>(value);
    return out + 1;
  }
  constexpr uint64_t kMostInWord = (uint64_t{1} << 56) - 1;
  if (value <= kMostInWord) {
    // The groups are spread over the bytes of a word, by halves.
    const size_t size = varintSize(value);
    uint64_t word = ((value & 0x00FFFFFFF0000000) << 4) | (value & 0x000000000FFFFFFF);
    word = ((word & 0x0FFFC0000FFFC000) << 2) | (word & 0x00003FFF00003FFF);
    word = ((word & 0x3F803F803F803F80) << 1) | (word & 0x007F007F007F007F);
    word |= 0x8080808080808080 & ((uint64_t{1} << (8 * (size - 1))) - 1);
    std::memcpy(out, &word, sizeof(word));
    return out + size;
  }
  while (value >= 0x80) {
    *out++ = static_cast<uint8_t>(value | 0x80);
    value >>= 7;
  }
  *out = static_cast<uint8_t>(value);
  return out + 1;
}

// Reads a number that is known to be there.
inline uint64_t readVarint(const uint8_t*& at) {
  uint64_t value = *at++;
  if (value < 0x80) return value;
  value &= 0x7F;
  for (unsigned shift = 7;; shift += 7) {
    const uint64_t byte = *at++;
    value |= (byte & 0x7F) << shift;
    if (byte < 0x80) return value;
  }
}

// Reads a number before `end`; false, with `at` anywhere, when there is none of 64 bits.
inline bool readVarint(const uint8_t*& at, const uint8_t* end, uint64_t& value) {
  if (at != end && *at < 0x80) {
    value = *at++;
    return true;
  }
  value = 0;
  for (unsigned shift = 0; shift < 64 && at != end; shift += 7) {
    const uint64_t byte = *at++;
    value |= (byte & 0x7F) << shift;
    if (byte < 0x80) return shift < 63 || byte <= 1;
  }
  return false;
}

}  // namespace foundation::zorvandata
