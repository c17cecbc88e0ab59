// Dependencies between providers, and groups of providers.
#include "server.h"

namespace test {
namespace {

using ::testing::ElementsAre;

using Dependencies = ServerTest;

TEST_F(Dependencies, AreLoadedBefore) {
  AddProvider("alpha", "DependsOn = \"charlie\"\nStrictDependsOn = \"delta; bravo\"");
  for (const char* name : {"bravo", "charlie", "delta"}) AddProvider(name);
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:delta,bravo,charlie,alpha,");
}

TEST_F(Dependencies, AWeakOneMayFail) {
  AddProvider("alpha", "DependsOn = \"bad;missing;charlie\"");
  AddProvider("bad", "Behaviour = \"fail-initialize\"");
  AddProvider("charlie");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:charlie,alpha,");
  // In the order of the last try: "bad" had its own turn behind "missing".
  EXPECT_EQ(Failed(), "7:missing,bad,");
}

TEST_F(Dependencies, AStrictOneMayNot) {
  AddProvider("alpha", "StrictDependsOn = \"bad;charlie\"");
  AddProvider("bad", "Behaviour = \"fail-initialize\"");
  AddProvider("charlie");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:charlie,");
  EXPECT_EQ(Failed(), "7:alpha,bad,");
  EXPECT_FALSE(HasLogged("alpha entry"));
}

TEST_F(Dependencies, AStrictOneMustExist) {
  AddProvider("alpha", "StrictDependsOn = \"missing\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:");
  EXPECT_EQ(Failed(), "7:missing,alpha,");
}

TEST_F(Dependencies, AStrictOneThatIsLoadedAlreadyIsContent) {
  AddProvider("alpha");
  AddProvider("bravo", "StrictDependsOn = \"alpha\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:alpha,bravo,");
}

TEST_F(Dependencies, AStrictCycleFailsAllOfIt) {
  AddProvider("alpha", "StrictDependsOn = \"bravo\"");
  AddProvider("bravo", "StrictDependsOn = \"alpha\"");
  AddProvider("charlie");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:charlie,");
  EXPECT_EQ(Failed(), "7:alpha,bravo,");
}

TEST_F(Dependencies, AStrictCycleBehindTheFirstNameOfAListFailsToo) {
  AddProvider("alpha", "StrictDependsOn = \"zulu;bravo\"");
  AddProvider("bravo", "StrictDependsOn = \"zulu;alpha\"");
  AddProvider("zulu");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:zulu,");
  EXPECT_EQ(Failed(), "7:alpha,bravo,");
}

TEST_F(Dependencies, AWeakCycleLoadsAllOfIt) {
  AddProvider("alpha", "DependsOn = \"bravo\"");
  AddProvider("bravo", "DependsOn = \"charlie\"");
  AddProvider("charlie", "DependsOn = \"zulu;alpha\"");
  AddProvider("zulu");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:zulu,charlie,bravo,alpha,");
  EXPECT_EQ(Failed(), "7:");
}

TEST_F(Dependencies, OnItselfIsACycle) {
  AddProvider("alpha", "DependsOn = \"alpha\"");
  AddProvider("bravo", "StrictDependsOn = \"bravo\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:alpha,");
  EXPECT_EQ(Failed(), "7:bravo,");
}

TEST_F(Dependencies, UnloadInTheReverseOrderOfTheirLoading) {
  AddProvider("alpha", "DependsOn = \"charlie\"");
  AddProvider("bravo");
  AddProvider("charlie");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:charlie,alpha,bravo,");
  ASSERT_EQ(ShutdownServer(), ZN_OK);
  EXPECT_THAT(WhoLogged("shutdown"), ElementsAre("bravo", "alpha", "charlie"));
  EXPECT_THAT(WhoLogged("unload"), ElementsAre("bravo", "alpha", "charlie"));
}

using ProviderGroups = ServerTest;

TEST_F(ProviderGroups, LoadInTheirOrderAndBeforeTheProvidersWithoutOne) {
  AddGroup("storage", "DependsOn = \"video\"");
  AddGroup("network");
  AddGroup("video");
  AddProvider("alpha");
  AddProvider("bravo", "ProviderGroup = \"video\"");
  AddProvider("charlie", "ProviderGroup = \"storage\"");
  AddProvider("delta", "ProviderGroup = \"network\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:delta,bravo,charlie,alpha,");
  EXPECT_EQ(Failed(), "7:");
}

TEST_F(ProviderGroups, AProviderOfAnUnknownGroupIsNeverLoaded) {
  AddProvider("alpha", "ProviderGroup = \"unknown\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:");
  EXPECT_EQ(Failed(), "7:");
}

TEST_F(ProviderGroups, AStrictDependencyOnALaterGroupFails) {
  AddGroup("one");
  AddGroup("two");
  AddProvider("alpha", "ProviderGroup = \"one\"\nStrictDependsOn = \"bravo\"");
  AddProvider("bravo", "ProviderGroup = \"two\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:bravo,");
  EXPECT_EQ(Failed(), "7:alpha,");
}

TEST_F(ProviderGroups, AStrictDependencyOnAnEarlierGroupSucceeds) {
  AddGroup("one", "DependsOn = \"two\"");
  AddGroup("two");
  AddProvider("alpha", "ProviderGroup = \"one\"\nStrictDependsOn = \"bravo\"");
  AddProvider("bravo", "ProviderGroup = \"two\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:bravo,alpha,");
}

TEST_F(ProviderGroups, AWeakDependencyOnALaterGroupIsPassedOver) {
  AddGroup("one");
  AddGroup("two");
  AddProvider("alpha", "ProviderGroup = \"one\"\nDependsOn = \"bravo\"");
  AddProvider("bravo", "ProviderGroup = \"two\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:alpha,bravo,");
  EXPECT_EQ(Failed(), "7:");
}

TEST_F(ProviderGroups, ACycleFailsTheStart) {
  AddGroup("one", "DependsOn = \"two\"");
  AddGroup("two", "DependsOn = \"one\"");
  AddProvider("alpha");
  EXPECT_EQ(Start(), ZNE_PROVIDER_REG_CIRCULAR);
  EXPECT_EQ(Loaded(), "7:");
  EXPECT_FALSE(HasTraced("ZnAPI:ZnInitialize:Provider loading complete"));
}

TEST_F(ProviderGroups, AGroupThatDependsOnItselfFailsTheStart) {
  AddGroup("one", "DependsOn = \"one\"");
  EXPECT_EQ(Start(), ZNE_PROVIDER_REG_CIRCULAR);
}

TEST_F(ProviderGroups, AMissingGroupIsNoCycleForTheTwoThatNameIt) {
  AddGroup("one", "DependsOn = \"missing\"");
  AddGroup("two", "DependsOn = \"missing\"");
  AddProvider("alpha", "ProviderGroup = \"one\"");
  AddProvider("bravo", "ProviderGroup = \"two\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:alpha,bravo,");
}

TEST_F(ProviderGroups, TheirKeyMustExist) {
  groups_.clear();
  AddProvider("alpha");
  EXPECT_EQ(Start(), ZNE_PROVIDER_GROUP_REG_MISSING);
  EXPECT_EQ(Loaded(), "7:");
}

TEST_F(ProviderGroups, TheKeyOfTheProvidersMustExist) {
  providers_.clear();
  EXPECT_EQ(Start(), ZNE_PROVIDER_REG_UNREADABLE);
}

TEST_F(ProviderGroups, ANameHas127CharactersAtMost) {
  const std::string name(127, 'g');
  AddGroup(name);
  AddProvider("alpha", "ProviderGroup = \"" + name + "\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:alpha,");
}

TEST_F(ProviderGroups, ALongerNameFailsTheStart) {
  AddGroup(std::string(128, 'g'));
  EXPECT_EQ(Start(), ZNE_PROVIDER_GROUP_REG_DAMAGED);
}

TEST_F(ProviderGroups, AProviderThatCannotBeListedIsAWarningAlone) {
  AddProvider("alpha");
  AddEntry(std::string(256, 'n'), "");
  EXPECT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:alpha,");
  EXPECT_TRUE(HasTraced("ZnAPI:ZnInitialize:Provider loading complete"));
}

}  // namespace
}  // namespace test
