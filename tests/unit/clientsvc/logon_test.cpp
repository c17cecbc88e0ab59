// Connecting, negotiation and logon, as a server on the other end of a socket sees them.
#include <atomic>
#include <cstdlib>
#include <utility>

#include "clientsvc/common/clientsession.h"
#include "clientsvc/common/csmanager.h"
#include "clientsvc/common/watchdog.h"
#include "framework/common/zncore/clientcopy.h"
#include "support/common/shared_memory.h"
#include "support/common/text.h"
#include "tests/unit/clientsvc/fake_server.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/guid.h"
#include "zn/ob.h"
#include "zn/platform.h"

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ClientLogon : public ClientTest {
 protected:
  u32 LogOnAs(const ZnWChar* password) {
    const ClConnectInfo connect = Connection();
    const ClLogonInfo logon = Alice(password);
    return ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0);
  }
  void ExpectNothingMade() const {
    EXPECT_EQ(handle_, nullptr);
    EXPECT_EQ(database_, nullptr);
    EXPECT_THAT(SessionList::Instance().All(), IsEmpty());
  }
};

TEST_F(ClientLogon, TakesItsStepsInOrder) {
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(handle_->magic, ZN_CLIENT_MAGIC);
  EXPECT_EQ(handle_->state, ZN_CLIENT_LOGGED_ON);
  EXPECT_THAT(server_.Numbers(), ElementsAre(1u, 13u, 3u, 5u, 5u, 5u));
  std::vector<std::string> types;
  for (const PropertySet& request : server_.Received(5)) {
    EXPECT_EQ(request.FindValue("Criteria", ZN_TYPE_UINT32)->AsUInt32(), 2u);
    const PropertySet& data = request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
    types.emplace_back(data.FindValue("Type", ZN_TYPE_STRING)->AsText());
  }
  EXPECT_THAT(types, ElementsAre("KELD_Type", "KELD_Task", "KELD_Provider"));
}

TEST_F(ClientLogon, OffersWhatItCan) {
  ASSERT_EQ(LogOn(), ZN_OK);
  const PropertySet offer = server_.Received(1).at(0);
  EXPECT_EQ(offer.Count(), 6u);
  EXPECT_EQ(offer.FindValue("Version", ZN_TYPE_UINT32)->AsUInt32(), 30u);
  EXPECT_EQ(offer.FindValue("Encryption", ZN_TYPE_UINT32)->AsUInt32(), 2u);
  EXPECT_EQ(offer.FindValue("Compression", ZN_TYPE_UINT32)->AsUInt32(), 0u);
  EXPECT_EQ(offer.FindValue("Authentication", ZN_TYPE_UINT32)->AsUInt32(), 1u);
  const Value* data = offer.FindValue("Data", ZN_TYPE_BINARY);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(NumberOf(SetOf(data->AsBinary()), "EncryptionKeyIndex"), 1u);
}

TEST_F(ClientLogon, HidesTheFourTextsInTheChallenge) {
  ASSERT_EQ(LogOn(), ZN_OK);
  const PropertySet challenge = server_.Received(13).at(0);
  EXPECT_EQ(challenge.FindValue("Length", ZN_TYPE_UINT32)->AsUInt32(), 512u);
  const PropertySet logon = server_.Received(3).at(0);
  EXPECT_EQ(logon.FindValue("AuthenticationType", ZN_TYPE_UINT32)->AsUInt32(), 1u);
  const Credentials seen = server_.Logons().at(0);
  EXPECT_EQ(seen.user, u"alice");
  EXPECT_EQ(seen.password, u"secret");
  EXPECT_EQ(seen.domain, u"domain");
  EXPECT_EQ(seen.fourth, u"system");
}

TEST_F(ClientLogon, WithoutCiphersSendsThePlainBlock) {
  server_.SetOption("Encryption", 0);
  EXPECT_EQ(LogOn(), ZNE_UNEXPECTED) << "what the server makes of it";
  const PropertySet logon = server_.Received(3).at(0);
  EXPECT_EQ(logon.FindValue("Data", ZN_TYPE_BINARY)->AsBinary().size(),
            512 + 16 + 2 * (5 + 6 + 6 + 6));
}

TEST_F(ClientLogon, GivesARefusalOnAndLeavesNothing) {
  EXPECT_EQ(LogOnAs(u"wrong"), ZNE_ACCESS_DENIED);
  ExpectNothingMade();
  EXPECT_THAT(server_.Received(5), IsEmpty());
}

