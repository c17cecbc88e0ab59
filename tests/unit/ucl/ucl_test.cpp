// The operations: their checks, statuses and traces.
#include "ucl/common/ucl.h"

#include "tests/unit/framework/trace_capture.h"
#include "tests/unit/support/descriptors.h"
#include "tests/unit/support/refused_calls.h"
#include "tests/unit/ucl/peers.h"
#include "ucl/common/manager.h"

namespace zn {
namespace {

using namespace test;

class UclOperations : public UclTest {};

TEST(UclBeforeStartup, EveryOperationIsRefused) {
  const TraceCapture trace;
  u32 handle = 0;
  u32 value = 0;
  void* out = nullptr;
  UclTarget target;
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, 0),
            UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLGetServerPort(1, &value), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLStopAccepting(1, 0), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLCloseServer(1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLDisconnectPeer(1, 1, 1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLMarkLoggedOn(1, 1, 1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLDeleteClient(1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLConnect(1, "localhost", &value, &value), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLEnableDisconnectCallback(1, 1, 1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLDisconnect(1, 1, 1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLStopConnection(1, 1, 1), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLSendRcv(1, 0, 1, 1, 0, nullptr, &value, &out), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLSend(1, 0, 1, 1, 0, nullptr), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLSendRound(1, nullptr, 0, &target, 1), UCLE_NOT_INITIALIZED);
  const std::vector<std::string> messages = trace.Messages();
  EXPECT_EQ(std::count(messages.begin(), messages.end(), "ULC is not initialed"), 14);
  EXPECT_FALSE(trace.Has("UCL is not initialized"));

  EXPECT_EQ(UCLCreateClient(&handle, nullptr, Recorder::Data, nullptr, 0), UCLE_NOT_INITIALIZED);
  EXPECT_TRUE(trace.Has("UCL is not initialized"));
  EXPECT_EQ(UCLGetLastError(), UCLE_NOT_INITIALIZED);
  EXPECT_EQ(UCLCleanup(), 0u);
}

TEST(UclStartup, IsCounted) {
  EXPECT_EQ(UCLStartup(), 0u);
  EXPECT_EQ(UCLStartup(), 0u);
  EXPECT_EQ(UCLCleanup(), 0u);
  EXPECT_EQ(UCLCloseServer(1), UCLE_OBJECT_NOT_FOUND);
  EXPECT_EQ(UCLCleanup(), 0u);
  EXPECT_EQ(UCLCloseServer(1), UCLE_NOT_INITIALIZED);
}

TEST(UclStartup, CleanupEndsWhatIsThere) {
  EXPECT_EQ(UCLStartup(), 0u);
  Recorder recorder;
  u32 server = 0;
  u32 port = 0;
  UclServerOptions options;
  options.freePort = true;
  ASSERT_EQ(UCLCreateServer(&server, &recorder, Recorder::Data, Recorder::Connect, 0, &options),
            0u);
  ASSERT_EQ(UCLGetServerPort(server, &port), 0u);
  const BarePeer peer = BarePeer::ConnectTo(port);
  ASSERT_TRUE(recorder.WaitForConnected(1));
  UclStatistics statistics{};
  EXPECT_TRUE(Eventually([&] {  // until it is let in: one that is not is told as lost
    UCLGetStatistics(&statistics);
    return statistics.connections == 1;
  }));
  EXPECT_EQ(UCLCleanup(), 0u);
  EXPECT_TRUE(peer.IsClosedByPeer());
  UCLGetStatistics(&statistics);
  EXPECT_EQ(statistics.connections, 0u);
  EXPECT_EQ(statistics.workers, 0u);
  EXPECT_EQ(recorder.LostCount(), 0u);
}

TEST_F(UclOperations, ServerNeedsBothCallbacks) {
  const TraceCapture trace;
  u32 handle = 0;
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, nullptr, Recorder::Connect, 0), UCLE_INVALID_ADDRESS);
  EXPECT_TRUE(trace.Has("Server::Create(), no notification callback function."));
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, nullptr, 0), UCLE_INVALID_ADDRESS);
  EXPECT_TRUE(trace.Has("Server::Create(), no connection callback function."));
  EXPECT_EQ(handle, 0u);
}

TEST_F(UclOperations, ServerOnABusyPortFailsInBinding) {
  const TraceCapture trace;
  const BareListener busy;
  u32 handle = 5;
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, busy.Port()),
            UCLE_SOCKET_ERROR);
  EXPECT_TRUE(trace.Has("Server::Create(), socket error in binding. err code = 62"));  // EADDRINUSE
  EXPECT_EQ(handle, 5u);
}

TEST_F(UclOperations, ServerThatMayNotListenSaysSo) {
  const TraceCapture trace;
  UclServerOptions options;
  options.freePort = true;
  u32 handle = 5;
  WithRefusedCalls({SYS_listen}, EADDRINUSE, [&] {
    EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, 0, &options),
              UCLE_SOCKET_ERROR);
  });
  EXPECT_TRUE(trace.Has("Server::Create(), socket error in listening. err code = 62"));
  EXPECT_EQ(handle, 5u);
}

