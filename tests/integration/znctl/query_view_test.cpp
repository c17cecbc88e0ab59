// What is said of a bad query, and which columns a table of hits has.
#include "query_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Property Make(const std::string& name, u32 type, Value::Data data, u32 flags = 0) {
  return {name, flags, Value{type, std::move(data)}};
}

PropertyList Declared(const std::string& type) {
  if (type != "Disk" && type != "KELD_Object") return {};
  return {Make("Flag", ZN_TYPE_BOOLEAN, false), Make("Guid", ZN_TYPE_GUID, Id{}),
          Make("Secret", ZN_TYPE_STRING, std::string(), ZN_PROPERTY_HIDDEN),
          Make("Size", ZN_TYPE_UINT64, u64{0}),
          Make("Tags", ZN_TYPE_STRING | ZN_TYPE_ARRAY, Value::List())};
}

std::vector<std::string> Explained(const std::string& text, u32 status = ZNE_INVALID_ARGUMENTS) {
  std::vector<std::string> lines = ExplainQuery(text, status, Declared);
  for (const std::string& line : lines) EXPECT_LE(DisplayWidth(line), 76u) << line;
  return lines;
}

constexpr char kForm[] = "a query is: SELECT FROM <type> WHERE <property> EQ <value>";

TEST(ZnctlQueryFault, NamesTheWordAndMarksItsPlace) {
  EXPECT_THAT(Explained("SELECT FROM Disk when Size EQ 1"),
              ElementsAre("SELECT FROM Disk when Size EQ 1",  //
                          "                 ^",               //
                          "word 4 is \"when\" and must be WHERE, in capitals", kForm));
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Size EQ"),
              ElementsAre("SELECT FROM Disk WHERE Size EQ",  //
                          "                              ^",
                          "the text ends where word 7 should stand: the value", kForm));
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Size"),
              ElementsAre("SELECT FROM Disk WHERE Size",  //
                          "                           ^",
                          "the text ends where word 6 should stand: EQ", kForm));
  EXPECT_THAT(Explained(""),
              ElementsAre("", "^", "the text ends where word 1 should stand: SELECT", kForm));
  EXPECT_THAT(Explained("SELECT  FROM Disk WHERE Size EQ 1"),
              ElementsAre("SELECT  FROM Disk WHERE Size EQ 1",  //
                          "       ^",                           //
                          "word 2 is empty: one blank too many stands here", kForm));
  EXPECT_THAT(
      Explained("SELECT FROM Disk WHERE Name EQ my disk"),
      ElementsAre("SELECT FROM Disk WHERE Name EQ my disk", "                                  ^",
                  "word 8 is one too many; a value with blanks stands in double quotes", kForm));
  EXPECT_THAT(Explained("SELECT FROM \"Disk WHERE Size EQ 1"),
              ElementsAre("SELECT FROM \"Disk WHERE Size EQ 1",  //
                          "            ^",
                          "this double quote is never closed, and all behind it is word 3", kForm));
}

TEST(ZnctlQueryFault, SaysWhatAValueOfTheTypeIs) {
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Size EQ 1x"),
              ElementsAre("SELECT FROM Disk WHERE Size EQ 1x",  //
                          "                                ^",
                          "word 7, the value: \"Size\" is of type uint64, which takes a decimal "
                          "number",
                          "and nothing behind it"));
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Flag EQ yes")[2],
              "word 7, the value: \"Flag\" is of type boolean, which takes TRUE, FALSE, 1 or");
  EXPECT_EQ(Explained("SELECT FROM \"\" WHERE Guid EQ {1}")[1], std::string(31, ' ') + "^");
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Guid EQ x").back(),
              HasSubstr("{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}"));
}

TEST(ZnctlQueryFault, SaysWhatTheBusDoesNotKnow) {
  EXPECT_THAT(Explained("SELECT FROM Dsik WHERE Size EQ 1", ZNE_TYPE_NOT_FOUND),
              ElementsAre("SELECT FROM Dsik WHERE Size EQ 1",  //
                          "            ^",                     //
                          "word 3, the type: there is no type \"Dsik\"",
                          "znctl types shows the types that there are"));
  EXPECT_THAT(
      Explained("SELECT FROM Disk WHERE Sise EQ 1", ZNE_PROPERTY_NOT_FOUND),
      ElementsAre("SELECT FROM Disk WHERE Sise EQ 1",  //
                  "                       ^", "word 5, the property: the type declares no \"Sise\"",
                  "it has: Flag, Guid, Size, Tags"));
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Tags EQ 1", ZNE_QUERY_TYPE_UNSUPPORTED),
              ElementsAre("SELECT FROM Disk WHERE Tags EQ 1",  //
                          "                       ^",
                          "word 5, the property: \"Tags\" is of type array of string, which no "
                          "query can",
                          "ask for"));
}