// What the stop of the client side does on another thread, amid an exchange.
void DeleteTheCopy() {
  const auto sessions = SessionList::Instance().All();
  ASSERT_EQ(sessions.size(), 1u);
  EXPECT_TRUE(DeleteClientCopy(sessions.front()->DatabaseHandle()));
}

TEST_F(ClientLogon, FailsWhenTheCopyGoesDuringTheNegotiation) {
  server_.On(wire::kSessionOffer, [this](const PropertySet&) {
    DeleteTheCopy();
    return BytesOf(server_.SessionAnswer());
  });
  const TraceCapture trace(3);
  EXPECT_EQ(LogOn(), ZNE_UNEXPECTED);
  EXPECT_TRUE(trace.Has("ClCreateDatabase: Invalid database"));
  ExpectNothingMade();
  EXPECT_THAT(server_.Numbers(), ElementsAre(1u));
}

TEST_F(ClientLogon, FailsWhenTheCopyGoesDuringTheLogon) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  server_.On(wire::kLogon, [this](const PropertySet& request) {
    DeleteTheCopy();
    return server_.Answered(wire::kLogon, request);
  });
  const TraceCapture trace(3);
  const ClLogonInfo logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_UNEXPECTED);
  EXPECT_TRUE(trace.Has("ClCreateDatabase: Invalid database"));
  EXPECT_NE(handle_->state, ZN_CLIENT_LOGGED_ON);
  EXPECT_THAT(server_.Received(wire::kCacheRequest), IsEmpty());
}

TEST_F(ClientLogon, AWarningIsNoLogon) {
  server_.On(3, [](const PropertySet&) {
    PropertySet answer;
    answer.Put("Result", Value::UInt32(ZNW_AUTH_TYPE_UNSUPPORTED));
    return BytesOf(answer);
  });
  EXPECT_EQ(LogOn(), ZNW_AUTH_TYPE_UNSUPPORTED);
  ExpectNothingMade();
}

TEST_F(ClientLogon, WithoutALogonRecordAPasswordCannotBeGiven) {
  const ClConnectInfo connect = Connection();
  EXPECT_EQ(ClCreateDatabaseEx(&connect, nullptr, &handle_, &database_, 0), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(server_.Received(1).at(0).FindValue("Authentication", ZN_TYPE_UINT32)->AsUInt32(), 4u);
  ExpectNothingMade();
}

TEST_F(ClientLogon, ComponentActivationIsNotToBeHad) {
  server_.SetOption("Authentication", 4);
  const ClConnectInfo connect = Connection();
  EXPECT_EQ(ClCreateDatabaseEx(&connect, nullptr, &handle_, &database_, 0), ZNE_NOT_IMPLEMENTED);
  ExpectNothingMade();
}

TEST_F(ClientLogon, IsAPasswordLogonAfterOneThatCouldNotBeSent) {
  server_.SetOption("Authentication", 4);
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  server_.On(3, [](const PropertySet&) { return std::string(); });
  const ClLogonInfo logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_UNEXPECTED);
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_UNEXPECTED);
  std::vector<u32> types;
  for (const PropertySet& request : server_.Received(3)) {
    types.push_back(request.FindValue("AuthenticationType", ZN_TYPE_UINT32)->AsUInt32());
  }
  EXPECT_THAT(types, ElementsAre(4u, 1u)) << "once each: only a local one is sent again";
}

TEST_F(ClientLogon, WithNothingToProveOpensNothing) {
  server_.SetOption("Authentication", 0);
  ASSERT_EQ(LogOn(), ZN_OK);
  EXPECT_EQ(handle_->state, ZN_CLIENT_LOGGED_ON);
  EXPECT_THAT(server_.Numbers(), ElementsAre(1u));
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjects(database_, nullptr, &count, &ids), ZNW_SHMEM_LOGIN_FAILED);
}

TEST_F(ClientLogon, EveryOptionMustBeThere) {
  for (const char* option : {"Version", "Encryption", "Compression", "Authentication"}) {
    FakeServer other;
    other.RemoveOption(option);
    const ClConnectInfo connect{0, other.Port(), "127.0.0.1", 0, 0, 0};
    const ClLogonInfo logon = Alice();
    EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0), ZNE_PROPERTY_NOT_FOUND)
        << option;
  }
  for (const char* key : {"Data", "EncryptionKeyIndex"}) {
    server_.On(1, [&](const PropertySet&) {
      PropertySet answer = server_.SessionAnswer();
      EXPECT_EQ(answer.Delete("Data"), ZN_OK);
      if (std::string_view(key) != "Data") answer.Put("Data", wire::AsBinary(PropertySet()));
      return BytesOf(answer);
    });
    EXPECT_EQ(LogOn(), ZNE_PROPERTY_NOT_FOUND) << key;
  }
  ExpectNothingMade();
}

