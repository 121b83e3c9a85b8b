// Many varints at once: bytes are read and written eight at a time.
//
// The 7-bit groups of a number below 2^56 are spread over the 8 bytes of a word, or gathered from
// them, by halves.
#pragma once

#include <google/protobuf/io/coded_stream.h>

#include <cstdint>
#include <cstring>

namespace foundation::protobuf {

constexpr uint64_t kHighBits = 0x8080808080808080;
constexpr uint64_t kMostInWord = (uint64_t{1} << 56) - 1;

inline size_t varintSize(uint64_t value) {
  // 9/64 is a little less than 1/7: right for all 64 numbers of bits.
  const auto bits = static_cast<size_t>(64 - __builtin_clzll(value | 1));
  return (bits * 9 + 64) / 64;
}

// A number below 2^56 at `out`, where there is room for 8 bytes; returns the end.
inline uint8_t* writeShortVarint(uint64_t value, uint8_t* out) {
  const size_t size = varintSize(value);
  uint64_t word = ((value & 0x00FFFFFFF0000000) << 4) | (value & 0x000000000FFFFFFF);
  word = ((word & 0x0FFFC0000FFFC000) << 2) | (word & 0x00003FFF00003FFF);
  word = ((word & 0x3F803F803F803F80) << 1) | (word & 0x007F007F007F007F);
  word |= kHighBits & ((uint64_t{1} << (8 * (size - 1))) - 1);
  std::memcpy(out, &word, sizeof(word));
  return out + size;
}

// Reads a number of at most 8 bytes off a word and moves `at` past it; false when it is longer.
inline bool readShortVarint(const uint8_t*& at, uint64_t& value) {
  uint64_t word = 0;
  std::memcpy(&word, at, sizeof(word));
  const uint64_t ends = ~word & kHighBits;
  if (ends == 0) return false;
  word &= ends ^ (ends - 1);
  word = ((word & 0x7F007F007F007F00) >> 1) | (word & 0x007F007F007F007F);
  word = ((word & 0x3FFF00003FFF0000) >> 2) | (word & 0x00003FFF00003FFF);
  value = ((word & 0x0FFFFFFF00000000) >> 4) | (word & 0x000000000FFFFFFF);
  at += __builtin_ctzll(ends) / 8 + 1;
  return true;
}

// Reads numbers as long as they lie in whole words, at most `count`; calls put(i, number) for each,
// moves `at` past them and returns how many there were.
template <class Put>
size_t readShortVarints(size_t count, const Put& put, const uint8_t*& at, const uint8_t* end) {
  size_t usual = 0;
  size_t i = 0;
  for (uint64_t number = 0; i < count && end - at >= 8; ++i) {
    const uint8_t* next = at;
    if (!readShortVarint(next, number)) break;
    put(i, number);
    // Where numbers are of one size, the size of the one before is known sooner than that of this
    // one, and the processor can begin with the next. Compilers must not see that both are equal.
    const auto size = static_cast<size_t>(next - at);
    if (size == usual) {
      size_t step = usual;
      asm volatile("" : "+r"(step));  // NOLINT(hicpp-no-assembler): no instruction
      at += step;
    } else {
      at = next;
      usual = size;
    }
  }
  return i;
}

// Writes value(0), ..., value(count - 1); returns the end.
template <class Value>
uint8_t* writeVarints(size_t count, const Value& value, uint8_t* out) {
  size_t i = 0;
  // Eight more numbers follow, of a byte at least: there is room for words.
  for (; i + 8 < count; ++i) {
    const uint64_t number = value(i);
    out = number <= kMostInWord
              ? writeShortVarint(number, out)
              : google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(number, out);
  }
  for (; i < count; ++i) {
    out = google::protobuf::io::CodedOutputStream::WriteVarint64ToArray(value(i), out);
  }
  return out;
}

}  // namespace foundation::protobuf
