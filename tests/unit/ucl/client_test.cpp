// A client against a bare peer that plays the server.
#include <netinet/tcp.h>

#include "tests/unit/framework/trace_capture.h"
#include "tests/unit/ucl/peers.h"
#include "ucl/common/manager.h"

namespace zn {
namespace {

using namespace test;

// A client connected to a peer that the test plays.
class UclClient : public UclTest {
 protected:
  void ConnectPeer(const UclClientOptions& options = {}) {
    client = std::make_unique<TestClient>(listener.Port(), options);
    peer = listener.Accept();
  }
  // One caller on a thread of its own.
  class Caller {
   public:
    Caller(const TestClient& client, const std::string& data)
        : thread_([this, &client, data] { result_ = client.Call(data); }) {}
    ~Caller() { Join(); }
    std::string Result() {
      Join();
      return result_;
    }

   private:
    void Join() {
      if (thread_.joinable()) thread_.join();
    }
    std::string result_;
    std::thread thread_;
  };

  BareListener listener;
  std::unique_ptr<TestClient> client;
  BarePeer peer;
};

TEST_F(UclClient, RequestAndResponseAreTheBytesOfTheWire) {
  ConnectPeer();
  Caller caller(*client, "question");
  EXPECT_EQ(peer.Receive(64 + 8), FrameBytes(2, 1, "question"));
  peer.Send(FrameBytes(1, 1, "answer", 0xC1000010));
  EXPECT_EQ(caller.Result(), "answer");  // the response's status is not handed on
}

TEST_F(UclClient, OneWayFrameIsTheBytesOfTheWire) {
  ConnectPeer();
  EXPECT_EQ(UCLSend(client->handle, 0, client->address, client->id, 4, "push"), 0u);
  EXPECT_EQ(peer.Receive(68), FrameBytes(3, 1, "push"));
  EXPECT_EQ(UCLSend(client->handle, 0, client->address, client->id, 0, nullptr), 0u);
  EXPECT_EQ(peer.Receive(64), FrameBytes(3, 2, ""));
}

TEST_F(UclClient, EmptyResponseLeavesTheOutputAsItWas) {
  ConnectPeer();
  int mark = 0;
  void* out = &mark;
  u32 length = 9;
  std::thread answering([&] {
    peer.Receive(64);
    peer.Send(FrameBytes(1, 1, ""));
  });
  EXPECT_EQ(UCLSendRcv(client->handle, 0, client->address, client->id, 0, nullptr, &length, &out),
            0u);
  answering.join();
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(out, &mark);
}

TEST_F(UclClient, ResponseMayComeInPieces) {
  ConnectPeer();
  Caller caller(*client, "q");
  peer.Receive(65);
  for (const char byte : FrameBytes(1, 1, "byte by byte")) peer.Send(std::string(1, byte));
  EXPECT_EQ(caller.Result(), "byte by byte");
}

TEST_F(UclClient, EachWaiterGetsItsOwnThoughTheSecondIsAnsweredFirst) {
  ConnectPeer();
  Caller first(*client, "1");
  const auto one = peer.ReceiveFrame();
  Caller second(*client, "2");
  const auto two = peer.ReceiveFrame();
  EXPECT_EQ(one.id, 1u);
  EXPECT_EQ(two.id, 2u);
  peer.Send(FrameBytes(1, two.id, "for the second"));
  EXPECT_EQ(second.Result(), "for the second");
  peer.Send(FrameBytes(1, one.id, "for the first"));
  EXPECT_EQ(first.Result(), "for the first");
}

TEST_F(UclClient, FirstWaiterMayLeaveAndTheSecondReadsOn) {
  ConnectPeer();
  Caller first(*client, "1");
  const auto one = peer.ReceiveFrame();
  Caller second(*client, "2");
  const auto two = peer.ReceiveFrame();
  peer.Send(FrameBytes(1, one.id, "a"));
  EXPECT_EQ(first.Result(), "a");
  peer.Send(FrameBytes(1, two.id, "b"));
  EXPECT_EQ(second.Result(), "b");
}

TEST_F(UclClient, ManyWaitersGetTheirsInAnyOrder) {
  ConnectPeer();
  std::vector<std::unique_ptr<Caller>> callers;
  std::vector<BarePeer::Frame> frames;
  for (int i = 0; i < 16; ++i) {
    callers.push_back(std::make_unique<Caller>(*client, std::to_string(i)));
    frames.push_back(peer.ReceiveFrame());
  }
  std::string all;
  for (size_t i = 0; i < 16; ++i) {
    const auto& frame = frames[i * 7 % 16];
    all += FrameBytes(1, frame.id, "to " + frame.payload);
  }
  peer.Send(all);
  for (int i = 0; i < 16; ++i)
    EXPECT_EQ(callers[static_cast<size_t>(i)]->Result(), "to " + std::to_string(i));
}

TEST_F(UclClient, IdsWrapFromTheLastToZero) {
  ConnectPeer();
  UclManager::Get().FindClient(client->handle)->SetLastSendId(0xFFFFFFFE);
  for (const u32 id : {0xFFFFFFFFu, 0u, 1u}) {
    Caller caller(*client, "x");
    EXPECT_EQ(peer.ReceiveFrame().id, id);
    peer.Send(FrameBytes(1, id, "y"));
    EXPECT_EQ(caller.Result(), "y");
  }
}

TEST_F(UclClient, ResponsesNobodyWaitsForAndUnknownTypesAreDropped) {
  ConnectPeer();
  peer.Send(FrameBytes(1, 99, "nobody") + FrameBytes(0, 1, "no type") + FrameBytes(4, 1, "none") +
            FrameBytes(1, 1, "too early"));
  peer.Send(FrameBytes(3, 1, "then this"));
  ASSERT_TRUE(client->recorder.WaitForData(1));
  Caller caller(*client, "x");
  peer.ReceiveFrame();
  peer.Send(FrameBytes(1, 1, "y"));
  EXPECT_EQ(caller.Result(), "y");
  EXPECT_EQ(client->recorder.DataCalls().size(), 1u);
}

TEST_F(UclClient, PushIsTakenWhileNobodyWaits) {
  ConnectPeer();
  peer.Send(FrameBytes(3, 5, "push"));
  ASSERT_TRUE(client->recorder.WaitForData(1));
  const DataCall call = client->recorder.DataCalls()[0];
  EXPECT_TRUE(call.oneWay);
  EXPECT_EQ(call.data, "push");
  EXPECT_EQ(call.address, client->address);
  EXPECT_EQ(call.connectionId, client->id);
  EXPECT_EQ(call.address, kLoopback);
}

TEST_F(UclClient, PushIsTakenAfterACall) {
  ConnectPeer();
  for (u32 i = 1; i <= 50; ++i) {
    Caller caller(*client, "x");
    peer.ReceiveFrame();
    peer.Send(FrameBytes(1, i, "y"));
    EXPECT_EQ(caller.Result(), "y");
    peer.Send(FrameBytes(3, 1, "after"));
    ASSERT_TRUE(client->recorder.WaitForData(i));
  }
}

TEST_F(UclClient, PushThatCameBeforeAResponseIsHandledBeforeItIsReturned) {
  ConnectPeer();
  std::atomic<int> handled{0};
  client->recorder.onData = [&](const DataCall&, std::string*) {
    ++handled;
    return 0u;
  };
  for (u32 i = 1; i <= 50; ++i) {
    int seen = 0;
    std::thread caller([&] {
      EXPECT_EQ(client->Call("x"), "y");
      seen = handled;
    });
    peer.ReceiveFrame();
    peer.Send(FrameBytes(3, 1, "a") + FrameBytes(3, 2, "b") + FrameBytes(1, i, "y"));
    caller.join();
    EXPECT_EQ(seen, static_cast<int>(i * 2));
  }
}

TEST_F(UclClient, FramesAreHandledOneAtATimeInOrder) {
  ConnectPeer();
  std::atomic<int> inside{0};
  client->recorder.onData = [&](const DataCall&, std::string*) {
    EXPECT_EQ(++inside, 1);
    --inside;
    return 0u;
  };
  std::string bytes;
  for (u32 i = 0; i < 2000; ++i) bytes += FrameBytes(3, i, std::to_string(i));
  std::thread caller([&] { EXPECT_EQ(client->Call("x"), "y"); });
  peer.ReceiveFrame();
  peer.Send(bytes.substr(0, bytes.size() / 2));
  peer.Send(bytes.substr(bytes.size() / 2) + FrameBytes(1, 1, "y"));
  caller.join();
  const std::vector<DataCall> calls = client->recorder.DataCalls();
  ASSERT_EQ(calls.size(), 2000u);
  for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].data, std::to_string(i));
}

