// Topics: splitting, the two character classes, the flat matcher, the builders.
#include "framework/common/znevent/topic.h"

#include <gtest/gtest.h>

#include "framework/common/zncore/database.h"
#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using Tokens = std::vector<std::string_view>;

TEST(SplitTopic, SplitsAtEveryPoint) {
  EXPECT_EQ(SplitTopic("a.b.c"), (Tokens{"a", "b", "c"}));
  EXPECT_EQ(SplitTopic("a..b"), (Tokens{"a", "", "b"}));
  EXPECT_EQ(SplitTopic(""), (Tokens{""}));
  EXPECT_EQ(SplitTopic("."), (Tokens{"", ""}));
}

TEST(TopicTokens, HoldsAnyNumberOfTokens) {
  for (const size_t count : {1u, 11u, 12u, 13u, 40u, 4096u}) {
    std::string text = "t0";
    for (size_t i = 1; i < count; ++i) text += ".t" + std::to_string(i);
    const TopicTokens tokens(text);
    ASSERT_EQ(tokens.Count(), count);
    EXPECT_EQ(Tokens(tokens.begin(), tokens.end()), SplitTopic(text));
  }
}

TEST(TopicTokens, KnowsObjectTopicsByTheirFirstFourTokens) {
  EXPECT_TRUE(TopicTokens("event.keld.dom.object").IsObjectTopic());
  EXPECT_TRUE(TopicTokens("event.keld.dom.object.T.data.change").IsObjectTopic());
  EXPECT_FALSE(TopicTokens("event.keld.dom.type.T").IsObjectTopic());
  EXPECT_FALSE(TopicTokens("event.keld.dom").IsObjectTopic());
  EXPECT_FALSE(TopicTokens("Event.keld.dom.object.T").IsObjectTopic());
}

TEST(IsRaisableTopic, AcceptsItsClassAndNothingElse) {
  std::string accepted;
  for (int c = 1; c < 256; ++c) {
    const char text[] = {'a', static_cast<char>(c), '\0'};
    if (IsRaisableTopic(text)) accepted += static_cast<char>(c);
  }
  EXPECT_EQ(accepted, "-.0123456789:ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz{}");
  EXPECT_TRUE(IsRaisableTopic(""));
  EXPECT_FALSE(IsRaisableTopic("a.*"));
}

TEST(IsPatternToken, AcceptsItsClassAndTheStarAlone) {
  std::string accepted;
  for (int c = 1; c < 256; ++c) {
    const char text[] = {'a', static_cast<char>(c), '\0'};
    if (IsPatternToken(text)) accepted += static_cast<char>(c);
  }
  EXPECT_EQ(accepted, "-0123456789:ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz{}");
  EXPECT_TRUE(IsPatternToken(""));
  EXPECT_TRUE(IsPatternToken("*"));
  EXPECT_FALSE(IsPatternToken("**"));
  EXPECT_FALSE(IsPatternToken("a*"));
  EXPECT_FALSE(IsPatternToken("a.b"));
}

struct MatchCase {
  const char* why;
  const char* topic;
  const char* pattern;
  bool matches;
};

TEST(MatchTopic, FollowsTheTopicRules) {
  constexpr MatchCase kCases[] = {
      {"equal", "a.b", "a.b", true},
      {"a pattern is a prefix", "a.b.c", "a.b", true},
      {"a topic shorter than the pattern", "a.b", "a.b.c", false},
      {"a star stands for one token", "a.b.c", "a.*.c", true},
      {"a star stands for an empty token", "a..c", "a.*.c", true},
      {"a trailing star wants a token of its own", "a", "a.*", false},
      {"a trailing star with its token", "a.b", "a.*", true},
      {"a star alone matches one token", "", "*", true},
      {"an empty token is a token", "a..b", "a..b", true},
      {"the empty pattern is one empty token", "a", "", false},
      {"the empty pattern on the empty topic", "", "", true},
      {"case counts", "a.B", "a.b", false},
      {"a later token differs", "a.b.c", "a.b.d", false},
      {"a star in the topic is a plain text", "a.*", "a.b", false},
      {"characters are not checked", "a$.b c", "a$.b c", true},
  };
  for (const MatchCase& c : kCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(MatchTopic(nullptr, c.topic, c.pattern), c.matches);
  }
}