TEST(ZnctlQueryFault, ShowsThePartOfALongTextAroundTheFault) {
  const std::string name(300, 'n');
  const std::vector<std::string> lines =
      Explained("SELECT FROM " + name + " when " + name + " EQ 1");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(Explained(name + " FROM Disk WHERE Size EQ 1")[2],
            "word 1 is \"" + std::string(29, 'n') + "…\" and must be SELECT, in capitals");
  EXPECT_THAT(lines[0], testing::StartsWith("…nnn"));
  EXPECT_THAT(lines[0], HasSubstr("n when nnn"));
  EXPECT_THAT(lines[0], testing::EndsWith("n…"));
  EXPECT_EQ(lines[1].find('^'), DisplayWidth(lines[0].substr(0, lines[0].find("when"))));
  EXPECT_THAT(Explained(std::string(8193, 'x')).back(),
              "the text has 8193 characters, and 8192 are the most");
}

TEST(ZnctlQueryFault, MarksThePlaceBehindWideAndUnprintableCharacters) {
  const std::vector<std::string> lines = Explained("SELECT FROM 磁盘\x1b when Size EQ 1");
  EXPECT_EQ(lines[0], "SELECT FROM 磁盘\\x1b when Size EQ 1");
  EXPECT_EQ(lines[1], std::string(21, ' ') + "^");
}

TEST(ZnctlQueryFault, IsSilentWhereTheTextIsNotToBlame) {
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Size EQ 1", ZNE_OUT_OF_MEMORY), IsEmpty());
  EXPECT_THAT(Explained("no query", ZNE_OUT_OF_MEMORY), IsEmpty());
  EXPECT_THAT(Explained("SELECT FROM Disk WHERE Size EQ 1"), IsEmpty());
}

// --- columns ----------------------------------------------------------------------------------

TEST(ZnctlQueryColumns, OfOneHitAreItsValues) {
  const PropertyList hit = {Make("Bytes", ZN_TYPE_BINARY, std::vector<u8>{1}),
                            Make("Empty", ZN_TYPE_STRING, std::string()),
                            Make("List", ZN_TYPE_UINT32 | ZN_TYPE_ARRAY, Value::List()),
                            Make("Name", ZN_TYPE_WIDESTRING, std::string("sda")),
                            Make("Secret", ZN_TYPE_UINT32, u64{1}, ZN_PROPERTY_HIDDEN),
                            Make("Serial", ZN_TYPE_STRING, std::string("X"), ZN_PROPERTY_INDEXED),
                            Make("Set", ZN_TYPE_PROPSET, PropertyList()),
                            Make("Size", ZN_TYPE_UINT64, u64{5}),
                            Make("Unseen", ZN_TYPE_UINT32, u64{1}, ZN_PROPERTY_NO_DISPLAY)};
  EXPECT_THAT(QueryColumns({hit}, {}, 1000), ElementsAre("Serial", "Size", "List"));
}

TEST(ZnctlQueryColumns, OfSeveralHitsAreThoseThatTellThemApart) {
  const auto hit = [](u64 size, const char* model) {
    return PropertyList{Make("Model", ZN_TYPE_STRING, std::string(model)),
                        Make("Same", ZN_TYPE_UINT32, u64{1}), Make("Size", ZN_TYPE_UINT64, size)};
  };
  EXPECT_THAT(QueryColumns({hit(1, "a"), hit(2, "a")}, {}, 1000), ElementsAre("Size"));
  EXPECT_THAT(QueryColumns({hit(1, "a"), hit(1, "b")}, {}, 1000), ElementsAre("Model"));
  EXPECT_THAT(QueryColumns({hit(1, "a"), hit(1, "a")}, {}, 1000), IsEmpty());
  PropertyList more = hit(1, "a");
  more.push_back(Make("Wear", ZN_TYPE_UINT32, u64{3}));
  EXPECT_THAT(QueryColumns({hit(1, "a"), more}, {}, 1000), ElementsAre("Wear"));
  EXPECT_THAT(QueryColumns({}, {}, 1000), IsEmpty());
}

TEST(ZnctlQueryColumns, PutBackWhatTheTypeGivesEveryObject) {
  const PropertyList hit = {Make("A", ZN_TYPE_UINT32, u64{0}), Make("B", ZN_TYPE_UINT32, u64{1}),
                            Make("C", ZN_TYPE_UINT32, u64{0}, ZN_PROPERTY_INDEXED)};
  const PropertyList defaults = {Make("A", ZN_TYPE_UINT32, u64{0}),
                                 Make("B", ZN_TYPE_UINT32, u64{0})};
  EXPECT_THAT(QueryColumns({hit}, defaults, 1000), ElementsAre("C", "B", "A"));
}

TEST(ZnctlQueryColumns, TakeTheRoomThatThereIs) {
  const PropertyList hit = {
      Make("Long", ZN_TYPE_STRING, std::string(100, 'x')),  // 24 columns and a gap
      Make("Most", ZN_TYPE_UINT32, u64{1}), Make("Next", ZN_TYPE_UINT32, u64{12345678})};
  EXPECT_THAT(QueryColumns({hit}, {}, 42), ElementsAre("Long", "Most", "Next"));
  EXPECT_THAT(QueryColumns({hit}, {}, 41), ElementsAre("Long", "Most"));
  EXPECT_THAT(QueryColumns({hit}, {}, 25), ElementsAre("Most", "Next"));
  EXPECT_THAT(QueryColumns({hit}, {}, 5), IsEmpty());
}

}  // namespace
}  // namespace zn::ctl
