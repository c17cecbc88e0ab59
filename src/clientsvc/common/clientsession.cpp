// The life of a session, what it sends and what is pushed to it: see the header.
#include "clientsvc/common/clientsession.h"

#include <algorithm>
#include <utility>

#include "framework/common/zncore/clientcopy.h"
#include "framework/common/zncore/wireform.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znwire/messages.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/shared_memory.h"
#include "support/common/status.h"
#include "ucl/common/ucl.h"
#include "zn/init.h"
#include "zn/memory.h"
#include "zn/pr.h"

namespace zn {

namespace {

constexpr u32 kLastEventsMs = 1000;

// A block of the communication layer.
class ReceivedBlock {
 public:
  ReceivedBlock() = default;
  ~ReceivedBlock() { ZnFree(data); }
  ReceivedBlock(const ReceivedBlock&) = delete;
  ReceivedBlock& operator=(const ReceivedBlock&) = delete;
  void* data = nullptr;
  u32 length = 0;
};

[[nodiscard]] std::shared_ptr<ClientSession> SessionOf(void* context) {
  return SessionList::Instance().Find(reinterpret_cast<std::uintptr_t>(context));
}

u32 TakeServerData(u32, u32*, u32*, u32 length, void* data, void**, u32*, void* context) {
  const std::shared_ptr<ClientSession> session = SessionOf(context);
  return session == nullptr ? ZN_OK : session->OnServerData(data, length);
}

u32 TakeConnectionChange(char*, char*, u32*, u32*, u32 connected, void* context) {
  if (connected != 0) return ZN_OK;
  const std::shared_ptr<ClientSession> session = SessionOf(context);
  if (session != nullptr) session->OnConnectionLost();
  return ZN_OK;
}

u32 ForwardRequestOf(PropertySet& request, PropertySet* response, void* context) {
  return static_cast<ClientSession*>(context)->ForwardRequest(request, response);
}

u32 ForwardCallOf(PropertySet& request, ObjectId* provider, ObjectId* task, PropertySet* out,
                  void* context) {
  return static_cast<ClientSession*>(context)->ForwardProviderCall(request, provider, task, out);
}

u32 FetchMessageOf(const MessageRequest& request, std::u16string* text, void* context) {
  return static_cast<ClientSession*>(context)->FetchMessage(request, text);
}

// "Data" of an answer: a set, or the bytes of one.
[[nodiscard]] u32 TakeData(PropertySet& answer, PropertySet* out) {
  if (answer.Find(wire::kDataKey) == nullptr) return ZN_OK;
  return TakeNestedSet(answer, wire::kDataKey, out) ? ZN_OK : ZNE_UNEXPECTED;
}

[[nodiscard]] u32 ResultOf(const PropertySet& answer) noexcept {
  const Value* result = answer.FindValue(wire::kResultKey, ZN_TYPE_UINT32);
  return result == nullptr ? ZN_OK : result->AsUInt32();
}

void TakeId(const PropertySet& answer, std::string_view key, ObjectId* out) noexcept {
  const Value* id = answer.FindValue(key, ZN_TYPE_OBJECT_ID);
  if (out != nullptr && id != nullptr) *out = id->AsGuid();
}

}  // namespace

std::shared_ptr<ClientSession> ClientSession::Open(const SessionTarget& target,
                                                   u32 offeredAuthentication) {
  const std::shared_ptr<ClientSession> session(new ClientSession);
  session->ticket_ = SessionList::Instance().Enter(session);
  session->Start(target, offeredAuthentication);
  return session;
}

ClientSession::~ClientSession() = default;

void ClientSession::Start(const SessionTarget& target, u32 offeredAuthentication) {
  port_ = target.port == 0 ? kStandardPort : target.port;
  DatabaseCallbacks callbacks;
  callbacks.forwardRequest = &ForwardRequestOf;
  callbacks.forwardProviderCall = &ForwardCallOf;
  callbacks.fetchMessage = &FetchMessageOf;
  callbacks.context = this;
  database_ = CreateClientCopy(callbacks);
  if (database_ == nullptr) {
    lastError_ = ZNE_OUT_OF_MEMORY;
    return;
  }
  u32 status = Connect(target);
  if (!ZN_FAILED(status)) {
    SessionList::Instance().List(ticket_);
    status = Negotiate(offeredAuthentication);
  }
  if (ZN_FAILED(status)) DeleteClientCopy(database_);
  lastError_ = status;
}

u32 ClientSession::Connect(const SessionTarget& target) {
  void* context = reinterpret_cast<void*>(static_cast<std::uintptr_t>(ticket_));
  ZN_RETURN_IF_FAILED(
      UCLCreateClient(&client_, context, &TakeServerData, &TakeConnectionChange, port_));
  return UCLConnect(client_, target.host.c_str(), &address_, &connectionId_);
}

ZnHandle ClientSession::DatabaseHandle() const noexcept {
  return IsValidHandle(database_, HANDLE_DATABASE) ? database_ : nullptr;
}

void ClientSession::WatchConnection() noexcept {
  UCLEnableDisconnectCallback(client_, address_, connectionId_);
}

u32 ClientSession::RegisterClient(const ZnWChar* name, const ProviderCallbacks& callbacks,
                                  ZnHandle* provider) {
  const ZnHandle database = DatabaseHandle();
  if (database == nullptr) return ZNE_INVALID_ARGUMENTS;
  return ZnRegisterAsProvider(database, name, &callbacks, provider);
}

u32 ClientSession::SendBytes(const void* data, u32 length, PropertySet* answer) {
  if (IsLost()) return ZNE_INVALID_ARGUMENTS;
  ReceivedBlock received;
  ZN_RETURN_IF_FAILED(UCLSendRcv(client_, 0, address_, connectionId_, length, data,
                                 &received.length, &received.data));
  if (received.length == 0) return ZNE_UNEXPECTED;  // the server could not even say why
  BinaryReader reader(received.data, received.length);
  return answer->Unmarshal(reader);
}

u32 ClientSession::SendSet(const PropertySet& request, PropertySet* answer) {
  BinaryWriter writer;
  request.Marshal(writer);
  return SendBytes(writer.Buffer().Data(), writer.Buffer().Size(), answer);
}

u32 ClientSession::ForwardRequest(PropertySet& request, PropertySet* response) {
  PropertySet answer;
  ZN_RETURN_IF_FAILED(SendSet(request, &answer));
  ZN_RETURN_IF_FAILED(TakeData(answer, response));
  return ResultOf(answer);
}

u32 ClientSession::ForwardProviderCall(PropertySet& request, ObjectId* provider, ObjectId* task,
                                       PropertySet* response) {
  request.Put(wire::kMessageKey, Value::UInt32(wire::kRequest));
  PropertySet answer;
  ZN_RETURN_IF_FAILED(SendSet(request, &answer));
  ZN_RETURN_IF_FAILED(TakeData(answer, response));
  TakeId(answer, wire::kProviderIdKey, provider);
  TakeId(answer, wire::kTaskIdKey, task);
  return ResultOf(answer);
}

u32 ApplyPush(ZnHandle database, const void* data, u32 length) {
  if (length == 0 || data == nullptr) return ZNE_INVALID_ARGUMENTS;
  PropertySet message;
  BinaryReader reader(data, length);
  ZN_RETURN_IF_FAILED(message.Unmarshal(reader));
  const Value* number = message.FindValue(wire::kMessageKey, ZN_TYPE_UINT32);
  if (number == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  switch (number->AsUInt32()) {
    case wire::kChangeNotification:
      return DbUpdateCache(database, message);
    case wire::kEventNotification:
      return RaiseServerEvent(database, message);
    default:
      return ZN_OK;  // a newer server may tell more
  }
}

u32 ClientSession::OnServerData(const void* data, u32 length) {
  const u32 flags = flags_.load();
  if ((flags & kLost) != 0) return ZNE_INVALID_ARGUMENTS;
  if ((flags & kClosing) != 0) return ZN_OK;
  if (length == 0 || data == nullptr) return ZNE_INVALID_ARGUMENTS;
  if ((flags & kReady) == 0) return ZN_OK;  // what comes before the logon is not for this copy
  return ApplyPush(database_, data, length);
}

void ClientSession::OnConnectionLost() noexcept {
  if (lossTold_.exchange(true)) return;
  // What the server said last, that it stops above all, is heard before the copy's receivers go.
  static_cast<void>(WaitForDelivery(kLastEventsMs));
  TellServerGone(database_);
  SessionList::Instance().Unlist(this);
  flags_.fetch_or(kLost);
}

void ClientSession::StopConnection() const noexcept {
  static_cast<void>(UCLStopConnection(client_, address_, connectionId_));
}

void ClientSession::Close() noexcept {
  if (closed_.exchange(true)) return;
  flags_.fetch_or(kClosing);
  if (connectionId_ != 0) static_cast<void>(UCLDisconnect(client_, address_, connectionId_));
  if (client_ != 0) static_cast<void>(UCLDeleteClient(client_));
  static_cast<void>(DeleteClientCopy(database_));
  SessionList::Instance().Remove(this);
}

SessionList& SessionList::Instance() noexcept {
  static SessionList& list = *new SessionList;  // callbacks may come while the process ends
  return list;
}

u64 SessionList::Enter(const std::shared_ptr<ClientSession>& session) {
  const MutexLock lock(mutex_);
  const u64 ticket = ++lastTicket_;
  entries_.push_back({ticket, session, false});
  return ticket;
}

void SessionList::List(u64 ticket) {
  const MutexLock lock(mutex_);
  for (Entry& entry : entries_) {
    if (entry.ticket == ticket) entry.isListed = true;
  }
}

void SessionList::Unlist(const ClientSession* session) noexcept {
  const MutexLock lock(mutex_);
  for (Entry& entry : entries_) {
    if (entry.session.get() == session) entry.isListed = false;
  }
}

void SessionList::Remove(const ClientSession* session) noexcept {
  std::shared_ptr<ClientSession> last;  // goes after the lock
  const MutexLock lock(mutex_);
  const auto place = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.session.get() == session;
  });
  if (place == entries_.end()) return;
  last = std::move(place->session);
  entries_.erase(place);
}

std::shared_ptr<ClientSession> SessionList::Find(u64 ticket) {
  const MutexLock lock(mutex_);
  const auto place =
      std::lower_bound(entries_.begin(), entries_.end(), ticket,
                       [](const Entry& entry, u64 wanted) { return entry.ticket < wanted; });
  return place == entries_.end() || place->ticket != ticket ? nullptr : place->session;
}

std::shared_ptr<ClientSession> SessionList::FindEntry(const void* session, bool mustBeListed) {
  const MutexLock lock(mutex_);
  for (const Entry& entry : entries_) {
    if (entry.session.get() == session) {
      return entry.isListed || !mustBeListed ? entry.session : nullptr;
    }
  }
  return nullptr;
}

std::shared_ptr<ClientSession> SessionList::FindListed(const void* session) {
  return FindEntry(session, true);
}

std::shared_ptr<ClientSession> SessionList::FindKnown(const void* session) {
  return FindEntry(session, false);
}

std::vector<std::shared_ptr<ClientSession>> SessionList::All() {
  const MutexLock lock(mutex_);
  std::vector<std::shared_ptr<ClientSession>> sessions;
  for (const Entry& entry : entries_) sessions.push_back(entry.session);
  return sessions;
}

}  // namespace zn
