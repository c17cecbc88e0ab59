// A server against bare peers that play its clients.
#include <algorithm>
#include <fstream>
#include <set>

#include "tests/unit/framework/trace_capture.h"
#include "tests/unit/ucl/peers.h"

namespace zn {
namespace {

using namespace test;

class UclServer : public UclTest {};

TEST_F(UclServer, AnswersARequestWithTheStatusOfItsCallback) {
  TestServer server;
  server.recorder.onData = [](const DataCall& call, std::string* answer) {
    EXPECT_FALSE(call.oneWay);
    *answer = call.data + "!";
    return 0xC100003Bu;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(2, 0x12345678, "hello"));
  EXPECT_EQ(peer.Receive(64 + 6), FrameBytes(1, 0x12345678, "hello!", 0xC100003B));
}

TEST_F(UclServer, RequestsMayComeInPiecesAndMerged) {
  const TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  for (const char byte : FrameBytes(2, 1, "byte by byte")) peer.Send(std::string(1, byte));
  EXPECT_EQ(peer.ReceiveFrame().payload, "byte by byte");
  peer.Send(FrameBytes(2, 2, "a") + FrameBytes(2, 3, "") + FrameBytes(2, 4, "c").substr(0, 50));
  EXPECT_EQ(peer.ReceiveFrame().payload, "a");
  EXPECT_EQ(peer.Receive(64), FrameBytes(1, 3, ""));
  peer.Send(FrameBytes(2, 4, "c").substr(50));
  EXPECT_EQ(peer.ReceiveFrame().payload, "c");
}

TEST_F(UclServer, OneWayFrameGetsNoAnswerWhateverItsCallbackFills) {
  const TestServer server;  // fills an answer for every frame
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(3, 1, "one way") + FrameBytes(2, 2, "request"));
  const auto frame = peer.ReceiveFrame();
  EXPECT_EQ(frame.id, 2u);
  EXPECT_EQ(frame.payload, "request");
}

TEST_F(UclServer, TracesWhatItServes) {
  const TraceCapture trace;
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(3, 41, "abc"));
  ASSERT_TRUE(server.recorder.WaitForData(1));
  peer.Send(FrameBytes(2, 42, "abcd"));
  peer.ReceiveFrame();
  peer.Send(FrameBytes(2, 43, ""));
  peer.ReceiveFrame();
  EXPECT_TRUE(trace.Has("pRcvData->ulType = 3"));
  EXPECT_TRUE(trace.Has("send on server-recv-thread, size = 3, id = 41, type = 1"));
  EXPECT_TRUE(trace.Has("send on server-recv-thread, size = 4, id = 42, type = 1"));
}

TEST_F(UclServer, DamagedEndMarkerDropsTheFrameAndTheConnectionGoesOn) {
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  std::string damaged = FrameBytes(2, 1, "lost");
  damaged[damaged.size() - 2] = '?';
  peer.Send(damaged + FrameBytes(2, 2, "kept"));
  const auto frame = peer.ReceiveFrame();
  EXPECT_EQ(frame.id, 2u);
  EXPECT_EQ(server.recorder.DataCalls().size(), 1u);
}

TEST_F(UclServer, BadHeadMarkerDropsThePeerAloneAndTellsItsLoss) {
  TestServer server;
  const BarePeer good = BarePeer::ConnectTo(server.port);
  const BarePeer bad = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(server.recorder.WaitForConnected(2));
  bad.Send("GET / HTTP/1.1\r\nHost: somebody else altogether\r\n\r\n\r\n");
  EXPECT_TRUE(bad.IsClosedByPeer());
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  good.Send(FrameBytes(2, 1, "fine"));
  EXPECT_EQ(good.ReceiveFrame().payload, "fine");
  EXPECT_EQ(server.recorder.LostCount(), 1u);
}

TEST_F(UclServer, TellsConnectsAndLossesOnceEach) {
  TestServer server;
  BarePeer peer = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  peer.Send(FrameBytes(2, 1, ""));
  peer.ReceiveFrame();
  peer.Close();
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 0; }));
  const std::vector<ConnectCall> calls = server.recorder.ConnectCalls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_TRUE(calls[0].connected);
  EXPECT_FALSE(calls[1].connected);
  EXPECT_EQ(calls[0].host, "127.0.0.1");
  EXPECT_EQ(calls[1].host, "127.0.0.1");
  EXPECT_EQ(calls[0].address, kLoopback);
  EXPECT_EQ(calls[0].connectionId, calls[1].connectionId);
}

