// The limits of a server, the tap, many connections, and that nothing grows.
#include <dirent.h>
#include <sys/resource.h>

#include <algorithm>

#include "tests/unit/framework/trace_capture.h"
#include "tests/unit/support/descriptors.h"
#include "tests/unit/ucl/peers.h"

namespace zn {
namespace {

using namespace test;

class UclLimits : public UclTest {};

size_t EntriesOf(const char* folder) {
  size_t count = 0;
  DIR* open = opendir(folder);
  while (readdir(open) != nullptr) ++count;
  closedir(open);
  return count;
}

TEST_F(UclLimits, FrameBeforeTheLogonIsHeldToItsOwnLimit) {
  const TraceCapture trace;
  UclServerOptions options;
  options.maxLogonFrameLength = 100;
  options.maxFrameLength = 1000;
  TestServer server(options);
  const BarePeer early = BarePeer::ConnectTo(server.port);
  early.Send(FrameBytes(2, 1, std::string(100, 'x')));
  EXPECT_EQ(early.ReceiveFrame().payload.size(), 100u);
  early.Send(HeaderBytes(101, 2, 2));
  EXPECT_TRUE(early.IsClosedByPeer());
  EXPECT_TRUE(
      trace.Has("Connection of 127.0.0.1 dropped: a frame of 101 bytes exceeds the limit of 100"));
  ASSERT_TRUE(server.recorder.WaitForLost(1));

  server.recorder.onData = [&](const DataCall& call, std::string*) {
    EXPECT_EQ(UCLMarkLoggedOn(server.handle, call.address, call.connectionId), 0u);
    return 0u;
  };
  const BarePeer late = BarePeer::ConnectTo(server.port);
  late.Send(FrameBytes(2, 1, "logon"));
  late.ReceiveFrame();
  late.Send(FrameBytes(2, 2, std::string(1000, 'x')));
  EXPECT_EQ(late.ReceiveFrame().id, 2u);
  late.Send(HeaderBytes(1001, 2, 3));
  EXPECT_TRUE(late.IsClosedByPeer());
}

TEST_F(UclLimits, DefaultLogonLimitIsOneMebibyte) {
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(3, 1, std::string(1 << 20, 'x')));
  ASSERT_TRUE(server.recorder.WaitForData(1));
  peer.Send(HeaderBytes((1 << 20) + 1, 3, 2));
  EXPECT_TRUE(peer.IsClosedByPeer());
}

TEST_F(UclLimits, PeerThatDoesNotLogOnInTimeIsDropped) {
  const TraceCapture trace;
  UclServerOptions options;
  options.logonTimeoutMs = 700;
  TestServer server(options);
  server.recorder.onData = [&](const DataCall& call, std::string*) {
    return UCLMarkLoggedOn(server.handle, call.address, call.connectionId);
  };
  BarePeer logged;
  ASSERT_TRUE(Eventually([&] {  // on a busy machine one may come too late
    logged = BarePeer::ConnectTo(server.port);
    logged.Send(FrameBytes(2, 1, ""));
    return logged.ReceiveFrame().id == 1;
  }));
  const size_t late = server.recorder.LostCount();
  const BarePeer silent = BarePeer::ConnectTo(server.port);
  EXPECT_TRUE(silent.IsClosedByPeer());
  ASSERT_TRUE(server.recorder.WaitForLost(late + 1));
  EXPECT_TRUE(trace.Has("Connection of 127.0.0.1 dropped: no logon within 700 ms"));
  logged.Send(FrameBytes(2, 2, ""));
  EXPECT_EQ(logged.ReceiveFrame().id, 2u);
}

TEST_F(UclLimits, ConnectionsBeyondTheNumberOfClientsAreClosedUntold) {
  const TraceCapture trace;
  UclServerOptions options;
  options.maxClients = 2;
  TestServer server(options);
  BarePeer one = BarePeer::ConnectTo(server.port);
  const BarePeer two = BarePeer::ConnectTo(server.port);
  const BarePeer three = BarePeer::ConnectTo(server.port);
  EXPECT_TRUE(three.IsClosedByPeer());
  EXPECT_TRUE(trace.Has("Connection of 127.0.0.1 refused: 2 clients are connected"));
  one.Close();
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 1; }));
  const BarePeer four = BarePeer::ConnectTo(server.port);
  four.Send(FrameBytes(2, 1, "in"));
  EXPECT_EQ(four.ReceiveFrame().payload, "in");
  EXPECT_EQ(server.recorder.ConnectCalls().size(), 4u);  // three in, one lost
}

