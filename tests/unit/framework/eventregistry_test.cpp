// The tree of registrations: who hears a topic, and what becomes of handles.
#include "framework/common/znevent/eventregistry.h"

#include <gtest/gtest.h>

#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

class EventRegistryTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    MakeType("Base");
    MakeType("Derived", {}, {"Base"});
    MakeType("Other");
    static_cast<void>(TakeTold());
    other_ = AddProvider(u"other");
  }

  ZnHandle Add(Provider* provider, std::string_view pattern) {
    ZnHandle registration = nullptr;
    EXPECT_EQ(Registry().Add(*provider, pattern, &registration), ZN_OK) << pattern;
    return registration;
  }
  [[nodiscard]] std::vector<ZnHandle> Receivers(std::string_view topic) {
    std::vector<ZnHandle> receivers;
    EXPECT_EQ(Registry().Collect(*database_, topic, &receivers), ZN_OK) << topic;
    return receivers;
  }
  [[nodiscard]] bool Hears(const Provider* provider, std::string_view topic) {
    const std::vector<ZnHandle> receivers = Receivers(topic);
    return std::find(receivers.begin(), receivers.end(), provider->Handle()) != receivers.end();
  }
  [[nodiscard]] EventRegistry& Registry() { return database_->Events(); }
  [[nodiscard]] std::string Dumped() {
    testing::internal::CaptureStdout();
    Registry().Dump();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
  }
  [[nodiscard]] static std::string LeafKey(const Provider* provider) {
    return "mira:provider:" + GuidText(provider->GetId().Value());
  }

  Provider* other_ = nullptr;
};

struct HearCase {
  const char* why;
  const char* pattern;
  const char* topic;
  bool hears;
};

TEST_F(EventRegistryTest, FollowsTheRulesOfPatterns) {
  constexpr HearCase kCases[] = {
      {"equal", "a.b", "a.b", true},
      {"a pattern hears every topic that extends it", "a.b", "a.b.c.d", true},
      {"not a shorter topic", "a.b", "a", false},
      {"not another topic", "a.b", "a.c", false},
      {"case counts", "a.b", "a.B", false},
      {"a star alone sits at the root", "*", "x", true},
      {"and hears the empty topic", "*", "", true},
      {"so does a row of stars", "*.*", "x", true},
      {"trailing stars are dropped", "a.*", "a", true},
      {"however many", "a.*.*", "a.b", true},
      {"an inner star stands for one token", "a.*.c", "a.b.c", true},
      {"and not for none", "a.*.c", "a.c", false},
      {"an empty token is a token", "a..b", "a..b", true},
      {"an empty token is not any token", "a..b", "a.x.b", false},
      {"a base type hears derived types", "event.keld.dom.object.Base",
       "event.keld.dom.object.Derived.data.change", true},
      {"and itself", "event.keld.dom.object.Base", "event.keld.dom.object.Base.data.change", true},
      {"and no other type", "event.keld.dom.object.Base", "event.keld.dom.object.Other.x", false},
      {"a derived type does not hear its base", "event.keld.dom.object.Derived",
       "event.keld.dom.object.Base.x", false},
      {"the root type hears all", "event.keld.dom.object.KELD_Object",
       "event.keld.dom.object.Derived.x", true},
      {"the empty name is the root type's", "event.keld.dom.object..x",
       "event.keld.dom.object.Derived.x", true},
      {"the star hears all types", "event.keld.dom.object.*.data.change",
       "event.keld.dom.object.Derived.data.change.id", true},
      {"even an unknown one", "event.keld.dom.object.*.x", "event.keld.dom.object.No.x", true},
      {"an unknown type is heard under no name", "event.keld.dom.object.No",
       "event.keld.dom.object.No.x", false},
      {"what follows the type counts", "event.keld.dom.object.Base.data",
       "event.keld.dom.object.Derived.flag", false},
      {"type events have no type rule", "event.keld.dom.type.Base", "event.keld.dom.type.Derived.x",
       false},
      {"type events match by text", "event.keld.dom.type.No", "event.keld.dom.type.No.x", true},
  };
  for (const HearCase& c : kCases) {
    SCOPED_TRACE(c.why);
    const ZnHandle registration = Add(provider_, c.pattern);
    EXPECT_EQ(Hears(provider_, c.topic), c.hears);
    EXPECT_EQ(Registry().Remove(registration), ZN_OK);
    EXPECT_FALSE(Hears(provider_, c.topic));
  }
}