TEST_F(UclServer, RefusedConnectionIsClosedAndNotToldAgain) {
  TestServer server;
  server.recorder.onConnect = [](const ConnectCall&) { return 1u; };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  EXPECT_TRUE(peer.IsClosedByPeer());
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  EXPECT_EQ(server.recorder.LostCount(), 0u);
  EXPECT_EQ(Connections(), 0u);
}

TEST_F(UclServer, ConnectCallbackRunsBeforeAnyDataCallback) {
  TestServer server;
  Signal go;
  std::atomic<bool> connected{false};
  server.recorder.onConnect = [&](const ConnectCall& call) {
    if (call.connected) {
      EXPECT_TRUE(go.Wait());
    }
    connected = true;
    return 0u;
  };
  server.recorder.onData = [&](const DataCall&, std::string*) {
    EXPECT_TRUE(connected);
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(2, 1, "early"));
  EXPECT_FALSE(peer.WaitReadable(20));
  go.Set();
  EXPECT_EQ(peer.ReceiveFrame().id, 1u);
}

TEST_F(UclServer, ConnectionIdsAreUniqueInTheProcess) {
  TestServer one;
  TestServer two;
  const TestClient client(one.port);
  const TestClient other(two.port);
  ASSERT_TRUE(one.recorder.WaitForConnected(1));
  ASSERT_TRUE(two.recorder.WaitForConnected(1));
  const std::set<u32> ids = {client.id, other.id, one.recorder.ConnectCalls()[0].connectionId,
                             two.recorder.ConnectCalls()[0].connectionId};
  EXPECT_EQ(ids.size(), 4u);
  EXPECT_FALSE(ids.contains(0));
}

TEST_F(UclServer, CallbackThatBlocksHoldsUpItsOwnConnectionAlone) {
  TestServer server;
  Signal leave;
  server.recorder.onData = [&](const DataCall& call, std::string* answer) {
    if (call.data == "block") {
      EXPECT_TRUE(leave.Wait());
    }
    *answer = call.data;
    return 0u;
  };
  std::vector<BarePeer> blocked;
  for (int i = 0; i < 20; ++i) {
    blocked.push_back(BarePeer::ConnectTo(server.port));
    blocked.back().Send(FrameBytes(2, 1, "block") + FrameBytes(2, 2, "behind"));
  }
  const BarePeer free = BarePeer::ConnectTo(server.port);
  free.Send(FrameBytes(2, 3, "free"));
  EXPECT_EQ(free.ReceiveFrame().payload, "free");
  for (const BarePeer& peer : blocked) EXPECT_FALSE(peer.WaitReadable(0));
  leave.Set();
  for (const BarePeer& peer : blocked) {
    EXPECT_EQ(peer.ReceiveFrame().payload, "block");
    EXPECT_EQ(peer.ReceiveFrame().payload, "behind");
  }
}

TEST_F(UclServer, DisconnectOnTheCallbacksOwnThreadDoesNotWaitForItself) {
  TestServer server;
  server.recorder.onData = [&](const DataCall& call, std::string* answer) {
    *answer = "never arrives";
    EXPECT_EQ(UCLDisconnectPeer(server.handle, call.address, call.connectionId), 0u);
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(2, 1, "garbage"));
  EXPECT_EQ(peer.Receive(64), "");
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 0; }));
}

TEST_F(UclServer, DisconnectOfAPeerTellsItsLossOnce) {
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 1; }));
  const u32 id = server.recorder.ConnectCalls()[0].connectionId;
  EXPECT_EQ(UCLDisconnectPeer(server.handle, kLoopback, id), 0u);
  EXPECT_EQ(server.recorder.LostCount(), 1u);
  EXPECT_EQ(UCLDisconnectPeer(server.handle, kLoopback, id), UCLE_DISCONNECT_FAILED);
  EXPECT_TRUE(peer.IsClosedByPeer());
  EXPECT_EQ(server.recorder.LostCount(), 1u);
}

TEST_F(UclServer, ClosingTellsNoLossAndLetsTheRequestThatRunsHaveItsAnswer) {
  TestServer server;
  Signal entered;
  Signal leave;
  std::atomic<bool> left{false};
  server.recorder.onData = [&](const DataCall& call, std::string* answer) {
    entered.Set();
    EXPECT_TRUE(leave.Wait());
    left = true;
    *answer = call.data;
    return 0u;
  };
  const BarePeer busy = BarePeer::ConnectTo(server.port);
  const BarePeer idle = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(server.recorder.WaitForConnected(2));
  EXPECT_TRUE(Eventually([] { return Connections() == 2; }));
  busy.Send(FrameBytes(2, 1, "first") + FrameBytes(2, 2, "behind"));
  ASSERT_TRUE(entered.Wait());
  std::thread closing([&] {
    EXPECT_EQ(UCLCloseServer(server.handle), 0u);
    EXPECT_TRUE(left);
  });
  EXPECT_TRUE(idle.IsClosedByPeer());
  leave.Set();
  EXPECT_EQ(busy.ReceiveFrame().payload, "first");
  EXPECT_TRUE(busy.IsClosedByPeer()) << "nothing more is taken";
  closing.join();
  EXPECT_EQ(server.recorder.LostCount(), 0u);
}

