// Sessions: connects, offers, challenges, logons and what a client's state follows from.
#include <future>

#include <gmock/gmock.h>

#include "support/common/shared_memory.h"
#include "tests/unit/service/service_fixture.h"
#include "zn/guid.h"
#include "zn/platform.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Session : public ServiceTest {
 protected:
  // A shared memory of the test's own.
  void MakeSharedMemory() { ASSERT_TRUE(server_->slots.Create(MemoryName())); }
  [[nodiscard]] static std::string MemoryName() {
    return AuthSharedMemoryName(static_cast<u32>(getpid()) % 40000 + 20000);
  }
  // What a local client reads from a slot.
  [[nodiscard]] static std::u16string GuidTextInSlot(u32 slot) {
    void* view = ZnOpenShMem(MemoryName().c_str());
    EXPECT_NE(view, nullptr);
    if (view == nullptr) return {};
    GUID guid{};
    std::memcpy(&guid, static_cast<const u8*>(view) + slot * sizeof(GUID), sizeof guid);
    EXPECT_EQ(ZnCloseShMem(view), ZN_OK);
    char text[kGuidTextLength];
    FormatGuid(guid, text);
    return ToWide({text, kGuidTextLength});
  }
  // An offer, a challenge, and a logon of these credentials.
  Reply TryLogOn(const Credentials& credentials, u32 type = 1) {
    return Send(LogonOf(challenge_, credentials, type));
  }
  void MeetAndChallenge() {
    client_ = Connect();
    challenge_ = Challenge();
  }

  ClientPtr client_;
  std::string challenge_;
};

TEST_F(Session, TracesWhoComesAndGoes) {
  const TraceCapture trace(3);
  Connect();
  Disconnect();
  Disconnect();  // a second removal is none
  EXPECT_THAT(trace.Messages(), ElementsAre("ZnSvc:Client connected. Address = 127.0.0.1",
                                            "ZnSvc:Client disconnected. Address = 127.0.0.1"));
  EXPECT_EQ(server_->clients.Count(), 0u);
}

TEST_F(Session, StartsWithTheOptionsOfAClientThatOfferedNothing) {
  const ClientPtr client = Connect();
  EXPECT_EQ(client->SessionKey(), u64{kPeer} << 32 | 1);
  EXPECT_EQ(client->session.version, 30u);
  EXPECT_EQ(client->session.encryption, 0u);
  EXPECT_EQ(client->session.encryptionKeyIndex, 0u);
  EXPECT_EQ(client->session.compression, 0u);
  EXPECT_EQ(client->session.authentication, 1u);
  EXPECT_EQ(client->state, 0u);
}

// --- The offer ---------------------------------------------------------------------------------

TEST_F(Session, AnswersAnOffer) {
  server_->pingToken = 0x0100007F;
  Connect();
  const Reply reply = Send(OfferOf());
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 2u);
  EXPECT_EQ(NumberOf(reply.set, "Version"), 30u);
  EXPECT_EQ(NumberOf(reply.set, "Encryption"), 2u);
  EXPECT_EQ(NumberOf(reply.set, "Compression"), 0u);
  EXPECT_EQ(NumberOf(reply.set, "Authentication"), 1u);
  EXPECT_EQ(NumberOf(reply.set, "PingToken"), 0x0100007Fu);
  const Value* data = reply.set.FindValue("Data", ZN_TYPE_BINARY);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(NumberOf(SetOf(data->AsBinary()), "EncryptionKeyIndex"), 0u);
  EXPECT_FALSE(reply.Has("ShMemIndex"));
  EXPECT_EQ(reply.set.Count(), 8u);
}

TEST_F(Session, TakesAnOfferWhoseDataIsASetToo) {
  Connect();
  PropertySet data;
  data.Put("EncryptionKeyIndex", Value::UInt32(1));
  PropertySet offer = OfferOf();
  offer.Put("Data", Value::Set(std::move(data)));
  EXPECT_EQ(Send(offer).Result(), ZN_OK);
}

