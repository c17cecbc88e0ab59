// This host's answers to the questions of a logon: its groups, its superuser, what is no name.
// Passwords are asked of PAM, which the tests of the service's process do.
#include "service/common/logonhost.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/common/text.h"

namespace zn::test {

namespace {

std::u16string OwnName() {
  char name[256] = "";
  EXPECT_EQ(gethostname(name, sizeof name - 1), 0);
  return ToWide(name);
}

// The names under which this host knows itself.
std::vector<std::u16string> OwnDomains() {
  std::u16string upper = OwnName();
  for (char16_t& unit : upper) {
    if (unit >= u'a' && unit <= u'z') unit = static_cast<char16_t>(unit - 0x20);
  }
  return {u"", u".", OwnName(), upper};
}

bool IsInGroup(std::u16string_view domain, std::u16string_view user, std::u16string_view group) {
  const bool isGlobal = ThisLogonHost().IsMember(GroupKind::kGlobal, domain, user, group);
  EXPECT_EQ(ThisLogonHost().IsMember(GroupKind::kLocal, domain, user, group), isGlobal)
      << "this host knows one kind";
  return isGlobal;
}

TEST(ThisHost, KnowsThePrimaryGroupOfAUser) {
  const passwd* root = getpwnam("root");
  ASSERT_NE(root, nullptr);
  const group* primary = getgrgid(root->pw_gid);
  ASSERT_NE(primary, nullptr);
  const std::u16string name = ToWide(primary->gr_name);
  for (const std::u16string& domain : OwnDomains()) {
    EXPECT_TRUE(IsInGroup(domain, u"root", name)) << ToNarrow(domain);
  }
  EXPECT_FALSE(IsInGroup(u"elsewhere.example", u"root", name));
  EXPECT_FALSE(IsInGroup(u"", u"no-such-user", name));
  EXPECT_FALSE(IsInGroup(u"", u"root", u"no-such-group"));
  EXPECT_FALSE(IsInGroup(u"", u"root", u"nogroup"));
  EXPECT_FALSE(IsInGroup(u"", u"ROOT", name)) << "names are compared exactly";
}

TEST(ThisHost, KnowsTheFurtherGroupsOfItsUsers) {
  std::vector<std::pair<std::string, std::string>> members;
  setgrent();
  while (const group* entry = getgrent()) {
    for (char** member = entry->gr_mem; *member != nullptr; ++member) {
      members.emplace_back(*member, entry->gr_name);
    }
  }
  endgrent();
  for (const auto& [user, name] : members) {
    if (getpwnam(user.c_str()) == nullptr) continue;
    EXPECT_TRUE(IsInGroup(u"", ToWide(user), ToWide(name))) << user << " in " << name;
  }
}

TEST(ThisHost, LetsTheSuperuserAloneLoadDrivers) {
  for (const std::u16string& domain : OwnDomains()) {
    EXPECT_TRUE(ThisLogonHost().MayLoadDrivers(domain, u"root")) << ToNarrow(domain);
  }
  EXPECT_FALSE(ThisLogonHost().MayLoadDrivers(u"elsewhere.example", u"root"));
  EXPECT_FALSE(ThisLogonHost().MayLoadDrivers(u"", u"nobody"));
  EXPECT_FALSE(ThisLogonHost().MayLoadDrivers(u"", u"no-such-user"));
  EXPECT_FALSE(ThisLogonHost().MayLoadDrivers(u"", u""));
}

// The calls of the host end a name at its first zero.
TEST(ThisHost, TakesNoNameWithAZeroInIt) {
  constexpr std::u16string_view kRoot{u"root\0x", 6};
  EXPECT_FALSE(ThisLogonHost().MayLoadDrivers(u"", kRoot));
  EXPECT_FALSE(IsInGroup(u"", kRoot, u"root"));
  EXPECT_FALSE(IsInGroup(u"", u"root", kRoot));
  LogonAttempt attempt;
  attempt.user = kRoot;
  EXPECT_FALSE(ThisLogonHost().LogOn(attempt));
  attempt.user = u"root";
  attempt.password = kRoot;
  EXPECT_FALSE(ThisLogonHost().LogOn(attempt));
}

TEST(ThisHost, LogsNobodyOnWithoutANameOrForAnotherHost) {
  EXPECT_FALSE(ThisLogonHost().LogOn({u"", u"", u"", u"", ""}));
  EXPECT_FALSE(ThisLogonHost().LogOn({u"root", u"", u"elsewhere.example", u"", ""}));
}

}  // namespace

}  // namespace zn::test
