#include "service/common/access.h"

#include <gmock/gmock.h>

#include "tests/unit/service/service_fixture.h"
#include "tests/unit/support/temporary.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<std::u16string> Flat(const std::vector<AccessEntry>& entries) {
  std::vector<std::u16string> flat;
  for (const AccessEntry& entry : entries) {
    flat.push_back((entry.domain ? *entry.domain + u"\\" : u"-") + entry.name);
  }
  return flat;
}

struct ListCase {
  const char* why;
  const char16_t* text;
  std::vector<std::u16string> entries;
};
TEST(AccessList, IsReadOffItsText) {
  const ListCase cases[] = {
      {"nothing", u"", {}},
      {"one name", u"anna", {u"-anna"}},
      {"a domain", u"HOME\\anna", {u"HOME\\anna"}},
      {"several", u"anna;HOME\\ben;cy", {u"-anna", u"HOME\\ben", u"-cy"}},
      {"empty parts are dropped", u";;anna;;\\ben;", {u"-anna", u"-ben"}},
      {"more than two parts", u"a\\b\\c", {u"a\\b"}},
      {"white space goes, wherever it stands", u" an na ; HO ME \\ ben", {u"-anna", u"HOME\\ben"}},
  };
  for (const ListCase& row : cases) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Flat(ParseAccessList(row.text)), row.entries);
  }
}

TEST(AccessList, IsReadFromTheSettings) {
  const TemporarySettings settings(
      "[Security]\nAccessUsers = 'anna;HOME\\ben'\nAccessGroups = 'wheel'\n");
  AccessLists lists;
  lists.Read();
  EXPECT_THAT(Flat(lists.Users()), ElementsAre(u"-anna", u"HOME\\ben"));
  EXPECT_THAT(Flat(lists.Groups()), ElementsAre(u"-wheel"));
  settings.Write("");
  EXPECT_THAT(lists.Users(), SizeIs(2)) << "a change counts from the next start on";
  lists.Clear();
  EXPECT_THAT(lists.Users(), IsEmpty());
}

TEST(AccessList, IsEmptyWithoutAKeyOrValue) {
  for (const char* text :
       {"", "[Security]\n", "[Security]\nAccessUsers = 7\nAccessGroups = ''\n"}) {
    const TemporarySettings settings(text);
    AccessLists lists;
    lists.Read();
    EXPECT_THAT(lists.Users(), IsEmpty()) << text;
    EXPECT_THAT(lists.Groups(), IsEmpty()) << text;
  }
}

class Access : public testing::Test {
 protected:
  [[nodiscard]] bool Allows(std::u16string_view domain, std::u16string_view user) {
    return lists_.Allows(domain, user, host_);
  }
  AccessLists lists_;
  FakeHost host_;
};

TEST_F(Access, ComparesUsersExactly) {
  lists_.Set(ParseAccessList(u"anna;HOME\\ben"), {});
  EXPECT_TRUE(Allows(u"", u"anna"));
  EXPECT_FALSE(Allows(u"", u"Anna"));
  EXPECT_FALSE(Allows(u"HOME", u"anna")) << "an entry without a domain is for users without one";
  EXPECT_TRUE(Allows(u"HOME", u"ben"));
  EXPECT_FALSE(Allows(u"home", u"ben"));
  EXPECT_FALSE(Allows(u"", u"ben"));
  EXPECT_THAT(host_.asked, IsEmpty());
}

TEST_F(Access, AsksForGlobalGroupsFirstThenForLocalOnes) {
  lists_.Set({}, ParseAccessList(u"HOME\\staff;wheel"));
  EXPECT_FALSE(Allows(u"", u"anna"));
  ASSERT_THAT(host_.asked, SizeIs(4));
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(host_.asked[i].kind, i < 2 ? GroupKind::kGlobal : GroupKind::kLocal);
    EXPECT_EQ(host_.asked[i].group, i % 2 == 0 ? u"staff" : u"wheel");
    EXPECT_EQ(host_.asked[i].domain, i % 2 == 0 ? u"HOME" : u"");
    EXPECT_EQ(host_.asked[i].user, u"anna");
  }
  host_.members.insert({GroupKind::kLocal, u"anna", u"wheel"});
  EXPECT_TRUE(Allows(u"", u"anna"));
}

TEST_F(Access, AUserOnNoListMayStillHoldTheRightToLoadDrivers) {
  host_.passwords[u"root"] = u"r";
  host_.passwords[u"ben"] = u"b";
  host_.drivers.insert(u"root");
  EXPECT_TRUE(CheckPassword({u"root", u"r", u"", u"", ""}, lists_, host_));
  EXPECT_FALSE(CheckPassword({u"ben", u"b", u"", u"", ""}, lists_, host_));
  lists_.Set(ParseAccessList(u"ben"), {});
  EXPECT_TRUE(CheckPassword({u"ben", u"b", u"", u"", ""}, lists_, host_));
  EXPECT_FALSE(CheckPassword({u"ben", u"wrong", u"", u"", ""}, lists_, host_))
      << "no list stands for a password";
}

}  // namespace

}  // namespace zn::test