TEST_F(UclOperations, APortBeyondTheLastIsNone) {
  const TraceCapture trace;
  u32 handle = 0;
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, 65536 + 4711),
            UCLE_SOCKET_ERROR);
  EXPECT_TRUE(trace.Has("Server::Create(), socket error in binding. err code = 16"));  // EINVAL
  const BareListener listener;
  u32 client = 0;
  ASSERT_EQ(UCLCreateClient(&client, nullptr, Recorder::Data, nullptr, 65536 + listener.Port()),
            0u);
  u32 address = 0;
  u32 id = 0;
  EXPECT_EQ(UCLConnect(client, "127.0.0.1", &address, &id), UCLE_SOCKET_ERROR);
  EXPECT_TRUE(trace.Has("Socket error when connecting server. err code = 16"));
}

TEST_F(UclOperations, ServerOnAForeignAddressFailsInBinding) {
  UclServerOptions options;
  options.freePort = true;
  u32 handle = 0;
  options.bindAddress = "192.0.2.1";
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, 0, &options),
            UCLE_SOCKET_ERROR);
}

TEST_F(UclOperations, ServerWithoutDescriptorsFailsInCreate) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  const TraceCapture trace;
  u32 handle = 0;
  {
    const FewDescriptors few(0);
    EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, 0),
              UCLE_SOCKET_ERROR);
  }
  EXPECT_TRUE(trace.Has("Server::Create(), socket error in create. err code = 18"));  // EMFILE
}

TEST_F(UclOperations, ServerWithoutWorkersIsRefused) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  const FewDescriptors few(1);
  UclServerOptions options;
  options.freePort = true;
  u32 handle = 0;
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, Recorder::Data, Recorder::Connect, 0, &options),
            UCLE_NOTIFY_THREAD_FAILED);
  EXPECT_EQ(handle, 0u);
}

TEST_F(UclOperations, ConnectWithoutWorkersIsRefused) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  const TraceCapture trace;
  const BareListener listener;
  u32 client = 0;
  ASSERT_EQ(UCLCreateClient(&client, nullptr, Recorder::Data, nullptr, listener.Port()), 0u);
  u32 address = 0;
  u32 id = 0;
  {
    const FewDescriptors few(1);
    EXPECT_EQ(UCLConnect(client, "127.0.0.1", &address, &id), UCLE_RECEIVE_THREAD_FAILED);
  }
  EXPECT_TRUE(trace.Has("Error to clreate client recv data thread, err code = 18"));
}

TEST_F(UclOperations, CreateWithTheHandleOfAServerStartsNoSecond) {
  const TestServer server;
  u32 handle = server.handle;
  EXPECT_EQ(UCLCreateServer(&handle, nullptr, nullptr, nullptr, server.port), 0u);
  EXPECT_EQ(handle, server.handle);
}

TEST_F(UclOperations, ServerTakesTheStandardPortWhenGivenNone) {
  Recorder recorder;
  u32 handle = 0;
  const u32 status = UCLCreateServer(&handle, &recorder, Recorder::Data, Recorder::Connect, 0);
  if (status == UCLE_SOCKET_ERROR) GTEST_SKIP() << "port 2148 is taken on this machine";
  ASSERT_EQ(status, 0u);
  u32 port = 0;
  EXPECT_EQ(UCLGetServerPort(handle, &port), 0u);
  EXPECT_EQ(port, 2148u);
  EXPECT_EQ(UCLCloseServer(handle), 0u);
}

TEST_F(UclOperations, ClosedServerLetsItsPortGoAndKeepsItsHandle) {
  Recorder recorder;
  u32 port = 0;
  u32 closed = 0;
  {
    const TestServer server;
    port = server.port;
    closed = server.handle;
    EXPECT_EQ(UCLCloseServer(server.handle), 0u);
  }
  u32 handle = 0;
  EXPECT_EQ(UCLCreateServer(&handle, &recorder, Recorder::Data, Recorder::Connect, port), 0u);
  EXPECT_NE(handle, closed);
  EXPECT_EQ(UCLCloseServer(closed), 0u);
  EXPECT_EQ(UCLCloseServer(handle), 0u);
}

