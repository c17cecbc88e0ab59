// Discovery replies and pings, over a real socket of this machine.
#include "service/common/broadcast.h"

#include <optional>

#include <gmock/gmock.h>

#include "tests/unit/service/service_fixture.h"
#include "tests/unit/support/descriptors.h"
#include "tests/unit/support/refused_calls.h"

namespace zn::test {

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr u32 kLoopback = 0x0100007F;

std::vector<u32> NumbersOf(const Value& array) {
  std::vector<u32> numbers;
  for (const Value& value : array.AsArray()) numbers.push_back(value.AsUInt32());
  return numbers;
}

TEST(DiscoveryReply, TellsAllThatAClientWantsToKnow) {
  const HostDescription description{TestGuid(7), 30, 5};
  const std::string bytes = DiscoveryReply("host", {0x0100007F, 0x0200A8C0}, description);
  const PropertySet set = SetOf(bytes);
  EXPECT_EQ(set.Count(), 7u);
  EXPECT_EQ(set.FindValue("Hostname", ZN_TYPE_STRING)->AsText(), "host");
  EXPECT_TRUE(SameGuid(set.FindValue("DatabaseId", ZN_TYPE_OBJECT_ID)->AsGuid(), TestGuid(7)));
  EXPECT_EQ(NumberOf(set, "MiraVersion"), 30u);
  EXPECT_EQ(NumberOf(set, "MiraType"), 0u);
  EXPECT_EQ(NumberOf(set, "ServerFlags"), 5u);
  EXPECT_THAT(NumbersOf(*set.FindValue("HostIP", ZN_TYPE_UINT32 | ZN_TYPE_ARRAY)),
              ElementsAre(0x7F000001, 0xC0A80002));
  const Value* protocols = set.FindValue("SupportedProtocols", ZN_TYPE_PROPSET | ZN_TYPE_ARRAY);
  ASSERT_NE(protocols, nullptr);
  ASSERT_EQ(protocols->AsArray().size(), 1u);
  const PropertySet& protocol = protocols->AsArray()[0].AsSet();
  EXPECT_EQ(NumberOf(protocol, "ProtocolVersion"), 30u);
  EXPECT_EQ(protocol.FindValue("ProtocolName", ZN_TYPE_STRING)->AsText(), "Socket");
}

TEST(DiscoveryReply, FitsIntoADatagramHoweverManyAddressesThereAre) {
  const std::vector<u32> addresses(5000, 0x0100007F);
  const std::string bytes = DiscoveryReply(std::string(255, 'h'), addresses, {});
  EXPECT_LE(bytes.size(), 3072u);
  const PropertySet set = SetOf(bytes);
  EXPECT_EQ(set.FindValue("HostIP", ZN_TYPE_UINT32 | ZN_TYPE_ARRAY)->AsArray().size(), 100u);
}

class Listener : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    server_->pingToken = 0x0100007F;
    ASSERT_TRUE(client_.Open());
    ASSERT_TRUE(client_.Bind(kLoopback, 0));
    DatagramSocket free;
    ASSERT_TRUE(free.Open());
    ASSERT_TRUE(free.Bind(kLoopback, 0));
    port_ = free.Port();
  }
  void StartListener(const HostNames& names = {}) {
    listener_ = std::make_unique<BroadcastListener>(*server_, names);
    ASSERT_TRUE(listener_->Start("127.0.0.1", port_));
  }
  void TearDown() override {
    listener_.reset();
    ServiceTest::TearDown();
  }
  void SendDatagram(std::string_view bytes) {
    ASSERT_TRUE(client_.Send(bytes.data(), static_cast<u32>(bytes.size()), kLoopback, port_));
  }
  [[nodiscard]] std::string Receive() {
    if (client_.Wait(kPatienceMs) != DatagramSocket::WaitResult::kReady) return "nothing";
    char buffer[4096];
    u32 address = 0;
    u32 port = 0;
    const i32 length = client_.Receive(buffer, sizeof buffer, &address, &port);
    return length < 0 ? "failure" : std::string(buffer, static_cast<size_t>(length));
  }
  static constexpr std::string_view kDiscover{"\0\0\0\1", 4};
  static constexpr std::string_view kPing{"\0\0\0\2", 4};
  DatagramSocket client_;
  u32 port_ = 0;
  std::unique_ptr<BroadcastListener> listener_;
};

