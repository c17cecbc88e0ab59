// The console end to end: what each verb prints, its JSON, its exit codes and its refusals.
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console_process.h"

namespace zn::ctl {
namespace {

using Json = nlohmann::ordered_json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kInterface[] = "{51d0c0de-0001-4000-8000-000000000001}";

Json JsonFrom(const Finished& finished) {
  EXPECT_EQ(finished.code, 0) << finished.err;
  const Json json = Json::parse(finished.out, nullptr, false);
  EXPECT_FALSE(json.is_discarded()) << finished.out;
  return json;
}

std::vector<std::string> KeysOf(const Json& json) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : json.items()) keys.push_back(key);
  return keys;
}

using Keys = std::vector<std::string>;

class Console : public testing::Test {
 protected:
  Json JsonOf(std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    return JsonFrom(place_.Znctl(std::move(arguments)));
  }

  Workplace place_;
};

TEST_F(Console, ShowsItsHelpWithoutArguments) {
  const Finished finished = place_.Znctl({});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.err, "");
  EXPECT_THAT(finished.out, HasSubstr("Usage: znctl"));
  EXPECT_THAT(finished.out, HasSubstr("znctl --local tree"));
}

TEST_F(Console, ShowsHelpOfEveryVerbWithin80Columns) {
  const std::vector<std::vector<std::string>> verbs = {{},
                                                       {"tree"},
                                                       {"list"},
                                                       {"groups"},
                                                       {"validate"},
                                                       {"show"},
                                                       {"get"},
                                                       {"set"},
                                                       {"query"},
                                                       {"types"},
                                                       {"type"},
                                                       {"providers"},
                                                       {"call"},
                                                       {"refresh"},
                                                       {"watch"},
                                                       {"alerts"},
                                                       {"messages"},
                                                       {"settings"},
                                                       {"settings", "list"},
                                                       {"settings", "get"},
                                                       {"settings", "set"},
                                                       {"settings", "delete"},
                                                       {"settings", "import"},
                                                       {"settings", "export"}};
  for (std::vector<std::string> verb : verbs) {
    const std::string name = verb.empty() ? "znctl" : "znctl " + verb.back();
    verb.emplace_back("--help");
    const Finished finished = place_.Znctl(verb);
    SCOPED_TRACE(name);
    EXPECT_EQ(finished.code, 0);
    EXPECT_THAT(finished.out, HasSubstr("Usage:"));
    std::istringstream lines(finished.out);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
  }
}

TEST_F(Console, ShowsTheTree) {
  const Finished finished = place_.Znctl({"tree", "/bench"});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out,
              ContainsRegex("^bench  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "├─ list  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "├─ loop  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "│  └─ back  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "├─ ticker  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "└─ tray  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   ├─ \\\\x1b\\[31mröd 磁盘  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   ├─ /  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   ├─ a  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   │  ├─ c  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   │  └─ twin  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   ├─ a/b  ZnctlTest_Thing  [0-9a-f]{8}\n"
                            "   └─ twin  ZnctlTest_Thing  [0-9a-f]{8}\n$"));
  const Finished all = place_.Znctl({"tree", "--all"});
  EXPECT_THAT(all.out, HasSubstr("unseen"));
  EXPECT_THAT(place_.Znctl({"tree", "/"}).out, HasSubstr("KELD_SystemGroup"));
}

TEST_F(Console, PrintsTheTreeAsJson) {
  const Json tree = JsonOf({"tree", "/bench/tray/a"});
  EXPECT_EQ(KeysOf(tree), (Keys{"schema", "verb", "objects"}));
  EXPECT_EQ(tree["schema"], 1);
  EXPECT_EQ(tree["verb"], "tree");
  const Json& a = tree["objects"][0];
  EXPECT_EQ(KeysOf(a), (Keys{"id", "type", "name", "hidden", "children"}));
  EXPECT_EQ(a["name"], "a");
  EXPECT_EQ(a["children"][0]["name"], "c");
  EXPECT_EQ(a["children"][1]["name"], "twin");
  EXPECT_EQ(a["children"].size(), 2u);
}

