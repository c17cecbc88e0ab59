// How objects are named, and where in the tree they stand.
#include "naming.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "failure.h"
#include "fake_source.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string FailureText(ObjectSource& source, const std::string& name, u32 status) {
  try {
    ResolveObject(source, name);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status, status) << name;
    std::string text = failure.what();
    for (const std::string& line : failure.details) text += "\n" + line;
    return text;
  }
  ADD_FAILURE() << name << " was resolved";
  return {};
}

TEST(ZnctlIds, AreReadWithAndWithoutBraces) {
  const std::string text = "{01234567-89ab-cdef-0123-456789abcdef}";
  ASSERT_TRUE(ParseId(text).has_value());
  EXPECT_EQ(IdText(*ParseId(text)), text);
  EXPECT_EQ(ParseId("01234567-89AB-CDEF-0123-456789ABCDEF"), ParseId(text));
  for (const char* bad :
       {"", "{", "{}", "{01234567-89ab-cdef-0123-456789abcde}",
        "{01234567-89ab-cdef-0123-456789abcdef", "01234567-89ab-cdef-0123-456789abcdef}",
        "{0123456789-ab-cdef-0123-456789abcdef}", "{g1234567-89ab-cdef-0123-456789abcdef}"}) {
    EXPECT_FALSE(ParseId(bad).has_value()) << bad;
  }
}

TEST(ZnctlIds, KnowTheirPrefixes) {
  for (const char* prefix : {"0", "{0", "01234567", "01234567-", "{01234567-89AB"}) {
    EXPECT_TRUE(LooksLikeIdPrefix(prefix)) << prefix;
    EXPECT_TRUE(HasIdPrefix(*ParseId("{01234567-89ab-cdef-0123-456789abcdef}"), prefix)) << prefix;
  }
  for (const char* other : {"", "{", "x", "0123-", "01234567}", "{0}", "012345678"}) {
    EXPECT_FALSE(LooksLikeIdPrefix(other)) << other;
  }
}

TEST(ZnctlNaming, FindsObjectsByEveryKindOfName) {
  FakeMachine m;
  struct Case {
    const char* why;
    std::string name;
    Id id;
  };
  const Case cases[] = {
      {"a whole id", IdText(m.disk), m.disk},
      {"a whole id without braces", IdDigits(m.disk), m.disk},
      {"the start of an id", "20000000", m.disk},
      {"one digit, where it is the only one", "2", m.disk},
      {"the start of an id in a brace", "{5", m.hidden},
      {"a path", "/box/sda/sda1", m.part1},
      {"a shorter way along another relation", "/box/sda1", m.part1},
      {"a path with a slash at its end", "/box/sda/", m.disk},
      {"a path that begins at a group", "/Disks/sda/sda2", m.part2},
      {"a path through nested groups", "/box/Disks/sda", m.disk},
      {"the end of a path", "sda/sda10", m.part10},
      {"a name alone", "sda10", m.part10},
      {"a name that is a slash", "/", m.root},
      {"a name that begins with a slash", "/home", m.home},
      {"a slash as the last name", "/box/sda/sda1//", m.root},
      {"a name with a slash behind one", "/box/sda/sda2//home", m.home},
      {"the same quoted", "/box/sda/sda2/\"/home\"", m.home},
      {"the same in single quotes", "/box/sda/sda2/'/home'", m.home},
      {"the same with a backslash", "/box/sda/sda2/\\/home", m.home},
      {"an object before a group of its name", "/box", m.host},
      {"a group by its type", "/KELD_SystemGroup:box", m.system},
      {"the only one of a type", "/box/Disk:", m.disk},
      {"a type and a quoted name", "FileSystem:\"/\"", m.root},
      {"a hidden object", "secret", m.hidden},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(IdText(ResolveObject(m, c.name)), IdText(c.id));
  }
}

TEST(ZnctlNaming, PrefersANameToTheStartOfAnId) {
  FakeMachine m;
  const Id cafe = m.Add("2", "Thing", 0x77777777);
  EXPECT_EQ(ResolveObject(m, "2"), cafe);
  EXPECT_EQ(ResolveObject(m, "{2"), m.disk);
}

