// Text for terminals: conversion, width, cutting, wrapping, escaping, order.
#include "text.h"

#include <gtest/gtest.h>

namespace zn::ctl {
namespace {

TEST(ZnctlText, ConvertsBetweenUtf8AndUtf16) {
  for (const char* text : {"", "plain", "Größe", "磁盘", "🖴 disk", "a\u0301"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(ToUtf8(ToUtf16(text)), text);
  }
  EXPECT_EQ(ToUtf16("é"), u"é");
  EXPECT_EQ(ToUtf16("🖴").size(), 2u);
}

TEST(ZnctlText, ReplacesWhatIsNoText) {
  struct Case {
    const char* why;
    std::string_view bytes;
    const char* result;
  };
  const Case cases[] = {
      {"a lone continuation", "a\x80z", "a\uFFFDz"},
      {"a cut sequence", "\xE2\x82", "\uFFFD\uFFFD"},
      {"an overlong slash", "\xC0\xAF", "\uFFFD\uFFFD"},
      {"an overlong three-byte form", "\xE0\x80\xAF", "\uFFFD\uFFFD\uFFFD"},
      {"an encoded surrogate", "\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
      {"beyond the last code point", "\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(Printable(c.bytes), c.result);
  }
  EXPECT_EQ(ToUtf8(std::u16string_view(u"\xD800x")), "\uFFFDx");
}

TEST(ZnctlText, KeepsNamesFromSteeringTheTerminal) {
  EXPECT_EQ(Printable("\033[31mred"), "\\x1b[31mred");
  EXPECT_EQ(Printable("two\nlines\tand\r"), "two\\nlines\\tand\\r");
  EXPECT_EQ(Printable("two\nlines", true), "two\nlines");
  EXPECT_EQ(Printable("\u009b2J"), "\\x9b2J");
  EXPECT_EQ(Printable("\u202Etxt.exe"), "\\u202etxt.exe");
}

TEST(ZnctlText, CountsColumnsNotBytes) {
  EXPECT_EQ(DisplayWidth("abc"), 3u);
  EXPECT_EQ(DisplayWidth("Größe"), 5u);
  EXPECT_EQ(DisplayWidth("磁盘"), 4u);
  EXPECT_EQ(DisplayWidth("a\u0301"), 1u);
}

TEST(ZnctlText, CutsToColumns) {
  EXPECT_EQ(CutToWidth("abcdef", 6), "abcdef");
  EXPECT_EQ(CutToWidth("abcdef", 4), "abc…");
  EXPECT_EQ(CutToWidth("磁盘磁盘", 5), "磁盘…");
  EXPECT_EQ(CutToWidth("磁盘磁盘", 4), "磁…");
  EXPECT_EQ(CutToWidth("abc", 0), "");
  EXPECT_EQ(PadToWidth("磁", 4), "磁  ");
}

TEST(ZnctlText, WrapsAtBlanks) {
  EXPECT_EQ(Wrap("one two three", 8), (std::vector<std::string>{"one two", "three"}));
  EXPECT_EQ(Wrap("abcdefghij", 4), (std::vector<std::string>{"abcd", "efgh", "ij"}));
  EXPECT_EQ(Wrap("", 10), std::vector<std::string>{""});
  EXPECT_EQ(Wrap("磁盘磁", 4), (std::vector<std::string>{"磁盘", "磁"}));
  EXPECT_EQ(Wrap("磁盘", 1), (std::vector<std::string>{"磁", "盘"}));  // a column too few ends too
}

TEST(ZnctlText, OrdersNumbersByValue) {
  const char* order[] = {"eth1", "eth2", "eth10", "sda", "sda1", "sda2", "sda10"};
  for (size_t i = 0; i + 1 < std::size(order); ++i) {
    EXPECT_TRUE(NaturalLess(order[i], order[i + 1])) << order[i];
    EXPECT_FALSE(NaturalLess(order[i + 1], order[i])) << order[i];
  }
  EXPECT_FALSE(NaturalLess("same", "same"));
  EXPECT_NE(NaturalLess("a01", "a1"), NaturalLess("a1", "a01"));
}

TEST(ZnctlText, ReadsAndWritesHex) {
  std::vector<u8> bytes;
  EXPECT_TRUE(ParseHex("00fFa0", &bytes));
  EXPECT_EQ(bytes, (std::vector<u8>{0, 0xFF, 0xA0}));
  EXPECT_EQ(HexOf(bytes), "00ffa0");
  EXPECT_FALSE(ParseHex("0", &bytes));
  EXPECT_FALSE(ParseHex("0g", &bytes));
  EXPECT_TRUE(ParseHex("", &bytes));
  EXPECT_TRUE(bytes.empty());
}

}  // namespace
}  // namespace zn::ctl