TEST_F(UclClient, RequestOfTheServerIsAnswered) {
  ConnectPeer();
  client->recorder.onData = [](const DataCall& call, std::string* answer) {
    EXPECT_FALSE(call.oneWay);
    *answer = "re: " + call.data;
    return 0xC1000042u;
  };
  peer.Send(FrameBytes(2, 0xABCD, "you there?"));
  const auto frame = peer.ReceiveFrame();
  EXPECT_EQ(frame.type, 1u);
  EXPECT_EQ(frame.id, 0xABCDu);
  EXPECT_EQ(frame.status, 0xC1000042u);
  EXPECT_EQ(frame.payload, "re: you there?");
}

TEST_F(UclClient, CallFromItsOwnCallbackIsRefused) {
  ConnectPeer();
  std::string result;
  client->recorder.onData = [&](const DataCall&, std::string*) {
    result = client->Call("from inside");
    return 0u;
  };
  peer.Send(FrameBytes(3, 1, ""));
  ASSERT_TRUE(client->recorder.WaitForData(1));
  EXPECT_EQ(result, "status C120000A");
  EXPECT_EQ(client->recorder.LostCount(), 0u);
}

TEST_F(UclClient, CallFromACallbackOfAnotherConnectionIsServed) {
  ConnectPeer();
  const BareListener otherListener;
  TestClient other(otherListener.Port());
  const BarePeer otherPeer = otherListener.Accept();
  std::string result;
  client->recorder.onData = [&](const DataCall&, std::string*) {
    result = other.Call("nested");
    return 0u;
  };
  peer.Send(FrameBytes(3, 1, ""));
  EXPECT_EQ(otherPeer.ReceiveFrame().payload, "nested");
  otherPeer.Send(FrameBytes(1, 1, "served"));
  ASSERT_TRUE(client->recorder.WaitForData(1));
  EXPECT_EQ(result, "served");
}