TEST_F(ClientLogon, TakesTheNestedSetInEitherForm) {
  server_.On(1, [&](const PropertySet&) {
    PropertySet answer = server_.SessionAnswer();
    PropertySet keys;
    keys.Put("EncryptionKeyIndex", Value::UInt32(0));
    answer.Put("Data", Value::Set(std::move(keys)));
    return BytesOf(answer);
  });
  EXPECT_EQ(LogOn(), ZN_OK);
}

TEST_F(ClientLogon, ARefusedOfferTellsWhy) {
  server_.On(1, [](const PropertySet&) {
    PropertySet answer;
    answer.Put("Result", Value::UInt32(ZNE_CLIENT_NO_EXCHANGE_CAPS));
    return BytesOf(answer);
  });
  EXPECT_EQ(LogOn(), ZNE_CLIENT_NO_EXCHANGE_CAPS);
  ExpectNothingMade();
}

TEST_F(ClientLogon, AnAnswerWithoutBytesOrWithBadOnesIsUnexpected) {
  for (const char* bytes : {"", "garbage"}) {
    for (const u32 message : {1u, 13u, 3u}) {
      FakeServer other;
      other.On(message, [&](const PropertySet&) { return std::string(bytes); });
      const ClConnectInfo connect{0, other.Port(), "127.0.0.1", 0, 0, 0};
      const ClLogonInfo logon = Alice();
      EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0), ZNE_UNEXPECTED)
          << message << " \"" << bytes << '"';
    }
  }
  ExpectNothingMade();
}

TEST_F(ClientLogon, FailsWhenTypesOrTasksCannotBeFetched) {
  for (const char* type : {"KELD_Type", "KELD_Task"}) {
    server_.On(5, [&](const PropertySet& request) -> std::optional<std::string> {
      const PropertySet& data = request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
      if (data.FindValue("Type", ZN_TYPE_STRING)->AsText() != type) {
        return server_.Answered(5, request);
      }
      PropertySet answer;
      answer.Put("Result", Value::UInt32(ZNE_NOT_IMPLEMENTED));
      return BytesOf(answer);
    });
    EXPECT_EQ(LogOn(), ZNE_NOT_IMPLEMENTED) << type;
    ExpectNothingMade();
  }
}

TEST_F(ClientLogon, GoesOnWhenTheProvidersCannotBeFetched) {
  server_.On(5, [&](const PropertySet& request) -> std::optional<std::string> {
    const PropertySet& data = request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
    if (data.FindValue("Type", ZN_TYPE_STRING)->AsText() != "KELD_Provider") {
      return server_.Answered(5, request);
    }
    PropertySet answer;
    answer.Put("Result", Value::UInt32(ZNE_NOT_IMPLEMENTED));
    return BytesOf(answer);
  });
  EXPECT_EQ(LogOn(), ZN_OK);
}

TEST_F(ClientLogon, AServerThatGoesEndsIt) {
  for (const u32 message : {1u, 13u, 3u, 5u}) {
    FakeServer other;
    other.On(message, [&](const PropertySet&) -> std::optional<std::string> {
      other.DropClients();
      return std::nullopt;
    });
    const ClConnectInfo connect{0, other.Port(), "127.0.0.1", 0, 0, 0};
    const ClLogonInfo logon = Alice();
    EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0),
              UCLW_SOCKET_DISCONNECTED)
        << message;
    ExpectNothingMade();
  }
}

TEST_F(ClientLogon, AServerThatSaysNothingIsGivenUp) {
  SetLogonWatchdogTime(std::chrono::milliseconds(300));
  for (const u32 message : {1u, 13u, 3u}) {
    FakeServer other;
    other.On(message,
             [](const PropertySet&) -> std::optional<std::string> { return std::nullopt; });
    const ClConnectInfo connect{0, other.Port(), "127.0.0.1", 0, 0, 0};
    const ClLogonInfo logon = Alice();
    EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0),
              UCLW_SOCKET_DISCONNECTED)
        << message;
  }
  SetLogonWatchdogTime(std::chrono::milliseconds(60000));
  ExpectNothingMade();
}

