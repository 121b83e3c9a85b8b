#include "inspect_text.h"

#include "zorvandata/exception.h"
#include "zorvandata/text.h"

namespace tools {
namespace {

using foundation::zorvandata::toUtf16;
using foundation::zorvandata::toUtf8;

bool isHighSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xD800; }
bool isLowSurrogate(char16_t unit) { return (unit & 0xFC00) == 0xDC00; }

bool startsPair(std::u16string_view text) {
  return text.size() >= 2 && isHighSurrogate(text[0]) && isLowSurrogate(text[1]);
}

bool needsEscape(char16_t unit) {
  const bool isControl = unit < 0x20 || (unit >= 0x7F && unit < 0xA0);
  return isControl || unit == u'"' || unit == u'\\' || isHighSurrogate(unit) ||
         isLowSurrogate(unit);
}

void writeEscape(std::ostream& out, char16_t unit) {
  switch (unit) {
    case u'"':
      out << "\\\"";
      return;
    case u'\\':
      out << "\\\\";
      return;
    case u'\n':
      out << "\\n";
      return;
    case u'\r':
      out << "\\r";
      return;
    case u'\t':
      out << "\\t";
      return;
    default:
      break;
  }
  out << "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out << "0123456789abcdef"[(unit >> shift) & 0xF];
}

}  // namespace

std::u16string readable(std::string_view utf8) {
  try {
    return toUtf16(utf8);
  } catch (const foundation::zorvandata::InvalidTextException&) {
    std::u16string text;
    for (const char byte : utf8) {
      const auto code = static_cast<unsigned char>(byte);
      text.push_back(code < 0x80 ? code : u'\uFFFD');
    }
    return text;
  }
}

void writeEscaped(std::ostream& out, std::u16string_view text) {
  size_t plainFrom = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (startsPair(text.substr(i))) {
      ++i;
    } else if (needsEscape(text[i])) {
      out << toUtf8(text.substr(plainFrom, i - plainFrom));
      writeEscape(out, text[i]);
      plainFrom = i + 1;
    }
  }
  out << toUtf8(text.substr(plainFrom));
}

void writeText(std::ostream& out, std::u16string_view text) {
  out << '"';
  writeEscaped(out, text);
  out << '"';
}

void writeText(std::ostream& out, std::string_view utf8) { writeText(out, readable(utf8)); }

}  // namespace tools
