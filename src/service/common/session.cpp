// The life of a session on the server: connect and disconnect, the offer of options, the challenge,
// the logon. Nothing here is held across the host's own logon: a slow one costs its client alone.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "service/common/exchange.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "ucl/common/cipher.h"
#include "ucl/common/credentials.h"
#include "zn/memory.h"

namespace zn {

// --- Connections -------------------------------------------------------------------------------

u32 ClientConnected(ServerObject& server, const char* host, const char* hostAgain, u32 address,
                    u32 connectionId) noexcept try {
  server.clients.Add(std::make_shared<ClientEntry>(address, connectionId, host, hostAgain));
  ZN_TRACE(3, "ZnSvc:Client connected. Address = %s", host);
  return ZN_OK;
} catch (const std::bad_alloc&) {
  return ZNE_OUT_OF_MEMORY;
}

void ClientDisconnected(ServerObject& server, u32 address, u32 connectionId) noexcept {
  const ClientPtr client = server.clients.Remove(address, connectionId);
  if (client == nullptr) return;  // told before
  {
    const BusLock lock;
    client->isGone = true;
    if (client->HearsNotifications()) server.connectedClients.Remove();
  }
  ZN_TRACE(3, "ZnSvc:Client disconnected. Address = %s", client->host.c_str());
}

namespace {

// --- The offer ---------------------------------------------------------------------------------

[[nodiscard]] u32 LowestBit(u32 bits) noexcept {
  return bits & (~bits + 1);
}

// ZNE_PROPERTY_NOT_FOUND for an option that is missing, ZNE_INVALID_ARGUMENTS for one of another
// type.
[[nodiscard]] u32 ReadOption(const PropertySet& set, std::string_view name, u32* out) {
  const Property* property = set.Find(name);
  if (property == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  if (property->TypeTag() != ZN_TYPE_UINT32) return ZNE_INVALID_ARGUMENTS;
  *out = property->GetValue().AsUInt32();
  return ZN_OK;
}

struct Offer {
  u32 version = 0;
  u32 encryption = 0;
  u32 keyCount = 0;
  u32 compression = 0;
  u32 authentication = 0;
};

[[nodiscard]] u32 ReadOffer(const PropertySet& request, Offer* offer) {
  ZN_RETURN_IF_FAILED(ReadOption(request, wire::kVersionKey, &offer->version));
  ZN_RETURN_IF_FAILED(ReadOption(request, wire::kEncryptionKey, &offer->encryption));
  ZN_RETURN_IF_FAILED(ReadOption(request, wire::kCompressionKey, &offer->compression));
  ZN_RETURN_IF_FAILED(ReadOption(request, wire::kAuthenticationKey, &offer->authentication));
  if (request.Find(wire::kDataKey) == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  PropertySet room;
  const PropertySet* data = wire::FindNestedSet(request, wire::kDataKey, &room, NamesRead::kKnown);
  if (data == nullptr) return ZNE_INVALID_ARGUMENTS;
  return ReadOption(*data, wire::kEncryptionKeyIndexKey, &offer->keyCount);
}

[[nodiscard]] u32 AgreeOnEncryption(u32 offered, u32* agreed) noexcept {
  u32 common = offered & wire::kEncryptionMask;
  if (common == 3) common = wire::kEncryptionDes;
  *agreed = LowestBit(common);
  return *agreed == 0 ? ZNE_CLIENT_NO_EXCHANGE_CAPS : ZN_OK;
}

// With one key on this side there is one index to agree on.
[[nodiscard]] u32 AgreeOnKey(u32 offeredKeys, u32* index) noexcept {
  const u32 keys = std::min(offeredKeys, wire::kEncryptionKeys);
  *index = 0;
  return keys == 0 ? ZNE_CLIENT_NO_EXCHANGE_CAPS : ZN_OK;
}

// A stranger is dropped when the time for the logon is over; a slot that comes later is of no use.
[[nodiscard]] u32 SlotPatience(const Exchange& exchange) noexcept {
  const bool isStranger = exchange.client == nullptr || !exchange.client->IsLoggedOn();
  return isStranger ? exchange.server.options.logonTimeoutSeconds : 0;
}

void WriteSessionAnswer(const ServerObject& server, const SessionOptions& session, u32 slot,
                        PropertySet* answer) {
  PropertySet data;
  data.Put(wire::kEncryptionKeyIndexKey, Value::UInt32(session.encryptionKeyIndex));
  answer->Put(wire::kDataKey, wire::AsBinary(data));
  answer->Put(wire::kMessageKey, Value::UInt32(wire::kSessionAnswer));
  answer->Put(wire::kVersionKey, Value::UInt32(session.version));
  answer->Put(wire::kEncryptionKey, Value::UInt32(session.encryption));
  answer->Put(wire::kCompressionKey, Value::UInt32(session.compression));
  answer->Put(wire::kAuthenticationKey, Value::UInt32(session.authentication));
  if (!server.isKeepAliveDisabled) {
    answer->Put(wire::kPingTokenKey, Value::UInt32(server.pingToken.load()));
  }
  if (session.authentication == wire::kAuthenticationSharedMemory) {
    answer->Put(wire::kShMemIndexKey, Value::UInt32(slot));
  }
}

// --- The logon ---------------------------------------------------------------------------------

// A plain credential block: overwritten before it is given back.
class PlainBlock {
 public:
  PlainBlock() = default;
  ~PlainBlock() {
    if (bytes == nullptr) return;
    volatile u8* at = static_cast<u8*>(bytes);
    for (u32 i = 0; i < length; ++i) at[i] = 0;
    ZnFree(bytes);
  }
  PlainBlock(const PlainBlock&) = delete;
  PlainBlock& operator=(const PlainBlock&) = delete;

  void* bytes = nullptr;
  u32 length = 0;
};

// What the host is asked; the password goes with it.
struct SecretAttempt : LogonAttempt {
  SecretAttempt(const Credentials& credentials, const std::string& host)
      : LogonAttempt{credentials.user, credentials.password, credentials.domain, credentials.fourth,
                     host} {}
  ~SecretAttempt() { WipeText(&password); }
  SecretAttempt(const SecretAttempt&) = delete;
  SecretAttempt& operator=(const SecretAttempt&) = delete;
};

// ZNE_UNEXPECTED for a block that proves nothing.
[[nodiscard]] u32 ReadCredentials(const Exchange& exchange, Credentials* credentials) {
  const ClientEntry& client = *exchange.client;
  const SessionOptions& session = client.session;
  if ((session.encryption & 3) == 0) return ZNE_UNEXPECTED;
  const Value* data = exchange.request.FindValue(wire::kDataKey, ZN_TYPE_BINARY);
  if (data == nullptr) return ZNE_INVALID_ARGUMENTS;
  if (client.challenge.empty()) return ZNE_UNEXPECTED;
  const std::string_view block = data->AsBinary();
  PlainBlock plain;
  ZN_RETURN_IF_FAILED(
      DecipherBlock(block.data(), static_cast<u32>(block.size()), session.encryption,
                    static_cast<i32>(session.encryptionKeyIndex), &plain.bytes, &plain.length));
  if (plain.bytes == nullptr) return ZNE_UNEXPECTED;
  const std::string_view challenge(reinterpret_cast<const char*>(client.challenge.data()),
                                   client.challenge.size());
  return ReadCredentialBlock(plain.bytes, plain.length, challenge, credentials);
}

// ZNE_INVALID_ARGUMENTS when it is there with another type.
[[nodiscard]] u32 ReadAuthenticationType(const Exchange& exchange, u32* type) {
  const bool isShared =
      exchange.client->session.authentication == wire::kAuthenticationSharedMemory;
  *type = isShared ? wire::kAuthenticationSharedMemory : wire::kAuthenticationPassword;
  const u32 status = ReadOption(exchange.request, wire::kAuthenticationTypeKey, type);
  return status == ZNE_PROPERTY_NOT_FOUND ? ZN_OK : status;
}

[[nodiscard]] u32 LogOnByPassword(ServerObject& server, const ClientEntry& client,
                                  const Credentials& credentials) noexcept {
  if (server.logonBypass) return ZN_OK;
  bool isGood = false;
  try {
    const SecretAttempt attempt(credentials, client.host);
    isGood = CheckPassword(attempt, server.access, server.host);
  } catch (...) {  // whatever goes wrong, nobody was let in
  }
  return isGood ? ZN_OK : ZNE_ACCESS_DENIED;
}

[[nodiscard]] u32 LogOnByToken(ServerObject& server, const ClientEntry& client,
                               const Credentials& credentials) {
  const u32 chosen = server.slots.Choose(client.session.authentication);
  if (chosen != wire::kAuthenticationSharedMemory) return ZNE_UNEXPECTED;
  return server.slots.LogonUsingAuthTokens(credentials.user.c_str());
}

[[nodiscard]] u32 LogOn(Exchange& exchange) {
  SecretCredentials credentials;
  ZN_RETURN_IF_FAILED(ReadCredentials(exchange, &credentials));
  u32 type = 0;
  ZN_RETURN_IF_FAILED(ReadAuthenticationType(exchange, &type));
  switch (type) {
    case wire::kAuthenticationPassword:
      return LogOnByPassword(exchange.server, *exchange.client, credentials);
    case wire::kAuthenticationSharedMemory:
    case wire::kAuthenticationToken:
      return LogOnByToken(exchange.server, *exchange.client, credentials);
    default:
      ZN_TRACE(6, "ZnSvc:ZnLogon() Illegal auth type");
      return ZNW_AUTH_TYPE_UNSUPPORTED;
  }
}

// A warning says that no credential was checked. The status test counts it as a success, and a
// service that was told to takes it for one.
[[nodiscard]] bool LetsIn(const ServerObject& server, u32 status) noexcept {
  if (ZN_FAILED(status)) return false;
  return status == ZN_OK || server.options.acceptLogonWarnings;
}

}  // namespace

// Contract: what the choice of the encryption answers is overwritten by the preparation of the
// slot, so an offer without a common cipher is answered with "Encryption" 0 and a good result; the
// logon then fails.
u32 ServeSessionOffer(Exchange& exchange) {
  Offer offer;
  ZN_RETURN_IF_FAILED(ReadOffer(exchange.request, &offer));
  ServerObject& server = exchange.server;
  SessionOptions session;
  session.version = wire::kProtocolVersion;
  u32 status = AgreeOnEncryption(offer.encryption, &session.encryption);
  session.authentication = LowestBit(server.slots.Choose(offer.authentication));
  u32 slot = 0;
  if (session.authentication != wire::kAuthenticationToken) {
    status =
        server.slots.PrepForLogon(session.authentication, nullptr, &slot, SlotPatience(exchange));
  }
  session.compression = LowestBit(offer.compression & wire::kCompressionMask);
  const u32 keyStatus = AgreeOnKey(offer.keyCount, &session.encryptionKeyIndex);
  if (ZN_FAILED(keyStatus)) status = keyStatus;
  if (exchange.client != nullptr) exchange.client->session = session;
  WriteSessionAnswer(server, session, slot, &exchange.answer);
  return status;
}

u32 ServeChallengeRequest(Exchange& exchange) {
  if (!exchange.server.allLoaded.Wait()) return ZNE_SHUTDOWN_STARTED;
  exchange.answer.Put(wire::kMessageKey, Value::UInt32(wire::kChallengeAnswer));
  u32 length = 0;
  ZN_RETURN_IF_FAILED(ReadOption(exchange.request, wire::kLengthKey, &length));
  // One for each connection, good for all its attempts.
  if (exchange.client == nullptr || !exchange.client->challenge.empty()) return ZNE_UNEXPECTED;
  length = std::clamp(length, wire::kMinChallengeLength, wire::kMaxChallengeLength);
  std::vector<u8> challenge(length);
  if (!exchange.server.random(challenge.data(), challenge.size())) return ZNE_UNEXPECTED;
  exchange.answer.Put(wire::kDataKey, Value::Binary(challenge.data(), length));
  exchange.client->challenge = std::move(challenge);
  return ZN_OK;
}

u32 ServeLogon(Exchange& exchange) {
  exchange.answer.Put(wire::kMessageKey, Value::UInt32(wire::kLogonAnswer));
  if (exchange.client == nullptr) return ZNE_UNEXPECTED;
  const u32 status = LogOn(exchange);
  if (!LetsIn(exchange.server, status)) return status;
  exchange.client->state.store(kClientLoggedOn | kClientAwaitsCache, std::memory_order_release);
  exchange.server.clients.StateChanged();
  exchange.server.transport.MarkLoggedOn(exchange.address, exchange.connectionId);
  return status;
}

}  // namespace zn
