#include "ucl/common/datagram.h"

#include <algorithm>

#include "tests/unit/ucl/peers.h"
#include "ucl/common/sockets.h"

namespace zn {
namespace {

using namespace test;
using WaitResult = DatagramSocket::WaitResult;

TEST(Datagram, TravelsAndTellsItsSender) {
  DatagramSocket server;
  DatagramSocket client;
  ASSERT_TRUE(server.Open() && server.Bind(kLoopback, 0));
  ASSERT_TRUE(client.Open() && client.Bind(kLoopback, 0));
  ASSERT_TRUE(client.Send("\0\0\0\1", 4, kLoopback, server.Port()));
  ASSERT_EQ(server.Wait(10'000), WaitResult::kReady);
  char buffer[3072];
  u32 address = 0;
  u32 port = 0;
  EXPECT_EQ(server.Receive(buffer, sizeof(buffer), &address, &port), 4);
  EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0\1", 4));
  EXPECT_EQ(address, kLoopback);
  EXPECT_EQ(port, client.Port());
  ASSERT_TRUE(server.Send("", 0, address, port));
  ASSERT_EQ(client.Wait(10'000), WaitResult::kReady);
  EXPECT_EQ(client.Receive(buffer, sizeof(buffer), &address, &port), 0);
}

TEST(Datagram, WaitEndsAfterItsTime) {
  DatagramSocket socket;
  ASSERT_TRUE(socket.Open() && socket.Bind(kLoopback, 0));
  EXPECT_EQ(socket.Wait(0), WaitResult::kTimeout);
  const auto begin = Clock::now();
  EXPECT_EQ(socket.Wait(30), WaitResult::kTimeout);
  EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(29));
  char byte = 0;
  u32 address = 0;
  u32 port = 0;
  EXPECT_EQ(socket.Receive(&byte, 1, &address, &port), -1);
}

TEST(Datagram, StopEndsTheWaitAtOnceAndEveryLaterOne) {
  DatagramSocket socket;
  ASSERT_TRUE(socket.Open() && socket.Bind(kLoopback, 0));
  std::thread waiting([&] { EXPECT_EQ(socket.Wait(600'000), WaitResult::kStopped); });
  socket.Stop();
  waiting.join();
  EXPECT_EQ(socket.Wait(600'000), WaitResult::kStopped);
}

TEST(Datagram, BroadcastMustBeAllowed) {
  DatagramSocket socket;
  ASSERT_TRUE(socket.Open() && socket.Bind(kAnyAddress, 0));
  EXPECT_FALSE(socket.Send("x", 1, kBroadcastAddress, 9));
  EXPECT_TRUE(socket.EnableBroadcast());
}

TEST(Datagram, APortBeyondTheLastIsNone) {
  DatagramSocket socket;
  ASSERT_TRUE(socket.Open());
  EXPECT_FALSE(socket.Bind(kAnyAddress, 65536 + 4711));
}

TEST(Datagram, BusyPortIsRefused) {
  DatagramSocket one;
  DatagramSocket two;
  ASSERT_TRUE(one.Open() && one.Bind(kLoopback, 0));
  ASSERT_TRUE(two.Open());
  EXPECT_FALSE(two.Bind(kLoopback, one.Port()));
}

TEST(Hosts, KnowTheirOwnNameAndAddresses) {
  std::string name;
  ASSERT_TRUE(GetLocalHostName(&name));
  EXPECT_FALSE(name.empty());
  std::string official;
  std::vector<u32> addresses;
  ASSERT_TRUE(LookUpHost("localhost", &official, &addresses));
  EXPECT_NE(std::find(addresses.begin(), addresses.end(), kLoopback), addresses.end());
  EXPECT_FALSE(LookUpHost("no.such.host.invalid", &official, &addresses));
  EXPECT_EQ(AddressText(kLoopback), "127.0.0.1");
}

TEST(ResolveHost, TakesNumbersWithoutLookingThemUp) {
  std::string dotted;
  u32 address = 1;
  EXPECT_EQ(ResolveHost("192.0.2.7", &dotted, &address), 0);
  EXPECT_EQ(dotted, "192.0.2.7");
  EXPECT_EQ(AddressText(address), "192.0.2.7");
  EXPECT_EQ(ResolveHost("localhost", &dotted, &address), 0);
  EXPECT_EQ(dotted, "127.0.0.1");
  EXPECT_EQ(address, kLoopback);
}

TEST(ResolveHost, ClearsItsOutputsAndFailsForWhatDoesNotResolve) {
  std::string dotted = "x";
  u32 address = 1;
  EXPECT_EQ(ResolveHost("no.such.host.invalid", &dotted, &address), -1);
  EXPECT_EQ(dotted, "");
  EXPECT_EQ(address, 0u);
  EXPECT_EQ(ResolveHost(nullptr, &dotted, &address), -1);
  EXPECT_EQ(ResolveHost("localhost", nullptr, &address), -1);
  EXPECT_EQ(ResolveHost("localhost", &dotted, nullptr), -1);
}

}  // namespace
}  // namespace zn