TEST_F(Session, OffersNoPingTokenWhenKeepAliveIsDisabled) {
  server_->isKeepAliveDisabled = true;
  Connect();
  EXPECT_FALSE(Send(OfferOf()).Has("PingToken"));
}

TEST_F(Session, AnswersTheVersionOfTheServerWhateverIsOffered) {
  Connect();
  PropertySet offer = OfferOf();
  offer.Put("Version", Value::UInt32(99));
  EXPECT_EQ(NumberOf(Send(offer).set, "Version"), 30u);
}

struct EncryptionCase {
  const char* why;
  u32 offered;
  u32 agreed;
};
constexpr EncryptionCase kEncryptionCases[] = {
    {"the one cipher", 2, 2},
    {"among others", 0xFFFFFFFF, 2},
    {"no common cipher: the failure is overwritten, the answer shows 0", 1, 0},
    {"none offered", 0, 0},
    {"three is two bits", 3, 2},
};
TEST_F(Session, AgreesOnACipher) {
  u32 id = 0;
  for (const EncryptionCase& row : kEncryptionCases) {
    SCOPED_TRACE(row.why);
    const ClientPtr client = Connect(++id);
    const Reply reply = Send(OfferOf(1, row.offered), id);
    EXPECT_EQ(reply.Result(), ZN_OK);
    EXPECT_EQ(NumberOf(reply.set, "Encryption"), row.agreed);
    EXPECT_EQ(client->session.encryption, row.agreed);
  }
}

TEST_F(Session, RefusesTheLogonOfASessionWithoutACipher) {
  Connect();
  Send(OfferOf(1, 1));
  const Reply challenge = Send(ChallengeRequestOf());
  const std::string bytes(challenge.set.FindValue("Data", ZN_TYPE_BINARY)->AsBinary());
  EXPECT_EQ(Send(LogonOf(bytes, Anna())).Result(), ZNE_UNEXPECTED);
}

TEST_F(Session, RefusesAnOfferOfNoKeys) {
  Connect();
  EXPECT_EQ(Send(OfferOf(1, 2, 0)).Result(), ZNE_CLIENT_NO_EXCHANGE_CAPS);
  EXPECT_EQ(Send(OfferOf(1, 2, 77)).Result(), ZN_OK);
}

TEST_F(Session, NeverCompresses) {
  Connect();
  EXPECT_EQ(NumberOf(Send(OfferOf(1, 2, 1, 1)).set, "Compression"), 0u);
}

struct AuthenticationCase {
  const char* why;
  bool hasMemory;
  u32 offered;
  u32 agreed;
};
constexpr AuthenticationCase kAuthenticationCases[] = {
    {"a password", true, 1, 1},
    {"a token is never granted", true, 4, 1},
    {"shared memory", true, 2, 2},
    {"shared memory before a password", true, 3, 2},
    {"a token counts as not offered", true, 6, 2},
    {"no shared memory here", false, 2, 1},
    {"nothing offered", true, 0, 1},
};
TEST_F(Session, ChoosesTheWayOfTheLogon) {
  u32 id = 0;
  for (const AuthenticationCase& row : kAuthenticationCases) {
    SCOPED_TRACE(row.why);
    server_->slots.Release();
    if (row.hasMemory) MakeSharedMemory();
    const ClientPtr client = Connect(++id);
    const Reply reply = Send(OfferOf(row.offered), id);
    EXPECT_EQ(reply.Result(), ZN_OK);
    EXPECT_EQ(NumberOf(reply.set, "Authentication"), row.agreed);
    EXPECT_EQ(reply.Has("ShMemIndex"), row.agreed == 2);
    EXPECT_EQ(client->session.authentication, row.agreed);
  }
}

TEST_F(Session, NoOfferWaitsForASlotLongerThanItsClientMay) {
  MakeSharedMemory();
  for (int i = 0; i < 32; ++i) ASSERT_EQ(server_->slots.PrepForLogon(2, nullptr, nullptr), ZN_OK);
  server_->options.logonTimeoutSeconds = 1;
  Connect();
  EXPECT_EQ(Send(OfferOf(2)).Result(), ZNE_TIMED_OUT);
}

