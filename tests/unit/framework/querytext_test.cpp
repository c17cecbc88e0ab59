#include "framework/common/znquery/querytext.h"

#include <rapidcheck.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <gmock/gmock.h>

namespace zn::test {

namespace {

constexpr std::u16string_view kHead = u"SELECT FROM T WHERE P EQ ";

std::u16string Asking(std::u16string_view value) {
  return std::u16string(kHead).append(value);
}

struct WordsCase {
  const char* why;
  std::u16string text;
  std::u16string type;
  std::u16string property;
  std::u16string value;
};

TEST(QueryText, SplitsAtBlanksThatAreNeitherQuotedNorEscaped) {
  const WordsCase cases[] = {
      {"plain words", Asking(u"v"), u"T", u"P", u"v"},
      {"quoted blanks", Asking(u"\"my disk\""), u"T", u"P", u"my disk"},
      {"quotes anywhere in a word", Asking(u"m\"y d\"isk"), u"T", u"P", u"my disk"},
      {"quotes in type and property", u"SELECT FROM \"A B\" WHERE \"C D\" EQ v", u"A B", u"C D",
       u"v"},
      {"quotes in a keyword", u"SEL\"ECT\" FROM T WHERE P \"EQ\" v", u"T", u"P", u"v"},
      {"an escaped blank", Asking(u"my\\ disk"), u"T", u"P", u"my disk"},
      {"the escape of another character goes", Asking(u"a\\bc"), u"T", u"P", u"abc"},
      {"an escaped backslash", Asking(u"a\\\\b"), u"T", u"P", u"a\\b"},
      {"a quoted backslash", Asking(u"\"a\\b\""), u"T", u"P", u"a\\b"},
      {"a quoted backslash escapes nothing", Asking(u"\"a\\\"\"b\""), u"T", u"P", u"a\\b"},
      {"an escape at the very end", Asking(u"v\\"), u"T", u"P", u"v"},
      {"an escaped quote still quotes", Asking(u"\\\"a b\""), u"T", u"P", u"a b"},
      {"an escape passes over quotes", Asking(u"\\\"\" b"), u"T", u"P", u" b"},
      {"an escape passes into quotes", Asking(u"\\\"\\a\""), u"T", u"P", u"\\a"},
      {"a quoted nothing", Asking(u"\"\""), u"T", u"P", u""},
      {"nothing behind the last blank", Asking(u""), u"T", u"P", u""},
      {"nothing between two blanks", u"SELECT FROM  WHERE P EQ v", u"", u"P", u"v"},
      {"a quote that stays open", Asking(u"\"my disk"), u"T", u"P", u"my disk"},
      {"other white space is no blank", Asking(u"a\tb\nc\u00a0d"), u"T", u"P", u"a\tb\nc\u00a0d"},
      {"any unit of UTF-16", Asking(u"K\u00f6ln\U0001F4BE\xD800"), u"T", u"P",
       u"K\u00f6ln\U0001F4BE\xD800"},
  };
  for (const WordsCase& c : cases) {
    SCOPED_TRACE(c.why);
    QueryText query(c.text);
    ASSERT_TRUE(query.Parse());
    EXPECT_EQ(query.Type(), c.type);
    EXPECT_EQ(query.Property(), c.property);
    EXPECT_EQ(query.Value(), c.value);
    EXPECT_EQ(query.Fault().kind, QueryFaultKind::kNone);
  }
}

struct FaultCase {
  const char* why;
  std::u16string text;
  QueryFaultKind kind;
  u32 word;
  size_t offset;
};

TEST(QueryText, SaysWhichWordIsWrongAndWhere) {
  const FaultCase cases[] = {
      {"nothing at all", u"", QueryFaultKind::kMissingWord, 0, 0},
      {"a blank alone", u" ", QueryFaultKind::kEmptyWord, 0, 0},
      {"one word", u"SELECT", QueryFaultKind::kMissingWord, 1, 6},
      {"no value", u"SELECT FROM T WHERE P EQ", QueryFaultKind::kMissingWord, 6, 24},
      {"small keywords", u"select from T where P eq v", QueryFaultKind::kWrongKeyword, 0, 0},
      {"another operator", u"SELECT FROM T WHERE P NE v", QueryFaultKind::kWrongKeyword, 5, 22},
      {"a list of columns", u"SELECT * FROM T WHERE P EQ v", QueryFaultKind::kWrongKeyword, 1, 7},
      {"a wrong word in too few", u"SELECT FORM T", QueryFaultKind::kWrongKeyword, 1, 7},
      {"two blanks", u"SELECT  FROM T WHERE P EQ 1", QueryFaultKind::kEmptyWord, 1, 7},
      {"two blanks before the type", u"SELECT FROM  T WHERE P EQ 1", QueryFaultKind::kEmptyWord, 2,
       12},
      {"two blanks before the value", u"SELECT FROM T WHERE P EQ  1", QueryFaultKind::kEmptyWord, 6,
       25},
      {"a blank in front", u" SELECT FROM T WHERE P EQ 1", QueryFaultKind::kEmptyWord, 0, 0},
      {"a blank behind", u"SELECT FROM T WHERE P EQ 1 ", QueryFaultKind::kEmptyWord, 7, 27},
      {"a value of two words", u"SELECT FROM T WHERE P EQ my disk", QueryFaultKind::kSurplusWord, 7,
       28},
      {"a conjunction", u"SELECT FROM T WHERE P EQ v AND Q EQ w", QueryFaultKind::kSurplusWord, 7,
       27},
      {"an open quote", u"SELECT FROM \"T WHERE P EQ v", QueryFaultKind::kOpenQuote, 2, 12},
      {"an open quote in a keyword", u"SELECT \"FROM T WHERE P EQ v", QueryFaultKind::kOpenQuote, 1,
       7},
      {"a fault before an open quote", u"Select FROM \"T WHERE P EQ v",
       QueryFaultKind::kWrongKeyword, 0, 0},
      {"a closed quote is no open one", u"SELECT FROM \"T WHERE\" P EQ v",
       QueryFaultKind::kWrongKeyword, 3, 22},
      {"escapes count where they stand", u"SELECT FROM a\\ b WEHRE P EQ v",
       QueryFaultKind::kWrongKeyword, 3, 17},
  };
  for (const FaultCase& c : cases) {
    SCOPED_TRACE(c.why);
    QueryText query(c.text);
    EXPECT_FALSE(query.Parse());
    EXPECT_EQ(query.Fault().kind, c.kind);
    EXPECT_EQ(query.Fault().word, c.word);
    EXPECT_EQ(query.Fault().offset, c.offset);
  }
}

TEST(QueryText, HasSevenWordsOrIsNoQuery) {
  EXPECT_TRUE(rc::check("words and count", [](const std::vector<bool>& extra) {
    std::u16string text = Asking(u"v");
    for (const bool isQuoted : extra) text += isQuoted ? u" \"\"" : u" w";
    QueryText query(text);
    RC_ASSERT(query.Parse() == extra.empty());
  }));
}

// --- values -----------------------------------------------------------------------------------

struct ValueCase {
  const char* why;
  u32 tag;
  std::u16string value;
  u64 number;
};

TEST(QueryValue, IsReadAsItsTypeTells) {
  constexpr u64 kMost = ~u64{0};
  constexpr u64 kLargest = kMost >> 1;
  const ValueCase cases[] = {
      {"false", ZN_TYPE_BOOLEAN, u"false", 0},
      {"False", ZN_TYPE_BOOLEAN, u"False", 0},
      {"0 is false", ZN_TYPE_BOOLEAN, u"0", 0},
      {"TRUE", ZN_TYPE_BOOLEAN, u"TRUE", 1},
      {"true", ZN_TYPE_BOOLEAN, u"true", 1},
      {"1 is true", ZN_TYPE_BOOLEAN, u"1", 1},
      {"a negative int32", ZN_TYPE_INT32, u"-5", 0xFFFFFFFBu},
      {"a plus sign", ZN_TYPE_INT32, u"+5", 5},
      {"white space in front", ZN_TYPE_INT32, u"\" \t\n\v\f\r5\"", 5},
      {"zeros in front", ZN_TYPE_INT32, u"007", 7},
      {"int32 keeps its low bits", ZN_TYPE_INT32, u"4294967301", 5},
      {"-1 as uint32", ZN_TYPE_UINT32, u"-1", 0xFFFFFFFFu},
      {"uint32 keeps its low bits", ZN_TYPE_UINT32, u"4294967296", 0},
      {"uint32 beyond 64 bits", ZN_TYPE_UINT32, u"99999999999999999999", 0xFFFFFFFFu},
      {"the largest int64", ZN_TYPE_INT64, u"9223372036854775807", kLargest},
      {"int64 beyond", ZN_TYPE_INT64, u"9223372036854775808", kLargest},
      {"the smallest int64", ZN_TYPE_INT64, u"-9223372036854775808", kLargest + 1},
      {"int64 below", ZN_TYPE_INT64, u"-99999999999999999999", kLargest + 1},
      {"a time", ZN_TYPE_TIME, u"-1", kMost},
      {"the largest uint64", ZN_TYPE_UINT64, u"18446744073709551615", kMost},
      {"uint64 beyond", ZN_TYPE_UINT64, u"18446744073709551616", kMost},
      {"-1 as uint64", ZN_TYPE_UINT64, u"-1", kMost},
      {"-2^63-1 as uint64", ZN_TYPE_UINT64, u"-9223372036854775809", kLargest},
      {"an object id is a number", ZN_TYPE_OBJECT_ID, u"258", 258},
      {"a string", ZN_TYPE_STRING, u"1x", 0},
      {"no string", ZN_TYPE_STRING, u"\"\"", 0},
      {"a wide string", ZN_TYPE_WIDESTRING, u"1x", 0},
      {"a guid", ZN_TYPE_GUID, u"{01234567-89ab-CDEF-0123-456789abcdef}", 0},
      {"a guid of any letters", ZN_TYPE_GUID, u"{zzzzzzzz-0000-0000-0000-000000000000}", 0},
  };
  for (const ValueCase& c : cases) {
    SCOPED_TRACE(c.why);
    const std::u16string text = Asking(c.value);
    QueryText query(text);
    ASSERT_TRUE(query.Parse());
    u64 number = 77;
    ASSERT_TRUE(query.ReadValue(c.tag, &number));
    EXPECT_EQ(number, c.number);
  }
}

struct BadValueCase {
  const char* why;
  u32 tag;
  std::u16string value;
  size_t offset;  // in the value as it is written
};

TEST(QueryValue, IsRefusedAtThePlaceWhereItGoesWrong) {
  const BadValueCase cases[] = {
      {"no boolean", ZN_TYPE_BOOLEAN, u"yes", 0},
      {"a boolean of two", ZN_TYPE_BOOLEAN, u"2", 0},
      {"an empty boolean", ZN_TYPE_BOOLEAN, u"", 0},
      // An ess of another alphabet has the capital S, but no locale takes part.
      {"a foreign letter", ZN_TYPE_BOOLEAN, u"FAL\u017fE", 0},
      {"a unit behind the number", ZN_TYPE_UINT32, u"1x", 1},
      {"a blank behind the number", ZN_TYPE_UINT32, u"\"1 \"", 2},
      {"a letter alone", ZN_TYPE_INT32, u"x", 0},
      {"a sign alone", ZN_TYPE_INT32, u"-", 1},
      {"two signs", ZN_TYPE_INT32, u"-+1", 1},
      {"a blank behind the sign", ZN_TYPE_INT64, u"\"- 1\"", 2},
      {"nothing", ZN_TYPE_INT64, u"", 0},
      {"nothing in quotes", ZN_TYPE_TIME, u"\"\"", 2},
      {"white space alone", ZN_TYPE_UINT64, u"\"  \"", 4},
      {"hexadecimal", ZN_TYPE_UINT64, u"0x10", 1},
      {"a fraction", ZN_TYPE_UINT64, u"1.5", 1},
      {"digits of another script", ZN_TYPE_UINT64, u"\u0661", 0},
      {"an id as text", ZN_TYPE_OBJECT_ID, u"{01234567-89ab-cdef-0123-456789abcdef}", 0},
      {"a guid without braces", ZN_TYPE_GUID, u"01234567-89ab-cdef-0123-456789abcdef", 0},
      {"a guid too short", ZN_TYPE_GUID, u"{01234567-89ab-cdef-0123-456789abcdef", 37},
      {"a guid too long", ZN_TYPE_GUID, u"{01234567-89ab-cdef-0123-456789abcdef}}", 38},
      {"a guid without a hyphen", ZN_TYPE_GUID, u"{0123456789ab-cdef-0123-456789abcdef-}", 9},
      {"a sign in a guid", ZN_TYPE_GUID, u"{01234567-89ab-cdef-0123-456789abcd_f}", 35},
      {"a letter of another script", ZN_TYPE_GUID, u"{0123456\u00e4-89ab-cdef-0123-456789abcdef}",
       8},
      {"quotes do not count", ZN_TYPE_GUID, u"\"{\"01234567\"_\"89ab\"", 12},
  };
  for (const BadValueCase& c : cases) {
    SCOPED_TRACE(c.why);
    const std::u16string text = Asking(c.value);
    QueryText query(text);
    ASSERT_TRUE(query.Parse());
    u64 number = 77;
    EXPECT_FALSE(query.ReadValue(c.tag, &number));
    EXPECT_EQ(number, 77u);
    EXPECT_EQ(query.Fault().word, kQueryValueWord);
    EXPECT_EQ(query.Fault().offset, kHead.size() + c.offset);
    const QueryFaultKind expected = c.tag == ZN_TYPE_BOOLEAN ? QueryFaultKind::kNoBoolean
                                    : c.tag == ZN_TYPE_GUID  ? QueryFaultKind::kNoGuid
                                                             : QueryFaultKind::kNoNumber;
    EXPECT_EQ(query.Fault().kind, expected);
  }
}

// What the host's own scan makes of a text, which no locale changes for these forms.
template <typename T>
bool Scan(const std::string& text, const char* form, u64 mask, u64* out) {
  T number = 0;
  char rest = 0;
  if (std::sscanf(text.c_str(), form, &number, &rest) != 1) return false;
  *out = static_cast<u64>(number) & mask;
  return true;
}

bool ScanAs(u32 tag, const std::string& text, u64* out) {
  switch (tag) {
    case ZN_TYPE_INT32:
      return Scan<int>(text, "%d%c", 0xFFFFFFFFu, out);
    case ZN_TYPE_UINT32:
      return Scan<unsigned>(text, "%u%c", 0xFFFFFFFFu, out);
    case ZN_TYPE_UINT64:
    case ZN_TYPE_OBJECT_ID:
      return Scan<unsigned long long>(text, "%llu%c", ~u64{0}, out);
    default:
      return Scan<long long>(text, "%lld%c", ~u64{0}, out);
  }
}

TEST(QueryValue, NumbersAreReadAsTheHostScansThem) {
  EXPECT_TRUE(rc::check("the same number, or refused by both", [] {
    const u32 tag = *rc::gen::element<u32>(ZN_TYPE_INT32, ZN_TYPE_UINT32, ZN_TYPE_INT64,
                                           ZN_TYPE_UINT64, ZN_TYPE_TIME, ZN_TYPE_OBJECT_ID);
    const std::string digits = *rc::gen::container<std::string>(
        rc::gen::weightedElement<char>({{20, '9'}, {20, '0'}, {20, '4'}, {20, '1'}, {1, 'x'}}));
    const std::string head =
        *rc::gen::element<std::string>("", "-", "+", " ", "\t -", "- ", "--", "18446744073709551");
    const std::string value = head + digits;
    const std::u16string text = Asking(u"\"" + std::u16string(value.begin(), value.end()) + u"\"");
    QueryText query(text);
    RC_ASSERT(query.Parse());
    u64 scanned = 0;
    u64 read = 0;
    const bool isScanned = ScanAs(tag, value, &scanned);
    RC_ASSERT(query.ReadValue(tag, &read) == isScanned);
    RC_ASSERT(read == scanned);
  }));
}

}  // namespace

}  // namespace zn::test
