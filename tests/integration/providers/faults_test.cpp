// Plug-ins that fail: each costs itself and what strictly depends on it, never the server.
#include "server.h"

namespace test {
namespace {

using ::testing::ElementsAre;

using Faults = ServerTest;

struct FaultCase {
  const char* behaviour;
  bool reachesInitialize;
};

class FaultAtStart : public ServerTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultAtStart, IsRecordedAndLeavesNothing) {
  AddProvider("bad", std::string("Behaviour = \"") + GetParam().behaviour + "\"");
  AddProvider("good");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Failed(), "7:bad,");
  EXPECT_EQ(Loaded(), "7:good,");
  EXPECT_EQ(ProviderNamed(u"bad"), nullptr);
  EXPECT_TRUE(HasLogged("bad entry"));
  EXPECT_EQ(HasLogged("bad initialize"), GetParam().reachesInitialize);
  EXPECT_TRUE(HasLogged("bad unload"));
  EXPECT_FALSE(HasLogged("bad shutdown"));
  // The group of the machine, the server's two alerts and the good plug-in's object are all there
  // is.
  EXPECT_EQ(ObjectsOfType("KELD_Object").size(), 4u);
  EXPECT_EQ(ObjectsOfType("KELD_SystemAlerts").size(), 2u);
  EXPECT_TRUE(ObjectsOfType("KELD_Task").empty());
}

INSTANTIATE_TEST_SUITE_P(
    Plugins, FaultAtStart,
    testing::Values(FaultCase{"throw-entry", false}, FaultCase{"fail-entry", false},
                    FaultCase{"odd-entry", false}, FaultCase{"throw-initialize", true},
                    FaultCase{"fail-initialize", true}, FaultCase{"no-initialize", false}),
    [](const auto& test) {
      std::string name(test.param.behaviour);
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

TEST_F(Faults, AVersionThatThrowsIsTheEmptyText) {
  AddProvider("bad", "Behaviour = \"throw-version\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:bad,");
  EXPECT_EQ(PropertyOf(u"bad", "VERSION"), "7:");
}

TEST_F(Faults, ACallThatThrowsIsAnAccessViolation) {
  AddProvider("plain");
  ASSERT_EQ(Start(), ZN_OK);
  Propset in;
  Propset out;
  ObjectId answered{};
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(PrCallDispatch(nullptr, ObjectOf(u"plain"), &kPluginInterface, 1, 4, in.Get(),
                             out.Get(), 0, 0, nullptr, nullptr, &answered, nullptr),
              ZNE_PROVIDER_ACCESS_VIOLATED);
  }
  EXPECT_TRUE(Same(answered, ObjectId{}));
  EXPECT_EQ(ShutdownServer(), ZN_OK);  // would wait for ever for a call that was not counted off
}

TEST_F(Faults, APluginWithoutCallIsNotImplemented) {
  AddProvider("plain", "Behaviour = \"no-call\"");
  ASSERT_EQ(Start(), ZN_OK);
  Propset in;
  Propset out;
  ObjectId answered{};
  EXPECT_EQ(PrCallDispatch(nullptr, ObjectOf(u"plain"), &kPluginInterface, 1, 1, in.Get(),
                           out.Get(), 0, 0, nullptr, nullptr, &answered, nullptr),
            ZNE_NOT_IMPLEMENTED);
}

TEST_F(Faults, AnEventThatThrowsDisturbsNobody) {
  AddProvider("bad", "Behaviour = \"throw-event\"");
  AddProvider("good");
  ASSERT_EQ(Start(), ZN_OK);
  DeliverAll();
  const Propset data;
  ASSERT_EQ(EvRaiseEvent(nullptr, ProviderNamed(u"good"), "event.test.one", data.Get()), ZN_OK);
  DeliverAll();
  EXPECT_TRUE(HasLogged("bad event event.test.one"));
  EXPECT_TRUE(HasLogged("good event event.test.one"));
}

TEST_F(Faults, AShutdownThatThrowsDelaysNobody) {
  AddProvider("alpha");
  AddProvider("bad", "Behaviour = \"throw-shutdown\"");
  AddProvider("charlie");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(ShutdownServer(), ZN_OK);
  EXPECT_THAT(WhoLogged("shutdown"), ElementsAre("charlie", "bad", "alpha"));
  EXPECT_THAT(WhoLogged("unload"), ElementsAre("charlie", "bad", "alpha"));
}

TEST_F(Faults, AFailedProviderStandsOnceInTheList) {
  AddProvider("a", "DependsOn = \"bad\"");
  AddProvider("b", "DependsOn = \"bad\"");
  AddProvider("bad", "Behaviour = \"fail-entry\"");
  ASSERT_EQ(Start(), ZN_OK);
  EXPECT_EQ(Loaded(), "7:a,b,");
  EXPECT_EQ(Failed(), "7:bad,");  // once, though it was asked for three times
}

}  // namespace
}  // namespace test