TEST_F(UclServer, StopAcceptingLeavesTheConnections) {
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  // Only an answer shows that the server has let it in: it is still about to when its callback
  // runs.
  peer.Send(FrameBytes(2, 7, "let in"));
  EXPECT_EQ(peer.ReceiveFrame().payload, "let in");
  EXPECT_EQ(UCLStopAccepting(server.handle, 30'000), 0u);
  EXPECT_EQ(UCLStopAccepting(server.handle, 30'000), 0u);
  peer.Send(FrameBytes(2, 1, "still here"));
  EXPECT_EQ(peer.ReceiveFrame().payload, "still here");
}

TEST_F(UclServer, StopAcceptingWaitsForTheConnectCallback) {
  TestServer server;
  Signal entered;
  Signal leave;
  server.recorder.onConnect = [&](const ConnectCall& call) {
    if (call.connected) {
      entered.Set();
      EXPECT_TRUE(leave.Wait());
    }
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(entered.Wait());
  EXPECT_EQ(UCLStopAccepting(server.handle, 10), ZNE_TIMED_OUT);
  leave.Set();
  EXPECT_EQ(UCLStopAccepting(server.handle, 30'000), 0u);
  // The one that was let in while the server stopped is told as lost.
  EXPECT_TRUE(peer.IsClosedByPeer());
  ASSERT_TRUE(server.recorder.WaitForLost(1));
}

TEST_F(UclServer, ServerMayCallItsClient) {
  TestServer server;
  TestClient client(server.port);
  client.recorder.onData = [](const DataCall& call, std::string* answer) {
    *answer = "client says " + call.data;
    return 0u;
  };
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  const u32 id = server.recorder.ConnectCalls()[0].connectionId;
  void* out = nullptr;
  u32 length = 0;
  EXPECT_TRUE(Eventually([] { return Connections() == 2; }));
  ASSERT_EQ(UCLSendRcv(server.handle, 1, kLoopback, id, 2, "hi", &length, &out), 0u);
  EXPECT_EQ(std::string(static_cast<char*>(out), length), "client says hi");
  ZnFree(out);
}

TEST_F(UclServer, CallFromItsOwnCallbackIsRefused) {
  TestServer server;
  std::atomic<u32> status{0};
  server.recorder.onData = [&](const DataCall& call, std::string*) {
    void* out = nullptr;
    u32 length = 0;
    status =
        UCLSendRcv(server.handle, 1, call.address, call.connectionId, 0, nullptr, &length, &out);
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(2, 1, ""));
  EXPECT_EQ(peer.ReceiveFrame().id, 1u);
  EXPECT_EQ(status, UCLE_CALLBACK_THREAD_SENDRECV);
}

TEST_F(UclServer, PushFromTheCallbackComesBeforeItsAnswer) {
  TestServer server;
  server.recorder.onData = [&](const DataCall& call, std::string* answer) {
    EXPECT_EQ(UCLSend(server.handle, 1, call.address, call.connectionId, 4, "push"), 0u);
    *answer = "answer";
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(2, 1, ""));
  EXPECT_EQ(peer.ReceiveFrame().payload, "push");
  EXPECT_EQ(peer.ReceiveFrame().payload, "answer");
}

// --- rounds ------------------------------------------------------------------------------------

UclBuffer Buffer(const std::string& text) {
  void* block = text.empty() ? nullptr : ZnAlloc(static_cast<u32>(text.size()));
  if (block != nullptr) text.copy(static_cast<char*>(block), text.size());
  return UCLMakeBuffer(block, static_cast<u32>(text.size()));
}

std::vector<UclTarget> Targets(Recorder& recorder) {
  std::vector<UclTarget> targets;
  for (const ConnectCall& call : recorder.ConnectCalls()) {
    if (call.connected) targets.push_back({call.address, call.connectionId, 0xFFFF});
  }
  return targets;
}

u32 SendRound(const TestServer& server, const std::vector<UclBuffer>& buffers,
              std::vector<UclTarget>& targets) {
  return UCLSendRound(server.handle, buffers.data(), static_cast<u32>(buffers.size()),
                      targets.data(), static_cast<u32>(targets.size()));
}

TEST_F(UclServer, RoundReachesEveryTargetInOrder) {
  TestServer server;
  std::vector<BarePeer> peers;
  for (int i = 0; i < 5; ++i) peers.push_back(BarePeer::ConnectTo(server.port));
  ASSERT_TRUE(server.recorder.WaitForConnected(5));
  EXPECT_TRUE(Eventually([] { return Connections() == 5; }));
  std::vector<std::string> texts = {"first", "", std::string(20'000, 'b'), "third"};
  for (int i = 0; i < 300; ++i) texts.push_back(std::to_string(i) + std::string(1000, '.'));
  std::vector<UclBuffer> buffers;
  for (const std::string& text : texts) buffers.push_back(Buffer(text));
  std::vector<UclTarget> targets = Targets(server.recorder);
  EXPECT_EQ(SendRound(server, buffers, targets), 0u);
  for (const UclTarget& target : targets) EXPECT_EQ(target.status, 0u);
  for (const BarePeer& peer : peers) {
    u32 id = 1;
    for (const std::string& text : texts) {
      const auto frame = peer.ReceiveFrame();
      EXPECT_EQ(frame.type, 3u);
      EXPECT_EQ(frame.id, id++);
      EXPECT_EQ(frame.status, 0u);
      EXPECT_TRUE(frame.payload == text);
    }
  }
}

TEST_F(UclServer, RoundKeepsNoBufferOnceItHasLeft) {
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 1; }));
  const UclBuffer buffer = Buffer(std::string(100'000, 'x'));
  std::vector<UclTarget> targets = Targets(server.recorder);
  EXPECT_EQ(SendRound(server, {buffer}, targets), 0u);
  EXPECT_EQ(peer.ReceiveFrame().payload.size(), 100'000u);
  EXPECT_TRUE(Eventually([&] { return buffer.use_count() == 1; }));
}

TEST_F(UclServer, RoundToAMissingTargetCostsTheOthersNothing) {
  const TraceCapture trace;
  TestServer server;
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 1; }));
  std::vector<UclTarget> targets = Targets(server.recorder);
  targets.insert(targets.begin(), {kLoopback, 0, 0});
  EXPECT_EQ(SendRound(server, {Buffer("x")}, targets), 0u);
  EXPECT_EQ(targets[0].status, UCLE_CONNECTION_NOT_FOUND);
  EXPECT_EQ(targets[1].status, 0u);
  EXPECT_EQ(peer.ReceiveFrame().payload, "x");
  EXPECT_TRUE(trace.Has("Server::SendReceive Cannot find the connection object. "));
  EXPECT_EQ(UCLSendRound(77'777, nullptr, 0, nullptr, 0), UCLE_CONNECTION_NOT_FOUND);
}

TEST_F(UclServer, StoppedReaderAmongOthersCostsThemNothingAndIsDropped) {
  const TraceCapture trace;
  UclServerOptions options;
  options.maxQueuedBytes = 2 << 20;
  TestServer server(options);
  std::vector<BarePeer> peers;
  peers.push_back(BarePeer::ConnectTo(server.port, 4096));  // the one that does not read
  for (int i = 0; i < 4; ++i) peers.push_back(BarePeer::ConnectTo(server.port));
  ASSERT_TRUE(server.recorder.WaitForConnected(5));
  EXPECT_TRUE(Eventually([] { return Connections() == 5; }));
  const std::string text(10'000, 'x');
  const UclBuffer buffer = Buffer(text);
  std::vector<UclTarget> targets = Targets(server.recorder);
  bool isDropped = false;
  for (int round = 0; round < 5000 && !isDropped; ++round) {
    EXPECT_EQ(SendRound(server, {buffer}, targets), 0u);
    for (size_t i = 1; i < peers.size(); ++i) {
      ASSERT_EQ(peers[i].ReceiveFrame().payload.size(), text.size());
    }
    for (const UclTarget& target : targets) isDropped = isDropped || target.status != 0;
  }
  EXPECT_TRUE(isDropped);
  EXPECT_EQ(std::count_if(targets.begin(), targets.end(),
                          [](const UclTarget& target) { return target.status != 0; }),
            1);
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  EXPECT_TRUE(trace.Has(
      "Connection of 127.0.0.1 dropped: it does not read, and more than 2048 KiB wait for it"));
  peers[1].Send(FrameBytes(2, 1, "alive"));
  EXPECT_EQ(peers[1].ReceiveFrame().payload, "alive");
  EXPECT_EQ(server.recorder.LostCount(), 1u);
}

TEST_F(UclServer, PeerThatTakesNothingIsDroppedAfterTheTime) {
  const TraceCapture trace;
  UclServerOptions options;
  options.sendStallMs = 150;
  TestServer server(options);
  const BarePeer peer = BarePeer::ConnectTo(server.port, 4096);
  ASSERT_TRUE(server.recorder.WaitForConnected(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 1; }));
  const ConnectCall call = server.recorder.ConnectCalls()[0];
  const std::string text(20'000'000, 'x');
  EXPECT_EQ(UCLSend(server.handle, 1, call.address, call.connectionId,
                    static_cast<u32>(text.size()), text.data()),
            0u);
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  EXPECT_TRUE(trace.Has("Socket error in data sending. err code = 6e"));
}

TEST_F(UclServer, SlowReaderIsNotDroppedAsLongAsItReads) {
  UclServerOptions options;
  options.sendStallMs = 1000;
  TestServer server(options);
  const BarePeer peer = BarePeer::ConnectTo(server.port, 4096);
  // The reading takes longer than that in all, and far less from one time that there is room for
  // more to the next.
  const std::string text(16'000'000, 'x');
  server.recorder.onData = [&](const DataCall&, std::string* answer) {
    *answer = text;
    return 0u;
  };
  peer.Send(FrameBytes(2, 1, ""));
  std::string received;
  while (received.size() < text.size() + 64) {
    const std::string piece =
        peer.Receive(std::min<size_t>(200'000, text.size() + 64 - received.size()));
    ASSERT_FALSE(piece.empty());
    received += piece;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(received == FrameBytes(1, 1, text));
  EXPECT_EQ(server.recorder.LostCount(), 0u);
}

TEST_F(UclServer, LargeAnswerPassesWhateverTheBoundOfThePushes) {
  UclServerOptions options;
  options.maxQueuedBytes = 1000;
  TestServer server(options);
  const std::string text(15'000'000, 'x');
  server.recorder.onData = [&](const DataCall&, std::string* answer) {
    *answer = text;
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port);
  peer.Send(FrameBytes(2, 1, "") + FrameBytes(2, 2, ""));
  EXPECT_TRUE(peer.WaitReadable());
  const ConnectCall call = server.recorder.ConnectCalls()[0];
  EXPECT_EQ(UCLSend(server.handle, 1, call.address, call.connectionId, 500, text.data()), 0u);
  std::set<size_t> sizes;
  for (int i = 0; i < 3; ++i) sizes.insert(peer.ReceiveFrame().payload.size());
  EXPECT_EQ(sizes, (std::set<size_t>{500, text.size()}));
}

TEST_F(UclServer, NextRequestWaitsUntilTheLastAnswerHasLeft) {
  TestServer server;
  size_t least = 0;
  size_t usual = 0;
  size_t most = 0;
  std::ifstream("/proc/sys/net/ipv4/tcp_wmem") >> least >> usual >> most;
  ASSERT_GT(most, 0u);
  const std::string text(most * 3 / 4, 'x');  // two of them are more than the host keeps on its way
  server.recorder.onData = [&](const DataCall&, std::string* answer) {
    *answer = text;
    return 0u;
  };
  const BarePeer peer = BarePeer::ConnectTo(server.port, 100'000);
  std::string requests;
  for (u32 i = 1; i <= 8; ++i) requests += FrameBytes(2, i, "");
  peer.Send(requests);
  EXPECT_TRUE(peer.WaitReadable());
  EXPECT_TRUE(server.recorder.WaitForData(1));
  for (u32 i = 1; i <= 8; ++i) {
    const auto frame = peer.ReceiveFrame();
    EXPECT_EQ(frame.id, i);
    EXPECT_EQ(frame.payload.size(), text.size());
    // What the peer has not read yet cannot have let more than the next two be served.
    EXPECT_LE(server.recorder.DataCalls().size(), i + 2);
  }
}

TEST_F(UclServer, PeerThatLeavesWithAnswersWaitingIsLost) {
  TestServer server;
  server.recorder.onData = [&](const DataCall&, std::string* answer) {
    *answer = std::string(20'000'000, 'x');
    return 0u;
  };
  BarePeer peer = BarePeer::ConnectTo(server.port, 4096);
  peer.Send(FrameBytes(2, 1, "") + FrameBytes(2, 2, ""));
  EXPECT_TRUE(peer.WaitReadable());
  peer.Close();
  ASSERT_TRUE(server.recorder.WaitForLost(1));
  EXPECT_TRUE(Eventually([] { return Connections() == 0; }));
}

}  // namespace
}  // namespace zn