TEST_F(UclClient, PeerThatClosesEndsTheWaitAtOnceAndIsTold) {
  ConnectPeer();
  Caller caller(*client, "x");
  peer.ReceiveFrame();
  peer.Close();
  EXPECT_EQ(caller.Result(), "status 81210001");
  const std::vector<ConnectCall> calls = client->recorder.ConnectCalls();
  ASSERT_EQ(calls.size(), 1u);  // though the loss was not asked for
  EXPECT_EQ(calls[0].host, "127.0.0.1");
  EXPECT_FALSE(calls[0].connected);
  EXPECT_EQ(calls[0].connectionId, client->id);
}

TEST_F(UclClient, EveryWaiterEndsWithALossThatIsToldOnce) {
  ConnectPeer();
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  std::vector<std::unique_ptr<Caller>> callers;
  for (int i = 0; i < 8; ++i) {
    callers.push_back(std::make_unique<Caller>(*client, "x"));
    peer.ReceiveFrame();
  }
  peer.Close();
  for (const auto& caller : callers) EXPECT_EQ(caller->Result(), "status 81210001");
  ASSERT_TRUE(client->recorder.WaitForLost(1));
  EXPECT_EQ(client->recorder.ConnectCalls().size(), 1u);
}

TEST_F(UclClient, LossIsNotToldToOneThatDidNotAsk) {
  ConnectPeer();
  peer.Close();
  EXPECT_TRUE(Eventually([] {
    UclStatistics statistics{};
    UCLGetStatistics(&statistics);
    return statistics.connections == 0;
  }));
  EXPECT_EQ(client->recorder.LostCount(), 0u);
  // The next send finds nothing, and that is told.
  EXPECT_EQ(client->Call("x"), "status C1200005");
  EXPECT_EQ(client->recorder.LostCount(), 1u);
}

TEST_F(UclClient, LossIsToldToOneThatAsked) {
  for (const std::string& sent :
       {std::string(), HeaderBytes(100, 3, 1).substr(0, 20), HeaderBytes(100, 3, 1) + "cut"}) {
    ConnectPeer();
    EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
    peer.Send(sent);
    peer.Close();
    EXPECT_TRUE(client->recorder.WaitForLost(1));
    EXPECT_TRUE(client->recorder.DataCalls().empty());
  }
}

