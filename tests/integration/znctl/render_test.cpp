// Drawing: trees, tables, property lists and bars at given widths.
#include "render.h"

#include <sstream>

#include <gtest/gtest.h>

#include "fake_source.h"
#include "text.h"

namespace zn::ctl {
namespace {

Terminal Screen(size_t width, bool unicode = true) {
  Terminal terminal;
  terminal.width = width;
  terminal.unicode = unicode;
  return terminal;
}

void ExpectLinesWithin(const std::string& text, size_t width) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(DisplayWidth(line), width) << line;
}

TEST(ZnctlTree, IsDrawnWithLines) {
  FakeMachine m;
  const Forest forest = BuildForest(m, false);
  EXPECT_EQ(RenderTree(Screen(0), m, forest, {}),
            "box  Host  10000000\n"
            "└─ sda  Disk  20000000\n"
            "   ├─ sda1  Partition  30000001\n"
            "   │  └─ /  FileSystem  40000000\n"
            "   ├─ sda2  Partition  30000002\n"
            "   │  └─ /home  FileSystem  40000001\n"
            "   └─ sda10  Partition  30000010\n"
            "box  KELD_SystemGroup  a0000000  (2 members)\n"
            "└─ Disks  KELD_GenericGroup  a0000001  (1 member)\n");
}

TEST(ZnctlTree, IsDrawnInAsciiWhereTheLocaleIs) {
  FakeMachine m;
  const std::string text = RenderTree(Screen(0, false), m, BuildForest(m, false, m.disk), {});
  EXPECT_EQ(text,
            "sda  Disk  20000000\n"
            "|- sda1  Partition  30000001\n"
            "|  `- /  FileSystem  40000000\n"
            "|- sda2  Partition  30000002\n"
            "|  `- /home  FileSystem  40000001\n"
            "`- sda10  Partition  30000010\n");
}

TEST(ZnctlTree, StopsAtTheDepthAskedFor) {
  FakeMachine m;
  TreeOptions options;
  options.depth = 2;
  EXPECT_EQ(RenderTree(Screen(0), m, BuildForest(m, false, m.host), options),
            "box  Host  10000000\n"
            "└─ sda  Disk  20000000  (3 below)\n");
}

TEST(ZnctlTree, FitsTheTerminal) {
  FakeSource source;
  const Id id =
      source.Add(std::string(60, 'x') + "磁盘磁盘磁盘磁盘磁盘", "SomeRatherLongTypeName", 1);
  source.Relate(id, source.Add("\033[2J", "T", 2));
  const std::string text = RenderTree(Screen(60), source, BuildForest(source, false), {});
  ExpectLinesWithin(text, 60);
  EXPECT_EQ(text.find('\033'), std::string::npos);
  EXPECT_NE(text.find("…  SomeRatherLongTypeName  00000001"), std::string::npos) << text;
}

TEST(ZnctlTable, ShrinksWhatMayShrink) {
  const std::vector<Column> columns = {
      {"ID"}, {"PATH", Style::kPlain, true}, {"COUNT", Style::kPlain, false, true}};
  const std::vector<std::vector<std::string>> rows = {{"12345678", std::string(200, 'p'), "7"},
                                                      {"1", "short", "12345"}};
  const std::string cut = RenderTable(Screen(40), columns, rows, "none");
  ExpectLinesWithin(cut, 40);
  EXPECT_EQ(cut,
            "ID        PATH                     COUNT\n"
            "12345678  pppppppppppppppppppppp…      7\n"
            "1         short                    12345\n");
  const std::string whole = RenderTable(Screen(0), columns, rows, "none");
  EXPECT_NE(whole.find(std::string(200, 'p')), std::string::npos);
  EXPECT_EQ(RenderTable(Screen(40), columns, {}, "none"), "none\n");
}

TEST(ZnctlProperties, WrapLongValues) {
  PropertyList list = {ParseArgument("Name=short"),
                       ParseArgument("Text=one two three four five six seven eight nine ten")};
  const std::string text = RenderProperties(Screen(50), list, "  ", false);
  ExpectLinesWithin(text, 50);
  EXPECT_EQ(text,
            "  Name  string  short\n"
            "  Text  string  one two three four five six seven\n"
            "                eight nine ten\n");
}

TEST(ZnctlProperties, PutListsAndSetsOneItemToALine) {
  PropertyList list = {ParseArgument("Few=[a, b]"),
                       ParseArgument("Many:string[]=first item,second item,third item"),
                       ParseArgument("Set={\"a\": 1, \"b\": \"x\"}")};
  EXPECT_EQ(RenderProperties(Screen(50), list, "", false),
            "Few   array of string  [a, b]\n"
            "Many  array of string  first item\n"
            "                       second item\n"
            "                       third item\n"
            "Set   propset          a = 1\n"
            "                       b = x\n");
}

TEST(ZnctlProperties, HideTheHiddenUnlessAsked) {
  PropertyList list = {ParseArgument("Shown=1"), ParseArgument("Hidden=2")};
  list[1].flags = ZN_PROPERTY_HIDDEN | ZN_PROPERTY_INDEXED;
  EXPECT_EQ(RenderProperties(Screen(0), list, "", false), "Shown  uint32  1\n");
  EXPECT_EQ(RenderProperties(Screen(0), list, "", true),
            "Shown   uint32                    1\n"
            "Hidden  uint32 [hidden, indexed]  2\n");
}

TEST(ZnctlProperties, GiveTheValueALineWhereNamesLeaveNoRoom) {
  PropertyList list = {ParseArgument(std::string(30, 'n') + "=value")};
  const std::string text = RenderProperties(Screen(45), list, "", false);
  EXPECT_EQ(text, std::string(30, 'n') + "  string\n    value\n");
}

TEST(ZnctlColour, IsAbsentUnlessAskedFor) {
  Terminal terminal = Screen(0);
  EXPECT_EQ(Styled(terminal, Style::kName, "x"), "x");
  terminal.colour = true;
  EXPECT_EQ(Styled(terminal, Style::kName, "x"), "\033[1;36mx\033[0m");
  EXPECT_EQ(Styled(terminal, Style::kPlain, "x"), "x");
}

TEST(ZnctlBar, FillsWithThePercent) {
  EXPECT_EQ(BarLine("work", 0, 30, false), "work [.................]   0%");
  EXPECT_EQ(BarLine("work", 50, 30, false), "work [########.........]  50%");
  EXPECT_EQ(BarLine("work", 100, 30, false), "work [#################] 100%");
  EXPECT_EQ(BarLine("work", 250, 30, false), "work [#################] 100%");
  EXPECT_EQ(BarLine("work", 50, 10, false), "50%");
  EXPECT_LT(DisplayWidth(BarLine(std::string(200, 'x'), 50, 80, true)), 80u);
}

}  // namespace
}  // namespace zn::ctl