TEST_F(UclLimits, LengthOfAHostileHeaderIsNotAllocated) {
  UclServerOptions options;
  options.maxLogonFrameLength = 0;
  const TestServer server(options);
  const BarePeer slow = BarePeer::ConnectTo(server.port);
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  slow.Send(HeaderBytes(0xFFFFFFFF, 2, 1) + "a few bytes");
  const BarePeer other = BarePeer::ConnectTo(server.port);
  other.Send(FrameBytes(2, 1, "meanwhile"));
  EXPECT_EQ(other.ReceiveFrame().payload, "meanwhile");
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024);  // KiB
}

struct TapLog {
  Mutex mutex;
  std::vector<std::string> lines ZN_GUARDED_BY(mutex);

  static void Note(const UclTapFrame& frame, void* context) {
    auto* self = static_cast<TapLog*>(context);
    const MutexLock lock(self->mutex);
    self->lines.push_back(std::string(frame.isServer ? "server" : "client") +
                          (frame.sent ? " sent " : " got ") + std::to_string(frame.type) + " " +
                          std::to_string(frame.id) + " " + std::to_string(frame.status) + " " +
                          std::string(static_cast<const char*>(frame.payload), frame.length));
  }
  std::vector<std::string> Lines() {
    const MutexLock lock(mutex);
    return lines;
  }
};

TEST_F(UclLimits, TapSeesEveryFrame) {
  TapLog log;
  TestServer server;
  server.recorder.onData = [&](const DataCall& call, std::string* answer) {
    UclTarget target{call.address, call.connectionId, 0};
    void* block = ZnAlloc(1);
    *static_cast<char*>(block) = 'p';
    const UclBuffer buffer = UCLMakeBuffer(block, 1);
    EXPECT_EQ(UCLSendRound(server.handle, &buffer, 1, &target, 1), 0u);
    *answer = "re";
    return 7u;
  };
  TestClient client(server.port);
  UCLSetTap(TapLog::Note, &log);
  EXPECT_EQ(client.Call("q"), "re");
  UCLSetTap(nullptr, nullptr);
  EXPECT_EQ(client.Call("q"), "re");
  std::vector<std::string> lines = log.Lines();
  const std::vector<std::string> expected = {"client got 1 1 7 re",  "client got 3 1 0 p",
                                             "client sent 2 1 0 q",  "server got 2 1 0 q",
                                             "server sent 1 1 7 re", "server sent 3 1 0 p"};
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, expected);
}

TEST_F(UclLimits, ThousandConnectsLeaveNothingBehind) {
  TestServer server;
  const auto cycle = [&](int times) {
    for (int i = 0; i < times; ++i) {
      TestClient client(server.port);
      EXPECT_EQ(client.Call("hello"), "hello");
      if (i % 2 == 0) {
        EXPECT_EQ(UCLDisconnect(client.handle, client.address, client.id), 0u);
      }
    }
    EXPECT_TRUE(Eventually([] { return Connections() == 0; }));
  };
  cycle(20);
  const size_t descriptors = EntriesOf("/proc/self/fd");
  const size_t threads = EntriesOf("/proc/self/task");
  cycle(1000);
  EXPECT_TRUE(server.recorder.WaitForLost(1020));
  // The last worker lets go of its connection's descriptor behind the telling.
  EXPECT_TRUE(Eventually([&] { return EntriesOf("/proc/self/fd") <= descriptors; }));
  EXPECT_LE(EntriesOf("/proc/self/task"), threads + 4);
  UclStatistics statistics{};
  UCLGetStatistics(&statistics);
  EXPECT_LE(statistics.workers, 8u);
}

TEST_F(UclLimits, ThreadsOfBlockedCallbacksGoAgain) {
  TestServer server;
  Signal leave;
  server.recorder.onData = [&](const DataCall&, std::string*) {
    EXPECT_TRUE(leave.Wait());
    return 0u;
  };
  std::vector<BarePeer> peers;
  for (int i = 0; i < 30; ++i) {
    peers.push_back(BarePeer::ConnectTo(server.port));
    peers.back().Send(FrameBytes(2, 1, ""));
  }
  const auto workers = [] {
    UclStatistics statistics{};
    UCLGetStatistics(&statistics);
    return statistics.workers;
  };
  EXPECT_TRUE(Eventually([&] { return workers() > 30; }));
  leave.Set();
  for (const BarePeer& peer : peers) EXPECT_EQ(peer.ReceiveFrame().id, 1u);
  EXPECT_TRUE(Eventually([&] { return workers() <= 5; }));
}