TEST_F(Session, TellsWhichOptionIsMissing) {
  Connect();
  for (const char* name : {"Version", "Encryption", "Compression", "Authentication", "Data"}) {
    SCOPED_TRACE(name);
    PropertySet offer = OfferOf();
    ASSERT_EQ(offer.Delete(name), ZN_OK);
    const Reply reply = Send(offer);
    EXPECT_EQ(reply.Result(), ZNE_PROPERTY_NOT_FOUND);
    EXPECT_EQ(reply.set.Count(), 1u) << "a refused offer has no answer but the result";
    offer.Put(name, Value::Text(std::string_view("of another type")));
    EXPECT_EQ(Send(offer).Result(), ZNE_INVALID_ARGUMENTS);
  }
  PropertySet offer = OfferOf();
  offer.Put("Data", Value::Set(PropertySet()));
  EXPECT_EQ(Send(offer).Result(), ZNE_PROPERTY_NOT_FOUND);
}

// --- The challenge -----------------------------------------------------------------------------

struct LengthCase {
  u32 asked;
  u32 given;
};
constexpr LengthCase kLengthCases[] = {{0, 512},     {100, 512},        {512, 512},
                                       {513, 513},   {2047, 2047},      {2048, 2048},
                                       {5000, 2048}, {0xFFFFFFFF, 2048}};
TEST_F(Session, BoundsTheLengthOfAChallenge) {
  u32 id = 0;
  for (const LengthCase& row : kLengthCases) {
    SCOPED_TRACE(row.asked);
    const ClientPtr client = Connect(++id);
    const Reply reply = Send(ChallengeRequestOf(row.asked), id);
    EXPECT_EQ(reply.Result(), ZN_OK);
    EXPECT_EQ(NumberOf(reply.set, "Message"), 14u);
    const Value* data = reply.set.FindValue("Data", ZN_TYPE_BINARY);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->AsBinary().size(), row.given);
    EXPECT_EQ(std::string(client->challenge.begin(), client->challenge.end()), data->AsBinary());
  }
}

TEST_F(Session, GivesEachConnectionAnotherChallenge) {
  Connect(1);
  Connect(2);
  EXPECT_NE(Challenge(1), Challenge(2));
}

TEST_F(Session, GivesOneChallengeForAConnection) {
  MeetAndChallenge();
  const Reply reply = Send(ChallengeRequestOf());
  EXPECT_EQ(reply.Result(), ZNE_UNEXPECTED);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 14u);
  EXPECT_FALSE(reply.Has("Data"));
  EXPECT_EQ(TryLogOn(Anna()).Result(), ZN_OK) << "the first one is still good";
}

