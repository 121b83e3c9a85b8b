#include <gtest/gtest.h>

#include "zorvandata/exception.h"
#include "zorvandata/text.h"

namespace foundation::zorvandata {
namespace {

TEST(Text, Utf16AndUtf8AreEachOthersInverse) {
  const std::pair<std::u16string, std::string> cases[] = {
      {u"", ""},
      {u"plain", "plain"},
      {std::u16string(1, u'\0'), std::string(1, '\0')},
      {u"\u007F\u0080\u07FF\u0800\uFFFF", "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
      {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
      {{0xD800}, "\xED\xA0\x80"},
      {{0xDFFF}, "\xED\xBF\xBF"},
      {{0xDC00, 0xD800}, "\xED\xB0\x80\xED\xA0\x80"},
      {{0xD800, 0xD800, 0xDC00}, "\xED\xA0\x80\xF0\x90\x80\x80"},
      {u"12345678\u00E9", "12345678\xC3\xA9"},
  };
  for (const auto& [units, utf8] : cases) {
    SCOPED_TRACE(utf8);
    EXPECT_EQ(toUtf8(units), utf8);
    EXPECT_EQ(toUtf16(utf8), units);
    EXPECT_EQ(utf16Length(utf8), units.size());
    EXPECT_NO_THROW(checkUtf8(utf8));
  }
}

TEST(Text, BytesThatAreNoUtf8AreRefused) {
  const std::string cases[] = {
      "\x80",         "ab\xBF",           "\xC0\x80",         "\xC1\xBF",     "\xC3",
      "\xC3(",        "\xE0\x9F\xBF",     "\xE2\x82",         "\xE2\x28\xA1", "\xF0\x8F\xBF\xBF",
      "\xF0\x9F\x98", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",         "12345678\xFE"};
  for (const std::string& bytes : cases) {
    SCOPED_TRACE(::testing::PrintToString(bytes));
    EXPECT_THROW(toUtf16(bytes), InvalidTextException);
    EXPECT_THROW(checkUtf8(bytes), InvalidTextException);
  }
}

// Otherwise one text would have two stored forms and would not equal itself.
TEST(Text, PairOfSurrogatesInThreeByteFormIsRefused) {
  const std::string pair = "\xED\xA0\xBD\xED\xB8\x80";
  EXPECT_THROW(checkUtf8(pair), InvalidTextException);
  EXPECT_THROW(toUtf16(pair), InvalidTextException);
}

TEST(Text, AsciiIsToldByEveryByte) {
  for (size_t length = 0; length <= 17; ++length) {
    std::string text(length, '\x7F');
    EXPECT_TRUE(isAscii(text));
    EXPECT_EQ(narrowAscii(widenAscii(text)), text);
    for (size_t i = 0; i < length; ++i) {
      std::string bad = text;
      bad[i] = '\x80';
      EXPECT_FALSE(isAscii(bad)) << "byte " << i << " of " << length;
      EXPECT_THROW(widenAscii(bad), NonAsciiCharInInputDataException);
    }
  }
  EXPECT_THROW(narrowAscii(u"a\u0080"), NonAsciiCharInInputDataException);
  EXPECT_THROW(narrowAscii(u"\u0141"), NonAsciiCharInInputDataException);
}

}  // namespace
}  // namespace foundation::zorvandata
