#include "framework/common/znalert/places.h"

#include <string>

#include <gtest/gtest.h>

#include "support/common/status.h"

namespace zn {
namespace {

struct PlaceCase {
  const char* text;
  u32 count;
};

TEST(AlertPlaces, AreOneToNEachOnceInAnyOrder) {
  constexpr PlaceCase kCases[] = {
      {"", 0},     {"no places", 0}, {"%1", 1},       {"%2 then %1", 2},        {"100%%", 0},
      {"%%1", 0},  {"%%%1", 1},      {"%{1}", 1},     {"%1%2%{3}", 3},          {"{1} 2 } { %1", 1},
      {"%001", 1}, {"%{2}%{01}", 2}, {"%1\n%2\t", 2}, {"%1 12345678901234", 1}, {"%%%%%1", 1},
  };
  for (const PlaceCase& c : kCases) {
    SCOPED_TRACE(c.text);
    u32 count = 99;
    EXPECT_EQ(CountPlaces(c.text, &count), ZN_OK);
    EXPECT_EQ(count, c.count);
  }
}

TEST(AlertPlaces, RefuseGapsRepeatsAndWhatIsNoPlace) {
  for (const char* text :
       {"%1 %1", "%2",  "%1 %3", "%0",   "%{0}",     "%65",    "%{65}", "%99999999999",
        "%x",    "% 1", "%",     "%1 %", "%{",       "%{x}",   "%{1",   "%{1x}",
        "%{1 }", "%{}", "%{%1}", "%}",   "%{1}%{1}", "%1%{01}"}) {
    SCOPED_TRACE(text);
    u32 count = 99;
    EXPECT_EQ(CountPlaces(text, &count), ZNE_INSERTION_FORMAT_INVALID);
    EXPECT_EQ(count, 99u);
  }
}

TEST(AlertPlaces, ThreeInBracesCountsAsThree) {
  u32 count = 0;
  EXPECT_EQ(CountPlaces("%{3}", &count), ZNE_INSERTION_FORMAT_INVALID) << "1 and 2 are missing";
  EXPECT_EQ(CountPlaces("%1 %2 %{3}", &count), ZN_OK);
  EXPECT_EQ(count, 3u);
}

TEST(AlertPlaces, AreSixtyFourAtMost) {
  std::string text;
  for (int i = 1; i <= 64; ++i) text += "%" + std::to_string(i) + " ";
  u32 count = 0;
  EXPECT_EQ(CountPlaces(text, &count), ZN_OK);
  EXPECT_EQ(count, 64u);
  EXPECT_EQ(CountPlaces(text + "%65", &count), ZNE_INSERTION_FORMAT_INVALID);
}

TEST(AlertPlaces, ARunOfMoreThan1024DigitsIsRefusedWhereverItStands) {
  u32 count = 0;
  EXPECT_EQ(CountPlaces(std::string(1024, '7'), &count), ZN_OK);
  EXPECT_EQ(CountPlaces(std::string(1025, '7'), &count), ZNE_INSERTION_FORMAT_INVALID);
  EXPECT_EQ(CountPlaces("%" + std::string(1023, '0') + "1", &count), ZN_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(CountPlaces("%" + std::string(1024, '0') + "1", &count), ZNE_INSERTION_FORMAT_INVALID);
}

TEST(AlertPlaces, ATextEndsAtItsFirstZero) {
  u32 count = 0;
  EXPECT_EQ(CountPlaces(std::string_view("%1\0%1", 5), &count), ZN_OK);
  EXPECT_EQ(count, 1u);
}

TEST(AlertPlaces, ATokenOfNoKnownKindIsSaidToBeABugAndRefused) {
  PlaceParser parser;
  ASSERT_EQ(parser.Take(PlaceToken::kPercent), ZN_OK);
  testing::internal::CaptureStdout();
  const u32 status = parser.Take(static_cast<PlaceToken>(99));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Bug in the GetNextToken\n");
  EXPECT_EQ(status, ZNE_INSERTION_FORMAT_INVALID);
}

}  // namespace
}  // namespace zn
