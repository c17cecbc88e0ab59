// Settings as a tree and as TOML.
#include "settings_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"

namespace zn::ctl {
namespace {

using testing::HasSubstr;

constexpr char kSample[] =
    "InstallDir = '/opt/znmira'\n"
    "Flags = 4294967295\n"
    "\n"
    "[ProviderGroup]\n"
    "\n"
    "[Providers]\n"
    "\n"
    "    [Providers.'odd name']\n"
    "    List = [ 'a', 'b' ]\n"
    "    Raw = { binary = '00ff' }\n";

TEST(ZnctlSettings, ReadAndWriteTheFormOfTheSettingsFile) {
  const SettingsKey tree = ParseToml(kSample, "sample.toml");
  ASSERT_EQ(tree.values.size(), 2u);
  ASSERT_EQ(tree.keys.size(), 2u);
  EXPECT_EQ(tree.keys[0].name, "ProviderGroup");
  const SettingsKey& odd = tree.keys[1].keys.at(0);
  EXPECT_EQ(odd.name, "odd name");
  EXPECT_EQ(std::get<std::vector<std::string>>(odd.values.at(0).data),
            (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(std::get<std::vector<u8>>(odd.values.at(1).data), (std::vector<u8>{0, 0xFF}));
  const std::string written = ToToml(tree);
  EXPECT_EQ(ToToml(ParseToml(written, "again.toml")), written);
  for (const char* part : {"InstallDir = ", "4294967295", "[ProviderGroup]", "binary = '00ff'"}) {
    EXPECT_THAT(written, HasSubstr(part));
  }
}

TEST(ZnctlSettings, NameThePlaceOfAFault) {
  struct Case {
    const char* text;
    const char* message;
  };
  const Case cases[] = {
      {"a = 1\nb = -1\n", "f.toml:2:5: a number must be from 0 to 4294967295"},
      {"b = 4294967296\n", "f.toml:1:5: a number must be from 0 to 4294967295"},
      {"b = 1.5\n", "f.toml:1:5: a setting is text"},
      {"b = [1]\n", "f.toml:1:6: an array of settings holds texts only"},
      {"b = { binary = \"0\" }\n", "f.toml:1:16: binary takes an even number"},
      {"[\"a/b\"]\n", "\"a/b\" is no name of a setting"},
      {"a = \n", "f.toml:1:"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      ParseToml(c.text, "f.toml");
      ADD_FAILURE() << "not refused";
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), HasSubstr(c.message));
    }
  }
}

TEST(ZnctlSettings, TakeBothSeparatorsInPaths) {
  for (const char* text : {"Providers/x/Image", "Providers\\x\\Image", "/Providers/x\\Image"}) {
    EXPECT_EQ(ParseSettingPath(text).key, "Providers/x");
    EXPECT_EQ(ParseSettingPath(text).name, "Image");
  }
  EXPECT_EQ(ParseSettingPath("InstallDir").key, "");
  EXPECT_THROW(ParseSettingPath(""), UsageError);
  EXPECT_THROW(ParseSettingPath("/"), UsageError);
  EXPECT_THROW(ParseSettingPath("a//b"), UsageError);
}

TEST(ZnctlSettings, AreReadFromWords) {
  EXPECT_EQ(SettingTypeName(ParseSetting({"12"}, "")), "dword");
  EXPECT_EQ(SettingTypeName(ParseSetting({"0x10"}, "")), "dword");
  EXPECT_EQ(SettingTypeName(ParseSetting({"4294967296"}, "")), "string");
  EXPECT_EQ(SettingTypeName(ParseSetting({"-1"}, "")), "string");
  EXPECT_EQ(SettingTypeName(ParseSetting({"text"}, "")), "string");
  EXPECT_EQ(SettingTypeName(ParseSetting({"a", "b"}, "")), "list");
  EXPECT_EQ(SettingTypeName(ParseSetting({"12"}, "string")), "string");
  EXPECT_EQ(SettingTypeName(ParseSetting({"12"}, "list")), "list");
  EXPECT_EQ(FormatSetting(ParseSetting({"00FF"}, "binary")), "{ binary = '00ff' }");
  EXPECT_EQ(FormatSetting(ParseSetting({"a", "b"}, "")), "[ 'a', 'b' ]");
  EXPECT_EQ(FormatSetting(ParseSetting({"text"}, "")), "'text'");
  EXPECT_EQ(FormatSetting(ParseSetting({"7"}, "")), "7");
  EXPECT_THROW(ParseSetting({"x"}, "dword"), UsageError);
  EXPECT_THROW(ParseSetting({"1", "2"}, "dword"), UsageError);
  EXPECT_THROW(ParseSetting({"0"}, "binary"), UsageError);
  EXPECT_THROW(ParseSetting({"0"}, "word"), UsageError);
}

}  // namespace
}  // namespace zn::ctl