TEST_F(Console, ListsObjects) {
  const Json list = JsonOf({"list", "ZnctlTest_Thing"});
  EXPECT_EQ(KeysOf(list), (Keys{"schema", "verb", "objects"}));
  EXPECT_EQ(list["objects"].size(), 13u);
  EXPECT_EQ(KeysOf(list["objects"][0]), (Keys{"id", "type", "name", "hidden", "path"}));
  EXPECT_EQ(list["objects"][0]["path"], "/bench");
  EXPECT_EQ(JsonOf({"list", "ZnctlTest_Thing", "--all"})["objects"].size(), 14u);
  const Finished text = place_.Znctl({"list", "ZnctlTest_Thing"});
  EXPECT_THAT(text.out, StartsWith("ID"));
  EXPECT_THAT(text.out, HasSubstr("/bench/tray/\"a/b\"\n"));
}

TEST_F(Console, RefusesAnUnknownType) {
  const Finished finished = place_.Znctl({"list", "Nonsense"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_EQ(finished.out, "");
  EXPECT_THAT(finished.err,
              HasSubstr("znctl: there is no type \"Nonsense\": 0xc1000039 ZNE_TYPE_NOT_FOUND: "));
}

TEST_F(Console, ShowsAnObject) {
  const Finished text = place_.Znctl({"show", "/bench/tray/a/b"});
  EXPECT_EQ(text.code, 0) << text.err;
  for (const char* part :
       {"path        /bench/tray/\"a/b\"\n", "type        ZnctlTest_Thing\n", "provider    bench\n",
        "parents     ", "  Big      uint64            18446744073709551615\n",
        "  When     time              2026-01-31 12:00:00\n", "  Raw      binary            00ff\n",
        "  Numbers  array of int32    [1, -2, 3]\n", "  Count    uint32 [indexed]  0\n"}) {
    EXPECT_THAT(text.out, HasSubstr(part));
  }
  EXPECT_THAT(text.out, HasSubstr(std::string("interfaces  ") + kInterface));
  EXPECT_THAT(text.out, Not(HasSubstr("Secret")));
  EXPECT_THAT(place_.Znctl({"show", "a/b", "--all"}).out, HasSubstr("Secret"));
  EXPECT_THAT(place_.Znctl({"show", "list"}).out, HasSubstr("/bench/list"));
}

TEST_F(Console, PrintsAnObjectAsJson) {
  const Json shown = JsonOf({"show", "/bench/tray"});
  const Json& object = shown["object"];
  EXPECT_EQ(KeysOf(object), (Keys{"id", "type", "name", "hidden", "path", "flags", "provider",
                                  "parents", "children", "interfaces", "properties"}));
  EXPECT_EQ(object["children"].size(), 6u);
  EXPECT_EQ(object["interfaces"], Json::array({kInterface}));
  const Json& properties = object["properties"];
  EXPECT_EQ(properties["Big"].dump(),
            R"({"type":"uint64","flags":[],"value":18446744073709551615})");
  EXPECT_EQ(properties["Count"].dump(), R"({"type":"uint32","flags":["indexed"],"value":0})");
  EXPECT_EQ(properties["Flag"]["value"], true);
  EXPECT_EQ(properties["Tags"].dump(),
            R"({"type":"array of string","flags":[],"value":["one","two"]})");
  EXPECT_EQ(properties["Secret"]["flags"], Json::array({"hidden"}));
  EXPECT_EQ(properties["Guid"]["value"], kInterface);
  EXPECT_EQ(properties["When"]["value"], 1769860800);
}

TEST_F(Console, ListsTheCandidatesOfAnAmbiguousName) {
  const Finished finished = place_.Znctl({"show", "twin"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("\"twin\" names 2 objects; give an id or a longer path: "
                                      "0x80070057 ZNE_INVALID_ARGUMENTS: "));
  EXPECT_THAT(finished.err, HasSubstr("  ZnctlTest_Thing  /bench/tray/twin\n"));
  EXPECT_THAT(finished.err, HasSubstr("  ZnctlTest_Thing  /bench/tray/a/twin\n"));
}

TEST_F(Console, TellsWhereAPathEnds) {
  const Finished finished = place_.Znctl({"show", "/bench/tray/zzz"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("there is no \"zzz\" below /bench/tray: 0xc1000010 "
                                      "ZNE_OBJECT_NOT_FOUND: Object not found.\n  it has: "));
}

TEST_F(Console, GetsAProperty) {
  EXPECT_EQ(place_.Znctl({"get", "tray", "Label"}).out, "label\n");
  EXPECT_EQ(place_.Znctl({"get", "tray", "Tags"}).out, "one\ntwo\n");
  EXPECT_EQ(place_.Znctl({"get", "tray", "Raw"}).out, "00ff\n");
  const Json json = JsonOf({"get", "tray", "Numbers"});
  EXPECT_EQ(KeysOf(json), (Keys{"schema", "verb", "id", "property", "type", "flags", "value"}));
  EXPECT_EQ(json["value"], Json::array({1, -2, 3}));
  const Finished missing = place_.Znctl({"get", "tray", "Nonsense"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("znctl: cannot read \"Nonsense\" of /bench/tray: 0xc100000f "
                                     "ZNE_PROPERTY_NOT_FOUND: Property not found.\n  it has: "));
}

TEST_F(Console, SetsAProperty) {
  EXPECT_EQ(place_.Znctl({"set", "tray", "Label", "new text"}).out, "Label: label → new text\n");
  EXPECT_EQ(place_.Znctl({"set", "tray", "Numbers", "[-7]"}).out, "Numbers: [1, -2, 3] → [-7]\n");
  EXPECT_EQ(place_.Znctl({"set", "tray", "Raw", "abcd"}).out, "Raw: 00ff → abcd\n");
  EXPECT_EQ(place_.Znctl({"set", "tray", "Fresh", "-5", "--type", "int64"}).out,
            "Fresh: (none) → -5\n");
  const Json json = JsonOf({"set", "tray", "Count", "7"});
  EXPECT_EQ(KeysOf(json), (Keys{"schema", "verb", "id", "property", "type", "before", "after"}));
  EXPECT_EQ(json["before"], 0);
  EXPECT_EQ(json["after"], 7);
}

TEST_F(Console, RefusesToSetWhatDoesNotFit) {
  const Finished text = place_.Znctl({"set", "tray", "Count", "many"});
  EXPECT_EQ(text.code, 2);
  EXPECT_EQ(text.err, "znctl: \"many\" is not uint32 (a whole number from 0 to 4294967295)\n");
  const Finished type = place_.Znctl({"set", "tray", "Count", "many", "--type", "string"});
  EXPECT_EQ(type.code, 1);
  EXPECT_THAT(type.err, HasSubstr("0x80070057 ZNE_INVALID_ARGUMENTS"));
  const Finished missing = place_.Znctl({"set", "tray", "Nonsense", "1"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("--type TYPE adds it"));
}

TEST_F(Console, ShowsTypes) {
  const Json types = JsonOf({"types"});
  EXPECT_EQ(KeysOf(types), (Keys{"schema", "verb", "types"}));
  const auto ours = std::find_if(types["types"].begin(), types["types"].end(),
                                 [](const Json& row) { return row["name"] == "ZnctlTest_Thing"; });
  ASSERT_NE(ours, types["types"].end());
  EXPECT_EQ(ours->dump(),
            R"({"name":"ZnctlTest_Thing","supertypes":["KELD_Object"],"objects":14})");
  EXPECT_THAT(place_.Znctl({"types", "--all"}).out, HasSubstr("KELD_GenericGroup"));

  const Json type = JsonOf({"type", "ZnctlTest_Thing"})["type"];
  EXPECT_EQ(KeysOf(type),
            (Keys{"name", "supertypes", "subtypes", "interfaces", "objects", "properties"}));
  EXPECT_EQ(type["interfaces"], Json::array({kInterface}));
  EXPECT_EQ(type["properties"]["Count"]["inherited"], false);
  EXPECT_EQ(type["properties"]["Name"]["inherited"], true);
  EXPECT_THAT(place_.Znctl({"type", "ZnctlTest_Thing"}).out, HasSubstr("inherited"));
  const Finished missing = place_.Znctl({"type", "Nonsense"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("ZNE_TYPE_NOT_FOUND"));
}

TEST_F(Console, ShowsGroups) {
  place_.Write("settings.toml", place_.Read("settings.toml") +
                                    "[Groups.things]\nDisplayName = \"Things\"\n"
                                    "Contains = \"ZnctlTest_Thing\"\n");
  const Json groups = JsonOf({"groups"})["groups"];
  const auto things = std::find_if(groups.begin(), groups.end(),
                                   [](const Json& group) { return group["name"] == "Things"; });
  ASSERT_NE(things, groups.end());
  EXPECT_EQ(KeysOf(*things), (Keys{"id", "type", "name", "hidden", "members"}));
  EXPECT_EQ((*things)["members"].size(), 14u);
  EXPECT_THAT(place_.Znctl({"groups"}).out, ContainsRegex("Things  KELD_GenericGroup  +14\n"));
  // An object that only a group holds stands below it.
  EXPECT_THAT(place_.Znctl({"tree"}).out, ContainsRegex("Things  .*\n   └─ bench  "));
  EXPECT_EQ(place_.Znctl({"show", "/Things/bench/tray"}).code, 0);
}

TEST_F(Console, ShowsProvidersAndWarnsOfFailedOnes) {
  place_.Write("settings.toml", place_.Read("settings.toml") +
                                    "[Providers.broken]\nImageFile = \"/nowhere/broken.so\"\n");
  const Finished text = place_.Znctl({"providers"});
  EXPECT_EQ(text.code, 0);
  EXPECT_EQ(text.err, "znctl: warning: the provider \"broken\" failed to load\n");
  EXPECT_THAT(text.out, ContainsRegex("bench   loaded"));
  EXPECT_THAT(text.out, ContainsRegex("broken  failed"));
  EXPECT_THAT(text.out, ContainsRegex("system  built in"));
  const Json json = JsonOf({"providers"});
  EXPECT_EQ(KeysOf(json["providers"][0]), (Keys{"name", "state", "id", "version", "properties"}));
  EXPECT_EQ(json["providers"].size(), 3u);
  EXPECT_EQ(json["providers"][2]["id"], nullptr);
  EXPECT_THAT(place_.Znctl({"providers", "bench"}).out, HasSubstr("ImageFile"));
  EXPECT_EQ(place_.Znctl({"providers", "nobody"}).code, 1);
}

TEST_F(Console, CallsAndEchoesEveryType) {
  const Json json = JsonOf({"call",
                            "tray",
                            "51d0",
                            "1",
                            "1",
                            "b=true",
                            "i:int32=-1",
                            "u=7",
                            "l:int64=-9",
                            "x:uint64=9",
                            "s=text",
                            "w:wide=Été 磁",
                            "r:binary=00ff",
                            "g:guid=01234567-89ab-cdef-0123-456789abcdef",
                            "o={01234567-89ab-cdef-0123-456789abcdef}",
                            "t:time=5",
                            "p={\"in\": 1}",
                            "ab:bool[]=true,false",
                            "as:string[]=p,q",
                            "aw:wide[]=ä,ö",
                            "ai:int64[]=1,-2",
                            "ap:propset[]=[{\"q\": 2}]",
                            "e:string[]="});
  EXPECT_EQ(KeysOf(json), (Keys{"schema", "verb", "object", "interface", "major", "minor",
                                "provider", "task", "result", "output"}));
  EXPECT_EQ(json["provider"], "bench");
  EXPECT_EQ(json["task"], nullptr);
  EXPECT_EQ(json["result"], 0);
  const Json& out = json["output"];
  const std::map<std::string, std::string> expected = {
      {"b", R"({"type":"boolean","flags":[],"value":true})"},
      {"i", R"({"type":"int32","flags":[],"value":-1})"},
      {"u", R"({"type":"uint32","flags":[],"value":7})"},
      {"l", R"({"type":"int64","flags":[],"value":-9})"},
      {"x", R"({"type":"uint64","flags":[],"value":9})"},
      {"s", R"({"type":"string","flags":[],"value":"text"})"},
      {"w", R"({"type":"widestring","flags":[],"value":"Été 磁"})"},
      {"r", R"({"type":"binary","flags":[],"value":"00ff"})"},
      {"g", R"({"type":"guid","flags":[],"value":"{01234567-89ab-cdef-0123-456789abcdef}"})"},
      {"o", R"({"type":"object id","flags":[],"value":"{01234567-89ab-cdef-0123-456789abcdef}"})"},
      {"t", R"({"type":"time","flags":[],"value":5})"},
      {"p",
       R"({"type":"propset","flags":[],"value":{"in":{"type":"uint32","flags":[],"value":1}}})"},
      {"ab", R"({"type":"array of boolean","flags":[],"value":[true,false]})"},
      {"as", R"({"type":"array of string","flags":[],"value":["p","q"]})"},
      {"aw", R"({"type":"array of widestring","flags":[],"value":["ä","ö"]})"},
      {"ai", R"({"type":"array of int64","flags":[],"value":[1,-2]})"},
      {"ap",
       R"({"type":"array of propset","flags":[],"value":[{"q":{"type":"uint32","flags":[],"value":2}}]})"},
      {"e", R"({"type":"array of string","flags":[],"value":[]})"},
  };
  EXPECT_EQ(out.size(), expected.size());
  for (const auto& [name, text] : expected) EXPECT_EQ(out[name].dump(), text) << name;
}

TEST_F(Console, TellsTheStatusOfARefusedCall) {
  const Finished minor = place_.Znctl({"call", "tray", kInterface, "1", "99"});
  EXPECT_EQ(minor.code, 1);
  EXPECT_THAT(minor.err, HasSubstr("0xc1000033 ZNE_INVALID_MINOR_CODE: "));
  const Finished unknown =
      place_.Znctl({"call", "tray", "{00000000-0000-0000-0000-000000000001}", "1", "1"});
  EXPECT_EQ(unknown.code, 1);
  EXPECT_THAT(unknown.err, HasSubstr("0xc100002a ZNE_INTERFACE_NOT_FOUND: "));
  const Finished prefix = place_.Znctl({"call", "tray", "ffff", "1", "1"});
  EXPECT_EQ(prefix.code, 1);
  EXPECT_THAT(prefix.err, HasSubstr(std::string("\n  ") + kInterface));
  const Finished value = place_.Znctl({"call", "tray", kInterface, "1", "1", "x:uint32=-1"});
  EXPECT_EQ(value.code, 2);
  EXPECT_EQ(place_.Znctl({"call", "tray", kInterface, "one", "1"}).code, 2);
}

TEST_F(Console, FollowsATaskToItsOutput) {
  const Json json = JsonOf({"call", "tray", kInterface, "1", "2", "Steps=5", "--async"});
  EXPECT_THAT(json["task"].get<std::string>(), StartsWith("{"));
  EXPECT_EQ(json["output"]["Done"]["value"], 5);
  const Finished text = place_.Znctl({"call", "tray", kInterface, "1", "2", "--async"});
  EXPECT_EQ(text.out, "answered by bench\n  Done  uint32  10\n");
  EXPECT_EQ(text.err, "");  // no bar where no person looks
}

TEST_F(Console, TellsTheStatusOfAFailedTask) {
  const Finished finished = place_.Znctl(
      {"call", "tray", kInterface, "1", "2", "Steps=1", "Result=3238002748", "--async"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("0xc100003c ZNE_TASK_STOPPED: "));
}

TEST_F(Console, Refreshes) {
  EXPECT_EQ(place_.Znctl({"refresh"}).out, "refreshed\n");
  EXPECT_EQ(place_.Znctl({"refresh", "--rescan"}).out, "rescanned\n");
  const Json json = JsonOf({"refresh"});
  EXPECT_EQ(json["verb"], "refresh");
  EXPECT_EQ(json["minor"], 1);
}

TEST_F(Console, NamesTheSettingsFileThatIsMissing) {
  Invocation run;
  run.arguments = {"tree", "--settings", "/nowhere/settings.toml"};
  const Finished finished = place_.Do(run);
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("cannot start the bus in this process: 0xc1000021 "
                                      "ZNE_PROVIDER_GROUP_REG_MISSING: "));
  EXPECT_THAT(finished.err, HasSubstr("/nowhere/settings.toml cannot be read: No such file"));
  EXPECT_THAT(finished.err, HasSubstr("[ProviderGroup]"));
}

TEST_F(Console, TellsTheLineOfAFaultInTheSettings) {
  place_.Write("settings.toml", "[ProviderGroup]\nInstallDir = \n");
  const Finished finished = place_.Znctl({"tree"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, ContainsRegex("has a fault in line 2, column [0-9]+: "));
}

TEST_F(Console, SaysWhatIsMissingInTheSettings) {
  place_.Write("settings.toml", "[ProviderGroup]\n[Providers]\n");
  const Finished finished = place_.Znctl({"tree"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("ZNE_UNEXPECTED"));
  EXPECT_THAT(finished.err, HasSubstr("see that InstallDir is there"));
}

TEST_F(Console, RefusesWrongUsageWithTwo) {
  const std::vector<std::vector<std::string>> wrong = {{"nonsense"},
                                                       {"show"},
                                                       {"get", "tray"},
                                                       {"tree", "--nonsense"},
                                                       {"tree", "a", "b"},
                                                       {"tree", "-d", "0"},
                                                       {"watch", "--for", "x"},
                                                       {"call", "a", "b"},
                                                       {"settings"},
                                                       {"settings", "get"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const Finished finished = place_.Znctl(arguments);
    EXPECT_EQ(finished.code, 2) << arguments.front() << finished.err;
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.err, StartsWith("znctl: "));
  }
}

TEST_F(Console, AsksForLocalWhereNoServerIsNamed) {
  Invocation run;
  run.arguments = {"tree"};
  run.local = false;
  const Finished finished = place_.Do(run);
  EXPECT_EQ(finished.code, 2);
  EXPECT_EQ(
      finished.err,
      "znctl: no bus to work on: -H HOST is that of a server, --local runs one in this process, "
      "with its providers\n");
}

TEST_F(Console, KeepsSettings) {
  EXPECT_EQ(place_.Znctl({"settings", "set", "Providers/x/Period", "500"}).out,
            "Providers/x/Period: (none) → 500\n");
  EXPECT_EQ(place_.Znctl({"settings", "set", "Providers\\x\\Period", "0x10"}).out,
            "Providers\\x\\Period: 500 → 16\n");
  EXPECT_EQ(place_.Znctl({"settings", "set", "Providers/x/List", "a", "b c"}).code, 0);
  EXPECT_EQ(place_.Znctl({"settings", "set", "Providers/x/Raw", "00ff", "-t", "binary"}).code, 0);
  EXPECT_EQ(place_.Znctl({"settings", "set", "Providers/x/Text", "12", "-t", "string"}).code, 0);
  EXPECT_EQ(place_.Znctl({"settings", "get", "Providers/x/Period"}).out, "16\n");
  EXPECT_EQ(place_.Znctl({"settings", "get", "providers/X/list"}).out, "a\nb c\n");
  EXPECT_EQ(place_.Znctl({"settings", "get", "Providers/x/Raw"}).out, "00ff\n");
  const Json list = JsonOf({"settings", "list", "Providers/x"});
  EXPECT_EQ(KeysOf(list), (Keys{"schema", "verb", "file", "settings"}));
  EXPECT_EQ(list["settings"].dump(),
            R"([{"key":"Providers/x","name":"List","type":"list","value":["a","b c"]},)"
            R"({"key":"Providers/x","name":"Period","type":"dword","value":16},)"
            R"({"key":"Providers/x","name":"Raw","type":"binary","value":"00ff"},)"
            R"({"key":"Providers/x","name":"Text","type":"string","value":"12"}])");
  EXPECT_EQ(place_.Znctl({"settings", "delete", "Providers/x/Text"}).code, 0);
  const Finished missing = place_.Znctl({"settings", "get", "Providers/x/Text"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_THAT(missing.err, HasSubstr("there is no setting \"Providers/x/Text\": 0xc100000c "
                                     "ZNE_HASH_LOOKUP_FAILED: "));
  EXPECT_EQ(place_.Znctl({"settings", "list", "Nonsense"}).code, 1);
}

TEST_F(Console, ExportsAndImportsSettings) {
  ASSERT_EQ(place_.Znctl({"settings", "set", "Odd key/Raw", "00ff", "-t", "binary"}).code, 0);
  ASSERT_EQ(place_.Znctl({"settings", "set", "Odd key/List", "-t", "list", "a"}).code, 0);
  const std::string exported = place_.Znctl({"settings", "export"}).out;
  EXPECT_EQ(place_.Znctl({"settings", "export", place_.File("copy.toml")}).code, 0);
  EXPECT_EQ(place_.Read("copy.toml"), exported);
  const Workplace other;
  other.Write("settings.toml", "");
  const Finished imported = other.Znctl({"settings", "import", place_.File("copy.toml")});
  EXPECT_EQ(imported.code, 0) << imported.err;
  EXPECT_THAT(imported.out, HasSubstr("4 settings written to " + other.Settings()));
  EXPECT_EQ(other.Znctl({"settings", "export"}).out, exported);
  EXPECT_EQ(other.Znctl({"tree", "/bench", "--depth", "1"}).code, 0);

  Invocation run;
  run.arguments = {"settings", "import", "-"};
  run.input = "Added = 1\n";
  EXPECT_EQ(place_.Do(run).code, 0);
  EXPECT_EQ(place_.Znctl({"settings", "get", "Added"}).out, "1\n");
  EXPECT_THAT(place_.Znctl({"settings", "export", "-k", "Odd key"}).out,
              StartsWith("['Odd key']\n"));
}

TEST_F(Console, RefusesToImportAFaultyFile) {
  place_.Write("bad.toml", "Good = 1\nBad = 1.5\n");
  const Finished finished = place_.Znctl({"settings", "import", place_.File("bad.toml")});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("bad.toml:2:7: a setting is text"));
  EXPECT_EQ(place_.Znctl({"settings", "get", "Good"}).code, 1);  // nothing was taken over
}

TEST_F(Console, NamesAVerbInItsHelpAsItIsCalled) {
  EXPECT_THAT(place_.Znctl({"--help"}).out, HasSubstr("Usage: znctl [OPTIONS]"));
  EXPECT_THAT(place_.Znctl({"alerts", "--help"}).out, HasSubstr("Usage: znctl alerts [OPTIONS]"));
  EXPECT_THAT(place_.Znctl({"settings", "import", "--help"}).out,
              HasSubstr("Usage: znctl settings import [OPTIONS]"));
}

TEST_F(Console, TakesNothingButAFileForADocumentAndWaitsForNone) {
  const std::string pipe = place_.File("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& file : {pipe, std::string("/dev/zero")}) {
    SCOPED_TRACE(file);
    const std::string fault = file + " is not a regular file";
    const Finished document = place_.Znctl({"validate", file});
    EXPECT_EQ(document.code, 2);
    EXPECT_THAT(document.err, HasSubstr(fault));
    const Finished import = place_.Znctl({"settings", "import", file});
    EXPECT_EQ(import.code, 1);
    EXPECT_THAT(import.err, AllOf(HasSubstr("cannot read " + file), HasSubstr(fault)));
    const Finished list = place_.Znctl({"settings", "list", "--settings", file});
    EXPECT_EQ(list.code, 1);
    EXPECT_THAT(list.err, HasSubstr(file + " is not a regular file"));
    const Finished tree = place_.Znctl({"tree", "--settings", file});
    EXPECT_EQ(tree.code, 1);
    EXPECT_THAT(tree.err, HasSubstr(file + " is not a regular file"));
  }
  EXPECT_THAT(place_.Znctl({"validate", place_.File("")}).err, HasSubstr(" is a folder"));
  EXPECT_THAT(place_.Znctl({"validate", "/nowhere.xml"}).err,
              HasSubstr("there is no file /nowhere.xml"));
  const std::string loop = place_.File("loop");  // nobody may know what it leads to
  std::filesystem::create_symlink(loop, loop);
  EXPECT_THAT(place_.Znctl({"validate", loop}).err,
              HasSubstr(loop + " cannot be read: Too many levels of symbolic links"));
}

TEST_F(Console, ValidatesADocumentWithoutABus) {
  place_.Write("good.xml",
               "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\">\n"
               "<MIRA_FORMALIZATION><OBJECT_TYPE Name=\"A\"><PROPSET/></OBJECT_TYPE>"
               "</MIRA_FORMALIZATION>");
  const Finished finished = place_.Znctl({"validate", place_.File("good.xml")});
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_EQ(finished.err, "");
  EXPECT_EQ(finished.out, place_.File("good.xml") + ": 1 object type, 0 alerts: valid\n");
}

TEST_F(Console, NamesTheFaultsOfADocument) {
  place_.Write("bad.xml",
               "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\">\n"
               "<MIRA_FORMALIZATION>\n<OBJECT_TYPE Name=\"1a\" Flags=\"x\"><PROPSET>\n"
               "<PROPERTY Name=\"P\" Type=\"mira_bool\">no</PROPERTY>"
               "</PROPSET></OBJECT_TYPE></MIRA_FORMALIZATION>");
  const std::string file = place_.File("bad.xml");
  const Finished text = place_.Znctl({"validate", file});
  EXPECT_EQ(text.code, 1);
  EXPECT_THAT(text.out, HasSubstr(file + ":3: error: \"1a\" is no name of a type"));
  EXPECT_THAT(text.out, HasSubstr(file + ":3: warning: \"x\" is neither Hidden nor NoDisplay"));
  EXPECT_THAT(text.out,
              HasSubstr(file + ":4: error: \"P\": \"no\" is not true or false [value]\n"));
  EXPECT_THAT(text.err,
              StartsWith("znctl: " + file + " has 2 faults: 0xc1000042 ZNE_XML_SOURCE_INVALID"));
  const Finished form = place_.Znctl({"validate", file, "--json"});
  EXPECT_EQ(form.code, 1);
  const Json json = Json::parse(form.out, nullptr, false);
  ASSERT_FALSE(json.is_discarded()) << form.out;
  EXPECT_EQ(KeysOf(json),
            (Keys{"schema", "verb", "file", "valid", "objectTypes", "alertTypes", "faults"}));
  EXPECT_EQ(json["valid"], false);
  ASSERT_EQ(json["faults"].size(), 3U);
  EXPECT_EQ(KeysOf(json["faults"][0]), (Keys{"severity", "file", "line", "rule", "text"}));
  EXPECT_EQ(json["faults"][2]["line"], 4);
  EXPECT_EQ(json["faults"][2]["rule"], "value");
  EXPECT_EQ(place_.Znctl({"validate", "/nowhere.xml"}).code, 2);
  EXPECT_EQ(place_.Znctl({"validate"}).code, 2);
}

}  // namespace
}  // namespace zn::ctl