TEST(MatchTopic, KnowsNoTypeWithoutADatabase) {
  const char* topic = "event.keld.dom.object.KELD_Object.object.add";
  EXPECT_FALSE(MatchTopic(nullptr, topic, "event.keld.dom.object.KELD_Object"));
  EXPECT_TRUE(MatchTopic(nullptr, topic, "event.keld.dom.object.*.object.add"));
  EXPECT_TRUE(MatchTopic(nullptr, topic, "event.keld.dom.object"));
}

using MatchTopicTypes = StoreTest;

TEST_F(MatchTopicTypes, TheFifthTokenOfAnObjectTopicIsAType) {
  MakeType("Base");
  MakeType("Derived", {}, {"Base"});
  constexpr MatchCase kCases[] = {
      {"the type itself", "event.keld.dom.object.Base.x", "event.keld.dom.object.Base", true},
      {"a derived type", "event.keld.dom.object.Derived.x", "event.keld.dom.object.Base", true},
      {"the root type", "event.keld.dom.object.Derived", "event.keld.dom.object.KELD_Object", true},
      {"not the other way", "event.keld.dom.object.Base.x", "event.keld.dom.object.Derived", false},
      {"an unknown type is none, not even itself", "event.keld.dom.object.No.x",
       "event.keld.dom.object.No", false},
      {"what follows still counts", "event.keld.dom.object.Derived.x",
       "event.keld.dom.object.Base.y", false},
      {"type events have plain tokens", "event.keld.dom.type.Derived.x", "event.keld.dom.type.Base",
       false},
      {"type events match themselves", "event.keld.dom.type.No.x", "event.keld.dom.type.No", true},
      {"other families have plain tokens", "event.keld.dom.thing.Derived",
       "event.keld.dom.thing.Base", false},
  };
  for (const MatchCase& c : kCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(MatchTopic(database_.get(), c.topic, c.pattern), c.matches);
  }
}

TEST(TopicBuilders, MakeTheTopicsOfTheVocabulary) {
  const GUID id = TestGuid(1);
  const std::string text = GuidText(id);
  EXPECT_EQ(ObjectTopic("T", kDataChanged.topic, id),
            "event.keld.dom.object.T.data.change." + text);
  EXPECT_EQ(ObjectTopic("T", kObjectAdded.topic, id), "event.keld.dom.object.T.object.add." + text);
  EXPECT_EQ(TypeTopic("T", kObjectAdded.topic, id), "event.keld.dom.type.T.object.add." + text);
  EXPECT_EQ(TypeTopic("T", kInterfaceChanged.topic, id),
            "event.keld.dom.type.T.interface.change." + text);
  EXPECT_EQ(ProviderLoadedTopic(id), "event.keld.dom.provider." + text + ".loaded");
  EXPECT_EQ(ProviderUnloadedTopic(id), "event.keld.dom.provider." + text + ".unloaded");
  EXPECT_EQ(InitializationTopic("lastphase"), "event.keld.dom.initialization.lastphase.complete");
  EXPECT_EQ(ConnectionDeleteTopic("c"), "event.keld.dom.connection.c.delete");
}

TEST(ObjectTopicText, EqualsTheBuilderForShortAndLongTypeNames) {
  for (const size_t length : {0u, 1u, 60u, 110u, 111u, 120u, 8192u}) {
    const std::string type(length, 't');
    EXPECT_EQ(ObjectTopicText(type, kFlagChanged.topic, TestGuid(2)).View(),
              ObjectTopic(type, kFlagChanged.topic, TestGuid(2)));
  }
}

}  // namespace

}  // namespace zn::test
