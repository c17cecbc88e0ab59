// Text helpers: encodings, escapes, fields.
#include "text.h"

#include <gtest/gtest.h>

namespace hostinv {
namespace {

struct Utf8Case {
  const char* why;
  std::string bytes;
  std::u16string wide;
  std::string clean;
};

const Utf8Case kUtf8Cases[] = {
    {"plain text stays", "abc", u"abc", "abc"},
    {"two and three bytes", "é€", u"é€", "é€"},
    {"four bytes make a pair", "\xF0\x9F\x92\xBE", u"\xD83D\xDCBE", "\xF0\x9F\x92\xBE"},
    {"a lone following byte is replaced", "a\x80z", u"a\xFFFDz", "a\xEF\xBF\xBDz"},
    {"a cut sequence is replaced", "a\xE2\x82", u"a\xFFFD\xFFFD", "a\xEF\xBF\xBD\xEF\xBF\xBD"},
    {"an overlong form is replaced", "\xC0\xAF", u"\xFFFD\xFFFD", "\xEF\xBF\xBD\xEF\xBF\xBD"},
    {"an encoded surrogate is replaced", "\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD",
     "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
    {"beyond the last code point is replaced", "\xF5\x80\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD",
     "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
};

TEST(Text, TurnsAnyBytesIntoValidText) {
  for (const Utf8Case& c : kUtf8Cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(ToUtf16(c.bytes), c.wide);
    EXPECT_EQ(CleanUtf8(c.bytes), c.clean);
    EXPECT_EQ(FromUtf16(c.wide), c.clean);
  }
}

TEST(Text, ReplacesLoneSurrogates) {
  EXPECT_EQ(FromUtf16(std::u16string{u'a', char16_t{0xD83D}}), "a\xEF\xBF\xBD");
  EXPECT_EQ(FromUtf16(std::u16string{char16_t{0xDCBE}, u'b'}),
            "\xEF\xBF\xBD"
            "b");
}

TEST(Text, DecodesHexEscapesAndKeepsBrokenOnes) {
  EXPECT_EQ(DecodeHexEscapes("a\\x20b"), "a b");
  EXPECT_EQ(DecodeHexEscapes("\\xc3\\xa9"), "é");
  EXPECT_EQ(DecodeHexEscapes("\\x5cx20"), "\\x20");
  EXPECT_EQ(DecodeHexEscapes("\\x2"), "\\x2");
  EXPECT_EQ(DecodeHexEscapes("\\xg0"), "\\xg0");
  EXPECT_EQ(DecodeHexEscapes("\\"), "\\");
}

TEST(Text, SplitsFieldsAtRunsOfBlanks) {
  EXPECT_EQ(SplitFields("  a\tb  c "), (std::vector<std::string_view>{"a", "b", "c"}));
  EXPECT_TRUE(SplitFields(" \t").empty());
}

TEST(Text, SplitsLinesWithAndWithoutTheLastEnd) {
  EXPECT_EQ(SplitLines("a\n\nb"), (std::vector<std::string_view>{"a", "", "b"}));
  EXPECT_EQ(SplitLines("a\n"), (std::vector<std::string_view>{"a"}));
  EXPECT_TRUE(SplitLines("").empty());
}

TEST(Text, SplitsPairsAtTheFirstSeparator) {
  std::string_view key;
  std::string_view value;
  ASSERT_TRUE(SplitPair("cpu MHz\t\t: 2:1 ", ':', &key, &value));
  EXPECT_EQ(key, "cpu MHz");
  EXPECT_EQ(value, "2:1");
  EXPECT_FALSE(SplitPair("no separator", ':', &key, &value));
}

TEST(Text, ParsesLeadingNumbersOnly) {
  EXPECT_EQ(ParseNumber("18446744073709551615"), UINT64_MAX);
  EXPECT_EQ(ParseNumber("864321.55"), 864321U);
  EXPECT_EQ(ParseNumber("-1"), 0U);
  EXPECT_EQ(ParseNumber(""), 0U);
  EXPECT_EQ(ParseNumber("18446744073709551616"), 0U);
}

TEST(Text, ReadsNothingFromAMissingFile) {
  EXPECT_FALSE(ReadFile("/nonexistent/file").has_value());
  EXPECT_FALSE(ReadFile("/").has_value());
  EXPECT_EQ(ReadValue("/nonexistent/file"), "");
  EXPECT_EQ(ReadNumber("/nonexistent/file"), 0U);
}

}  // namespace
}  // namespace hostinv