TEST_F(Listener, AnswersAPingWithTheToken) {
  StartListener();
  SendDatagram(kPing);
  EXPECT_EQ(Receive(), std::string("\x01\0\0\x7F", 4)) << "as a number, highest byte first";
}

TEST_F(Listener, AnswersADiscovery) {
  StartListener();
  SendDatagram(kDiscover);
  const PropertySet set = SetOf(Receive());
  EXPECT_TRUE(SameGuid(set.FindValue("DatabaseId", ZN_TYPE_OBJECT_ID)->AsGuid(),
                       database_->GetId().Value()));
  EXPECT_EQ(NumberOf(set, "MiraVersion"), 30u);
}

struct Malformed {
  const char* trace;
  std::string_view bytes;
};
constexpr Malformed kMalformed[] = {
    {"Incorrect bytes received by BroadcastListener", {"\0\0\0\2\0", 5}},
    {"Incorrect bytes received by BroadcastListener", {"\0\0\0", 3}},
    {"Incorrect bytes received by BroadcastListener", {"", 0}},
    {"Incorrect command received by BroadcastListener", {"\0\0\0\3", 4}},
    {"Incorrect command received by BroadcastListener", {"\2\0\0\0", 4}},
};
TEST_F(Listener, AnswersNothingMalformed) {
  StartListener();
  for (const Malformed& row : kMalformed) {
    SCOPED_TRACE(row.trace);
    const TraceCapture trace(4);
    SendDatagram(row.bytes);
    SendDatagram(kPing);
    EXPECT_EQ(Receive(), std::string("\x01\0\0\x7F", 4)) << "the answer to the ping behind it";
    EXPECT_THAT(trace.Messages(), ElementsAre(row.trace));
  }
}

TEST_F(Listener, AnswersNoPingWhenKeepAliveIsDisabled) {
  StartListener();
  server_->isKeepAliveDisabled = true;
  SendDatagram(kPing);
  SendDatagram(kDiscover);
  EXPECT_GT(Receive().size(), 4u) << "the discovery's answer is the first to come";
}

TEST_F(Listener, SaysThatItsPortIsTaken) {
  DatagramSocket other;
  ASSERT_TRUE(other.Open());
  ASSERT_TRUE(other.Bind(kLoopback, port_));
  const TraceCapture trace(6);
  StartListener();
  EXPECT_TRUE(listener_->Stop(kPatienceMs));
  EXPECT_THAT(trace.Messages(), ElementsAre("Bind failed for BroadcastListener"));
}

TEST_F(Listener, SaysThatItHasNoSocket) {
  if (kChecksNeedDescriptors) GTEST_SKIP() << "the sanitizer opens pipes for its own checks";
  const TraceCapture trace(6);
  {
    const FewDescriptors few(0);
    StartListener();
  }
  EXPECT_TRUE(listener_->Stop(kPatienceMs));
  EXPECT_THAT(trace.Messages(), ElementsAre("BroadcastListener: Socket creation failed"));
}

TEST_F(Listener, SaysThatItCannotReceive) {
  const TraceCapture trace(4);
  WithRefusedCalls({SYS_recvfrom}, ENOBUFS, [&] { StartListener(); });
  SendDatagram(kPing);
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (!trace.Has("recvfrom() failed for BroadcastListener") &&
         std::chrono::steady_clock::now() < until) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(listener_->Stop(kPatienceMs)) << "it has not ended by itself";
  EXPECT_THAT(trace.Messages(), Each("recvfrom() failed for BroadcastListener"));
  EXPECT_THAT(trace.Messages(), Not(IsEmpty()));
}

TEST_F(Listener, IsNotStartedWithoutItsThread) {
  listener_ = std::make_unique<BroadcastListener>(*server_);
  WithRefusedCalls(kThreadCalls, EAGAIN,
                   [&] { EXPECT_FALSE(listener_->Start("127.0.0.1", port_)); });
  EXPECT_TRUE(listener_->Stop(kPatienceMs));
}

TEST_F(Listener, SaysThatItListensAndWhomItAnswers) {
  const TraceCapture trace(1);
  StartListener();
  SendDatagram(kDiscover);
  static_cast<void>(Receive());
  EXPECT_TRUE(listener_->Stop(kPatienceMs));
  EXPECT_TRUE(trace.Has("Bind successful for BroadcastListener"));
  EXPECT_TRUE(trace.Has("Command received by BroadcastListener from client: 127.0.0.1"));
  EXPECT_TRUE(trace.Has("Sent response to 127.0.0.1 from BroadcastListener"));
}

