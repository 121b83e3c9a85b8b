// Numbers and texts as the inspector shows them, in JSON and to people alike.
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <complex>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace tools {

// Writes the shortest digits that read back as the same number. A floating-point number has a
// point or an exponent, so that 1.0 and -0.0 stay what they are; beyond the finite ones there are
// NaN, Inf and -Inf.
template <class T>
void writeNumber(std::ostream& out, T value) {
  char digits[32];
  if constexpr (std::is_floating_point_v<T>) {
    if (!std::isfinite(value)) {
      out << (std::isnan(value) ? "NaN" : value > 0 ? "Inf" : "-Inf");
      return;
    }
  }
  char* end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  if constexpr (std::is_floating_point_v<T>) {
    if (std::none_of(digits, end, [](char c) { return c == '.' || c == 'e'; })) {
      *end++ = '.';
      *end++ = '0';
    }
  }
  out.write(digits, end - digits);
}

// UTF-16 of UTF-8 that need not be valid: when it is not, U+FFFD stands for each byte that is not
// ASCII.
std::u16string readable(std::string_view utf8);

// Writes UTF-8 in which control characters, quotes, backslashes and surrogates without their
// partner are escaped as in JSON.
void writeEscaped(std::ostream& out, std::u16string_view text);

// The same in quotes.
void writeText(std::ostream& out, std::u16string_view text);
void writeText(std::ostream& out, std::string_view utf8);

}  // namespace tools
