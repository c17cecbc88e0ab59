// The life of the service as its clients see it: while its providers load, while it stops, and what
// it does without its shared memory.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "support/common/shared_memory.h"
#include "tests/integration/network/network.h"
#include "zn/znmira.h"

namespace zn::test {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Long enough to see that nothing comes.
constexpr auto kMoment = std::chrono::milliseconds(200);

class Life : public Network {
 protected:
  // Starts it; its providers load until the gate opens.
  void BeginToLoad(const Gate& gate, const std::string& settings = {}) {
    Prepare(settings);
    port_ = FreeLoopbackPort();
    Service().Begin({"--port", std::to_string(port_)});
    ASSERT_TRUE(gate.WaitUntilReached());
  }
  // A session over the library, from the connect to an object and its end.
  [[nodiscard]] static u32 UseOnce(unsigned port) {
    const ClConnectInfo connect{0, port, "127.0.0.1", 0, 0, 0};
    const ClLogonInfo logon{u"root", u"toor", u"", u"", ZN_LOGON_PASSWORD};
    ClientHandle* handle = nullptr;
    ZnHandle database = nullptr;
    const u32 status = ClCreateDatabaseEx(&connect, &logon, &handle, &database, 0);
    if (status != ZN_OK) return status;
    u32 count = 0;
    ObjectId* ids = nullptr;
    EXPECT_EQ(DbGetObjects(database, ledger::kType, &count, &ids), ZN_OK);
    EXPECT_EQ(count, 1u);
    ZnFree(ids);
    EXPECT_EQ(ClDeleteDatabase(handle, database), ZN_OK);
    return status;
  }