TEST_F(EventRegistryTest, ABadPatternLeavesTheTreeAsItWas) {
  for (const char* pattern : {"a$b", "a.b*", "a.**", "x.y z", "\xC3\xA4", "a.b.c$"}) {
    ZnHandle registration = nullptr;
    EXPECT_EQ(Registry().Add(*provider_, pattern, &registration), ZNE_EVENT_STRING_INVALID);
    EXPECT_EQ(registration, nullptr);
  }
  EXPECT_EQ(Dumped(), "");
  EXPECT_FALSE(Registry().HasListeners());
}

TEST_F(EventRegistryTest, AProviderIsFoundOnceThroughSeveralPatterns) {
  Add(provider_, "*");
  Add(provider_, "a");
  Add(provider_, "a.*.c");
  Add(provider_, "a.b.c");
  EXPECT_EQ(Receivers("a.b.c"), std::vector<ZnHandle>{provider_->Handle()});
}

TEST_F(EventRegistryTest, FindsEveryProviderOnTheWay) {
  Add(provider_, "a.b");
  Add(other_, "a");
  EXPECT_EQ(Receivers("a.b").size(), 2u);
  EXPECT_EQ(Receivers("a.x"), std::vector<ZnHandle>{other_->Handle()});
  EXPECT_TRUE(Receivers("b").empty());
}

TEST_F(EventRegistryTest, ATopicWithAStarTokenIsHeardByNobody) {
  Add(provider_, "*");
  std::vector<ZnHandle> receivers{provider_->Handle()};
  EXPECT_EQ(Registry().Collect(*database_, "a.*", &receivers), ZNE_EVENT_NOT_FOUND);
  EXPECT_TRUE(receivers.empty());
}

TEST_F(EventRegistryTest, TwoHandlesShareOneLeaf) {
  const ZnHandle first = Add(provider_, "a.b");
  const ZnHandle second = Add(provider_, "a.b.*");
  EXPECT_NE(first, second);
  EXPECT_EQ(HandleTag(second), HANDLE_EVENT_REGISTRATION);
  EXPECT_EQ(Registry().Remove(first), ZN_OK);
  EXPECT_FALSE(Hears(provider_, "a.b"));
  EXPECT_EQ(Registry().Remove(first), ZNE_INVALID_ARGUMENTS) << "its record is free";
  // The leaf has gone from its node; the other handle stays allocated.
  EXPECT_EQ(Registry().Remove(second), ZNE_UNEXPECTED);
  EXPECT_EQ(Registry().Remove(second), ZNE_UNEXPECTED);
  EXPECT_EQ(HandleTag(second), HANDLE_EVENT_REGISTRATION);
}

TEST_F(EventRegistryTest, AStaleHandleDoesNotEndALaterRegistration) {
  const ZnHandle first = Add(provider_, "a");
  const ZnHandle stale = Add(provider_, "a");
  EXPECT_EQ(Registry().Remove(first), ZN_OK);
  Add(provider_, "a");
  EXPECT_EQ(Registry().Remove(stale), ZNE_UNEXPECTED);
  EXPECT_TRUE(Hears(provider_, "a"));
}

