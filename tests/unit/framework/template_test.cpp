#include "framework/common/fmtstr/template.h"

#include <map>

#include <gtest/gtest.h>

#include "support/common/status.h"

namespace zn {
namespace {

class TestInsertions final : public InsertionSource {
 public:
  std::map<u32, std::u16string> texts = {{1, u"one"}, {2, u"two"}, {3, u"three"}};
  [[nodiscard]] u32 Append(u32 index, std::u16string* out) override {
    ++asked;
    const auto found = texts.find(index);
    if (found == texts.end()) return ZNE_PROPERTY_NOT_FOUND;
    out->append(found->second);
    return ZN_OK;
  }
  int asked = 0;
};

struct ExpansionCase {
  const char* why;
  const char16_t* text;
  const char16_t* expanded;
};

constexpr ExpansionCase kExpansions[] = {
    {"a text without a place stays", u"plain text", u"plain text"},
    {"the empty text", u"", u""},
    {"a place", u"%1", u"one"},
    {"a place in braces", u"<%{2}>", u"<two>"},
    {"the order of the template counts", u"%3 of %1", u"three of one"},
    {"an index may come twice", u"%1, %1", u"one, one"},
    {"the longest run of digits", u"%0001x", u"onex"},
    {"two percent signs are one", u"100%%", u"100%"},
    {"a percent sign and a place", u"%%%1", u"%one"},
    {"a percent sign in front of a digit is no place", u"%%1", u"%1"},
    {"three pairs", u"%%%%%%", u"%%%"},
    {"characters beyond the first plane", u"\U0001F4BE %1 \u00e9", u"\U0001F4BE one \u00e9"},
};

TEST(Template, PutsTheInsertionsInTheirPlaces) {
  for (const ExpansionCase& c : kExpansions) {
    SCOPED_TRACE(c.why);
    TestInsertions insertions;
    std::u16string out;
    EXPECT_EQ(ExpandTemplate(c.text, insertions, &out), ZN_OK);
    EXPECT_EQ(out, c.expanded);
  }
}

constexpr ExpansionCase kMalformed[] = {
    {"index 0", u"a %0 b", u""},
    {"index 0 in braces", u"a %{0} b", u""},
    {"no digits", u"%1 a %x b", u"one"},
    {"a percent sign and a blank", u"%1 a % b", u"one"},
    {"a percent sign at the end", u"%1 a %", u"one"},
    {"letters in the braces", u"%1%{x}", u"one"},
    {"letters behind the digits in the braces", u"%1%{2x}", u"one"},
    {"a blank in the braces", u"%1%{ 2}", u"one"},
    {"empty braces", u"%1%{}", u"one"},
    {"an open brace", u"%1%{2", u"one"},
    {"an open brace at the end", u"%1%{", u"one"},
    {"a pair inside a pair is skipped with it", u"%1%{a%{2}b}%3", u"one"},
    {"a pair alone inside a pair", u"%1%{%{2}}", u"one"},
    {"the percent signs so far are collapsed", u"50%% of %1%{x}", u"50% of one"},
};

TEST(Template, AMalformedPlaceEndsTheTextBehindTheLastGoodOne) {
  for (const ExpansionCase& c : kMalformed) {
    SCOPED_TRACE(c.why);
    TestInsertions insertions;
    std::u16string out = u"before";
    EXPECT_EQ(ExpandTemplate(c.text, insertions, &out), ZN_OK);
    EXPECT_EQ(out, c.expanded);
  }
}

TEST(Template, PercentSignsOfAnInsertionAreCollapsedToo) {
  TestInsertions insertions;
  insertions.texts = {{1, u"50%%"}, {2, u"%"}};
  std::u16string out;
  ASSERT_EQ(ExpandTemplate(u"%1 and %2%%", insertions, &out), ZN_OK);
  EXPECT_EQ(out, u"50% and %%");
}

TEST(Template, AnInsertionIsNotExpandedAgain) {
  TestInsertions insertions;
  insertions.texts = {{1, u"%2"}, {2, u"two"}};
  std::u16string out;
  ASSERT_EQ(ExpandTemplate(u"%1 %2", insertions, &out), ZN_OK);
  EXPECT_EQ(out, u"%2 two");
}

TEST(Template, AMissingInsertionEndsWithItsStatusAndWritesNothing) {
  TestInsertions insertions;
  std::u16string out = u"before";
  EXPECT_EQ(ExpandTemplate(u"%1 %4", insertions, &out), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(out, u"before");
}

TEST(Template, ANumberBeyondThirtyTwoBitsIsTheLargest) {
  Specifier place;
  ASSERT_EQ(FindSpecifier(u"%99999999999999999999999", 0, &place), SpecifierScan::kFound);
  EXPECT_EQ(place.index, 0xFFFFFFFFu);
}

TEST(Template, ScansFromAPlaceOn) {
  Specifier place;
  const std::u16string_view text = u"%1 %% %{22} %3";
  ASSERT_EQ(FindSpecifier(text, 1, &place), SpecifierScan::kFound);
  EXPECT_EQ(place.begin, 6u);
  EXPECT_EQ(place.end, 11u);
  EXPECT_EQ(place.index, 22u);
  EXPECT_EQ(FindSpecifier(u"a %% b", 0, &place), SpecifierScan::kNone);
  EXPECT_EQ(FindSpecifier(u"a %z", 0, &place), SpecifierScan::kMalformed);
}

TEST(Template, AResultBeyondTheBoundIsRefused) {
  TestInsertions insertions;
  insertions.texts = {{1, std::u16string(kMaxExpandedUnits / 2, u'x')}};
  std::u16string text;
  for (int i = 0; i < 500; ++i) text += u"%1";
  std::u16string out;
  EXPECT_EQ(ExpandTemplate(text, insertions, &out), ZNE_OUT_OF_MEMORY);
  EXPECT_EQ(insertions.asked, 3) << "no more is built than the bound allows";
}

}  // namespace
}  // namespace zn
