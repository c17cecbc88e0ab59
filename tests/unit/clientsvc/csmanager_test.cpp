// The watch over servers, with a UDP socket in place of the server and a clock that the test turns.
#include "clientsvc/common/csmanager.h"

#include <atomic>

#include "framework/common/znstream/znstream.h"
#include "support/common/status.h"
#include "tests/unit/framework/trace_capture.h"
#include "tests/unit/support/descriptors.h"
#include "tests/unit/ucl/peers.h"
#include "ucl/common/datagram.h"

namespace zn::test {
namespace {

std::atomic<i64> clockNow{100};

class Watching : public testing::Test {
 protected:
  Watching() {
    clockNow = 100;
    CSManagerTimes times;
    times.pingMs = 5;
    times.receiveMs = 20;
    times.monitorMs = 3600000;  // the test makes the rounds
    times.now = [] { return clockNow.load(); };
    SetCSManagerTimes(times);
    EXPECT_TRUE(server_.Open());
    EXPECT_TRUE(server_.Bind(kLoopback, 0));
  }
  ~Watching() override {
    CSManagerShutdown();
    SetCSManagerTimes({});
  }
  ServerEntry EntryOf(u32 token, const void* session) const {
    ServerEntry entry;
    entry.session = session;
    entry.token = token;
    entry.lastResponse = clockNow;
    entry.address = kLoopback;
    entry.port = server_.Port();
    return entry;
  }
  // Waits for a ping and answers it with that token.
  void AnswerPing(u32 token) {
    ASSERT_EQ(server_.Wait(20000), DatagramSocket::WaitResult::kReady);
    u8 command[16];
    u32 address = 0;
    u32 port = 0;
    ASSERT_EQ(server_.Receive(command, sizeof(command), &address, &port), 4);
    EXPECT_EQ(LoadU32(command), 2u);
    u8 answer[4];
    StoreU32(answer, token);
    EXPECT_TRUE(server_.Send(answer, sizeof(answer), address, port));
    from_ = {address, port};
  }
  static bool IsThere(u32 token) {
    ServerEntry entry;
    return CSManagerFindServer(token, &entry);
  }
  static i64 LastResponse(u32 token) {
    ServerEntry entry;
    return CSManagerFindServer(token, &entry) ? entry.lastResponse : -1;
  }

  DatagramSocket server_;
  std::pair<u32, u32> from_;  // where the pings come from
  int one_ = 0;
  int two_ = 0;
};

TEST_F(Watching, BeforeItsStartNothingIsKept) {
  EXPECT_FALSE(CSManagerAddServer(EntryOf(1, &one_)));
  EXPECT_FALSE(IsThere(1));
  CSManagerActivate(1, 0);
  CSManagerRemoveServer(&one_);
  CSManagerShutdown();
}

TEST_F(Watching, NeedsASocket) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  {
    const TraceCapture traces(6);
    u32 status = ZN_OK;
    {
      const FewDescriptors few(0);
      status = CSManagerStartup();
    }
    EXPECT_EQ(status, ZNE_UNEXPECTED);
    EXPECT_TRUE(traces.Has("CSManagerStartup: Socket creation failed"));
  }
  EXPECT_FALSE(CSManagerRuns());
  EXPECT_EQ(CSManagerStartup(), ZN_OK) << "another try may succeed";
}

TEST_F(Watching, StartsOnce) {
  EXPECT_EQ(CSManagerStartup(), ZN_OK);
  EXPECT_TRUE(CSManagerAddServer(EntryOf(1, &one_)));
  EXPECT_EQ(CSManagerStartup(), ZN_OK);
  EXPECT_TRUE(IsThere(1));
}

TEST_F(Watching, AServerThatAnswersStays) {
  ASSERT_EQ(CSManagerStartup(), ZN_OK);
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
  CSManagerActivate(7, 0);
  for (i64 time = 200; time < 205; ++time) {
    clockNow = time;
    while (LastResponse(7) != time) AnswerPing(7);
    CSManagerMonitorNow();
    ASSERT_TRUE(IsThere(7)) << time;
  }
}

TEST_F(Watching, AServerThatIsSilentForARoundGoes) {
  ASSERT_EQ(CSManagerStartup(), ZN_OK);
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
  CSManagerActivate(7, 0);
  CSManagerMonitorNow();
  EXPECT_TRUE(IsThere(7)) << "its making counts as an answer";
  CSManagerMonitorNow();
  EXPECT_FALSE(CSManagerRuns()) << "and with the last one the watch ends";
  EXPECT_EQ(CSManagerStartup(), ZN_OK) << "a new one starts anew";
  EXPECT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
}

TEST_F(Watching, AnEntryThatIsNotActiveIsNeitherPingedNorLost) {
  ASSERT_EQ(CSManagerStartup(), ZN_OK);
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
  for (int i = 0; i < 5; ++i) CSManagerMonitorNow();
  EXPECT_TRUE(IsThere(7));
  EXPECT_EQ(server_.Wait(50), DatagramSocket::WaitResult::kTimeout);
}

TEST_F(Watching, AnswersOfAnotherLengthOrTokenDoNotCount) {
  ASSERT_EQ(CSManagerStartup(), ZN_OK);
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
  CSManagerActivate(7, 0);
  clockNow = 300;
  AnswerPing(8);
  u8 longer[5] = {0, 0, 0, 7, 0};
  EXPECT_TRUE(server_.Send(longer, 5, from_.first, from_.second));
  EXPECT_TRUE(server_.Send(longer, 3, from_.first, from_.second));
  clockNow = 301;
  for (i64 last = 0; (last = LastResponse(7)) != 301; AnswerPing(7)) {
    EXPECT_EQ(last, 100) << "only an answer of its own counts";
  }
}

TEST_F(Watching, TwoSessionsWithOneServerShareTheFirstEntry) {
  ASSERT_EQ(CSManagerStartup(), ZN_OK);
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &two_)));
  CSManagerActivate(7, 11);
  CSManagerActivate(7, 22);
  ServerEntry entry;
  ASSERT_TRUE(CSManagerFindServer(7, &entry));
  EXPECT_EQ(entry.session, &one_);
  EXPECT_EQ(entry.registeredId, 22u);
  CSManagerRemoveServer(&one_);
  ASSERT_TRUE(CSManagerFindServer(7, &entry));
  EXPECT_EQ(entry.session, &two_);
  EXPECT_FALSE(entry.active);
  CSManagerRemoveServer(&two_);
  EXPECT_FALSE(CSManagerRuns());
}

TEST_F(Watching, TheMonitorsOwnThreadEndsTheWatchWithTheLastServer) {
  CSManagerTimes times;
  times.pingMs = 5;
  times.receiveMs = 20;
  times.monitorMs = 5;
  times.now = [] { return clockNow.load(); };
  SetCSManagerTimes(times);
  ASSERT_EQ(CSManagerStartup(), ZN_OK);
  ASSERT_TRUE(CSManagerAddServer(EntryOf(7, &one_)));
  CSManagerActivate(7, 0);
  EXPECT_TRUE(Eventually([] { return !CSManagerRuns(); }));
}

}  // namespace
}  // namespace zn::test
