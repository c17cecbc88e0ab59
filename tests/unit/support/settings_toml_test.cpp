// The settings document: forms of values, names, what it writes.
#include "support/posix/settings_toml.h"

#include <cstring>

#include <gtest/gtest.h>

#include "support/common/text.h"
#include "zn/settings.h"

namespace zn {
namespace {

SettingsDocument Parsed(std::string_view text) {
  SettingsDocument document;
  SettingsError error;
  EXPECT_TRUE(document.Parse(text, &error)) << error.text;
  return document;
}

SettingValue Text(std::u16string_view text, u32 type = ZN_REG_SZ) {
  SettingValue value{type, std::vector<u8>((text.size() + 1) * sizeof(ZnWChar))};
  if (!text.empty()) std::memcpy(value.data.data(), text.data(), text.size() * sizeof(ZnWChar));
  return value;
}
SettingValue Number(u32 number) {
  SettingValue value{ZN_REG_DWORD, std::vector<u8>(4)};
  std::memcpy(value.data.data(), &number, 4);
  return value;
}

TEST(SettingsDocument, ValuesHaveTheirForms) {
  const SettingsDocument document = Parsed(
      "text = \"h\\u00f6st\"\nempty = ''\nzero = 0\nmost = 4294967295\nhex = 0x10\n"
      "list = ['a', 'bc']\nnone = []\nbytes = { binary = '00fFa1' }\nnobytes = { binary = '' }\n");
  SettingValue value;
  ASSERT_EQ(document.Value({}, "text", &value), 0u);
  EXPECT_EQ(value, Text(u"höst"));
  ASSERT_EQ(document.Value({}, "empty", &value), 0u);
  EXPECT_EQ(value, Text(u""));
  ASSERT_EQ(document.Value({}, "zero", &value), 0u);
  EXPECT_EQ(value, Number(0));
  ASSERT_EQ(document.Value({}, "most", &value), 0u);
  EXPECT_EQ(value, Number(0xFFFFFFFFu));
  ASSERT_EQ(document.Value({}, "hex", &value), 0u);
  EXPECT_EQ(value, Number(16));
  ASSERT_EQ(document.Value({}, "list", &value), 0u);
  EXPECT_EQ(value, Text(std::u16string_view(u"a\0bc\0", 5), ZN_REG_MULTI_SZ));
  ASSERT_EQ(document.Value({}, "none", &value), 0u);
  EXPECT_EQ(value, Text(u"", ZN_REG_MULTI_SZ));
  ASSERT_EQ(document.Value({}, "bytes", &value), 0u);
  EXPECT_EQ(value, (SettingValue{ZN_REG_BINARY, {0x00, 0xFF, 0xA1}}));
  ASSERT_EQ(document.Value({}, "nobytes", &value), 0u);
  EXPECT_EQ(value, (SettingValue{ZN_REG_BINARY, {}}));
  EXPECT_TRUE(document.Oddities().empty());
}

TEST(SettingsDocument, WhatIsNoValueIsKeptAndNotShown) {
  const char* text =
      "big = 4294967296\nneg = -1\nflag = true\nreal = 1.5\nday = 1979-05-27\nmixed = ['a', 1]\n"
      "bad = { binary = '0' }\nworse = { binary = 'xy' }\nnot = { binary = 1 }\n[[tables]]\na = "
      "1\n";
  SettingsDocument document = Parsed(text);
  SettingValue value;
  for (const char* name :
       {"big", "neg", "flag", "real", "day", "mixed", "bad", "worse", "not", "tables"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(document.Value({}, name, &value), kSettingMissing);
  }
  std::string name;
  EXPECT_EQ(document.ValueAt({}, 0, &name, &value), kSettingNoMore);
  EXPECT_EQ(document.Oddities().size(), 10u);
  EXPECT_EQ(document.Oddities()[0].substr(0, 8), "line 7: ");
  bool changed = false;
  EXPECT_EQ(document.SetValue({}, "new", Number(5), &changed), 0u);
  const SettingsDocument again = Parsed(document.Format());
  EXPECT_EQ(again.Oddities().size(), 10u) << "a write keeps them";
}

TEST(SettingsDocument, NamesAreComparedWithoutCaseAndKept) {
  SettingsDocument document = Parsed("[Providers.HostInv]\nImageFile = 'x'\n[\"\u00c4rger\"]\n");
  SettingValue value;
  EXPECT_EQ(document.Open({"PROVIDERS", "hostinv"}), 0u);
  EXPECT_EQ(document.Open({"\u00e4RGER"}), 0u);
  EXPECT_EQ(document.Value({"providers", "HOSTINV"}, "imagefile", &value), 0u);
  bool changed = false;
  EXPECT_EQ(document.SetValue({"providers", "hostinv"}, "IMAGEFILE", Text(u"y"), &changed), 0u);
  EXPECT_TRUE(changed);
  std::string name;
  EXPECT_EQ(document.SubKey({"Providers"}, 0, &name), 0u);
  EXPECT_EQ(name, "HostInv");
  EXPECT_EQ(document.ValueAt({"Providers", "HostInv"}, 0, &name, &value), 0u);
  EXPECT_EQ(name, "ImageFile") << "as first written";
  EXPECT_EQ(value, Text(u"y"));
}

TEST(SettingsDocument, OfTwoNamesThatDifferInCaseTheFirstCounts) {
  const SettingsDocument document = Parsed("b = 2\nB = 1\n[k]\n[K]\nv = 1\n");
  SettingValue value;
  std::string name;
  EXPECT_EQ(document.ValueAt({}, 0, &name, &value), 0u);
  EXPECT_EQ(name, "B");
  EXPECT_EQ(document.ValueAt({}, 1, &name, &value), kSettingNoMore);
  EXPECT_EQ(document.SubKey({}, 0, &name), 0u);
  EXPECT_EQ(document.SubKey({}, 1, &name), kSettingNoMore);
}

TEST(SettingsDocument, EnumerationIsSortedWithoutCase) {
  const SettingsDocument document =
      Parsed("b = 1\nA = 1\nc = 1\nB2 = 1\n[zeta]\n[Alpha]\n[beta]\n[Gamma]\n");
  SettingValue value;
  std::vector<std::string> values;
  std::vector<std::string> keys;
  std::string name;
  for (u32 i = 0; document.ValueAt({}, i, &name, &value) == 0; ++i) values.push_back(name);
  for (u32 i = 0; document.SubKey({}, i, &name) == 0; ++i) keys.push_back(name);
  EXPECT_EQ(values, (std::vector<std::string>{"A", "b", "B2", "c"}));
  EXPECT_EQ(keys, (std::vector<std::string>{"Alpha", "beta", "Gamma", "zeta"}));
}

TEST(SettingsDocument, KeysAndValuesDoNotShareANameInOneKey) {
  SettingsDocument document = Parsed("v = 1\n[k]\n");
  bool changed = false;
  EXPECT_EQ(document.CreateKey({"V"}, &changed), kSettingConflict);
  EXPECT_EQ(document.CreateKey({"v", "below"}, &changed), kSettingConflict);
  EXPECT_EQ(document.SetValue({}, "K", Number(1), &changed), kSettingConflict);
  EXPECT_EQ(document.DeleteValue({}, "k", &changed), kSettingMissing);
  EXPECT_EQ(document.DeleteKey({"v"}, &changed), kSettingMissing);
  EXPECT_FALSE(changed);
  SettingValue value;
  EXPECT_EQ(document.Value({}, "k", &value), kSettingMissing);
  EXPECT_EQ(document.Open({"v"}), kSettingMissing);
}

TEST(SettingsDocument, AKeyWithKeysBelowIsNotDeleted) {
  SettingsDocument document = Parsed("[a.b]\nv = 1\n");
  bool changed = false;
  EXPECT_EQ(document.DeleteKey({"a"}, &changed), kSettingRefused);
  EXPECT_FALSE(changed);
  EXPECT_EQ(document.DeleteKey({"A", "B"}, &changed), 0u);
  EXPECT_TRUE(changed);
  EXPECT_EQ(document.DeleteKey({"a"}, &changed), 0u);
  EXPECT_EQ(document.DeleteKey({"a"}, &changed), kSettingMissing);
  EXPECT_EQ(document.DeleteKey({"x", "y"}, &changed), kSettingMissing);
}

TEST(SettingsDocument, WritingWhatStandsThereIsNoChange) {
  SettingsDocument document = Parsed("[a]\nv = 1\n");
  bool changed = false;
  EXPECT_EQ(document.SetValue({"a"}, "V", Number(1), &changed), 0u);
  EXPECT_EQ(document.CreateKey({"A"}, &changed), 0u);
  EXPECT_EQ(document.CreateKey({}, &changed), 0u);
  EXPECT_FALSE(changed);
}

TEST(SettingsDocument, EveryValueComesBackFromTheText) {
  const SettingValue values[] = {
      Text(u""),
      Text(u"plain"),
      Text(u"quotes \" ' and \\ and \n newline \t tab \x1 \x7f \r"),
      Text(u"ünï😀"),
      Number(0),
      Number(0xFFFFFFFFu),
      {ZN_REG_BINARY, {}},
      {ZN_REG_BINARY, {0, 1, 0xFE, 0xFF}},
      Text(u"", ZN_REG_MULTI_SZ),
      Text(std::u16string_view(u"a b\0'\0\"\0", 8), ZN_REG_MULTI_SZ),
  };
  const std::string names[] = {"",         "plain",    "with blank",  "a.b",
                               "\u00fcml", "\"quote'", "tab\t\n\x01", "binary"};
  for (const SettingValue& value : values) {
    for (const std::string& name : names) {
      SCOPED_TRACE(name);
      SettingsDocument document;
      bool changed = false;
      ASSERT_EQ(document.CreateKey({"Key", name + "x"}, &changed), 0u);
      ASSERT_EQ(document.SetValue({"Key", name + "x"}, name, value, &changed), 0u);
      const std::string text = document.Format();
      ASSERT_FALSE(text.empty());
      SettingValue read;
      ASSERT_EQ(Parsed(text).Value({"Key", name + "x"}, name, &read), 0u) << text;
      EXPECT_EQ(read, value) << text;
    }
  }
}

TEST(SettingsDocument, AKeyWithTheOnlyValueBinaryStaysAKey) {
  SettingsDocument document = Parsed("k = { a = 'x' }\n");
  bool changed = false;
  EXPECT_EQ(document.Open({"k"}), 0u) << "an inline table of another form is a key";
  EXPECT_EQ(document.DeleteValue({"k"}, "a", &changed), 0u);
  EXPECT_EQ(document.SetValue({"k"}, "binary", Text(u"00"), &changed), 0u);
  EXPECT_EQ(document.Open({"k"}), 0u);
  EXPECT_EQ(Parsed(document.Format()).Open({"k"}), 0u);
}

TEST(SettingsDocument, ADottedNameInBracesReadsTheSameAfterItWasWritten) {
  const SettingsDocument document = Parsed("k = { x.binary = 'ab', y = { z.binary.w = '1' } }\n");
  const SettingsDocument again = Parsed(document.Format());
  for (const SettingsDocument* each : {&document, &again}) {
    SettingValue value;
    EXPECT_EQ(each->Value({"k"}, "x", &value), 0u);
    EXPECT_EQ(value, (SettingValue{ZN_REG_BINARY, {0xAB}}));
    EXPECT_NE(each->Open({"k", "y", "z"}), 0u) << "the form of bytes, though it holds none";
  }
}

TEST(SettingsDocument, AKeyInBracesStaysAKeyWhateverIsPutInOrTakenFromIt) {
  bool changed = false;
  SettingsDocument values = Parsed("k = { y = { a = 'x', binary = 'ab' } }\n");
  EXPECT_EQ(values.DeleteValue({"k", "y"}, "a", &changed), 0u);
  EXPECT_EQ(Parsed(values.Format()).Open({"k", "y"}), 0u);

  SettingsDocument keys = Parsed("k = { binary = 'ab', inner = { a = 'x' } }\n");
  EXPECT_EQ(keys.DeleteKey({"k", "inner"}, &changed), 0u);
  EXPECT_EQ(Parsed(keys.Format()).Open({"k"}), 0u);

  SettingsDocument empty = Parsed("k = {}\n");
  EXPECT_EQ(empty.SetValue({"k"}, "binary", Text(u"00"), &changed), 0u);
  EXPECT_EQ(Parsed(empty.Format()).Open({"k"}), 0u);

  SettingsDocument created = Parsed("k = { y = { a = 'x' } }\n");
  EXPECT_EQ(created.CreateKey({"k", "y", "new"}, &changed), 0u);
  EXPECT_EQ(Parsed(created.Format()).Open({"k", "y", "new"}), 0u);
}

TEST(SettingsDocument, BytesThatDoNotSuitTheirTypeAreRefused) {
  SettingsDocument document;
  bool changed = false;
  const SettingValue bad[] = {{ZN_REG_SZ, {65}},
                              {ZN_REG_MULTI_SZ, {65, 0, 66}},
                              {ZN_REG_DWORD, {1, 2, 3}},
                              {ZN_REG_DWORD, {}},
                              {0, {}},
                              {5, {1}},
                              {11, {1, 2, 3, 4, 5, 6, 7, 8}}};
  for (const SettingValue& value : bad) {
    EXPECT_EQ(document.SetValue({}, "v", value, &changed), 0x80070057u) << value.type;
  }
  EXPECT_FALSE(changed);
}

TEST(SettingsDocument, TextsNeedNoTerminatorAndEndAtTheFirst) {
  SettingsDocument document;
  bool changed = false;
  SettingValue value;
  EXPECT_EQ(document.SetValue({}, "v", {ZN_REG_SZ, {'a', 0, 'b', 0}}, &changed), 0u);
  EXPECT_EQ(document.Value({}, "v", &value), 0u);
  EXPECT_EQ(value, Text(u"ab"));
  EXPECT_EQ(document.SetValue({}, "v", {ZN_REG_EXPAND_SZ, {'a', 0, 0, 0, 'b', 0}}, &changed), 0u);
  EXPECT_EQ(document.Value({}, "v", &value), 0u);
  EXPECT_EQ(value, Text(u"a")) << "and reads back as plain text";
  EXPECT_EQ(document.SetValue({}, "l", {ZN_REG_MULTI_SZ, {'a', 0, 0, 0, 'b', 0}}, &changed), 0u);
  EXPECT_EQ(document.Value({}, "l", &value), 0u);
  EXPECT_EQ(value, Text(std::u16string_view(u"a\0b\0", 4), ZN_REG_MULTI_SZ));
  EXPECT_EQ(document.SetValue({}, "l", {ZN_REG_MULTI_SZ, {}}, &changed), 0u);
  EXPECT_EQ(document.Value({}, "l", &value), 0u);
  EXPECT_EQ(value, Text(u"", ZN_REG_MULTI_SZ));
}

TEST(SettingsDocument, EmptyTextsOfAListAreLeftOut) {
  const SettingsDocument document = Parsed("l = ['', 'a', '', 'b', '']\n");
  SettingValue value;
  EXPECT_EQ(document.Value({}, "l", &value), 0u);
  EXPECT_EQ(value, Text(std::u16string_view(u"a\0b\0", 4), ZN_REG_MULTI_SZ));
}

TEST(SettingsDocument, HeadCommentsStay) {
  const std::string head = "# Settings of this host.\n\n# Ask before changing.\n";
  SettingsDocument document = Parsed(head + "a = 1 # lost\n");
  bool changed = false;
  EXPECT_EQ(document.SetValue({}, "a", Number(2), &changed), 0u);
  EXPECT_EQ(document.Format(), head + "a = 2\n");
  EXPECT_EQ(Parsed("a = 1\n# not a head\n").Format(), "a = 1\n");
}

TEST(SettingsDocument, WritesValuesBeforeSections) {
  const SettingsDocument document = Parsed(
      "[z.y]\nv = 1\n[a]\n[z]\nw = { x = 1, y = [1.5, 'q', {}] }\n[['t u']]\nd = 1979-05-27\n"
      "[[t]]\n[[t]]\nb = true\n");
  EXPECT_EQ(document.Format(),
            "t = [ {}, { b = true } ]\n\"t u\" = [ { d = 1979-05-27 } ]\n\n[a]\n\n[z]\n"
            "w = { x = 1, y = [ 1.5, \"q\", {} ] }\n\n[z.y]\nv = 1\n");
}

TEST(SettingsDocument, ErrorsTellLineAndColumn) {
  SettingsDocument document;
  SettingsError error;
  EXPECT_FALSE(document.Parse("a = 1\nb = = 2\n", &error));
  EXPECT_EQ(error.line, 2u);
  EXPECT_EQ(error.column, 5u);
  EXPECT_FALSE(error.text.empty());
  EXPECT_EQ(document.Format(), "\n") << "nothing of it stays";
  for (const char* bad : {"a", "a = 1\na = 2", "[a", "a = \"\xFF\"", "a = { b = 1", "[a]\n[a]"}) {
    EXPECT_FALSE(document.Parse(bad, &error)) << bad;
  }
}

TEST(SettingsDocument, AKeyThatIsGoneRefuses) {
  SettingsDocument document;
  bool changed = false;
  SettingValue value;
  std::string name;
  const SettingsPath gone = {"gone"};
  EXPECT_EQ(document.Open(gone), kSettingMissing);
  EXPECT_EQ(document.SubKey(gone, 0, &name), kSettingRefused);
  EXPECT_EQ(document.ValueAt(gone, 0, &name, &value), kSettingRefused);
  EXPECT_EQ(document.Value(gone, "v", &value), kSettingRefused);
  EXPECT_EQ(document.SetValue(gone, "v", Number(1), &changed), kSettingRefused);
  EXPECT_EQ(document.DeleteValue(gone, "v", &changed), kSettingRefused);
  EXPECT_FALSE(changed);
}

}  // namespace
}  // namespace zn
