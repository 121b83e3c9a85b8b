// Text in its two forms: UTF-16 code units on the library's surface, UTF-8 where it is stored in
// bulk. The stored form is exact for every sequence of code units: a surrogate without its
// partner is written as the three bytes that UTF-8 would give its code point.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace foundation::zorvandata {

bool isAscii(std::string_view text);

constexpr size_t kLongestCodePoint = 4;

// Writes a code point, a surrogate too, to where there is room for kLongestCodePoint bytes; returns
// the end.
inline char* writeUtf8(char32_t c, char* out) {
  const auto tail = [](char32_t bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
  if (c < 0x80) {
    *out++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *out++ = static_cast<char>(0xC0 | c >> 6);
    *out++ = tail(c);
  } else if (c < 0x10000) {
    *out++ = static_cast<char>(0xE0 | c >> 12);
    *out++ = tail(c >> 6);
    *out++ = tail(c);
  } else {
    *out++ = static_cast<char>(0xF0 | c >> 18);
    *out++ = tail(c >> 12);
    *out++ = tail(c >> 6);
    *out++ = tail(c);
  }
  return out;
}

std::string toUtf8(std::u16string_view units);

// Throws InvalidTextException when the bytes are no UTF-8 of the kind described above.
std::u16string toUtf16(std::string_view utf8);

// Throws like toUtf16, without converting.
void checkUtf8(std::string_view utf8);

// Number of UTF-16 code units of valid UTF-8.
size_t utf16Length(std::string_view utf8);

// Widens 8-bit text; throws NonAsciiCharInInputDataException for a byte of 0x80 or above.
std::u16string widenAscii(std::string_view ascii);

// Narrows UTF-16 text; throws NonAsciiCharInInputDataException for a unit of 0x80 or above.
std::string narrowAscii(std::u16string_view units);

}  // namespace foundation::zorvandata