TEST_F(UclClient, LossInsideAFrameIsToldBeforeTheWaiterReturns) {
  ConnectPeer();
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  std::atomic<bool> told{false};
  client->recorder.onConnect = [&](const ConnectCall&) {
    told = true;
    return 0u;
  };
  Caller caller(*client, "x");
  peer.ReceiveFrame();
  peer.Send(HeaderBytes(100, 1, 1) + "half");
  peer.Close();
  EXPECT_EQ(caller.Result(), "status 81210001");
  EXPECT_TRUE(told);
}

TEST_F(UclClient, FrameBeforeTheEndOfTheStreamIsStillHandled) {
  ConnectPeer();
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  peer.Send(FrameBytes(3, 1, "last words"));
  peer.Close();
  ASSERT_TRUE(client->recorder.WaitForLost(1));
  ASSERT_EQ(client->recorder.DataCalls().size(), 1u);
  EXPECT_EQ(client->recorder.DataCalls()[0].data, "last words");
}

TEST_F(UclClient, BadHeadMarkerEndsTheConnection) {
  ConnectPeer();
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  Caller caller(*client, "x");
  peer.ReceiveFrame();
  peer.Send(std::string(42, 'x'));
  EXPECT_EQ(caller.Result(), "status 81210001");
  EXPECT_TRUE(peer.IsClosedByPeer());
  ASSERT_TRUE(client->recorder.WaitForLost(1));
}

TEST_F(UclClient, RefusedConnectionIsASocketError) {
  const TraceCapture trace;
  const int silent = socket(AF_INET, SOCK_STREAM, 0);  // has a port, and does not listen on it
  const u32 port = BindToLoopback(silent);
  u32 handle = 0;
  u32 address = 1;
  u32 id = 2;
  ASSERT_EQ(UCLCreateClient(&handle, nullptr, Recorder::Data, nullptr, port), 0u);
  EXPECT_EQ(UCLConnect(handle, "127.0.0.1", &address, &id), UCLE_SOCKET_ERROR);
  EXPECT_TRUE(trace.Has("Socket error when connecting server. err code = 6f"));  // ECONNREFUSED
  EXPECT_EQ(address, 1u);
  EXPECT_EQ(id, 2u);
  close(silent);
}