TEST_F(Session, TellsThatTheLengthIsMissing) {
  const ClientPtr client = Connect();
  EXPECT_EQ(Send(MessageOf(13)).Result(), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_TRUE(client->challenge.empty());
}

TEST_F(Session, AnswersTheFirstMessageOnlyWhenAllProvidersHaveLoaded) {
  ServerObject other(transport_, host_);
  EXPECT_EQ(ClientConnected(other, "127.0.0.1", "127.0.0.1", kPeer, 1), ZN_OK);
  const std::string bytes = BytesOf(ChallengeRequestOf());
  u32 length = 0;
  void* out = nullptr;
  std::future<u32> answer = std::async(std::launch::async, [&] {
    return ZnSendReceive(other, static_cast<u32>(bytes.size()), bytes.data(), &length, &out, kPeer,
                         1);
  });
  EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  other.allLoaded.Open();
  EXPECT_EQ(answer.get(), ZN_OK);
  ZnFree(out);
}

TEST_F(Session, LetsTheFirstMessageGoWhenTheStopComesBeforeTheEndOfTheStart) {
  ServerObject other(transport_, host_);
  EXPECT_EQ(ClientConnected(other, "127.0.0.1", "127.0.0.1", kPeer, 1), ZN_OK);
  const std::string bytes = BytesOf(ChallengeRequestOf());
  std::future<u32> answer = std::async(std::launch::async, [&] {
    u32 length = 0;
    void* out = nullptr;
    const u32 status =
        ZnSendReceive(other, static_cast<u32>(bytes.size()), bytes.data(), &length, &out, kPeer, 1);
    ZnFree(out);
    return status;
  });
  other.allLoaded.End();
  EXPECT_EQ(answer.get(), ZNE_SHUTDOWN_STARTED);
}

// --- The logon ---------------------------------------------------------------------------------

TEST_F(Session, LogsOnWithAPassword) {
  MeetAndChallenge();
  const Reply reply = TryLogOn(Anna());
  EXPECT_EQ(reply.Result(), ZN_OK);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 4u);
  EXPECT_EQ(reply.set.Count(), 2u);
  EXPECT_EQ(client_->state, 3u);
  EXPECT_THAT(transport_.loggedOn.Items(), ElementsAre(1u));
}

TEST_F(Session, RefusesAWrongPasswordAndLetsTheClientTryAgain) {
  MeetAndChallenge();
  const Reply reply = TryLogOn({u"anna", u"guess", u"", u""});
  EXPECT_EQ(reply.Result(), ZNE_ACCESS_DENIED);
  EXPECT_EQ(NumberOf(reply.set, "Message"), 4u);
  EXPECT_EQ(client_->state, 0u);
  EXPECT_EQ(TryLogOn(Anna()).Result(), ZN_OK) << "on the same connection, with the same challenge";
  EXPECT_EQ(client_->state, 3u);
}

TEST_F(Session, RefusesALogonWithoutAChallenge) {
  Connect();
  Send(OfferOf());
  EXPECT_EQ(Send(LogonOf(std::string(512, 'x'), Anna())).Result(), ZNE_UNEXPECTED);
}

TEST_F(Session, RefusesALogonReplayedOnAnotherConnection) {
  MeetAndChallenge();
  const PropertySet logon = LogonOf(challenge_, Anna());
  EXPECT_EQ(Send(logon).Result(), ZN_OK);
  const ClientPtr other = Connect(2);
  static_cast<void>(Challenge(2));
  EXPECT_EQ(Send(logon, 2).Result(), ZNE_UNEXPECTED);
  EXPECT_EQ(other->state, 0u);
}

TEST_F(Session, RefusesEveryDamageOfTheCredentialBlock) {
  MeetAndChallenge();
  const PropertySet good = LogonOf(challenge_, Anna());
  const std::string block(good.FindValue("Data", ZN_TYPE_BINARY)->AsBinary());
  for (size_t i = 0; i < block.size(); i += 7) {
    std::string damaged = block;
    damaged[i] = static_cast<char>(damaged[i] ^ 0x20);
    PropertySet logon = good;
    logon.Put("Data", Value::Binary(damaged.data(), static_cast<u32>(damaged.size())));
    const u32 result = Send(logon).Result();
    // A damage within a text changes who logs on, or the password.
    ASSERT_TRUE(result == ZNE_UNEXPECTED || result == ZNE_ACCESS_DENIED) << i;
    PropertySet cut = good;
    cut.Put("Data", Value::Binary(block.data(), static_cast<u32>(i)));
    ASSERT_EQ(Send(cut).Result(), ZNE_UNEXPECTED) << i;
  }
  EXPECT_EQ(client_->state, 0u);
}

