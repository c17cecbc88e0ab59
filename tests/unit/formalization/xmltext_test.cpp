#include "framework/common/znxml_dom_processor/xmltext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zn/formalization.h"
#include "zn/status.h"

namespace zn::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct TokenCase {
  const char* why;
  const char* text;
  std::vector<std::string> tokens;
};

const TokenCase kTokenCases[] = {
    {"a separator ends a token", "A,B", {"A", "B"}},
    {"white space behind a separator is skipped", "A, B", {"A", "B"}},
    {"white space separates too", "A B", {"A", "B"}},
    {"all white space of the C locale", "A\t\n\v\f\rB", {"A", "B"}},
    {"white space, then a separator: a token of nothing", "A , B", {"A", "", "B"}},
    {"two separators: a token of nothing", "A,,B", {"A", "", "B"}},
    {"a separator in front", ",A", {"", "A"}},
    {"a separator at the end ends nothing more", "A,", {"A"}},
    {"white space around", "  A  ", {"A"}},
    {"nothing", "", {}},
    {"only white space", " \n ", {}},
    {"a quoted token keeps what it is", "\"a , b\"", {"a , b"}},
    {"a backslash takes the next character", R"("a\"b")", {"a\"b"}},
    {"a backslash of its own", R"("a\\b")", {"a\\b"}},
    {"a backslash outside quotes is a character", R"(a\,b)", {"a\\", "b"}},
    {"a quote ends the token before it", "a\"b\"", {"a", "b"}},
    {"one separator goes with a quoted token", "\"a\" , b", {"a", "b"}},
    {"the second separator does not", "\"a\",,b", {"a", "", "b"}},
    {"an empty quoted token", "\"\"", {""}},
    {"a quote that stays open", "\"a, b", {"a, b"}},
    {"a backslash at the end of an open quote", "\"a\\", {"a\\"}},
    {"bytes of UTF-8 are characters", "\xC3\xBC,\xC3\xA4", {"\xC3\xBC", "\xC3\xA4"}},
};

TEST(XmlTokenizer, FollowsTheRules) {
  for (const TokenCase& c : kTokenCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(XmlTokens(c.text, ',', '"'), c.tokens);
  }
}

TEST(XmlTokenizer, WorksAsAnExport) {
  XMLTokenizer* tokenizer = nullptr;
  ASSERT_EQ(CreateXMLTokenizer(&tokenizer, ',', '"'), ZN_OK);
  EXPECT_EQ(tokenizer->mode, 1);
  EXPECT_EQ(tokenizer->separator, ',');
  EXPECT_EQ(tokenizer->quote, '"');
  for (const TokenCase& c : kTokenCases) {
    SCOPED_TRACE(c.why);
    StringVector tokens;
    EXPECT_EQ(XMLTokenizer_Tokenize(tokenizer, c.text, &tokens), ZN_OK);
    EXPECT_EQ(tokens, c.tokens);
  }
  EXPECT_EQ(DeleteXMLTokenizer(tokenizer), ZN_OK);
}

TEST(XmlTokenizer, AppendsToWhatIsThere) {
  XMLTokenizer* tokenizer = nullptr;
  ASSERT_EQ(CreateXMLTokenizer(&tokenizer, ';', '\''), ZN_OK);
  StringVector tokens{"x"};
  EXPECT_EQ(XMLTokenizer_Tokenize(tokenizer, "'a b';c", &tokens), ZN_OK);
  EXPECT_THAT(tokens, ElementsAre("x", "a b", "c"));
  EXPECT_EQ(DeleteXMLTokenizer(tokenizer), ZN_OK);
}

TEST(XmlTokenizer, OfAnotherModeLeavesSeparatorsInTheTokens) {
  XMLTokenizer tokenizer{0, ',', '"'};
  StringVector tokens;
  EXPECT_EQ(XMLTokenizer_Tokenize(&tokenizer, "a,b c", &tokens), ZN_OK);
  EXPECT_THAT(tokens, ElementsAre("a,b", "c"));
}

TEST(XmlTokenizer, RefusesBadPointers) {
  XMLTokenizer tokenizer{1, ',', '"'};
  StringVector tokens;
  auto* bad = reinterpret_cast<XMLTokenizer*>(std::uintptr_t{16});
  EXPECT_EQ(CreateXMLTokenizer(nullptr, ',', '"'), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(XMLTokenizer_Tokenize(nullptr, "a", &tokens), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(XMLTokenizer_Tokenize(&tokenizer, "a", nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DeleteXMLTokenizer(bad), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DeleteXMLTokenizer(nullptr), ZN_OK);
  EXPECT_EQ(XMLTokenizer_TrimString(nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(tokens, IsEmpty());
}

TEST(XmlTrim, TakesWhiteSpaceOffBothEnds) {
  for (const auto& [text, trimmed] :
       std::vector<std::pair<std::string, std::string>>{{" \t\n\v\f\ra b\r ", "a b"},
                                                        {"   ", ""},
                                                        {"", ""},
                                                        {"a", "a"},
                                                        {"\xC2\xA0", "\xC2\xA0"}}) {
    std::string changed = text;
    EXPECT_EQ(XMLTokenizer_TrimString(&changed), ZN_OK);
    EXPECT_EQ(changed, trimmed);
  }
}

TEST(PropertyFlags, AreTheSumOfTheirWords) {
  const struct {
    const char* text;
    u32 flags;
  } cases[] = {
      {"", 0},
      {"Hidden", 1},
      {"NoDisplay", 2},
      {"RemoteOnly", 4},
      {"Indexed", 8},
      {"Hidden|NoDisplay|RemoteOnly|Indexed", 15},
      {" Hidden | Indexed ", 0},  // the blank before the bar makes a word of nothing
      {"Hidden| Indexed", 9},
      {"Hidden|Hidden", 2},  // the same as NoDisplay
      {"Hidden|Secret", 0},
      {"Secret|Hidden", 0},
      {"hidden", 0},
      {"\"Hidden\"|\"Indexed\"", 9},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(PropertyFlagsOf(c.text), c.flags);
  }
}

TEST(TypeFlags, AreOneWord) {
  const struct {
    const char* text;
    bool has;
    u32 flags;
  } cases[] = {{"Hidden", true, 1},
               {" NoDisplay\n", true, 2},
               {"", false, 7},
               {"Other", false, 7},
               {"Hidden|NoDisplay", false, 7}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    u32 flags = 7;
    EXPECT_EQ(TypeFlagsOf(c.text, &flags), c.has);
    EXPECT_EQ(flags, c.flags);
  }
}

}  // namespace
}  // namespace zn::test
