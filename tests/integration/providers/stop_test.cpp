// ShutdownServer: calls that run, tasks under way, and what is refused from then on.
#include <atomic>
#include <thread>

#include "server.h"

namespace test {
namespace {

using ::testing::ElementsAre;

class StopThreads : public ServerTest {
 protected:
  u32 Call(u32 minor, u32 flags, ObjectId* task) {
    ObjectId answered{};
    return PrCallProvider(ProviderNamed(u"plain"), object_, &kPluginInterface, 1, minor, in_.Get(),
                          out_.Get(), flags, 0, nullptr, nullptr, &answered, task);
  }
  void StartWithPlugin() {
    AddProvider("plain");
    ASSERT_EQ(Start(), ZN_OK);
    object_ = ObjectOf(u"plain");
    in_.Put("Started", started_.Address());
    in_.Put("GoOn", goOn_.Address());
  }
  ObjectId object_{};
  Signal started_;
  Signal goOn_;
  Propset in_;
  Propset out_;
};

TEST_F(StopThreads, WaitsForTheCallThatRuns) {
  StartWithPlugin();
  const ZnHandle provider = ProviderNamed(u"plain");
  std::thread caller([&] { EXPECT_EQ(Call(2, 0, nullptr), ZN_OK); });
  ASSERT_TRUE(started_.Wait());
  std::thread stopper([&] { EXPECT_EQ(ShutdownServer(), ZN_OK); });
  // Once the stop has begun further calls are refused; the running one holds it up.
  ObjectId answered{};
  const GUID nobodys{};
  Propset in;
  Propset out;
  while (PrCallProvider(provider, object_, &nobodys, 1, 1, in.Get(), out.Get(), 0, 0, nullptr,
                        nullptr, &answered, nullptr) != ZNE_SHUTDOWN_STARTED) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(WhoLogged("shutdown").empty());
  goOn_.Set();
  stopper.join();
  caller.join();
  std::vector<std::string> last = Log();
  std::erase_if(last, [](const std::string& line) {
    return line != "plain call ends" && line != "plain shutdown" && line != "plain unload";
  });
  EXPECT_THAT(last, ElementsAre("plain call ends", "plain shutdown", "plain unload"));
}

TEST_F(StopThreads, ATaskUnderWayEndsWithItsProvider) {
  StartWithPlugin();
  ObjectId task{};
  ASSERT_EQ(Call(3, ZN_CALL_ASYNCHRONOUS, &task), ZN_OK);
  ASSERT_TRUE(started_.Wait());
  ASSERT_TRUE(ObExists(nullptr, task));
  goOn_.Set();
  EXPECT_EQ(ShutdownServer(), ZN_OK);  // joins the plug-in's thread in its Shutdown
  EXPECT_FALSE(ObExists(nullptr, task));
}

TEST_F(StopThreads, TheShutdownAlertIsHeardBeforeTheProvidersEnd) {
  StartWithPlugin();
  ASSERT_EQ(ShutdownServer(), ZN_OK);
  EXPECT_THAT(heardTopics.Get(), ::testing::Contains("event.alert.keld.server.shutdown"));
}

TEST_F(StopThreads, AnAlertThatCannotBeRaisedIsTracedAndStopsNothing) {
  StartWithPlugin();
  ASSERT_EQ(ObUnpublishAlert(nullptr, ProviderNamed(u"system"), "event.alert.keld.server.shutdown"),
            ZN_OK);
  EXPECT_EQ(ShutdownServer(), ZN_OK);
  std::ifstream file(TracePath());
  const std::string trace((std::istreambuf_iterator<char>(file)), {});
  EXPECT_NE(trace.find("ZnSvc:Failed to raise alert"), std::string::npos);
  EXPECT_THAT(WhoLogged("shutdown"), ElementsAre("plain"));
}

TEST_F(StopThreads, EveryHandleIsRefusedAfterwards) {
  StartWithPlugin();
  const ZnHandle provider = ProviderNamed(u"plain");
  ASSERT_EQ(ShutdownServer(), ZN_OK);
  Property2* property = nullptr;
  EXPECT_EQ(ObGetProperty(database_, object_, "Name", &property), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ObGetProperty(nullptr, object_, "Name", &property), ZNE_INVALID_ARGUMENTS);
  ObjectId id{};
  EXPECT_EQ(PrGetProviderId(provider, &id), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(PsDestroyPropset(in_.Get()), ZNE_INVALID_ARGUMENTS);
}

TEST_F(StopThreads, ThereIsNoSecondLife) {
  StartWithPlugin();
  ASSERT_EQ(ShutdownServer(), ZN_OK);
  EXPECT_EQ(ZnInitialize(1, &IgnoreChange, nullptr, nullptr), ZNE_SHUTDOWN_STARTED);
  ZnHandle none = nullptr;
  EXPECT_EQ(ZnInitialize(0, nullptr, nullptr, &none), ZN_OK);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(ShutdownServer(), ZN_OK);
}

TEST_F(StopThreads, WithoutAServerIsHarmless) {
  EXPECT_EQ(ShutdownServer(), ZN_OK);
  Propset set;  // the library lives on
}

TEST_F(StopThreads, AfterAFailedStartUnloadsWhatWasLoaded) {
  root_.clear();
  AddProvider("plain", "ImageFile = \"" + Image("plain").string() + "\"");
  ASSERT_EQ(Start(), ZNE_UNEXPECTED);
  EXPECT_EQ(ShutdownServer(), ZN_OK);
  EXPECT_THAT(WhoLogged("shutdown"), ElementsAre("plain"));
}

TEST_F(StopThreads, CallsOfManyThreadsAndAStopEndTogether) {
  StartWithPlugin();
  const ZnHandle provider = ProviderNamed(u"plain");
  std::atomic<u32> refused{0};
  std::vector<std::thread> callers;
  Signal calling;
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&] {
      Propset in;
      Propset out;
      ObjectId answered{};
      u32 status = ZN_OK;
      while (!ZN_FAILED(status)) {
        status = PrCallProvider(provider, object_, &kPluginInterface, 1, 1, in.Get(), out.Get(), 0,
                                0, nullptr, nullptr, &answered, nullptr);
        calling.Set();
      }
      // The one refusal or the other, as far as the stop has got.
      if (status == ZNE_SHUTDOWN_STARTED || status == ZNE_INVALID_ARGUMENTS) ++refused;
    });
  }
  ASSERT_TRUE(calling.Wait());
  EXPECT_EQ(ShutdownServer(), ZN_OK);
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(refused, 4u);
}

}  // namespace
}  // namespace test