TEST_F(UclLimits, DescriptorsBeyond1024Serve) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit old = limit;
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
  setrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur < 2600) GTEST_SKIP() << "too few descriptors on this machine";
  TestServer server;
  std::vector<BarePeer> peers;
  for (int i = 0; i < 1200; ++i) peers.push_back(BarePeer::ConnectTo(server.port));
  ASSERT_TRUE(server.recorder.WaitForConnected(1200));
  for (const size_t i : {size_t{0}, size_t{600}, size_t{1199}}) {
    peers[i].Send(FrameBytes(2, 1, "x"));
    EXPECT_EQ(peers[i].ReceiveFrame().payload, "x");
  }
  TestClient client(server.port);
  EXPECT_EQ(client.Call("beyond"), "beyond");
  UclStatistics statistics{};
  UCLGetStatistics(&statistics);
  EXPECT_LE(statistics.workers, 12u);
  peers.clear();
  ASSERT_TRUE(server.recorder.WaitForLost(1200));
  setrlimit(RLIMIT_NOFILE, &old);
}

TEST_F(UclLimits, ServerThatRanOutOfDescriptorsAcceptsAgain) {
  const TraceCapture trace;
  TestServer server;
  const size_t before = EntriesOf("/proc/self/fd");
  {  // Once for each class, a sanitizer's check needs descriptors of its own: now it has them.
    TestServer other;
    const BarePeer first = BarePeer::ConnectTo(other.port);
    first.Send(FrameBytes(2, 1, "first"));
    EXPECT_EQ(first.ReceiveFrame().payload, "first");
  }
  ASSERT_TRUE(Eventually([&] { return EntriesOf("/proc/self/fd") <= before; }));
  const int own = socket(AF_INET, SOCK_STREAM, 0);
  const BarePeer peer(own);
  {
    // Nobody has connected yet: a server that looks for a connection holds a descriptor while it
    // looks, which would be free again behind the count.
    const FewDescriptors few(0);
    ConnectToLoopback(own, server.port);
    peer.Send(FrameBytes(2, 1, "patience"));
    EXPECT_TRUE(Eventually([&] {
      return trace.Has("Connections wait: the host is out of descriptors. err code = 18");
    }));
    EXPECT_FALSE(peer.WaitReadable(0));
  }
  EXPECT_EQ(peer.ReceiveFrame().payload, "patience");
}

TEST_F(UclLimits, ManyCallersOnManyConnectionsGetTheirOwnAnswers) {
  TestServer server;
  std::vector<std::unique_ptr<TestClient>> clients;
  for (int i = 0; i < 8; ++i) clients.push_back(std::make_unique<TestClient>(server.port));
  std::vector<std::thread> callers;
  for (int i = 0; i < 24; ++i) {
    callers.emplace_back([&, i] {
      const TestClient& client = *clients[static_cast<size_t>(i % 8)];
      for (int call = 0; call < 200; ++call) {
        const std::string text = std::to_string(i) + "/" + std::to_string(call);
        ASSERT_EQ(client.Call(text), text);
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(server.recorder.DataCalls().size(), 24u * 200);
}

TEST_F(UclLimits, PushesAndCallsTogetherLoseNothing) {
  TestServer server;
  TestClient client(server.port);
  std::atomic<int> pushes{0};
  client.recorder.onData = [&](const DataCall& call, std::string*) {
    EXPECT_EQ(call.data, std::to_string(pushes++));
    return 0u;
  };
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 2; }));
  const ConnectCall peer = server.recorder.ConnectCalls()[0];
  std::thread pushing([&] {
    for (int i = 0; i < 3000; ++i) {
      const std::string text = std::to_string(i);
      ASSERT_EQ(UCLSend(server.handle, 1, peer.address, peer.connectionId,
                        static_cast<u32>(text.size()), text.data()),
                0u);
    }
  });
  std::vector<std::thread> callers;
  for (int i = 0; i < 3; ++i) {
    callers.emplace_back([&] {
      for (int call = 0; call < 500; ++call) ASSERT_EQ(client.Call("x"), "x");
    });
  }
  pushing.join();
  for (std::thread& caller : callers) caller.join();
  EXPECT_TRUE(Eventually([&] { return pushes == 3000; }));
}

TEST_F(UclLimits, ConnectionsThatComeAndGoUnderCallsEndCleanly) {
  TestServer server;
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 40; ++round) {
        TestClient client(server.port);
        std::thread caller([&] {
          while (client.Call("x") == "x") {
          }
        });
        if (i % 2 == 0) {
          EXPECT_EQ(client.Call("y"), "y");
          EXPECT_EQ(UCLStopConnection(client.handle, client.address, client.id), 0u);
        } else {
          EXPECT_EQ(UCLDisconnect(client.handle, client.address, client.id), 0u);
        }
        caller.join();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(server.recorder.WaitForLost(240));
  EXPECT_TRUE(Eventually([] { return Connections() == 0; }));
}

}  // namespace
}  // namespace zn
