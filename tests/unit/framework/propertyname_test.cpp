#include "framework/common/znpropset/propertyname.h"

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
