// Negotiation and logon. Each request of the exchange has a minute for its answer; after that the
// connection is stopped, and whoever waits sees it end.
#include "clientsvc/common/clientsession.h"

#include <cstring>
#include <utility>

#include "clientsvc/common/watchdog.h"
#include "framework/common/zncore/clientcopy.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "support/common/shared_memory.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "ucl/common/cipher.h"
#include "ucl/common/ucl.h"
#include "zn/db.h"
#include "zn/memory.h"
#include "zn/platform.h"
#include "zn/pr.h"

namespace zn {

namespace {

constexpr u32 kChallengeLength = 512;
constexpr u32 kMostLogonSends = 3;

// A list of ids that nobody wants but the copy.
[[nodiscard]] u32 FetchType(ZnHandle database, const char* type) {
  u32 count = 0;
  ObjectId* ids = nullptr;
  const u32 status = DbGetObjects(database, type, &count, &ids);
  if (status == ZN_OK) ZnFree(ids);
  return status;
}

[[nodiscard]] u32 ReadUInt32(const PropertySet& set, std::string_view key, u32* out) noexcept {
  const Value* value = set.FindValue(key, ZN_TYPE_UINT32);
  if (value == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  *out = value->AsUInt32();
  return ZN_OK;
}

// What held a password is overwritten before it goes back to the heap.
void Wipe(void* data, size_t bytes) noexcept {
  volatile u8* at = static_cast<u8*>(data);
  for (size_t i = 0; i < bytes; ++i) at[i] = 0;
}

struct CipherBlock {
  CipherBlock() = default;
  ~CipherBlock() { ZnFree(data); }
  CipherBlock(const CipherBlock&) = delete;
  CipherBlock& operator=(const CipherBlock&) = delete;
  void* data = nullptr;
  u32 length = 0;
};

}  // namespace

// Keeps the time of one answer. The one that comes first decides: the answer or the deadline.
class ClientSession::Deadline {
 public:
  explicit Deadline(ClientSession& session) : session_(session), state_(std::make_shared<State>()) {
    const auto when = WatchdogTimer::Clock::now() + LogonWatchdogTime();
    number_ =
        WatchdogTimer::Instance().Arm(when, [state = state_, watched = session.weak_from_this()] {
          const std::shared_ptr<ClientSession> still = watched.lock();
          if (still == nullptr || SessionList::Instance().FindListed(still.get()) == nullptr)
            return;
          {
            const MutexLock lock(state->mutex);
            if (state->finished) return;
            state->timedOut = true;
          }
          still->StopConnection();
        });
  }
  ~Deadline() {
    WatchdogTimer::Instance().Disarm(number_);
    const MutexLock lock(state_->mutex);
    if (state_->timedOut) {
      session_.lastError_ = ZNE_TIMED_OUT;
    } else {
      state_->finished = true;
    }
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

 private:
  struct State {
    Mutex mutex;
    bool timedOut ZN_GUARDED_BY(mutex) = false;
    bool finished ZN_GUARDED_BY(mutex) = false;
  };
  ClientSession& session_;
  std::shared_ptr<State> state_;
  u64 number_ = 0;
};

// One logon of a session at a time. The lock is not held while it runs.
class ClientSession::LogonTurn {
 public:
  explicit LogonTurn(ClientSession& session) : session_(session) {
    const MutexLock lock(session_.mutex_);
    while (session_.logonRuns_) session_.logonDone_.Wait(session_.mutex_);
    session_.logonRuns_ = true;
  }
  ~LogonTurn() {
    const MutexLock lock(session_.mutex_);
    session_.logonRuns_ = false;
    session_.logonDone_.NotifyOne();
  }
  LogonTurn(const LogonTurn&) = delete;
  LogonTurn& operator=(const LogonTurn&) = delete;

