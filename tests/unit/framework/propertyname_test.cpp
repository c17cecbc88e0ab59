#include "framework/common/znpropset/propertyname.h"

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace zn {
namespace {

TEST(PropertyName, OneTextHasOneEntry) {
  EXPECT_EQ(PropertyName::Intern("PropertyNameTest"), PropertyName::Intern("PropertyNameTest"));
  EXPECT_FALSE(PropertyName::Intern("PropertyNameTest") ==
               PropertyName::Intern("propertyNameTest"));
}

TEST(PropertyName, ALookUpOfAnUnknownTextAddsNothing) {
  PropertyName name;
  EXPECT_FALSE(PropertyName::Find("never interned before", &name));
  EXPECT_FALSE(PropertyName::Find("never interned before", &name));
  const PropertyName made = PropertyName::Intern("never interned before");
  ASSERT_TRUE(PropertyName::Find("never interned before", &name));
  EXPECT_EQ(name, made);
}

TEST(PropertyName, TheEmptyNameIsAlwaysKnown) {
  PropertyName name = PropertyName::Intern("x");
  ASSERT_TRUE(PropertyName::Find("", &name));
  EXPECT_EQ(name, PropertyName());
  EXPECT_EQ(name.Text(), "");
}

TEST(PropertyName, OrdersByTheBytesOfTheText) {
  EXPECT_TRUE(PropertyName::Intern("B") < PropertyName::Intern("a"));
  EXPECT_TRUE(PropertyName::Intern("a") < PropertyName::Intern("aa"));
  EXPECT_FALSE(PropertyName::Intern("a") < PropertyName::Intern("a"));
}

TEST(PropertyName, OrdersAcrossWholeWordsAsStrcmpDoes) {
  const std::string texts[] = {"a",         "abcdefg",  "abcdefgh",         "abcdefgh\xFF",
                               "abcdefghi", "abcdefgj", "abcdefghijklmnop", "abcdefghijklmnopq",
                               "abcdefgi",  "zz",       "abcdefghijklmno",  "\x01\x80"};
  for (const std::string& a : texts) {
    for (const std::string& b : texts) {
      EXPECT_EQ(PropertyName::Intern(a) < PropertyName::Intern(b), a < b) << a << " " << b;
    }
  }
}

TEST(PropertyName, FindsATextOfAnyLengthAndNoOtherOfThatLength) {
  for (size_t length = 1; length < 40; ++length) {
    const std::string text = "length" + std::string(length, 'x');
    const PropertyName name = PropertyName::Intern(text);
    for (size_t i = 0; i < text.size(); ++i) {
      std::string other = text;
      other[i] = '#';
      PropertyName found;
      EXPECT_FALSE(PropertyName::Find(other, &found)) << other;
    }
    EXPECT_EQ(PropertyName::Intern(text), name);
  }
}

// What it fills stays full, so it happens in a process of its own.
int FillTheTable() {
  PropertyName name;
  u32 made = 0;
  while (PropertyName::InternRead("read" + std::to_string(made), &name)) ++made;
  const bool isBound = made <= PropertyName::kMaxNamesRead && made > 0;
  const bool knowsTheFirst = PropertyName::InternRead("read0", &name) && name.Text() == "read0";
  // The program itself is not bound, and what it names can be read.
  const std::string own = "a name of the program's own";
  const bool isFree = PropertyName::Intern(own).Text() == own;
  return isBound && knowsTheFirst && isFree && PropertyName::InternRead(own, &name) ? 0 : 1;
}

TEST(PropertyName, ANameReadFromBytesIsRefusedBeyondTheBoundButAKnownOneIsNot) {
  EXPECT_EXIT(std::_Exit(FillTheTable()), ::testing::ExitedWithCode(0), "");
}

TEST(PropertyNameThreads, ReadersFindEveryNameWhileTheTableGrows) {
  constexpr int kThreads = 4;
  constexpr int kNames = 5000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < kNames; ++i) {
        const std::string text = "grow" + std::to_string(i);
        const PropertyName made = PropertyName::Intern(text);
        PropertyName found;
        ASSERT_TRUE(PropertyName::Find(text, &found));
        ASSERT_EQ(found, made);
        ASSERT_EQ(found.Text(), text);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace zn
