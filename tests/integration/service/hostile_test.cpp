// Peers that send bytes slowly, cut, merged and damaged, or too many of them: each costs its own
// connection at most.
#include <signal.h>

#include <chrono>

#include <gmock/gmock.h>

#include "tests/integration/service/raw_client.h"
#include "tests/integration/service/service_process.h"

namespace zn::test {

namespace {

using testing::HasSubstr;

class Hostile : public testing::Test {
 protected:
  void StartWith(const std::string& settings) {
    service_ = std::make_unique<ServiceProcess>(settings);
    service_->MustStart();
  }
  // The service still serves others, and ends as it should.
  void TearDown() override {
    if (service_ == nullptr) return;
    {
      RawClient client(service_->Port());
      EXPECT_EQ(client.LogOn(u"root", u"toor"), ZN_OK) << service_->Trace();
    }
    service_->Signal(SIGTERM);
    EXPECT_EQ(service_->WaitForEnd(), 0);
  }
  [[nodiscard]] unsigned Port() const { return service_->Port(); }

  std::unique_ptr<ServiceProcess> service_;
};

TEST_F(Hostile, AFrameByteByByteIsServed) {
  StartWith("");
  RawClient client(Port());
  for (const char byte : FrameBytes(2, 5, BytesOf(OfferOf(1)))) {
    ASSERT_TRUE(client.SendBytes({&byte, 1}));
  }
  EXPECT_EQ(NumberOf(client.WaitForResponse(5).Set(), "Message"), 2u);
}

TEST_F(Hostile, FramesInOnePieceAreServedInTheirOrder) {
  StartWith("");
  RawClient client(Port());
  std::string bytes;
  for (u32 id = 1; id <= 50; ++id) bytes += FrameBytes(2, id, BytesOf(OfferOf(1)));
  ASSERT_TRUE(client.SendBytes(bytes));
  for (u32 id = 1; id <= 50; ++id) {
    RawFrame frame;
    ASSERT_TRUE(client.Receive(&frame));
    EXPECT_EQ(frame.id, id);
  }
}

TEST_F(Hostile, ACutFrameCostsNobodyAnything) {
  StartWith("");
  const std::string frame = FrameBytes(2, 1, BytesOf(OfferOf(1)));
  for (size_t length = 0; length < frame.size(); length += 11) {
    RawClient client(Port());
    ASSERT_TRUE(client.SendBytes(std::string_view(frame).substr(0, length)));
  }
}

TEST_F(Hostile, ADamagedHeadEndsTheConnection) {
  StartWith("");
  for (size_t place = 0; place < 22; place += 3) {
    RawClient client(Port());
    std::string frame = FrameBytes(2, 1, BytesOf(OfferOf(1)));
    frame[place] = static_cast<char>(frame[place] ^ 1);
    ASSERT_TRUE(client.SendBytes(frame));
    EXPECT_TRUE(client.IsClosedByPeer()) << place;
  }
}

TEST_F(Hostile, ADamagedEndDropsItsFrameAlone) {
  StartWith("");
  RawClient client(Port());
  std::string frame = FrameBytes(2, 1, BytesOf(OfferOf(1)));
  frame[frame.size() - 4] = 'x';
  ASSERT_TRUE(client.SendBytes(frame + FrameBytes(2, 2, BytesOf(OfferOf(1)))));
  RawFrame answer;
  ASSERT_TRUE(client.Receive(&answer));
  EXPECT_EQ(answer.id, 2u);
}

TEST_F(Hostile, AStrangersGarbageEndsTheConnection) {
  StartWith("");
  RawClient client(Port());
  ASSERT_TRUE(client.SendBytes(FrameBytes(2, 1, "no property set at all")));
  RawFrame answer;
  while (client.Receive(&answer)) {
    EXPECT_EQ(NumberOf(answer.Set(), "Result"), ZNE_INVALID_ARGUMENTS);
  }
  EXPECT_THAT(service_->Trace(), HasSubstr("ZnSendReceive: Unauthorized bad client"));
}

TEST_F(Hostile, EveryDamageOfAnOfferIsSurvived) {
  StartWith("");
  const std::string offer = BytesOf(OfferOf(1));
  for (size_t place = 0; place < offer.size(); ++place) {
    RawClient client(Port());
    std::string damaged = offer;
    damaged[place] = static_cast<char>(damaged[place] ^ 0x80);
    ASSERT_TRUE(client.SendBytes(FrameBytes(2, 1, damaged)));
    RawFrame answer;
    static_cast<void>(client.Receive(&answer));
  }
}

TEST_F(Hostile, AStrangersLongFrameEndsTheConnectionAtItsHead) {
  StartWith("MaxLogonFrameLength = 2000\n");
  RawClient client(Port());
  std::string frame = FrameBytes(2, 1, std::string(2001, 'x'));
  ASSERT_TRUE(client.SendBytes(std::string_view(frame).substr(0, 42)));
  EXPECT_TRUE(client.IsClosedByPeer());
}

TEST_F(Hostile, TheLimitForStrangersEndsWithTheLogon) {
  StartWith("MaxLogonFrameLength = 2000\n");
  RawClient client(Port());
  ASSERT_EQ(client.LogOn(u"root", u"toor"), ZN_OK);
  PropertySet message = MessageOf(4711);
  message.Put("Data", Value::Binary(std::string(100000, 'x').data(), 100000));
  EXPECT_EQ(NumberOf(client.Ask(message).Set(), "Result"), ZN_OK);
}

TEST_F(Hostile, ALengthThatNoMemoryHoldsIsNotAllocated) {
  StartWith("MaxLogonFrameLength = 0\n");
  RawClient client(Port());
  std::string frame = FrameBytes(2, 1, "x");
  for (size_t i = 26; i < 30; ++i) frame[i] = '\xFF';
  ASSERT_TRUE(client.SendBytes(frame));
  std::string status = ReadFile("/proc/" + std::to_string(service_->Pid()) + "/status");
  const size_t rss = status.find("VmRSS:");
  ASSERT_NE(rss, std::string::npos);
  EXPECT_LT(std::stoul(status.substr(rss + 6)), 200000u) << "kilobytes";
}

TEST_F(Hostile, AStrangerWhoDoesNotLogOnIsDropped) {
  StartWith("LogonTimeout = 3\n");  // time enough for the two that do log on
  RawClient client(Port());
  RawClient loggedOn(Port());
  ASSERT_EQ(loggedOn.LogOn(u"root", u"toor"), ZN_OK);
  EXPECT_TRUE(client.IsClosedByPeer());
  EXPECT_EQ(NumberOf(loggedOn.Ask(MessageOf(4711)).Set(), "Result"), ZN_OK);
}

TEST_F(Hostile, NoMoreClientsThanTheSettingsSay) {
  StartWith("MaxClients = 2\n");
  {
    RawClient first(Port());
    RawClient second(Port());
    first.Meet();
    second.Meet();
    RawClient third(Port());
    EXPECT_TRUE(third.IsClosedByPeer());
  }
  // The places are free again once the service has seen the ends.
  bool served = false;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!served && std::chrono::steady_clock::now() < limit) {
    RawClient client(Port());
    RawFrame answer;
    served = client.SendBytes(FrameBytes(2, 1, BytesOf(OfferOf(1)))) && client.Receive(&answer);
  }
  EXPECT_TRUE(served);
}

TEST_F(Hostile, NothingButASessionIsServedToAStranger) {
  StartWith("");
  RawClient client(Port());
  client.Meet();
  for (const u32 message : {5u, 7u, 9u, 4711u}) {
    EXPECT_EQ(NumberOf(client.Ask(MessageOf(message)).Set(), "Result"), ZNE_CLIENT_NOT_AUTHORIZED);
  }
}

}  // namespace

}  // namespace zn::test