TEST_F(Session, RefusesALogonWithoutABlockOrWithATypeOfAnotherKind) {
  MeetAndChallenge();
  PropertySet logon = LogonOf(challenge_, Anna());
  ASSERT_EQ(logon.Delete("Data"), ZN_OK);
  EXPECT_EQ(Send(logon).Result(), ZNE_INVALID_ARGUMENTS);
  logon = LogonOf(challenge_, Anna());
  logon.Put("AuthenticationType", Value::Text(std::string_view("1")));
  EXPECT_EQ(Send(logon).Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(client_->state, 0u);
}

TEST_F(Session, TakesThePasswordForALogonThatDoesNotSay) {
  MeetAndChallenge();
  PropertySet logon = LogonOf(challenge_, Anna());
  ASSERT_EQ(logon.Delete("AuthenticationType"), ZN_OK);
  EXPECT_EQ(Send(logon).Result(), ZN_OK);
}

TEST_F(Session, AcceptsAnyPasswordInTheModeForIt) {
  server_->logonBypass = true;
  MeetAndChallenge();
  EXPECT_EQ(Send(LogonOf(std::string(512, 'x'), Anna())).Result(), ZNE_UNEXPECTED)
      << "the challenge is checked all the same";
  EXPECT_EQ(TryLogOn({u"nobody", u"", u"elsewhere", u""}).Result(), ZN_OK);
  EXPECT_EQ(client_->state, 3u);
}

TEST_F(Session, TakesAnExceptionOfTheHostForARefusal) {
  host_.onLogOn = [](const LogonAttempt&) { throw std::runtime_error("no directory"); };
  MeetAndChallenge();
  EXPECT_EQ(TryLogOn(Anna()).Result(), ZNE_ACCESS_DENIED);
}

TEST_F(Session, HandsTheHostAllFourTextsAndTheClientsAddress) {
  LogonAttempt seen;
  host_.onLogOn = [&](const LogonAttempt& attempt) { seen = attempt; };
  MeetAndChallenge();
  TryLogOn({u"Ünal", u"pass wörd", u"DOMAIN", u"machine"});
  EXPECT_EQ(seen.user, u"Ünal");
  EXPECT_EQ(seen.password, u"pass wörd");
  EXPECT_EQ(seen.domain, u"DOMAIN");
  EXPECT_EQ(seen.machine, u"machine");
  EXPECT_EQ(seen.peer, "127.0.0.1");
}

TEST_F(Session, ASlowLogonHoldsUpNobodyElse) {
  Gate entered;
  Gate goOn;
  host_.onLogOn = [&](const LogonAttempt& attempt) {
    if (attempt.user != u"slow") return;
    entered.Open();
    EXPECT_TRUE(goOn.Wait());
  };
  MeetAndChallenge();
  const PropertySet logon = LogonOf(challenge_, {u"slow", u"", u"", u""});
  std::future<u32> slow = std::async(std::launch::async, [&] { return Send(logon).Result(); });
  ASSERT_TRUE(entered.Wait());
  LogOn(2);
  Disconnect(2);
  goOn.Open();
  EXPECT_EQ(slow.get(), ZNE_ACCESS_DENIED);
}

TEST_F(Session, RefusesAnUnknownWayOfTheLogonThoughItIsOnlyAWarning) {
  MeetAndChallenge();
  const TraceCapture trace(6);
  const Reply reply = TryLogOn(Anna(), 8);
  EXPECT_EQ(reply.Result(), ZNW_AUTH_TYPE_UNSUPPORTED);
  EXPECT_TRUE(trace.Has("ZnSvc:ZnLogon() Illegal auth type"));
  EXPECT_EQ(client_->state, 0u);
  EXPECT_THAT(transport_.loggedOn.Items(), IsEmpty());
}

TEST_F(Session, TakesAWarningForALogonWhereTheSettingsSaySo) {
  server_->options.acceptLogonWarnings = true;
  MeetAndChallenge();
  EXPECT_EQ(TryLogOn(Anna(), 8).Result(), ZNW_AUTH_TYPE_UNSUPPORTED);
  EXPECT_EQ(client_->state, 3u);
}

TEST_F(Session, LogsOnWithTheGuidOfTheSharedMemory) {
  MakeSharedMemory();
  client_ = Connect();
  const u32 slot = NumberOf(Send(OfferOf(2)).set, "ShMemIndex");
  EXPECT_EQ(slot, 31u);
  const Reply challenge = Send(ChallengeRequestOf());
  challenge_ = challenge.set.FindValue("Data", ZN_TYPE_BINARY)->AsBinary();
  const Credentials local{GuidTextInSlot(slot), u"", u"", u""};
  EXPECT_EQ(TryLogOn({u"{00000000-0000-0000-0000-000000000000}", u"", u"", u""}, 2).Result(),
            ZNE_TIMED_OUT);
  EXPECT_EQ(TryLogOn({u"no guid", u"", u"", u""}, 2).Result(), ZNE_TIMED_OUT);
  EXPECT_EQ(client_->state, 0u);
  EXPECT_EQ(TryLogOn(local, 2).Result(), ZN_OK);
  EXPECT_EQ(client_->state, 3u);
  PropertySet unsaid = LogonOf(challenge_, local);
  ASSERT_EQ(unsaid.Delete("AuthenticationType"), ZN_OK);
  EXPECT_EQ(Send(unsaid).Result(), ZN_OK) << "the way that was agreed on is taken";
}

TEST_F(Session, RefusesATokenInASessionThatAgreedOnAPassword) {
  MakeSharedMemory();
  MeetAndChallenge();
  for (const u32 type : {2u, 4u}) {
    EXPECT_EQ(TryLogOn({GuidTextInSlot(31), u"", u"", u""}, type).Result(), ZNE_UNEXPECTED);
  }
}

// --- What the state follows from ---------------------------------------------------------------

TEST_F(Session, HearsNothingBeforeItsFirstCacheRequest) {
  const ClientPtr client = LogOn();
  EXPECT_EQ(client->state, 3u);
  EXPECT_EQ(server_->connectedClients.Count(), 0u);
  EXPECT_EQ(Send(CacheRequestOf()).Result(), ZN_OK);
  EXPECT_EQ(client->state, 1u);
  EXPECT_EQ(server_->connectedClients.Count(), 1u);
  EXPECT_EQ(Send(CacheRequestOf()).Result(), ZN_OK);
  EXPECT_EQ(server_->connectedClients.Count(), 1u);
  Disconnect();
  EXPECT_EQ(server_->connectedClients.Count(), 0u);
}

TEST_F(Session, ABadCacheRequestCountsTheClientAllTheSame) {
  const ClientPtr client = LogOn();
  EXPECT_EQ(Send(MessageOf(5)).Result(), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(client->state, 1u);
  EXPECT_EQ(server_->connectedClients.Count(), 1u);
}

TEST_F(Session, LeavesTheCountAloneWhenItGoesBeforeItsFirstCacheRequest) {
  Listen(1);
  LogOn(2);
  Disconnect(2);
  EXPECT_EQ(server_->connectedClients.Count(), 1u);
}

TEST_F(Session, ASecondLogonCountsTheClientTwice) {
  const ClientPtr client = Listen();
  const std::string challenge(client->challenge.begin(), client->challenge.end());
  EXPECT_EQ(Send(LogonOf(challenge, Anna())).Result(), ZN_OK);
  EXPECT_EQ(client->state, 3u);
  EXPECT_EQ(server_->connectedClients.Count(), 1u);
  EXPECT_EQ(Send(CacheRequestOf()).Result(), ZN_OK);
  EXPECT_EQ(server_->connectedClients.Count(), 2u);
  Disconnect();
  EXPECT_EQ(server_->connectedClients.Count(), 1u);
}

TEST_F(Session, AFailedSecondLogonLeavesTheSessionAsItWas) {
  const ClientPtr client = Listen();
  const std::string challenge(client->challenge.begin(), client->challenge.end());
  EXPECT_EQ(Send(LogonOf(challenge, {u"anna", u"guess", u"", u""})).Result(), ZNE_ACCESS_DENIED);
  EXPECT_EQ(client->state, 1u);
}

}  // namespace

}  // namespace zn::test
