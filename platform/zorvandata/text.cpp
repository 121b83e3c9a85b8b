#include "zorvandata/text.h"

#include <cstdint>
#include <cstring>

#include "zorvandata/exception.h"

namespace foundation::zorvandata {
namespace {

bool isHighSurrogate(char32_t c) { return c >= 0xD800 && c < 0xDC00; }
bool isLowSurrogate(char32_t c) { return c >= 0xDC00 && c < 0xE000; }

void appendUtf8(char32_t c, std::string& out) {
  char bytes[kLongestCodePoint];
  out.append(bytes, writeUtf8(c, bytes));
}

// Reads the code point at `at`, which must be inside the text, and moves past it.
char32_t nextCodePoint(std::string_view text, size_t& at) {
  const auto byteAt = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byteAt(at);
  if (lead < 0x80) {
    ++at;
    return lead;
  }
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() - at < length) throw InvalidTextException();
  char32_t c = lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((byteAt(at + i) & 0xC0) != 0x80) throw InvalidTextException();
    c = (c << 6) | (byteAt(at + i) & 0x3F);
  }
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (c < kSmallest[length] || c > 0x10FFFF) throw InvalidTextException();
  at += length;
  return c;
}

}  // namespace

bool isAscii(std::string_view text) {
  constexpr uint64_t kHighBits = 0x8080808080808080u;
  // Eight words at a time keep the widest registers busy.
  size_t i = 0;
  uint64_t words[8];
  for (; i + sizeof(words) <= text.size(); i += sizeof(words)) {
    std::memcpy(words, text.data() + i, sizeof(words));
    uint64_t all = 0;
    for (const uint64_t word : words) all |= word;
    if ((all & kHighBits) != 0) return false;
  }
  unsigned char all = 0;
  for (; i < text.size(); ++i) all |= static_cast<unsigned char>(text[i]);
  return all < 0x80;
}

std::string toUtf8(std::u16string_view units) {
  std::string out;
  out.reserve(units.size());
  for (size_t i = 0; i < units.size(); ++i) {
    char32_t c = units[i];
    if (isHighSurrogate(c) && i + 1 < units.size() && isLowSurrogate(units[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
    }
    appendUtf8(c, out);
  }
  return out;
}

std::u16string toUtf16(std::string_view utf8) {
  if (isAscii(utf8)) return std::u16string(utf8.begin(), utf8.end());
  std::u16string out;
  out.reserve(utf8.size());
  char32_t previous = 0;
  for (size_t at = 0; at < utf8.size();) {
    const char32_t c = nextCodePoint(utf8, at);
    if (isHighSurrogate(previous) && isLowSurrogate(c)) throw InvalidTextException();
    previous = c;
    if (c < 0x10000) {
      out.push_back(static_cast<char16_t>(c));
    } else {
      out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    }
  }
  return out;
}

void checkUtf8(std::string_view utf8) {
  if (isAscii(utf8)) return;
  char32_t previous = 0;
  for (size_t at = 0; at < utf8.size();) {
    const char32_t c = nextCodePoint(utf8, at);
    // A pair of surrogates has one form only, the four bytes of its code point.
    if (isHighSurrogate(previous) && isLowSurrogate(c)) throw InvalidTextException();
    previous = c;
  }
}

size_t utf16Length(std::string_view utf8) {
  size_t units = 0;
  for (const char byte : utf8) {
    const auto b = static_cast<unsigned char>(byte);
    units += (b & 0xC0) != 0x80;
    units += b >= 0xF0;
  }
  return units;
}

std::u16string widenAscii(std::string_view ascii) {
  if (!isAscii(ascii)) throw NonAsciiCharInInputDataException();
  return std::u16string(ascii.begin(), ascii.end());
}

std::string narrowAscii(std::u16string_view units) {
  std::string out;
  out.reserve(units.size());
  for (const char16_t unit : units) {
    if (unit >= 0x80) throw NonAsciiCharInInputDataException();
    out.push_back(static_cast<char>(unit));
  }
  return out;
}

}  // namespace foundation::zorvandata