TEST_F(Listener, StopsAtOnce) {
  StartListener();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(listener_->Stop(kPatienceMs));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
}

// --- A host that does not know itself ----------------------------------------------------------

bool Nameless(std::string*) {
  return false;
}
bool Unknown(const std::string&, std::string*, std::vector<u32>*) {
  return false;
}
bool WithoutAddress(const std::string& name, std::string* officialName, std::vector<u32>*) {
  *officialName = name;
  return true;
}
bool WithALongName(const std::string&, std::string* officialName, std::vector<u32>*) {
  *officialName = std::string(4000, 'h');
  return true;
}

struct NameCase {
  HostNames names;
  const char* trace;
};
TEST_F(Listener, AnswersNoDiscoveryItCannotAnswer) {
  const NameCase cases[] = {
      {{Nameless, LookUpHost}, "gethostname() failed in BroadcastListener "},
      {{GetLocalHostName, Unknown}, "gethostbyname() failed in BroadcastListener "},
      {{GetLocalHostName, WithALongName}, "Send to 127.0.0.1 failed from BroadcastListener"},
  };
  for (const NameCase& row : cases) {
    SCOPED_TRACE(row.trace);
    const TraceCapture trace(4);
    StartListener(row.names);
    SendDatagram(kDiscover);
    SendDatagram(kPing);
    EXPECT_EQ(Receive(), std::string("\x01\0\0\x7F", 4)) << "the answer to the ping behind it";
    EXPECT_THAT(trace.Messages(), ElementsAre(row.trace));
    listener_.reset();
  }
}

std::optional<Gate> nameAsked;
bool SaysThatItIsAsked(std::string*) {
  nameAsked->Open();
  return false;
}
TEST_F(Listener, SaysThatItCannotAnswerAPing) {
  nameAsked.emplace();
  const TraceCapture trace(6);
  WithRefusedCalls({SYS_sendto}, EPERM, [&] { StartListener({SaysThatItIsAsked, LookUpHost}); });
  SendDatagram(kPing);
  SendDatagram(kDiscover);
  EXPECT_TRUE(nameAsked->Wait()) << "the ping is done with";
  EXPECT_THAT(trace.Messages(), ElementsAre("Error in sending MiraPing response"));
}

std::optional<Gate> lookUpEntered;
std::optional<Gate> lookUpGoesOn;
bool Slow(const std::string&, std::string*, std::vector<u32>*) {
  lookUpEntered->Open();
  EXPECT_TRUE(lookUpGoesOn->Wait());
  return false;
}
TEST_F(Listener, IsNotWaitedForLongerThanTold) {
  lookUpEntered.emplace();
  lookUpGoesOn.emplace();
  StartListener({GetLocalHostName, Slow});
  SendDatagram(kDiscover);
  ASSERT_TRUE(lookUpEntered->Wait());
  EXPECT_FALSE(listener_->Stop(10));
  lookUpGoesOn->Open();
  EXPECT_TRUE(listener_->Stop(kPatienceMs));
  EXPECT_TRUE(listener_->Stop(kPatienceMs)) << "there is nothing left to stop";
}

TEST(PingToken, IsNothingOnAHostThatDoesNotKnowItself) {
  const NameCase cases[] = {
      {{Nameless, LookUpHost}, "gethostname failed in CreatePingToken"},
      {{GetLocalHostName, Unknown}, "gethostbyname failed in CreatePingToken"},
      {{GetLocalHostName, WithoutAddress}, "gethostbyname failed in CreatePingToken"},
  };
  for (const NameCase& row : cases) {
    SCOPED_TRACE(row.trace);
    const TraceCapture trace(6);
    EXPECT_EQ(CreatePingToken(row.names), 0u);
    EXPECT_THAT(trace.Messages(), ElementsAre(row.trace));
  }
}

TEST(PingToken, IsAnAddressOfThisHost) {
  std::string name;
  std::string official;
  std::vector<u32> addresses;
  if (!GetLocalHostName(&name) || !LookUpHost(name, &official, &addresses)) {
    GTEST_SKIP() << "this host does not know its own name";
  }
  EXPECT_EQ(CreatePingToken(), addresses.front());
}

}  // namespace

}  // namespace zn::test