  unsigned port_ = 0;
};

TEST_F(Life, WhoConnectsWhileProvidersLoadIsServedWhenTheyHaveLoaded) {
  const Gate gate(ledger::kLoadGateVariable);
  BeginToLoad(gate);
  RawClient waiting(port_);
  EXPECT_EQ(NumberOf(waiting.Ask(OfferOf(1)).Set(), "Message"), 2u) << "options can be agreed on";
  PropertySet request = MessageOf(13);
  request.Put("Length", Value::UInt32(512));
  const u32 challenge = waiting.SendRequest(request);
  RawClient early(port_);
  for (const u32 message : {3u, 5u, 7u, 9u, 4711u}) {
    const RawFrame frame = early.Ask(MessageOf(message));
    EXPECT_EQ(frame.status, ZNE_SERVER_NOT_READY) << message;
    EXPECT_THAT(frame.payload, IsEmpty()) << message;
  }
  ASSERT_EQ(ClStartup(), ZN_OK);
  std::future<u32> session = std::async(std::launch::async, UseOnce, port_);
  EXPECT_EQ(session.wait_for(kMoment), std::future_status::timeout) << "it waits";
  gate.Open();
  ASSERT_TRUE(Service().WaitUntilItListens());
  const PropertySet answer = waiting.WaitForResponse(challenge).Set();
  EXPECT_EQ(NumberOf(answer, "Result"), ZN_OK);
  EXPECT_NE(answer.FindValue("Data", ZN_TYPE_BINARY), nullptr);
  EXPECT_EQ(session.get(), ZN_OK);
  EXPECT_EQ(ClShutdown(), ZN_OK);
  EXPECT_EQ(early.LogOn(u"root", u"toor"), ZN_OK) << "on the connection that was refused";
}

TEST_F(Life, AStopThatComesWhileProvidersLoadIsTakenWhenTheyHaveLoaded) {
  const Gate gate(ledger::kLoadGateVariable);
  BeginToLoad(gate);
  RawClient client(port_);
  Service().Signal(SIGTERM);
  EXPECT_EQ(NumberOf(client.Ask(OfferOf(1)).Set(), "Message"), 2u) << "it has not ended";
  gate.Open();
  EXPECT_EQ(Service().WaitForEnd(), 0);
  EXPECT_TRUE(client.IsClosedByPeer());
  EXPECT_THAT(Service().RestOfOutput(), HasSubstr("znsvc: stopped"));
}

TEST_F(Life, ACallThatRunsHoldsTheStopUpAndIsAnswered) {
  const Gate gate(ledger::kHoldGateVariable);
  Start();
  const auto caller = RawSession();
  const auto other = RawSession();
  const ObjectId ledger = LedgerOf(*caller);
  const u32 call = caller->SendRequest(LedgerCall(ledger, ledger::kHold));
  ASSERT_TRUE(gate.WaitUntilReached());
  Service().Signal(SIGTERM);
  const PropertySet small = LedgerCall(ledger, ledger::kNothing);
  EXPECT_TRUE(Eventually([&] {
    return NumberOf(other->Ask(small).Set(), "Result") == ZNE_SHUTDOWN_STARTED;
  })) << "further calls are refused";
  std::this_thread::sleep_for(kMoment);
  EXPECT_EQ(waitpid(Service().Pid(), nullptr, WNOHANG), 0) << "it waits for the call that runs";
  EXPECT_EQ(NumberOf(other->Ask(small).Set(), "Result"), ZNE_SHUTDOWN_STARTED);
  gate.Open();
  EXPECT_EQ(NumberOf(caller->WaitForResponse(call).Set(), "Result"), ZN_OK);
  EXPECT_EQ(Service().WaitForEnd(), 0);
}

TEST_F(Life, ASecondSignalDoesNotWaitForTheCallsThatRun) {
  const Gate gate(ledger::kHoldGateVariable);
  Start();
  const auto caller = RawSession();
  const auto other = RawSession();
  const ObjectId ledger = LedgerOf(*caller);
  static_cast<void>(caller->SendRequest(LedgerCall(ledger, ledger::kHold)));
  ASSERT_TRUE(gate.WaitUntilReached());
  Service().Signal(SIGTERM);
  EXPECT_TRUE(Eventually([&] {
    return NumberOf(other->Ask(LedgerCall(ledger, ledger::kNothing)).Set(), "Result") ==
           ZNE_SHUTDOWN_STARTED;
  })) << "it is drawing to its end";
  Service().Signal(SIGTERM);
  EXPECT_EQ(Service().WaitForEnd(), 128 + SIGTERM);
}

TEST_F(Life, ClientsThatVanishAmidACallCostTheCallNothing) {
  const Gate gate(ledger::kHoldGateVariable);
  Start();
  auto caller = RawSession();
  static_cast<void>(caller->SendRequest(LedgerCall(LedgerOf(*caller), ledger::kHold)));
  ASSERT_TRUE(gate.WaitUntilReached());
  caller.reset();
  gate.Open();
  EXPECT_TRUE(Eventually(
      [&] { return Traced("ZnSvc:Client connected.") == Traced("ZnSvc:Client disconnected."); }));
}

TEST_F(Life, ObjectsThatACallMakesComeBeforeItsAnswer) {
  Start();
  const auto caller = RawSession();
  const ObjectId ledger = LedgerOf(*caller);
  for (const u64 count : {1u, 20u}) {
    PropertySet data;
    data.Put("Count", Value::UInt64(count));
    caller->pushed.clear();
    const RawFrame answer = caller->Ask(LedgerCall(ledger, ledger::kMake, data));
    EXPECT_EQ(NumberOf(answer.Set(), "Result"), ZN_OK);
    // The events of the start may still be on their way.
    std::erase_if(caller->pushed,
                  [](const RawFrame& frame) { return NumberOf(frame.Set(), "Message") == 12; });
    ASSERT_THAT(caller->pushed, SizeIs(1)) << "all that a call changed is one notification";
    const PropertySet change = caller->pushed[0].Set();
    EXPECT_EQ(NumberOf(change, "Message"), 11u);
    const Value* inner = change.FindValue("Data", ZN_TYPE_PROPSET)
                             ->AsSet()
                             .FindValue("Data", ZN_TYPE_PROPSET | ZN_TYPE_ARRAY);
    EXPECT_EQ(inner == nullptr ? 1 : inner->AsArray().size() - 2, count)
        << "one by itself; several between a first and a last record";
  }
}

TEST_F(Life, AMissingFolderOfTheInstallationFailsTheStartBehindTheProviders) {
  Prepare();
  std::string settings = ReadFile(Service().SettingsFile());
  settings.erase(0, settings.find('\n') + 1);
  const std::string trace = Service().Folder() / "trace.log";
  WriteFile(Service().SettingsFile(),
            settings + "[Tracing.znmira]\nTRACELEVEL = 1\nTraceFile = '" + trace + "'\n");
  EXPECT_FALSE(Service().Start());
  EXPECT_EQ(Service().WaitForEnd(), 1);
  EXPECT_THAT(Service().Output(), HasSubstr("znsvc: the start failed"));
  const std::string text = ReadFile(trace);
  const size_t loaded = text.find("ZnAPI:ZnInitialize:Provider loading complete");
  const size_t failed = text.find("ZnSvc:Failed to create System database");
  EXPECT_NE(loaded, std::string::npos);
  EXPECT_LT(loaded, failed);
}

TEST_F(Life, WithoutSharedMemoryThePasswordIsLeft) {
  const unsigned port = FreeLoopbackPort();
  // A folder of its name stands in its way.
  const std::string place = "/dev/shm/" + AuthSharedMemoryName(port);
  static_cast<void>(unlink(place.c_str()));  // of a service that was killed long ago
  ASSERT_EQ(mkdir(place.c_str(), 0700), 0);
  Start({}, {"--port", std::to_string(port)});
  EXPECT_EQ(rmdir(place.c_str()), 0);
  EXPECT_EQ(Traced("GUID based authentication is not supported"), 1u);
  RawClient client(port);
  client.Meet(2);
  EXPECT_EQ(NumberOf(client.Offered(), "Authentication"), 1u);
  EXPECT_EQ(client.Offered().Find("ShMemIndex"), nullptr);
  EXPECT_EQ(NumberOf(client.Ask(client.LogonMessage(u"root", u"toor", u"", 1)).Set(), "Result"),
            ZN_OK);
}

}  // namespace

}  // namespace zn::test
