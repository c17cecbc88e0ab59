// Discovery: where it asks, what it makes of replies, and the table that it keeps.
#include "clientsvc/common/discovery.h"

#include <chrono>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>

#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstream/znstream.h"
#include "support/common/status.h"
#include "tests/unit/support/descriptors.h"
#include "tests/unit/ucl/peers.h"
#include "ucl/common/datagram.h"
#include "zn/memory.h"

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr GUID kId = {0xC0FFEE, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

PropertySet Reply(std::string_view host, u32 flags = 0) {
  std::vector<Value> addresses;
  addresses.push_back(Value::UInt32(0x7F000001));
  PropertySet protocol;
  protocol.Put("ProtocolVersion", Value::UInt32(30));
  protocol.Put("ProtocolName", Value::Text("Socket"));
  std::vector<Value> protocols;
  protocols.push_back(Value::Set(std::move(protocol)));
  PropertySet set;
  set.Put("Hostname", Value::Text(host));
  set.Put("DatabaseId", Value::Id(kId));
  set.Put("MiraVersion", Value::UInt32(30));
  set.Put("MiraType", Value::UInt32(0));
  set.Put("HostIP", Value::Array(ZN_TYPE_UINT32, std::move(addresses)));
  set.Put("ServerFlags", Value::UInt32(flags));
  set.Put("SupportedProtocols", Value::Array(ZN_TYPE_PROPSET, std::move(protocols)));
  return set;
}

DiscoveryReply From(u32 address, const PropertySet& set) {
  BinaryWriter writer;
  set.Marshal(writer);
  return {address, {writer.Buffer().Data(), writer.Buffer().Data() + writer.Buffer().Size()}};
}

TEST(DiscoveryTargets, AreTheBroadcastOrWhatIsNamed) {
  const auto texts = [](std::string_view text) {
    std::vector<std::string> result;
    for (const DiscoveryTarget& target : ParseDiscoveryTargets(text)) {
      result.push_back(AddressText(target.address) + ":" + std::to_string(target.port));
    }
    return result;
  };
  EXPECT_THAT(texts(""), ElementsAre("255.255.255.255:2148"));
  EXPECT_THAT(texts("127.0.0.1"), ElementsAre("127.0.0.1:2148"));
  EXPECT_THAT(texts("127.0.0.1:99,192.0.2.255:65535"),
              ElementsAre("127.0.0.1:99", "192.0.2.255:65535"));
  EXPECT_THAT(texts("x,1.2.3,1.2.3.4.5,256.1.1.1,1.2.3.4:65536,1.2.3.4:,1.2.3.4:7x,-1.2.3.4,,"),
              IsEmpty());
}

TEST(DiscoveryReplies, AReplyFillsARow) {
  const std::vector<ClHostInfo> rows = ReadDiscoveryReplies({From(1, Reply("alpha", 5))});
  ASSERT_THAT(rows, SizeIs(1));
  const ClHostInfo& row = rows[0];
  EXPECT_STREQ(row.hostname, "alpha");
  EXPECT_EQ(row.databaseId.Data1, kId.Data1);
  EXPECT_EQ(row.addressCount, 1u);
  EXPECT_EQ(row.addresses[0], 0x7F000001u);
  EXPECT_EQ(row.miraVersion, 30u);
  EXPECT_EQ(row.miraType, 0u);
  EXPECT_EQ(row.serverFlags, 5u);
  ASSERT_EQ(row.protocolCount, 1u);
  EXPECT_EQ(row.protocols[0].version, 30u);
  EXPECT_STREQ(row.protocols[0].name, "Socket");
}

TEST(DiscoveryReplies, AHostAndASenderCountOnce) {
  const std::vector<ClHostInfo> rows =
      ReadDiscoveryReplies({From(1, Reply("alpha", 1)), From(2, Reply("alpha", 2)),
                            From(1, Reply("beta")), From(3, Reply("gamma"))});
  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_STREQ(rows[0].hostname, "alpha");
  EXPECT_EQ(rows[0].serverFlags, 1u);
  EXPECT_STREQ(rows[1].hostname, "gamma");
}

TEST(DiscoveryReplies, LongListsAndNamesAreCut) {
  PropertySet reply = Reply("protocols");
  PropertySet manyAddresses = Reply(std::string(300, 'h'));
  std::vector<Value> addresses;
  for (u32 i = 0; i < 120; ++i) addresses.push_back(Value::UInt32(i));
  manyAddresses.Put("HostIP", Value::Array(ZN_TYPE_UINT32, std::move(addresses)));
  std::vector<Value> protocols;
  for (u32 i = 0; i < 25; ++i) {
    PropertySet entry;  // the first lacks its keys
    if (i != 0) entry.Put("ProtocolVersion", Value::UInt32(i));
    if (i != 0) entry.Put("ProtocolName", Value::Text(std::string(30, 'p')));
    protocols.push_back(Value::Set(std::move(entry)));
  }
  reply.Put("SupportedProtocols", Value::Array(ZN_TYPE_PROPSET, std::move(protocols)));
  const std::vector<ClHostInfo> all =
      ReadDiscoveryReplies({From(1, manyAddresses), From(2, reply)});
  ASSERT_THAT(all, SizeIs(2));
  const ClHostInfo* rows = all.data();
  EXPECT_EQ(std::string(rows[0].hostname), std::string(255, 'h'));
  EXPECT_EQ(rows[0].addressCount, 100u);
  EXPECT_EQ(rows[0].addresses[99], 99u);
  EXPECT_EQ(rows[1].protocolCount, 20u);
  EXPECT_EQ(rows[1].protocols[0].version, 0u);
  EXPECT_STREQ(rows[1].protocols[0].name, "");
  EXPECT_EQ(std::string(rows[1].protocols[19].name), std::string(19, 'p'));
}

TEST(DiscoveryReplies, WhatIsNoneLosesItsRowAlone) {
  std::vector<DiscoveryReply> replies;
  replies.push_back({1, {}});
  replies.push_back({2, {0xFF, 0xFF, 0xFF, 0xFF, 0}});
  DiscoveryReply large = From(3, Reply("large"));
  large.data.resize(3073);
  replies.push_back(std::move(large));
  u32 address = 10;
  for (const char* key : {"Hostname", "DatabaseId", "MiraVersion", "MiraType", "HostIP",
                          "ServerFlags", "SupportedProtocols"}) {
    PropertySet missing = Reply(key);
    ASSERT_EQ(missing.Delete(key), ZN_OK);
    replies.push_back(From(++address, missing));
    PropertySet wrong = Reply(key);
    wrong.Put(key, Value::Bool(1));
    replies.push_back(From(++address, wrong));
  }
  replies.push_back(From(100, Reply("good")));
  const std::vector<ClHostInfo> rows = ReadDiscoveryReplies(replies);
  ASSERT_THAT(rows, SizeIs(1));
  EXPECT_STREQ(rows[0].hostname, "good");
}

TEST(DiscoveryReplies, MakeNoNamesThatNobodyKnows) {
  PropertySet set = Reply("x");
  BinaryWriter writer;
  set.Marshal(writer);
  // The first name, "DatabaseId", becomes one that was never met.
  std::vector<u8> data(writer.Buffer().Data(), writer.Buffer().Data() + writer.Buffer().Size());
  const std::string_view name = "DatabaseIX";
  std::copy(name.begin(), name.end(), data.begin() + 12);
  EXPECT_THAT(ReadDiscoveryReplies({{1, data}}), IsEmpty());
  PropertyName known;
  EXPECT_FALSE(PropertyName::Find(name, &known));
}

// A server that answers discovery on the loopback.
class Discovering : public testing::Test {
 protected:
  Discovering() {
    EXPECT_EQ(ClStartup(), ZN_OK);
    EXPECT_TRUE(server_.Open());
    EXPECT_TRUE(server_.Bind(kLoopback, 0));
    const std::string target = "127.0.0.1:" + std::to_string(server_.Port());
    setenv("ZN_DISCOVERY", target.c_str(), 1);
    answerer_ = std::thread([this] { Answer(); });
  }
  ~Discovering() override {
    EXPECT_EQ(ClDisableHostDiscovery(), ZN_OK);
    EXPECT_EQ(ClShutdown(), ZN_OK);
    server_.Stop();
    answerer_.join();
    unsetenv("ZN_DISCOVERY");
    SetDiscoveryTimes({});
  }
  void Answer() {
    while (server_.Wait(60000) == DatagramSocket::WaitResult::kReady) {
      u8 command[16];
      u32 address = 0;
      u32 port = 0;
      const i32 length = server_.Receive(command, sizeof(command), &address, &port);
      EXPECT_EQ(length, 4);
      EXPECT_EQ(LoadU32(command), 1u);
      const DiscoveryReply reply = From(0, Reply("host" + std::to_string(++asked_), flags_));
      EXPECT_TRUE(
          server_.Send(reply.data.data(), static_cast<u32>(reply.data.size()), address, port));
      if (trickles_) Trickle(address, port);
    }
  }
  // Something else again and again, so that it is never quiet.
  void Trickle(u32 address, u32 port) {
    while (trickles_ && server_.Wait(5) == DatagramSocket::WaitResult::kTimeout) {
      static_cast<void>(server_.Send("x", 1, address, port));
    }
  }
  // A pass at once that finds the server. One that missed its reply, on a busy machine, leaves an
  // empty table: then it is another's turn.
  static void FindAtOnce() {
    EXPECT_TRUE(Eventually([] {
      EXPECT_EQ(ClEnableHostDiscovery(1, 1), ZN_OK);
      if (!Hosts(0).empty()) return true;
      EXPECT_EQ(ClDisableHostDiscovery(), ZN_OK);
      return false;
    }));
  }
  static std::vector<std::string> Hosts(u32 mask) {
    u32 count = 99;
    ClHostInfo* hosts = nullptr;
    EXPECT_EQ(ClEnumHosts(mask, &count, &hosts), ZN_OK);
    std::vector<std::string> names;
    for (u32 i = 0; i < count; ++i) names.emplace_back(hosts[i].hostname);
    ZnFree(hosts);
    return names;
  }

  DatagramSocket server_;
  std::atomic<u32> asked_{0};
  std::atomic<u32> flags_{0};
  std::atomic<bool> trickles_{false};
  std::thread answerer_;
};

TEST_F(Discovering, APassAtOnceFillsTheTable) {
  SetDiscoveryTimes({3600000, 200});
  FindAtOnce();
  EXPECT_THAT(Hosts(0), SizeIs(1));
  EXPECT_THAT(Hosts(1), IsEmpty()) << "those with flags alone";
}

TEST_F(Discovering, TheTableIsReplacedByEachPass) {
  flags_ = 6;
  SetDiscoveryTimes({1, 50});
  ASSERT_EQ(ClEnableHostDiscovery(1, 0), ZN_OK);
  EXPECT_EQ(ClEnableHostDiscovery(0, 1), ZN_OK) << "it is enabled: nothing happens";
  EXPECT_TRUE(Eventually([] {
    const std::vector<std::string> hosts = Hosts(2);
    return hosts.size() == 1 && hosts[0] != "host1";
  }));
  EXPECT_THAT(Hosts(0), IsEmpty());
  EXPECT_THAT(Hosts(1), IsEmpty());
  ClDisableHostDiscovery();
}

TEST_F(Discovering, StopsWhenItIsDisabledAndGoesOnWhenItIsEnabledAgain) {
  SetDiscoveryTimes({1, 10});
  EXPECT_TRUE(Eventually([this] {
    const u32 already = asked_;
    EXPECT_EQ(ClEnableHostDiscovery(1, 0), ZN_OK);
    EXPECT_TRUE(Eventually([&] { return asked_ > already + 2; }));
    EXPECT_EQ(ClDisableHostDiscovery(), ZN_OK);
    EXPECT_EQ(ClDisableHostDiscovery(), ZN_OK);
    EXPECT_TRUE(Eventually([this] {
      const u32 before = asked_;
      std::this_thread::sleep_for(std::chrono::milliseconds(150));  // several passes long
      return asked_ == before;
    }));
    return Hosts(0).size() == 1;  // but where the last pass missed its reply
  })) << "what was found stays";
  const u32 before = asked_;
  ASSERT_EQ(ClEnableHostDiscovery(1, 0), ZN_OK);
  EXPECT_TRUE(Eventually([&] { return asked_ > before; }));
}

TEST_F(Discovering, APassThatFailsLeavesTheTable) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  SetDiscoveryTimes({3600000, 50});
  FindAtOnce();
  {
    const FewDescriptors few(0);
    EXPECT_EQ(RunDiscoveryPass(), ZNE_UNEXPECTED);
  }
  EXPECT_THAT(Hosts(0), SizeIs(1));
}

TEST_F(Discovering, APassDoesNotHoldUpTheEnd) {
  flags_ = 64;
  SetDiscoveryTimes({1, 600000});
  ASSERT_EQ(ClEnableHostDiscovery(1, 0), ZN_OK);
  ASSERT_TRUE(Eventually([this] { return asked_ == 1; }));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ClShutdown(), ZN_OK);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_THAT(Hosts(64), IsEmpty()) << "it was not finished";
  EXPECT_EQ(ClStartup(), ZN_OK);
}

TEST_F(Discovering, WhoNeverFallsSilentDoesNotKeepAPassForEver) {
  trickles_ = true;
  SetDiscoveryTimes({3600000, 50});
  const auto start = std::chrono::steady_clock::now();
  FindAtOnce();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  trickles_ = false;
  EXPECT_THAT(Hosts(0), SizeIs(1));
}

}  // namespace
}  // namespace zn::test
