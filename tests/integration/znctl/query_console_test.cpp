// znctl query as a user's process: hits, JSON, exit codes, and what it says of a bad query.
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console_process.h"

namespace zn::ctl {
namespace {

using Json = nlohmann::ordered_json;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class ConsoleQuery : public testing::Test {
 protected:
  Workplace place_;
};

TEST_F(ConsoleQuery, ShowsTheHitsAndTheirPropertiesInATableOf80Columns) {
  Invocation run;
  run.arguments = {"query", "SELECT FROM ZnctlTest_Thing WHERE Name EQ a/b"};
  run.environment = {{"COLUMNS", "80"}};
  const Finished finished = place_.Do(run);
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_EQ(finished.err, "");
  // The searchable property first, and no bytes, hidden ones or names.
  EXPECT_THAT(finished.out, ContainsRegex("^ID        PATH               Count +Big  "));
  EXPECT_THAT(finished.out,
              ContainsRegex("\n[0-9a-f]{8}  /bench/tray/\"a/b\"      0  18446744073709551615 "));
  EXPECT_THAT(finished.out, Not(HasSubstr("Raw")));
  EXPECT_THAT(finished.out, Not(HasSubstr("Secret")));
  std::istringstream lines(finished.out);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
}

TEST_F(ConsoleQuery, FindsNothingWithSuccess) {
  const Finished finished =
      place_.Znctl({"query", "SELECT FROM ZnctlTest_Thing WHERE Label EQ none"});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.out, "no objects\n");
}

// The ticker's count may have risen by then, which makes it a column.
TEST_F(ConsoleQuery, LeavesOutWhatTellsNoHitsApartAndWhatIsHidden) {
  const Finished finished =
      place_.Znctl({"query", "SELECT FROM ZnctlTest_Thing WHERE Label EQ label"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out, HasSubstr("/bench/tray/twin"));
  EXPECT_THAT(finished.out, Not(HasSubstr("Label")));
  EXPECT_THAT(finished.out, Not(HasSubstr("unseen")));
  EXPECT_THAT(
      place_.Znctl({"query", "SELECT FROM ZnctlTest_Thing WHERE Label EQ label", "--all"}).out,
      HasSubstr("/bench/tray/unseen"));
}

TEST_F(ConsoleQuery, ShowsTheTypeWhereHitsAreOfSeveral) {
  const Finished finished = place_.Znctl({"query", "SELECT FROM KELD_Object WHERE State EQ 0"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out, ContainsRegex("^ID +PATH +TYPE"));
  EXPECT_THAT(finished.out, HasSubstr("KELD_SystemGroup"));
  EXPECT_THAT(finished.out, HasSubstr("ZnctlTest_Thing"));
}

TEST_F(ConsoleQuery, PrintsTheHitsAsJson) {
  const std::string text = "SELECT FROM ZnctlTest_Thing WHERE Name EQ twin";
  const Finished finished = place_.Znctl({"query", text, "--json"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  const Json json = Json::parse(finished.out, nullptr, false);
  ASSERT_FALSE(json.is_discarded()) << finished.out;
  EXPECT_EQ(json["schema"], 1);
  EXPECT_EQ(json["verb"], "query");
  EXPECT_EQ(json["query"], text);
  ASSERT_EQ(json["objects"].size(), 2u);
  const Json& first = json["objects"][0];
  std::vector<std::string> keys;
  for (const auto& [key, value] : first.items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"id", "type", "name", "hidden", "path", "properties"}));
  EXPECT_EQ(first["path"], "/bench/tray/a/twin");
  EXPECT_EQ(json["objects"][1]["path"], "/bench/tray/twin");
  EXPECT_EQ(first["properties"]["Count"]["value"], 0);
}

struct BadQuery {
  const char* text;
  const char* err;
};

TEST_F(ConsoleQuery, SaysWhatIsWrongAndEndsWithOne) {
  const BadQuery rows[] = {
      {"select FROM ZnctlTest_Thing WHERE Count EQ 1",
       "znctl: the query cannot be answered: 0x80070057 ZNE_INVALID_ARGUMENTS: Invalid arguments.\n"
       "  select FROM ZnctlTest_Thing WHERE Count EQ 1\n"
       "  ^\n"
       "  word 1 is \"select\" and must be SELECT, in capitals\n"
       "  a query is: SELECT FROM <type> WHERE <property> EQ <value>\n"},
      {"SELECT FROM ZnctlTest_Thing WHERE Count EQ 1x",
       "  SELECT FROM ZnctlTest_Thing WHERE Count EQ 1x\n"
       "                                              ^\n"
       "  word 7, the value: \"Count\" is of type uint32, which takes a decimal number\n"
       "  and nothing behind it\n"},
      {"SELECT FROM Nonsense WHERE Count EQ 1", "0xc1000039 ZNE_TYPE_NOT_FOUND: "},
      {"SELECT FROM Nonsense WHERE Count EQ 1",
       "              ^\n  word 3, the type: there is no type \"Nonsense\"\n"},
      {"SELECT FROM KELD_Object WHERE Count EQ 1",
       "  word 5, the property: the type declares no \"Count\"\n  it has: Name, State\n"},
      {"SELECT FROM ZnctlTest_Thing WHERE Tags EQ one", "ZNE_QUERY_TYPE_UNSUPPORTED: "},
      {"SELECT FROM ZnctlTest_Thing WHERE Tags EQ one",
       "\"Tags\" is of type array of string, which no query can"},
  };
  for (const BadQuery& row : rows) {
    SCOPED_TRACE(row.text);
    const Finished finished = place_.Znctl({"query", row.text});
    EXPECT_EQ(finished.code, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.err, HasSubstr(row.err));
  }
}

TEST_F(ConsoleQuery, WantsTheTextAsOneArgument) {
  EXPECT_EQ(place_.Znctl({"query"}).code, 2);
  EXPECT_EQ(place_.Znctl({"query", "SELECT", "FROM", "KELD_Object"}).code, 2);
}

}  // namespace
}  // namespace zn::ctl