TEST_F(EventRegistryTest, RefusesWhatIsNoRegistration) {
  EXPECT_EQ(Registry().Remove(nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Registry().Remove(reinterpret_cast<ZnHandle>(UINTPTR_MAX)), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Registry().Remove(provider_->Handle()), ZNE_INVALID_ARGUMENTS);
}

TEST_F(EventRegistryTest, RegistrationsOfAProviderThatGoesEndByThemselves) {
  const ZnHandle registration = Add(other_, "a");
  Add(other_, "b.c");
  Add(provider_, "a");
  EXPECT_EQ(Receivers("a").size(), 2u);
  const u64 removals = Registry().ProviderRemovals();
  std::unique_ptr<Provider> gone = database_->TakeProvider(other_);
  EXPECT_GT(Registry().ProviderRemovals(), removals);
  EXPECT_EQ(Receivers("a"), std::vector<ZnHandle>{provider_->Handle()});
  EXPECT_TRUE(Receivers("b.c").empty());
  // The provider may still give its handle back, once.
  EXPECT_EQ(Registry().Remove(registration), ZN_OK);
  EXPECT_EQ(Registry().Remove(registration), ZNE_INVALID_ARGUMENTS);
}

TEST_F(EventRegistryTest, AlsoThoseInOtherDatabases) {
  Database elsewhere(0, {});
  ZnHandle registration = nullptr;
  ASSERT_EQ(elsewhere.Events().Add(*other_, "a", &registration), ZN_OK);
  EXPECT_TRUE(elsewhere.Events().HasListeners());
  std::unique_ptr<Provider> gone = database_->TakeProvider(other_);
  EXPECT_FALSE(elsewhere.Events().HasListeners());
}

TEST_F(EventRegistryTest, HandlesGoWithTheDatabase) {
  ZnHandle registration = nullptr;
  {
    Database elsewhere(0, {});
    ASSERT_EQ(elsewhere.Events().Add(*provider_, "a", &registration), ZN_OK);
  }
  EXPECT_EQ(Registry().Remove(registration), ZNE_INVALID_ARGUMENTS);
}

TEST_F(EventRegistryTest, ATokenThatSpellsALeafKeyLeadsBackIntoItsNode) {
  Add(provider_, "a");
  Add(other_, "a.b");
  const std::string key = LeafKey(provider_);
  EXPECT_EQ(Receivers("a." + key), std::vector<ZnHandle>{provider_->Handle()});
  EXPECT_EQ(Receivers("a." + key + "." + key + ".b").size(), 2u);
  EXPECT_TRUE(Receivers(key).empty());
}

TEST_F(EventRegistryTest, AStarAndALeafKeyTogetherStayCheap) {
  // Each of the deep nodes could be reached on very many ways through leaf keys.
  std::string pattern;
  for (int i = 0; i < 30; ++i) {
    pattern += "*.";
    Add(provider_, pattern + "x");
  }
  for (int i = 1; i < 30; ++i) {
    std::string inner;
    for (int star = 0; star < i; ++star) inner += "*.";
    Add(other_, inner + "y");
  }
  const std::string key = LeafKey(provider_);
  Add(provider_, "*");
  std::string topic = key;
  for (int i = 0; i < 100; ++i) topic += "." + key;
  EXPECT_EQ(Receivers(topic), std::vector<ZnHandle>{provider_->Handle()});
}

TEST_F(EventRegistryTest, ARegistrationOnABranchIsNoLeaf) {
  // Somebody writes a leaf's key out as a token; the provider then finds a branch in its place.
  const std::string key = LeafKey(provider_);
  Add(other_, "a." + key + ".b");
  const ZnHandle registration = Add(provider_, "a");
  EXPECT_FALSE(Hears(provider_, "a"));
  EXPECT_EQ(Registry().Remove(registration), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(HandleTag(registration), HANDLE_EVENT_REGISTRATION);
  EXPECT_TRUE(Hears(other_, "a." + key + ".b"));
}

TEST_F(EventRegistryTest, APatternThroughALeafKeyStaysInTheNode) {
  Add(provider_, "a");
  Add(other_, "a." + LeafKey(provider_) + ".b");
  EXPECT_TRUE(Hears(other_, "a.b"));
}

TEST_F(EventRegistryTest, HasListenersCountsLeavesAndWaits) {
  EXPECT_FALSE(Registry().HasListeners());
  const ZnHandle first = Add(provider_, "a");
  Add(provider_, "a");
  EXPECT_TRUE(Registry().HasListeners());
  EXPECT_EQ(Registry().Remove(first), ZN_OK);
  EXPECT_FALSE(Registry().HasListeners());
  Registry().Waits().push_back({nullptr, nullptr, nullptr});
  EXPECT_TRUE(Registry().HasListeners());
  Registry().Waits().clear();
}

TEST_F(EventRegistryTest, DumpsBranchesAndLeavesInKeyOrder) {
  Add(provider_, "b.*.c");
  Add(provider_, "a");
  const std::string leaf = LeafKey(provider_);
  EXPECT_EQ(Dumped(),
            "  (N)a\n"
            "     (L)" +
                leaf +
                "\n"
                "  (N)b\n"
                "     (N)*\n"
                "         (N)c\n"
                "             (L)" +
                leaf + "\n");
}

TEST_F(EventRegistryTest, EmptyBranchesStay) {
  EXPECT_EQ(Registry().Remove(Add(provider_, "a.b")), ZN_OK);
  EXPECT_EQ(Dumped(), "  (N)a\n     (N)b\n");
}

TEST_F(EventRegistryTest, TakesAPatternOfManyTokens) {
  std::string pattern = "t";
  for (int i = 0; i < 4095; ++i) pattern += ".t";
  Add(provider_, pattern);
  EXPECT_TRUE(Hears(provider_, pattern));
  EXPECT_TRUE(Hears(provider_, pattern + ".more"));
  EXPECT_FALSE(Hears(provider_, "t.t"));
}

}  // namespace

}  // namespace zn::test