TEST(ZnctlNaming, SaysWhatThereIsWhereAPathEnds) {
  FakeMachine m;
  EXPECT_EQ(FailureText(m, "/box/sda/sdb1", ZNE_OBJECT_NOT_FOUND),
            "there is no \"sdb1\" below /box/sda\nit has: sda1, sda2, sda10");
  EXPECT_EQ(FailureText(m, "/box/sda/sda10/x", ZNE_OBJECT_NOT_FOUND),
            "there is no \"x\" below /box/sda/sda10\nit has no children");
  EXPECT_THAT(FailureText(m, "nothing", ZNE_OBJECT_NOT_FOUND),
              HasSubstr("no object is named \"nothing\""));
  EXPECT_THAT(FailureText(m, "{01234567-89ab-cdef-0123-456789abcdef}", ZNE_OBJECT_NOT_FOUND),
              HasSubstr("no object is named"));
  EXPECT_THAT(FailureText(m, "{9", ZNE_OBJECT_NOT_FOUND), HasSubstr("no object is named"));
  EXPECT_THAT(FailureText(m, "/nowhere/sda", ZNE_OBJECT_NOT_FOUND),
              HasSubstr("no object is named"));
  EXPECT_THROW(ResolveObject(m, ""), UsageError);
}

TEST(ZnctlNaming, ListsTheCandidatesOfAnAmbiguousName) {
  FakeMachine m;
  const Id other = m.Add("sda", "Disk", 0x20000001);
  m.Relate(m.part10, other);
  const std::string text = FailureText(m, "sda", ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(text, HasSubstr("\"sda\" names 2 objects; give an id or a longer path"));
  EXPECT_THAT(text, HasSubstr(IdText(m.disk) + "  Disk  /box/sda"));
  EXPECT_THAT(text, HasSubstr(IdText(other) + "  Disk  /box/sda/sda10/sda"));
  EXPECT_THAT(FailureText(m, "2000000", ZNE_INVALID_ARGUMENTS), HasSubstr("names 2 objects"));
  EXPECT_EQ(ResolveObject(m, "20000001"), other);
}

TEST(ZnctlNaming, ListsBothReadingsOfASlash) {
  FakeSource source;
  const Id a = source.Add("a", "T", 1);
  const Id below = source.Add("b", "T", 2);
  const Id slashed = source.Add("a/b", "T", 3);
  source.Relate(a, below);
  EXPECT_THAT(FailureText(source, "/a/b", ZNE_INVALID_ARGUMENTS), HasSubstr("names 2 objects"));
  EXPECT_EQ(ResolveObject(source, "/\"a/b\""), slashed);
  EXPECT_EQ(ResolveObject(source, "/a/\"b\""), below);
}

TEST(ZnctlForest, ShowsEveryObjectOnceBelowItsDeepestParent) {
  FakeMachine m;
  Forest forest = BuildForest(m, false);
  EXPECT_THAT(forest.roots, ElementsAre(m.host, m.system));
  EXPECT_THAT(forest.children[m.host], ElementsAre(m.disk));
  EXPECT_THAT(forest.children[m.disk], ElementsAre(m.part1, m.part2, m.part10));
  EXPECT_THAT(forest.children[m.part1], ElementsAre(m.root));
  EXPECT_THAT(forest.children[m.system], ElementsAre(m.disks));
  EXPECT_THAT(forest.children[m.disks], IsEmpty());
  EXPECT_EQ(forest.parent.count(m.hidden), 0u);
}

TEST(ZnctlForest, ShowsHiddenObjectsWhenAsked) {
  FakeMachine m;
  Forest forest = BuildForest(m, true);
  EXPECT_EQ(forest.parent[m.hidden], m.host);
}

TEST(ZnctlForest, ShowsTheMembersOfAGroupThatIsAskedFor) {
  FakeMachine m;
  Forest forest = BuildForest(m, false, m.disks);
  EXPECT_THAT(forest.roots, ElementsAre(m.disks));
  EXPECT_THAT(forest.children[m.disks], ElementsAre(m.disk));
  EXPECT_EQ(forest.children[m.disk].size(), 3u);
}

TEST(ZnctlForest, EndsOnCycles) {
  FakeSource source;
  const Id a = source.Add("a", "T", 1);
  const Id b = source.Add("b", "T", 2);
  const Id c = source.Add("c", "T", 3);
  const Id self = source.Add("self", "T", 4);
  source.Relate(a, b);
  source.Relate(b, a);
  source.Relate(b, c);
  source.Relate(c, a);
  source.Relate(self, self);
  Forest forest = BuildForest(source, false);
  EXPECT_THAT(forest.roots, ElementsAre(a, self));
  EXPECT_THAT(forest.children[a], ElementsAre(b));
  EXPECT_THAT(forest.children[b], ElementsAre(c));
  EXPECT_EQ(PathOf(source, forest, c), "/a/b/c");
  EXPECT_EQ(ResolveObject(source, "/a/b/c"), c);
  EXPECT_EQ(ResolveObject(source, "/a/b/c/a/b"), b);
  EXPECT_EQ(ResolveObject(source, "/self/self"), self);
  EXPECT_THAT(BuildForest(source, false, b).roots, ElementsAre(b));
}

TEST(ZnctlForest, HoldsEveryObjectOfARandomGraphOnce) {
  FakeSource source;
  std::vector<Id> ids;
  for (u32 i = 0; i < 300; ++i) ids.push_back(source.Add("n", "T", i + 1, i % 7 == 0));
  u32 random = 12345;
  const auto next = [&] { return random = random * 1664525u + 1013904223u; };
  for (int i = 0; i < 900; ++i) source.Relate(ids[next() % 300], ids[next() % 300]);
  const Forest forest = BuildForest(source, false);
  std::vector<Id> stack = forest.roots;
  std::map<Id, int> seen;
  while (!stack.empty()) {
    const Id id = stack.back();
    stack.pop_back();
    ++seen[id];
    ASSERT_EQ(seen[id], 1);
    const auto children = forest.children.find(id);
    if (children == forest.children.end()) continue;
    stack.insert(stack.end(), children->second.begin(), children->second.end());
  }
  EXPECT_EQ(seen.size(), ids.size());
}

TEST(ZnctlForest, PathsLeadBackToTheirObjects) {
  FakeMachine m;
  const Id quoted = m.Add("it's \"odd\" / really\\", "Thing", 0x60000000);
  const Id nameless = m.Add("", "Thing", 0x60000001);
  m.Relate(m.part10, quoted);
  m.Relate(quoted, nameless);
  const Forest forest = BuildForest(m, true);
  EXPECT_EQ(PathOf(m, forest, m.home), "/box/sda/sda2/\"/home\"");
  EXPECT_EQ(PathOf(m, forest, nameless), "/box/sda/sda10/\"it's \\\"odd\\\" / really\\\\\"/Thing:");
  for (const Id& id : m.All()) {
    if (id == m.system || id == m.disks) continue;  // their first element means the host
    EXPECT_EQ(ResolveObject(m, PathOf(m, forest, id)), id) << PathOf(m, forest, id);
  }
}

TEST(ZnctlShortIds, AreAsLongAsItTakes) {
  Id a = *ParseId("{01234567-89ab-cdef-0123-456789abcdef}");
  Id b = *ParseId("{11234567-89ab-cdef-0123-456789abcdef}");
  EXPECT_EQ(ShortIdLength({a, b}), 8u);
  Id c = *ParseId("{01234567-8fab-cdef-0123-456789abcdef}");
  EXPECT_EQ(ShortIdLength({a, b, c}), 11u);
  EXPECT_EQ(ShortId(a, 11), "01234567-89");
  EXPECT_EQ(ShortIdLength({a, a}), 8u);
}

}  // namespace
}  // namespace zn::ctl