TEST_F(ClientLogon, TheDeadlineIsKeptInMind) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  const auto session = SessionList::Instance().All().at(0);
  EXPECT_EQ(session->LastError(), ZN_OK);
  SetLogonWatchdogTime(std::chrono::milliseconds(30));
  server_.On(13, [](const PropertySet&) -> std::optional<std::string> { return std::nullopt; });
  const ClLogonInfo logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), UCLW_SOCKET_DISCONNECTED);
  SetLogonWatchdogTime(std::chrono::milliseconds(60000));
  EXPECT_EQ(session->LastError(), ZNE_TIMED_OUT);
}

TEST_F(ClientLogon, NobodyThereIsASocketError) {
  server_.Stop();
  EXPECT_EQ(LogOn(), UCLE_SOCKET_ERROR);
  ExpectNothingMade();
}

TEST_F(ClientLogon, TheOlderFormWaitsForItsLogon) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  EXPECT_EQ(handle_->state, ZN_CLIENT_CONNECTED);
  EXPECT_THAT(server_.Numbers(), ElementsAre(1u));
  EXPECT_EQ(server_.Received(1).at(0).FindValue("Authentication", ZN_TYPE_UINT32)->AsUInt32(), 1u);
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjects(database_, nullptr, &count, &ids), ZNW_SHMEM_LOGIN_FAILED);
  ClLogonInfo logon = Alice();
  logon.system = nullptr;
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ClLogon(handle_, nullptr), ZNE_INVALID_ARGUMENTS);
  logon = Alice();
  ASSERT_EQ(ClLogon(handle_, &logon), ZN_OK);
  EXPECT_EQ(handle_->state, ZN_CLIENT_LOGGED_ON);
  EXPECT_EQ(ClLogon(handle_, nullptr), ZN_OK) << "it is logged on, whatever the record";
  EXPECT_EQ(DbGetObjects(database_, "KELD_Type", &count, &ids), ZN_OK);
  EXPECT_NE(count, 0u);
  ZnFree(ids);
}

TEST_F(ClientLogon, ASecondTryUsesTheChallengeOfTheFirst) {
  ASSERT_EQ(ConnectOnly(), ZN_OK);
  ClLogonInfo logon = Alice(u"wrong");
  EXPECT_EQ(ClLogon(handle_, &logon), ZNE_ACCESS_DENIED);
  EXPECT_EQ(handle_->state, ZN_CLIENT_CONNECTED);
  logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), ZN_OK) << "the server gives no second one";
}

TEST_F(ClientLogon, AChallengeThatIsTooShortIsRefused) {
  server_.On(13, [](const PropertySet&) {
    PropertySet answer;
    answer.Put("Data", Value::Binary("short", 5));
    return BytesOf(answer);
  });
  EXPECT_EQ(LogOn(), ZNE_UNEXPECTED);
}

// The shared memory of a server, made by the test.
class LocalLogon : public ClientLogon {
 protected:
  void SetUp() override {
    server_.SetOption("Authentication", 2);
    server_.SetOption("ShMemIndex", 3);
    ASSERT_EQ(ZnGenerateGUID(&guid_), ZN_OK);
    // A service that was killed may have left the area of this port.
    MakeArea();
    ASSERT_EQ(ZnDeleteShMem(std::exchange(view_, nullptr), std::exchange(area_, nullptr)), ZN_OK);
    local_ = {0, server_.Port(), nullptr, ZN_CONNECT_LOCAL_PORT, 0, 0};
  }
  void TearDown() override {
    if (view_ != nullptr) {
      EXPECT_EQ(ZnDeleteShMem(view_, area_), ZN_OK);
    }
  }
  void MakeArea() {
    view_ = ZnCreateShMem(AuthSharedMemoryName(server_.Port()).c_str(), 512, &area_);
    ASSERT_NE(view_, nullptr);
    std::memcpy(static_cast<u8*>(view_) + 3 * sizeof(GUID), &guid_, sizeof(GUID));
  }
  [[nodiscard]] std::u16string GuidText() const {
    char* text = nullptr;
    EXPECT_EQ(ZnGUIDToString(&guid_, &text), ZN_OK);
    std::u16string wide = ToWide(text);
    ZnFree(text);
    return wide;
  }

  GUID guid_{};
  ClConnectInfo local_{};
  void* view_ = nullptr;
  ZnHandle area_ = nullptr;
};