TEST_F(UclOperations, UnknownHandlesAreRefused) {
  u32 value = 0;
  for (const u32 handle : {0u, 77'777u}) {
    EXPECT_EQ(UCLCloseServer(handle), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLGetServerPort(handle, &value), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLStopAccepting(handle, 0), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLDisconnectPeer(handle, 1, 1), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLMarkLoggedOn(handle, 1, 1), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLDeleteClient(handle), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLConnect(handle, "localhost", &value, &value), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLEnableDisconnectCallback(handle, 1, 1), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLDisconnect(handle, 1, 1), UCLE_OBJECT_NOT_FOUND);
    EXPECT_EQ(UCLStopConnection(handle, 1, 1), UCLE_OBJECT_NOT_FOUND);
  }
}

TEST_F(UclOperations, UnknownConnectionsAreRefused) {
  const TestServer server;
  const TestClient client(server.port);
  EXPECT_EQ(UCLDisconnectPeer(server.handle, kLoopback, 0), UCLE_DISCONNECT_FAILED);
  EXPECT_EQ(UCLDisconnect(client.handle, client.address + 1, client.id), UCLE_DISCONNECT_FAILED);
  EXPECT_EQ(UCLStopConnection(client.handle, client.address, 0), UCLE_DISCONNECT_FAILED);
  EXPECT_EQ(UCLMarkLoggedOn(server.handle, client.address, client.id), UCLE_CONNECTION_NOT_FOUND);
  EXPECT_EQ(UCLEnableDisconnectCallback(client.handle, client.address, 0), 0u);
  // A client's connection is none of the server's, nor of another client.
  EXPECT_EQ(UCLDisconnectPeer(server.handle, client.address, client.id), UCLE_DISCONNECT_FAILED);
  const TestClient other(server.port);
  EXPECT_EQ(UCLDisconnect(other.handle, client.address, client.id), UCLE_DISCONNECT_FAILED);
}

TEST_F(UclOperations, ClientNeedsADataCallback) {
  const TraceCapture trace;
  u32 handle = 0;
  EXPECT_EQ(UCLCreateClient(&handle, nullptr, nullptr, Recorder::Connect, 0), UCLE_INVALID_ADDRESS);
  EXPECT_TRUE(trace.Has("Invalid server address. "));
  EXPECT_EQ(handle, 0u);
}

TEST_F(UclOperations, SendsWithoutAnObjectSayWhichIsMissing) {
  const TraceCapture trace;
  const TestServer server;
  const TestClient client(server.port);
  void* out = nullptr;
  u32 length = 0;
  EXPECT_EQ(UCLSendRcv(77'777, 0, client.address, client.id, 0, nullptr, &length, &out),
            UCLE_CONNECTION_NOT_FOUND);
  EXPECT_TRUE(trace.Has("UCLSendRcv Cannot find the connection object"));
  EXPECT_FALSE(trace.Has("Server::SendReceive Cannot find the connection object. "));
  EXPECT_EQ(client.recorder.onConnect({}), 0u);
  EXPECT_EQ(UCLSendRcv(client.handle, 0, client.address, 0, 0, nullptr, &length, &out),
            UCLE_CONNECTION_NOT_FOUND);
  EXPECT_TRUE(trace.Has("Server::SendReceive Cannot find the connection object. "));
}

TEST_F(UclOperations, SendToAMissingConnectionIsToldAsItsLoss) {
  const TestServer server;
  TestClient client(server.port);
  EXPECT_EQ(UCLSend(client.handle, 0, client.address, 0, 0, nullptr), UCLE_CONNECTION_NOT_FOUND);
  const std::vector<ConnectCall> calls = client.recorder.ConnectCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].host, "");
  EXPECT_EQ(calls[0].address, client.address);
  EXPECT_EQ(calls[0].connectionId, 0u);
  EXPECT_FALSE(calls[0].connected);
}

TEST_F(UclOperations, ServersAndClientsAreSoughtInTheirOwnLists) {
  const TestServer server;
  const TestClient client(server.port);
  EXPECT_EQ(UCLSend(client.handle, 1, client.address, client.id, 0, nullptr),
            UCLE_CONNECTION_NOT_FOUND);
  EXPECT_EQ(UCLSend(client.handle, 0, client.address, client.id, 0, nullptr), 0u);
}

TEST_F(UclOperations, RequestNeedsAPlaceForItsAnswer) {
  const TraceCapture trace;
  const TestServer server;
  const TestClient client(server.port);
  u32 length = 0;
  EXPECT_EQ(UCLSendRcv(client.handle, 0, client.address, client.id, 0, nullptr, &length, nullptr),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(trace.Has("Invalid output data pointer"));
}

TEST_F(UclOperations, HandlesAreNeverAddressesAndNeverUsedAgain) {
  u32 first = 0;
  u32 second = 0;
  ASSERT_EQ(UCLCreateClient(&first, nullptr, Recorder::Data, nullptr, 0), 0u);
  ASSERT_EQ(UCLDeleteClient(first), 0u);
  ASSERT_EQ(UCLCreateClient(&second, nullptr, Recorder::Data, nullptr, 0), 0u);
  EXPECT_EQ(second, first + 1);
  EXPECT_EQ(UCLDeleteClient(first), UCLE_OBJECT_NOT_FOUND);
}

}  // namespace
}  // namespace zn