TEST_F(UclClient, PeerThatDoesNotAnswerInTimeIsASocketError) {
  const TraceCapture trace;
  const int full = socket(AF_INET, SOCK_STREAM, 0);
  const u32 port = ListenOnLoopback(full, 0);
  const sockaddr_in name = LoopbackName(port);
  std::vector<int> waiting;
  for (int i = 0; i < 3; ++i) {  // the queue of connections is full with these
    waiting.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
    static_cast<void>(
        connect(waiting.back(), reinterpret_cast<const sockaddr*>(&name), sizeof(name)));
  }
  ASSERT_TRUE(Eventually([&] {
    tcp_info info{};
    socklen_t size = sizeof(info);
    return getsockopt(full, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && info.tcpi_unacked > 0;
  }));
  UclClientOptions options;
  options.connectTimeoutMs = 50;
  u32 handle = 0;
  u32 value = 0;
  ASSERT_EQ(UCLCreateClient(&handle, nullptr, Recorder::Data, nullptr, port, &options), 0u);
  EXPECT_EQ(UCLConnect(handle, "127.0.0.1", &value, &value), UCLE_SOCKET_ERROR);
  EXPECT_TRUE(trace.Has("Socket error when connecting server. err code = 6e"));  // ETIMEDOUT
  for (const int fd : waiting) close(fd);
  close(full);
}

TEST_F(UclClient, HostsResolve) {
  u32 handle = 0;
  u32 address = 0;
  u32 id = 0;
  ASSERT_EQ(UCLCreateClient(&handle, nullptr, Recorder::Data, nullptr, listener.Port()), 0u);
  EXPECT_EQ(UCLConnect(handle, "localhost", &address, &id), 0u);
  EXPECT_EQ(address, kLoopback);
  EXPECT_EQ(UCLConnect(handle, "no.such.host.invalid", &address, &id), 0xFFFFFFFFu);
  EXPECT_EQ(UCLConnect(handle, nullptr, &address, &id), 0xFFFFFFFFu);
}

TEST_F(UclClient, DisconnectEndsWaitersAndIsToldByThemAlone) {
  ConnectPeer();
  {
    Caller caller(*client, "x");
    peer.ReceiveFrame();
    EXPECT_EQ(UCLDisconnect(client->handle, client->address, client->id), 0u);
    EXPECT_EQ(client->recorder.LostCount(), 1u);  // told before the disconnect returned
    EXPECT_EQ(caller.Result(), "status 81210001");
  }
  EXPECT_TRUE(peer.IsClosedByPeer());
  EXPECT_EQ(UCLDisconnect(client->handle, client->address, client->id), UCLE_DISCONNECT_FAILED);
  ConnectPeer();
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  EXPECT_EQ(UCLDisconnect(client->handle, client->address, client->id), 0u);
  EXPECT_EQ(client->recorder.LostCount(), 0u);
}

TEST_F(UclClient, StopEndsWaitersAtOnce) {
  ConnectPeer();
  Caller first(*client, "x");
  peer.ReceiveFrame();
  Caller second(*client, "x");
  peer.ReceiveFrame();
  EXPECT_EQ(UCLStopConnection(client->handle, client->address, client->id), 0u);
  EXPECT_EQ(first.Result(), "status 81210001");
  EXPECT_EQ(second.Result(), "status 81210001");
  EXPECT_EQ(client->recorder.LostCount(), 1u);
}

TEST_F(UclClient, StopOfAnIdleConnectionTellsNothing) {
  ConnectPeer();
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  EXPECT_EQ(UCLStopConnection(client->handle, client->address, client->id), 0u);
  EXPECT_TRUE(peer.IsClosedByPeer());
  EXPECT_EQ(client->recorder.LostCount(), 0u);
}

TEST_F(UclClient, DisconnectWaitsForTheCallbackThatRuns) {
  ConnectPeer();
  Signal entered;
  Signal leave;
  std::atomic<bool> left{false};
  client->recorder.onData = [&](const DataCall&, std::string*) {
    entered.Set();
    EXPECT_TRUE(leave.Wait());
    left = true;
    return 0u;
  };
  peer.Send(FrameBytes(3, 1, ""));
  ASSERT_TRUE(entered.Wait());
  std::thread disconnecting([&] {
    EXPECT_EQ(UCLDisconnect(client->handle, client->address, client->id), 0u);
    EXPECT_TRUE(left);
  });
  EXPECT_TRUE(peer.IsClosedByPeer());
  leave.Set();
  disconnecting.join();
}

TEST_F(UclClient, DisconnectFromItsOwnCallbackDoesNotWaitForItself) {
  ConnectPeer();
  client->recorder.onData = [&](const DataCall& call, std::string*) {
    EXPECT_EQ(UCLDisconnect(client->handle, call.address, call.connectionId), 0u);
    return 0u;
  };
  peer.Send(FrameBytes(3, 1, "") + FrameBytes(3, 2, "not handled any more"));
  EXPECT_TRUE(peer.IsClosedByPeer());
  ASSERT_TRUE(client->recorder.WaitForData(1));
  EXPECT_EQ(UCLDeleteClient(client->handle), 0u);
  EXPECT_EQ(client->recorder.DataCalls().size(), 1u);
}

TEST_F(UclClient, DisconnectFromItsOwnLossCallbackDoesNotWaitForItself) {
  ConnectPeer();
  client->recorder.onConnect = [&](const ConnectCall& call) {
    EXPECT_EQ(UCLDisconnect(client->handle, call.address, call.connectionId), 0u);
    return 0u;
  };
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  peer.Close();
  EXPECT_TRUE(client->recorder.WaitForLost(1));
}

TEST_F(UclClient, DeletedClientDisconnects) {
  ConnectPeer();
  EXPECT_EQ(UCLDeleteClient(client->handle), 0u);
  EXPECT_TRUE(peer.IsClosedByPeer());
  EXPECT_EQ(client->Call("x"), "status C1200005");
}

TEST_F(UclClient, ExceptionOfACallbackStaysInside) {
  ConnectPeer();
  client->recorder.onData = [](const DataCall&, std::string*) -> u32 { throw 5; };
  peer.Send(FrameBytes(2, 3, ""));
  const auto frame = peer.ReceiveFrame();
  EXPECT_EQ(frame.id, 3u);
  EXPECT_EQ(frame.status, ZNE_UNEXPECTED);
}

TEST_F(UclClient, LargeRequestsAndResponsesPass) {
  ConnectPeer();
  const std::string question(9'000'000, 'q');
  std::string answer(11'000'000, 'a');
  for (size_t i = 0; i < answer.size(); ++i) answer[i] = static_cast<char>(i * i >> 7);
  Caller caller(*client, question);
  EXPECT_TRUE(peer.ReceiveFrame().payload == question);
  peer.Send(FrameBytes(3, 1, question) + FrameBytes(1, 1, answer));
  EXPECT_TRUE(caller.Result() == answer);
  EXPECT_EQ(client->recorder.DataCalls().size(), 1u);
}

TEST_F(UclClient, PeerMayAnswerBeforeItHasReadTheRequest) {
  ConnectPeer();
  const std::string question(20'000'000, 'q');
  {
    Caller caller(*client, question);
    EXPECT_TRUE(peer.WaitReadable());
    peer.Send(FrameBytes(1, 1, "enough"));
    EXPECT_EQ(caller.Result(), "enough");
  }
  EXPECT_TRUE(peer.ReceiveFrame().payload == question);
  EXPECT_EQ(UCLSend(client->handle, 0, client->address, client->id, 1, "x"), 0u);
  EXPECT_EQ(peer.ReceiveFrame().payload, "x");
}

TEST_F(UclClient, RequestThatNobodyReadsIsASocketErrorAfterTheTime) {
  const TraceCapture trace;
  UclClientOptions options;
  options.sendStallMs = 100;
  ConnectPeer(options);
  EXPECT_EQ(client->Call(std::string(20'000'000, 'x')), "status C1210002");
  EXPECT_TRUE(trace.Has("Socket error in data sending. err code = 6e"));  // ETIMEDOUT
  EXPECT_EQ(client->recorder.LostCount(), 1u);
}

TEST_F(UclClient, SendOnAConnectionThatWasResetIsASocketError) {
  const TraceCapture trace;
  ConnectPeer();
  Signal entered;
  Signal leave;
  client->recorder.onData = [&](const DataCall&, std::string*) {
    entered.Set();
    EXPECT_TRUE(leave.Wait());
    return 0u;
  };
  peer.Send(FrameBytes(3, 1, ""));  // keeps the reader busy, so that nobody sees the reset
  ASSERT_TRUE(entered.Wait());
  const linger reset{1, 0};
  setsockopt(peer.Fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
  peer.Close();
  u32 status = 0;
  EXPECT_TRUE(Eventually([&] {
    status = UCLSend(client->handle, 0, client->address, client->id, 1, "x");
    return status != 0;
  }));
  EXPECT_EQ(status, UCLE_SOCKET_ERROR);
  EXPECT_TRUE(trace.Has("Socket error in data sending. err code = 68") ||  // ECONNRESET
              trace.Has("Socket error in data sending. err code = 20"));   // EPIPE
  EXPECT_EQ(client->recorder.LostCount(), 1u);                             // though nobody asked
  leave.Set();
  ASSERT_TRUE(client->recorder.WaitForData(1));
}

TEST_F(UclClient, FrameBeyondItsLimitDropsTheServer) {
  const TraceCapture trace;
  UclClientOptions options;
  options.maxFrameLength = 1000;
  ConnectPeer(options);
  EXPECT_EQ(UCLEnableDisconnectCallback(client->handle, client->address, client->id), 0u);
  peer.Send(FrameBytes(3, 1, std::string(1000, 'x')) + HeaderBytes(1001, 3, 2));
  ASSERT_TRUE(client->recorder.WaitForLost(1));
  EXPECT_EQ(client->recorder.DataCalls().size(), 1u);
  EXPECT_TRUE(trace.Has(
      "Connection of 127.0.0.1 dropped: a frame of 1001 bytes exceeds the limit of 1000"));
}

}  // namespace
}  // namespace zn
