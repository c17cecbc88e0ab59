// Many sessions, one after the other and all at once: what they cost, and what they leave.
#include <signal.h>
#include <unistd.h>

#include <algorithm>

#include "tests/integration/network/network.h"
#include "zn/znmira.h"

namespace zn::test {

namespace {

constexpr size_t kMostGrowthKiB = 1024;  // of 1,000 sessions that are over: a KiB each
constexpr size_t kMostResidentKiB = 64;  // of an idle session
constexpr size_t kIdleWorkers = 4;       // that the communication layer keeps, once it had them

class Sessions : public Network {
 protected:
  Sessions() { EXPECT_EQ(ClStartup(), ZN_OK); }
  ~Sessions() override { EXPECT_EQ(ClShutdown(), ZN_OK); }

  // A whole life: logon, types and providers, objects, a call, the end.
  void LiveOnce() const {
    const ClConnectInfo connect{0, Port(), "127.0.0.1", 0, 0, 0};
    const ClLogonInfo logon{u"root", u"toor", u"", u"", ZN_LOGON_PASSWORD};
    ClientHandle* handle = nullptr;
    ZnHandle database = nullptr;
    ASSERT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle, &database, 0), ZN_OK);
    u32 count = 0;
    ObjectId* ids = nullptr;
    EXPECT_EQ(DbGetObjects(database, ledger::kType, &count, &ids), ZN_OK);
    ASSERT_EQ(count, 1u);
    ZnHandle in = nullptr;
    ZnHandle out = nullptr;
    ASSERT_EQ(PsCreatePropset(&in), ZN_OK);
    ASSERT_EQ(PsCreatePropset(&out), ZN_OK);
    u64 number = 1;
    for (const char* name : {"Number", "Tells"}) {
      const Property2 flat{const_cast<char*>(name), ZN_TYPE_UINT64, 0, sizeof number, &number};
      EXPECT_EQ(PsAddProperty(in, &flat), ZN_OK);
    }
    ObjectId answeredBy;
    EXPECT_EQ(PrCallDispatch(database, ids[0], &ledger::kInterface, ledger::kMajor, ledger::kAppend,
                             in, out, 0, 0, nullptr, nullptr, &answeredBy, nullptr),
              ZN_OK);
    PsDestroyPropset(in);
    PsDestroyPropset(out);
    ZnFree(ids);
    EXPECT_EQ(ClDeleteDatabase(handle, database), ZN_OK);
  }
  [[nodiscard]] bool IsAlone() const {
    return Traced("ZnSvc:Client connected.") == Traced("ZnSvc:Client disconnected.");
  }
  // Round trips of a call that changes nothing, in ms.
  [[nodiscard]] static std::vector<double> CallTimes(RawClient& client, const ObjectId& ledger,
                                                     int calls) {
    const PropertySet call = LedgerCall(ledger, ledger::kNothing);
    std::vector<double> times;
    for (int i = 0; i < calls; ++i) {
      const auto begin = Clock::now();
      EXPECT_EQ(client.Ask(call).status, ZN_OK);
      times.push_back(Milliseconds(Clock::now() - begin));
    }
    return times;
  }
};

TEST_F(Sessions, ComeAndGoWithoutGrowth) {
  const int count = Sized(100, 1000);
  Start();
  const size_t threads = FactsOf(Service().Pid()).threads;
  for (int i = 0; i < Sized(50, 200); ++i) LiveOnce();
  ASSERT_TRUE(Eventually([&] { return IsAlone(); }));
  ProcessFacts server = FactsOf(Service().Pid());
  server.threads = threads;
  const ProcessFacts client = FactsOf(getpid());
  const auto begin = Clock::now();
  for (int i = 0; i < count; ++i) LiveOnce();
  const double seconds = Milliseconds(Clock::now() - begin) / 1000;
  ASSERT_TRUE(Eventually([&] { return IsAlone(); }));
  const auto expectNoGrowth = [](const char* whose, pid_t pid, const ProcessFacts& before) {
    EXPECT_TRUE(Eventually([&] {
      const ProcessFacts now = FactsOf(pid);
      return now.descriptors <= before.descriptors && now.threads <= before.threads + kIdleWorkers;
    })) << whose;
    const ProcessFacts after = FactsOf(pid);
    if (!kIsSanitized) {
      EXPECT_LE(after.residentKiB, before.residentKiB + kMostGrowthKiB) << whose;
    }
    Measured("%s: descriptors %zu -> %zu, threads %zu -> %zu, resident %zu -> %zu KiB", whose,
             before.descriptors, after.descriptors, before.threads, after.threads,
             before.residentKiB, after.residentKiB);
  };
  Measured("%d sessions in %.1f s", count, seconds);
  expectNoGrowth("server", Service().Pid(), server);
  expectNoGrowth("client", getpid(), client);
}

TEST_F(Sessions, IdleOnesCostLittle) {
  const size_t count = Sized<size_t>(200, 2000);
  const int calls = Sized(200, 5000);
  ASSERT_TRUE(AllowDescriptors(count + 200));
  Start();
  const auto caller = RawSession();
  const ObjectId ledger = LedgerOf(*caller);
  static_cast<void>(CallTimes(*caller, ledger, calls));
  const std::vector<double> alone = CallTimes(*caller, ledger, calls);
  std::vector<std::unique_ptr<RawClient>> idle;
  for (int i = 0; i < 20; ++i) idle.push_back(RawSession());
  const ProcessFacts before = FactsOf(Service().Pid());
  const auto begin = Clock::now();
  for (size_t i = 0; i < count; ++i) idle.push_back(RawSession());
  const double seconds = Milliseconds(Clock::now() - begin) / 1000;
  const ProcessFacts after = FactsOf(Service().Pid());
  const std::vector<double> among = CallTimes(*caller, ledger, calls);
  const double residentKiB =
      static_cast<double>(after.residentKiB) - static_cast<double>(before.residentKiB);
  Measured("%zu idle sessions: %.1f KiB resident each, threads %zu -> %zu", count,
           residentKiB / static_cast<double>(count), before.threads, after.threads);
  Measured("a call takes %.4f ms with one session, %.4f ms among them (half of %d calls)",
           Percentile(alone, 50), Percentile(among, 50), calls);
  Measured("1,000 connects with logon and first cache request take %.2f s",
           seconds * 1000 / static_cast<double>(count));
  if (!kIsSanitized) {
    EXPECT_LE(residentKiB / static_cast<double>(count), kMostResidentKiB);
  }
  EXPECT_LE(after.threads, before.threads + kIdleWorkers) << "no thread of its own";
  if (IsFullSize()) {
    EXPECT_LT(Percentile(among, 50), 2.5 * Percentile(alone, 50));
    EXPECT_LT(seconds * 1000 / static_cast<double>(count), 10);
  }
}

TEST_F(Sessions, TheStopWithIdleOnesTakesLessThanASecond) {
  Start();
  std::vector<std::unique_ptr<RawClient>> idle;
  for (int i = 0; i < 100; ++i) idle.push_back(RawSession());
  const auto begin = Clock::now();
  Service().Signal(SIGTERM);
  EXPECT_EQ(Service().WaitForEnd(), 0);
  const double ms = Milliseconds(Clock::now() - begin);
  EXPECT_LT(ms, 1000 * kSlowness);
  for (const auto& client : idle) {
    RawFrame frame;
    size_t told = 0;
    while (client->Receive(&frame)) ++told;
    EXPECT_GE(told, 1u) << "each is told of the stop before its connection ends";
  }
  Measured("100 idle sessions: %.0f ms from the signal to the end of the process", ms);
}

}  // namespace

}  // namespace zn::test
