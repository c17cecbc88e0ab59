// Locales by name and number, and what is shown of a message without a catalog.
#include "language.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "localizer.h"

namespace zn::ctl {
namespace {

TEST(ZnctlLanguage, IsNamedOrNumbered) {
  struct Case {
    const char* text;
    u32 locale;
  };
  const Case cases[] = {{"de", 0x407},    {"de-DE", 0x407},       {"DE-de", 0x407},
                        {"de_DE", 0x407}, {"de_DE.UTF-8", 0x407}, {"de@euro", 0x407},
                        {"de-AT", 0xC07}, {"de-LU", 0x407},       {"en", 0x409},
                        {"en_GB", 0x809}, {"1031", 0x407},        {"0x407", 0x407},
                        {"0XC07", 0xC07}, {"pt-BR", 0x416},       {"4294967295", 0xFFFFFFFF}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(ParseLocale(c.text), c.locale);
  }
  for (const char* text : {"", "xx", "C", "POSIX", "d", "0", "0x", "12x", "4294967296", "-1"}) {
    EXPECT_EQ(ParseLocale(text), std::nullopt) << text;
  }
}

TEST(ZnctlLanguage, HasAName) {
  EXPECT_EQ(LocaleName(0x407), "de-DE");
  EXPECT_EQ(LocaleName(0xC07), "de-AT");
  EXPECT_EQ(LocaleName(0x1234), "4660");
}

TEST(ZnctlLanguage, HasAHomeCountry) {
  EXPECT_EQ(HomeLocale(0xC07), 0x407u);
  EXPECT_EQ(HomeLocale(0x809), 0x409u);
  EXPECT_EQ(HomeLocale(0x407), 0x407u);
  EXPECT_EQ(HomeLocale(0x1234), 0x1234u);
}

TEST(ZnctlLanguage, IsThatOfTheEnvironment) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(variable);
  EXPECT_EQ(LocaleOfEnvironment(), kEnglish);
  setenv("LANG", "fr_FR.UTF-8", 1);
  EXPECT_EQ(LocaleOfEnvironment(), 0x40Cu);
  setenv("LC_MESSAGES", "de_DE.UTF-8", 1);
  EXPECT_EQ(LocaleOfEnvironment(), 0x407u);
  setenv("LC_ALL", "C.UTF-8", 1);
  EXPECT_EQ(LocaleOfEnvironment(), kEnglish);
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(variable);
}

TEST(ZnctlMessages, AreTheirNamesWithInsertionsWithoutACatalog) {
  Message message;
  message.insertions = {{"i1", 0, {ZN_TYPE_WIDESTRING, std::string("sda")}},
                        {"i2", 0, {ZN_TYPE_STRING, std::string("97")}},
                        {"i3", 0, {ZN_TYPE_I18N, Message{{}, 5, "five %1", {}}}}};
  struct Case {
    const char* name;
    const char* shown;
  };
  for (const Case& c : {Case{"%1 is %{2} %% full", "sda is 97 % full"}, Case{"plain", "plain"},
                        Case{"%3", "five %1"}, Case{"%4 %{4}", "%4 %4"},
                        Case{"%x %{x} %", "%x %{x} %"}, Case{"%{1", "%{1"}, Case{"%%1", "%1"}}) {
    message.name = c.name;
    EXPECT_EQ(ExpandName(message), c.shown) << c.name;
  }
}

}  // namespace
}  // namespace zn::ctl