TEST_F(LocalLogon, GivesBackTheIdThatItFindsInSharedMemory) {
  MakeArea();
  ASSERT_EQ(ClCreateDatabaseEx(&local_, nullptr, &handle_, &database_, 0), ZN_OK);
  EXPECT_EQ(server_.Received(1).at(0).FindValue("Authentication", ZN_TYPE_UINT32)->AsUInt32(), 2u);
  EXPECT_EQ(server_.Received(3).at(0).FindValue("AuthenticationType", ZN_TYPE_UINT32)->AsUInt32(),
            2u);
  const Credentials seen = server_.Logons().at(0);
  EXPECT_EQ(seen.user, GuidText());
  EXPECT_EQ(seen.password + seen.domain + seen.fourth, u"");
}

TEST_F(LocalLogon, TheSecretIsNotForAServerThatAsksForItUnasked) {
  MakeArea();
  const ClConnectInfo connect = Connection();
  const ClLogonInfo logon = Alice();
  for (const u32 granted : {2u, 3u, 6u}) {
    server_.SetOption("Authentication", granted);
    EXPECT_EQ(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0), ZNE_UNEXPECTED);
    EXPECT_EQ(ClCreateDatabaseEx(&connect, nullptr, &handle_, &database_, 0), ZNE_UNEXPECTED);
  }
  EXPECT_THAT(server_.Received(13), IsEmpty());
  ExpectNothingMade();
}

TEST_F(LocalLogon, IsSentThreeTimesWhenTheServerCannotSayWhy) {
  MakeArea();
  std::atomic<int> sends{0};
  server_.On(3, [&](const PropertySet& request) -> std::optional<std::string> {
    return ++sends < 3 ? std::string() : server_.Answered(3, request);
  });
  ASSERT_EQ(ClCreateDatabaseEx(&local_, nullptr, &handle_, &database_, 0), ZN_OK);
  const std::vector<PropertySet> sent = server_.Received(3);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_TRUE(sent[1].Equals(sent[0]));
  EXPECT_TRUE(sent[2].Equals(sent[0])) << "the same bytes";
  ASSERT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
  Forget();
  sends = -100;
  EXPECT_EQ(ClCreateDatabaseEx(&local_, nullptr, &handle_, &database_, 0), ZNE_UNEXPECTED);
  EXPECT_EQ(server_.Received(3).size(), 6u) << "three more, and no fourth";
}

TEST_F(LocalLogon, NeedsTheArea) {
  EXPECT_EQ(ClCreateDatabaseEx(&local_, nullptr, &handle_, &database_, 0), ZNE_ACCESS_DENIED);
  ExpectNothingMade();
}

TEST_F(LocalLogon, NeedsASlotOfTheArea) {
  MakeArea();
  server_.SetOption("ShMemIndex", 32);
  EXPECT_EQ(ClCreateDatabaseEx(&local_, nullptr, &handle_, &database_, 0), ZNE_ACCESS_DENIED);
  FakeServer other;
  other.SetOption("Authentication", 2);
  local_.port = other.Port();
  EXPECT_EQ(ClCreateDatabaseEx(&local_, nullptr, &handle_, &database_, 0), ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(LocalLogon, TheOlderFormSaysSoWhenItFails) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(ClCreateDatabase(&local_, &handle_, &database_), ZNE_ACCESS_DENIED);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Logon failed\n");
  ExpectNothingMade();
  MakeArea();
  EXPECT_EQ(ClCreateDatabase(&local_, &handle_, &database_), ZN_OK);
  EXPECT_EQ(handle_->state, ZN_CLIENT_LOGGED_ON);
}

TEST_F(LocalLogon, TheOlderFormWarnsWhereAPasswordIsWanted) {
  server_.SetOption("Authentication", 1);
  EXPECT_EQ(ClCreateDatabase(&local_, &handle_, &database_), ZNW_SHMEM_LOGIN_FAILED);
  ASSERT_NE(handle_, nullptr);
  EXPECT_EQ(handle_->state, ZN_CLIENT_CONNECTED);
  const ClLogonInfo logon = Alice();
  EXPECT_EQ(ClLogon(handle_, &logon), ZN_OK);
}

TEST_F(LocalLogon, ARecordWithoutAHostStartsTheWatchAllTheSame) {
  const ClConnectInfo nowhere{0, 9, nullptr, ZN_CONNECT_PING, 0, 0};
  EXPECT_NE(ClCreateDatabaseEx(&nowhere, nullptr, &handle_, &database_, 0), ZN_OK)
      << "nobody is on the standard port";
  EXPECT_TRUE(CSManagerRuns());
  CSManagerShutdown();
}

}  // namespace
}  // namespace zn::test
