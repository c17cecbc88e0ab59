// UTF-8 and UTF-16, the exported string family, the tokenizers.
#include "support/common/text.h"

#include <clocale>

#include <gtest/gtest.h>

#include "zn/memory.h"
#include "zn/platform.h"
#include "zn/text.h"

namespace zn {
namespace {

struct RoundTripCase {
  const char* narrow;
  const ZnWChar* wide;
};
constexpr RoundTripCase kRoundTrips[] = {
    {"", u""},
    {"abc", u"abc"},
    {"\x7F", u"\x7F"},
    {"\xC2\x80", u"\x80"},
    {"Gr\xC3\xBC\xC3\x9F"
     "e",
     u"Grüße"},
    {"\xDF\xBF", u"\x7FF"},
    {"\xE0\xA0\x80", u"\x800"},
    {"\xED\x9F\xBF", u"\xD7FF"},
    {"\xEE\x80\x80", u"\xE000"},
    {"\xEF\xBF\xBF", u"\xFFFF"},
    {"\xF0\x90\x80\x80", u"\xD800\xDC00"},
    {"\xF0\x9F\x98\x80!", u"😀!"},
    {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
};

TEST(Text, WellFormedTextGoesBothWays) {
  for (const RoundTripCase& c : kRoundTrips) {
    SCOPED_TRACE(c.narrow);
    EXPECT_EQ(ToWide(c.narrow), c.wide);
    EXPECT_EQ(ToNarrow(c.wide), c.narrow);
    EXPECT_EQ(ToWellFormed(c.narrow), c.narrow);
  }
}

TEST(Text, EveryCharacterGoesBothWays) {
  char32_t wrong = 0;
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    char narrow[kMaxNarrowUnits];
    ZnWChar wide[kMaxWideUnits];
    std::string_view narrowText(narrow, PutCharacter(c, narrow));
    std::u16string_view wideText(wide, PutCharacter(c, wide));
    if (TakeCharacter(&narrowText) != c || !narrowText.empty()) wrong = c;
    if (TakeCharacter(&wideText) != c || !wideText.empty()) wrong = c;
  }
  EXPECT_EQ(static_cast<u32>(wrong), 0u);
}

struct BadCase {
  const char* why;
  std::string narrow;
  std::u16string wide;
};
const BadCase kBadNarrow[] = {
    {"a continuation alone", "a\x80z", u"a\xFFFDz"},
    {"two continuations alone", "\x80\xBF", u"\xFFFD\xFFFD"},
    {"a lead at the end", "a\xC3", u"a\xFFFD"},
    {"a lead before ASCII", "\xC3z", u"\xFFFDz"},
    {"overlong slash", "\xC0\xAF", u"\xFFFD\xFFFD"},
    {"overlong in three bytes", "\xE0\x80\xAF", u"\xFFFD\xFFFD\xFFFD"},
    {"three bytes cut after two", "\xE2\x82z", u"\xFFFDz"},
    {"a surrogate in UTF-8", "\xED\xA0\x80", u"\xFFFD\xFFFD\xFFFD"},
    {"four bytes cut after three", "\xF0\x9F\x98", u"\xFFFD"},
    {"beyond the last character", "\xF4\x90\x80\x80", u"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"bytes that begin nothing", "\xFE\xFF", u"\xFFFD\xFFFD"},
    {"a NUL is a character", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
};

TEST(Text, IllFormedNarrowTextBecomesReplacements) {
  for (const BadCase& c : kBadNarrow) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(ToWide(c.narrow), c.wide);
    EXPECT_EQ(ToWellFormed(c.narrow), ToNarrow(c.wide));
  }
}

TEST(Text, UnpairedSurrogatesBecomeReplacements) {
  EXPECT_EQ(ToNarrow(u"\xD800"), "\xEF\xBF\xBD");
  EXPECT_EQ(ToNarrow(u"\xD800z"), "\xEF\xBF\xBDz");
  EXPECT_EQ(ToNarrow(u"\xDC00\xD800"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(ToNarrow(u"\xD800\xD800\xDC00"), "\xEF\xBF\xBD\xF0\x90\x80\x80");
}

TEST(Text, CopiesAreBlocksAndNullStaysNull) {
  EXPECT_EQ(ZnDupA(nullptr), nullptr);
  EXPECT_EQ(ZnDupW(nullptr), nullptr);
  EXPECT_EQ(ZnToWide(nullptr), nullptr);
  EXPECT_EQ(ZnToNarrow(nullptr), nullptr);
  char* a = ZnDupA("abc");
  ZnWChar* w = ZnDupW(u"abc");
  ZnWChar* wide = ZnToWide("\xC3\xBC");
  char* narrow = ZnToNarrow(u"ü");
  EXPECT_STREQ(a, "abc");
  EXPECT_EQ(std::u16string(w), u"abc");
  EXPECT_EQ(std::u16string(wide), u"ü");
  EXPECT_STREQ(narrow, "\xC3\xBC");
  for (void* block : {static_cast<void*>(a), static_cast<void*>(w), static_cast<void*>(wide),
                      static_cast<void*>(narrow)}) {
    ZnFree(block);
  }
}

TEST(Text, ByteLengthsCountTheTerminator) {
  EXPECT_EQ(ZnByteLengthA(nullptr), 0u);
  EXPECT_EQ(ZnByteLengthW(nullptr), 0u);
  EXPECT_EQ(ZnByteLengthA(""), 1u);
  EXPECT_EQ(ZnByteLengthA("abc"), 4u);
  EXPECT_EQ(ZnByteLengthW(u""), 2u);
  EXPECT_EQ(ZnByteLengthW(u"abc"), 8u);
}

TEST(Strings, LengthsAreInUnits) {
  EXPECT_EQ(ZnlstrlenA("abc"), 3);
  EXPECT_EQ(ZnlstrlenA("\xC3\xBC"), 2);
  EXPECT_EQ(ZnlstrlenW(u"😀"), 2);
  EXPECT_EQ(Znwcslen(u"abc"), 3u);
  EXPECT_EQ(ZnlstrlenA(nullptr), 0);
  EXPECT_EQ(ZnlstrlenW(nullptr), 0);
  EXPECT_EQ(Znwcslen(nullptr), 0u);
}

TEST(Strings, CopyAndAppend) {
  char a[16];
  EXPECT_EQ(ZnlstrcpyA(a, "abc"), a);
  EXPECT_EQ(ZnlstrcatA(a, "def"), a);
  EXPECT_STREQ(a, "abcdef");
  EXPECT_STREQ(ZnlstrcpyA(a, nullptr), "");
  EXPECT_EQ(ZnlstrcpyA(nullptr, "x"), nullptr);
  EXPECT_EQ(ZnlstrcatA(nullptr, "x"), nullptr);
  ZnWChar w[16];
  EXPECT_EQ(ZnlstrcpyW(w, u"abc"), w);
  EXPECT_EQ(ZnlstrcatW(w, u"def"), w);
  EXPECT_EQ(std::u16string(w), u"abcdef");
  EXPECT_EQ(std::u16string(ZnlstrcatW(w, nullptr)), u"abcdef");
}

TEST(Strings, BoundedCopyFillsWithZerosAndNeedNotTerminate) {
  char a[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(ZnlstrncpyA(a, "abc", 3), a);
  EXPECT_EQ(std::string(a, 6), "abcxxx");
  ZnlstrncpyA(a, "ab", 5);
  EXPECT_EQ(std::string(a, 6), std::string("ab\0\0\0x", 6));
  ZnlstrncpyA(a, "zz", 0);
  ZnlstrncpyA(a, "zz", -1);
  EXPECT_EQ(a[0], 'a');
  ZnWChar w[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(ZnlstrncpyW(w, u"abcdef", 2), w);
  EXPECT_EQ(std::u16string(w, 4), u"abxx");
  ZnlstrncpyW(w, u"a", 3);
  EXPECT_EQ(std::u16string(w, 4), std::u16string(u"a\0\0x", 4));
}

struct CompareCase {
  const char* a;
  const char* b;
  int order;
};
constexpr CompareCase kComparisons[] = {
    {"", "", 0},
    {"a", "A", 0},
    {"KELD_Object", "keld_OBJECT", 0},
    {"a", "B", -1},
    {"B", "a", 1},
    {"a", "ab", -1},
    {"ab", "A", 1},
    {"_", "a", 1},  // behind the capital 'A', for capitals are compared
    {"\xC3\xA4", "\xC3\x84", 0},
    {"\xCF\x89", "\xCE\xA9", 0},
    {"\xC3\x9F", "SS", 1},  // no simple capital: no expansion
    {"\xD1\x8F", "\xD0\xAF", 0},
};

TEST(Strings, CompareWithoutCaseInBothForms) {
  for (const CompareCase& c : kComparisons) {
    SCOPED_TRACE(std::string(c.a) + " and " + c.b);
    EXPECT_EQ(ZnlstrcmpA(c.a, c.b), c.order);
    EXPECT_EQ(ZnlstrcmpA(c.b, c.a), -c.order);
    EXPECT_EQ(ZnlstrcmpW(ToWide(c.a).c_str(), ToWide(c.b).c_str()), c.order);
    EXPECT_EQ(ZnlstrcmpW(ToWide(c.b).c_str(), ToWide(c.a).c_str()), -c.order);
  }
  EXPECT_EQ(ZnlstrcmpA(nullptr, ""), 0);
  EXPECT_EQ(ZnlstrcmpW(nullptr, u"a"), -1);
}

TEST(Strings, TheCaseSensitiveComparisonIsByUnits) {
  EXPECT_EQ(Znwcscmp(u"a", u"a"), 0);
  EXPECT_EQ(Znwcscmp(u"a", u"A"), 1);
  EXPECT_EQ(Znwcscmp(u"A", u"a"), -1);
  EXPECT_EQ(Znwcscmp(u"ab", u"a"), 1);
  EXPECT_EQ(Znwcscmp(nullptr, u""), 0);
}

TEST(Strings, CapitalsAreMadeInPlace) {
  char a[] = "abc-1 \xC3\xA4\xC3\x9F \xC4\xB1 \x80";  // the capital of dotless i is one byte short
  EXPECT_EQ(ZnlstruprA(a), a);
  EXPECT_STREQ(a, "ABC-1 \xC3\x84\xC3\x9F \xC4\xB1 \x80");
  ZnWChar w[] = u"abc-1 äß ω 😀";
  EXPECT_EQ(ZnlstruprW(w), w);
  EXPECT_EQ(std::u16string(w), u"ABC-1 Äß Ω 😀");
  EXPECT_EQ(ZnlstruprA(nullptr), nullptr);
  EXPECT_EQ(ZnlstruprW(nullptr), nullptr);
}

TEST(Strings, WideningCountsUnits) {
  EXPECT_EQ(Znmbstowcs(nullptr, "", 0), 0u);
  EXPECT_EQ(Znmbstowcs(nullptr, "ab\xC3\xBC", 0), 3u);
  EXPECT_EQ(Znmbstowcs(nullptr, "\xF0\x9F\x98\x80", 0), 2u);
  EXPECT_EQ(Znmbstowcs(nullptr, nullptr, 0), 0xFFFFFFFFu);
  ZnWChar out[8] = {9, 9, 9, 9, 9, 9, 9, 9};
  EXPECT_EQ(Znmbstowcs(out, "ab", 8), 2u);
  EXPECT_EQ(std::u16string(out), u"ab");
  EXPECT_EQ(out[3], 9) << "nothing behind the terminator is touched";
  EXPECT_EQ(Znmbstowcs(out, "abcd", 3), 3u);
  EXPECT_EQ(std::u16string(out, 4), std::u16string(u"abc\x9", 4)) << "no room for a terminator";
  EXPECT_EQ(Znmbstowcs(out, "a\xF0\x9F\x98\x80", 2), 1u) << "a pair is not cut in half";
  EXPECT_EQ(std::u16string(out), u"a");
  EXPECT_EQ(Znmbstowcs(out, "x", 0), 0u);
  EXPECT_EQ(out[0], u'a');
  EXPECT_EQ(Znmbstowcs(out, "\xFF", 8), 1u);
  EXPECT_EQ(out[0], u'\xFFFD');
}

TEST(Strings, NarrowingCountsBytes) {
  EXPECT_EQ(Znwcstombs(nullptr, u"abü", 0), 4u);
  EXPECT_EQ(Znwcstombs(nullptr, u"😀", 0), 4u);
  EXPECT_EQ(Znwcstombs(nullptr, nullptr, 0), 0xFFFFFFFFu);
  char out[8];
  EXPECT_EQ(Znwcstombs(out, u"abü", 8), 4u);
  EXPECT_STREQ(out, "ab\xC3\xBC");
  EXPECT_EQ(Znwcstombs(out, u"abü", 3), 2u) << "a character is not cut in half";
  EXPECT_STREQ(out, "ab");
  EXPECT_EQ(Znwcstombs(out, u"\xD800", 8), 3u);
  EXPECT_STREQ(out, "\xEF\xBF\xBD");
}

std::vector<std::string> TokensA(const char* text, char delimiter) {
  Vector out = {77, nullptr};
  EXPECT_EQ(StrTokenizerA(text, delimiter, &out), 0u);
  std::vector<std::string> tokens;
  for (u32 i = 0; i < out.count; ++i) {
    tokens.emplace_back(static_cast<char*>(out.items[i]));
    ZnFree(out.items[i]);
  }
  ZnFree(static_cast<void*>(out.items));
  std::vector<std::string> wideTokens;
  Vector wide = {77, nullptr};
  EXPECT_EQ(StrTokenizerW(ToWide(text).c_str(), static_cast<ZnWChar>(delimiter), &wide), 0u);
  for (u32 i = 0; i < wide.count; ++i) {
    wideTokens.push_back(ToNarrow(static_cast<ZnWChar*>(wide.items[i])));
    ZnFree(wide.items[i]);
  }
  ZnFree(static_cast<void*>(wide.items));
  EXPECT_EQ(tokens, wideTokens) << "both forms split alike";
  return tokens;
}

struct TokenCase {
  const char* why;
  const char* text;
  char delimiter;
  std::vector<std::string> tokens;
};

TEST(Tokenizer, FollowsItsRules) {
  const TokenCase cases[] = {
      {"an empty text has none", "", ',', {}},
      {"delimiters alone give none", ",,", ',', {}},
      {"white space goes everywhere", "a b,c", ',', {"ab", "c"}},
      {"leading, trailing, doubled", ",a,,b,", ',', {"a", "b"}},
      {"a token of blanks is dropped", "a, \t ,b", ',', {"a", "b"}},
      {"a blank as delimiter splits first", "a b\tc d", ' ', {"a", "bc", "d"}},
      {"no delimiter gives one", " one\ntwo ", ';', {"onetwo"}},
      {"other bytes stay", "\xC3\xA4 \xC3\xB6;x", ';', {"\xC3\xA4\xC3\xB6", "x"}},
  };
  for (const TokenCase& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(TokensA(c.text, c.delimiter), c.tokens);
  }
}

TEST(Tokenizer, NoTokensIsANullArray) {
  Vector out = {5, nullptr};
  EXPECT_EQ(StrTokenizerA(",,", ',', &out), 0u);
  EXPECT_EQ(out.count, 0u);
  EXPECT_EQ(out.items, nullptr);
}

TEST(Tokenizer, BadPointersAreRefused) {
  Vector out = {5, nullptr};
  EXPECT_EQ(StrTokenizerA(nullptr, ',', &out), 0x80070057u);
  EXPECT_EQ(StrTokenizerW(nullptr, u',', &out), 0x80070057u);
  EXPECT_EQ(StrTokenizerA("a", ',', nullptr), 0x80070057u);
  EXPECT_EQ(out.count, 5u) << "written on success only";
}

}  // namespace
}  // namespace zn