 private:
  ClientSession& session_;
};

u32 ClientSession::SendGuarded(const PropertySet& request, PropertySet* answer) {
  const Deadline deadline(*this);
  return SendSet(request, answer);
}

u32 ClientSession::Negotiate(u32 offeredAuthentication) {
  PropertySet keys;
  keys.Put(wire::kEncryptionKeyIndexKey, Value::UInt32(wire::kEncryptionKeys));
  PropertySet offer;
  offer.Put(wire::kDataKey, wire::AsBinary(keys));
  offer.Put(wire::kMessageKey, Value::UInt32(wire::kSessionOffer));
  offer.Put(wire::kVersionKey, Value::UInt32(wire::kProtocolVersion));
  offer.Put(wire::kEncryptionKey, Value::UInt32(wire::kEncryptionDes));
  offer.Put(wire::kCompressionKey, Value::UInt32(0));
  offer.Put(wire::kAuthenticationKey, Value::UInt32(offeredAuthentication));
  PropertySet answer;
  ZN_RETURN_IF_FAILED(SendGuarded(offer, &answer));
  // A refusal lacks the options: its reason says more than that.
  const Value* result = answer.FindValue(wire::kResultKey, ZN_TYPE_UINT32);
  if (result != nullptr && ZN_FAILED(result->AsUInt32())) return result->AsUInt32();
  ZN_RETURN_IF_FAILED(ReadOptions(answer));
  // The secret in shared memory opens the service of this machine: no server that was not taken for
  // that one gets it by asking.
  const u32 unasked = options_.authentication & ~offeredAuthentication;
  return (unasked & wire::kAuthenticationSharedMemory) != 0 ? ZNE_UNEXPECTED : ZN_OK;
}

u32 ClientSession::ReadOptions(const PropertySet& answer) {
  SessionOptions options;
  ZN_RETURN_IF_FAILED(ReadUInt32(answer, wire::kVersionKey, &options.version));
  ZN_RETURN_IF_FAILED(ReadUInt32(answer, wire::kEncryptionKey, &options.encryption));
  ZN_RETURN_IF_FAILED(ReadUInt32(answer, wire::kCompressionKey, &options.compression));
  ZN_RETURN_IF_FAILED(ReadUInt32(answer, wire::kAuthenticationKey, &options.authentication));
  PropertySet room;
  const PropertySet* keys = wire::FindNestedSet(answer, wire::kDataKey, &room);
  if (keys == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  static_cast<void>(ReadUInt32(answer, wire::kPingTokenKey, &options.pingToken));
  ZN_RETURN_IF_FAILED(ReadUInt32(*keys, wire::kEncryptionKeyIndexKey, &options.encryptionKeyIndex));
  if (options.authentication == wire::kAuthenticationSharedMemory) {
    ZN_RETURN_IF_FAILED(ReadUInt32(answer, wire::kShMemIndexKey, &options.shMemIndex));
  }
  options_ = options;
  return ZN_OK;
}

u32 ClientSession::ReadLocalCredentials(Credentials* out) const {
  if (options_.shMemIndex >= wire::kSharedMemorySlots) return ZNE_ACCESS_DENIED;
  void* view = ZnOpenShMem(AuthSharedMemoryName(port_).c_str());
  if (view == nullptr) return ZNE_ACCESS_DENIED;
  GUID guid{};
  std::memcpy(&guid, static_cast<const u8*>(view) + sizeof(GUID) * options_.shMemIndex,
              sizeof(GUID));
  static_cast<void>(ZnCloseShMem(view));
  char text[kGuidTextLength];
  FormatGuid(guid, text);
  *out = {};
  out->user = ToWide({text, sizeof(text)});
  return ZN_OK;
}

// A server gives one challenge for a connection, and asks for it again at every try.
u32 ClientSession::FetchChallenge() {
  PropertySet request;
  request.Put(wire::kLengthKey, Value::UInt32(kChallengeLength));
  request.Put(wire::kMessageKey, Value::UInt32(wire::kChallengeRequest));
  PropertySet answer;
  ZN_RETURN_IF_FAILED(SendGuarded(request, &answer));
  const Value* data = answer.FindValue(wire::kDataKey, ZN_TYPE_BINARY);
  if (data != nullptr) challenge_ = data->AsBinary();
  return challenge_.empty() ? ZNE_PROPERTY_NOT_FOUND : ZN_OK;
}

u32 ClientSession::SendCredentials(const Credentials& credentials, PropertySet* answer) {
  std::vector<u8> block;
  ZN_RETURN_IF_FAILED(BuildCredentialBlock(challenge_, credentials, &block));
  CipherBlock ciphered;
  const bool isCiphered = (options_.encryption & wire::kEncryptionDes) != 0;
  u32 status = ZN_OK;
  PropertySet request;
  if (isCiphered) {
    status = EncipherBlock(block.data(), static_cast<u32>(block.size()), options_.encryption,
                           static_cast<i32>(options_.encryptionKeyIndex), &ciphered.data,
                           &ciphered.length);
    request.Put(wire::kDataKey, Value::Binary(ciphered.data, ciphered.length));
  } else {
    request.Put(wire::kDataKey, Value::Binary(block.data(), static_cast<u32>(block.size())));
  }
  Wipe(block.data(), block.size());
  ZN_RETURN_IF_FAILED(status);
  request.Put(wire::kMessageKey, Value::UInt32(wire::kLogon));
  request.Put(wire::kAuthenticationTypeKey, Value::UInt32(options_.authentication));
  const bool isLocal = options_.authentication == wire::kAuthenticationSharedMemory;
  for (u32 sends = 1;; ++sends) {
    status = SendGuarded(request, answer);
    if (status != ZNE_UNEXPECTED || !isLocal || sends == kMostLogonSends) return status;
  }
}

u32 ClientSession::Logon(const Credentials& credentials) {
  const LogonTurn turn(*this);
  if (IsLost()) return ZNE_INVALID_ARGUMENTS;
  if (options_.authentication == 0) return ZN_OK;  // Contract: nothing to prove, nothing opened
  ZN_RETURN_IF_FAILED(FetchChallenge());
  PropertySet answer;
  const u32 status = SendCredentials(credentials, &answer);
  if (ZN_FAILED(status)) {
    options_.authentication = wire::kAuthenticationPassword;  // for the next try
    return status;
  }
  u32 result = ZN_OK;
  ZN_RETURN_IF_FAILED(ReadUInt32(answer, wire::kResultKey, &result));
  if (result != ZN_OK) return result;
  return FinishLogon();
}

// The copy takes what the server tells from here on, ahead of its first request: a change that
// comes between that request and the last one here would be missed for good.
u32 ClientSession::FinishLogon() {
  const ZnHandle database = DatabaseHandle();
  if (database == nullptr || !SetLoggedOn(database, true)) {
    ZN_TRACE(3, "ClCreateDatabase: Invalid database");
    return ZNE_UNEXPECTED;
  }
  flags_.fetch_or(kReady);
  u32 status = FetchType(database, "KELD_Type");
  if (status == ZN_OK) status = FetchType(database, "KELD_Task");
  if (status != ZN_OK) {
    flags_.fetch_and(~kReady);
    static_cast<void>(SetLoggedOn(database, false));
    return status;
  }
  // Contract: no provider has that name; the look-up is there to fetch them all.
  ZnHandle provider = nullptr;
  static_cast<void>(PrGetProviderByName(database, u"SYSTEM", &provider));
  return ZN_OK;
}

}  // namespace zn
