// The two requests that a session lives by: for objects of the database, and for calls of
// providers.
#include <new>

#include "framework/common/zncore/remoteserver.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/providercall.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "framework/common/znwire/recordhead.h"
#include "service/common/exchange.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/pr.h"

namespace zn {

namespace {

// The client's first request for objects: from here on it hears of changes. Before the request is
// served, so that no change falls between the two.
void CountListener(ServerObject& server, ClientEntry& client) {
  if ((client.state.load(std::memory_order_acquire) & kClientAwaitsCache) == 0) return;
  const BusLock lock;
  if (client.isGone) return;
  client.state.store(kClientLoggedOn, std::memory_order_release);
  server.clients.StateChanged();
  server.connectedClients.Add();
}

// A set in a handle, for the time of a call.
class WrappedSet {
 public:
  explicit WrappedSet(PropertySet&& set) : handle_(WrapPropertySet(std::move(set))) {
    if (handle_ == nullptr) throw std::bad_alloc();
  }
  ~WrappedSet() {
    const BusLock lock;
    static_cast<void>(DestroyPropertySet(handle_));  // a provider may have done it
  }
  WrappedSet(const WrappedSet&) = delete;
  WrappedSet& operator=(const WrappedSet&) = delete;

  [[nodiscard]] ZnHandle Get() const noexcept { return handle_; }
  // The set itself; empty when the handle was destroyed.
  [[nodiscard]] PropertySet Take() const {
    PropertySet taken;
    const BusLock lock;
    if (IsValidHandle(handle_, HANDLE_PROPSET)) taken.Swap(*HandleThing<PropertySet>(handle_));
    return taken;
  }

 private:
  ZnHandle handle_;
};

struct Envelope {
  ObjectId object{};
  GUID interfaceId{};
  u32 majorCode = 0;
  u32 minorCode = 0;
  PropertySet input;
  u32 flags = 0;
  u32 reserved = 0;
};

[[nodiscard]] bool ReadGuid(const PropertySet& request, std::string_view name, u32 tag, GUID* out) {
  const Value* value = request.FindValue(name, tag);
  if (value != nullptr) *out = value->AsGuid();
  return value != nullptr;
}

[[nodiscard]] bool ReadNumber(const PropertySet& request, std::string_view name, u32* out) {
  const Value* value = request.FindValue(name, ZN_TYPE_UINT32);
  if (value != nullptr) *out = value->AsUInt32();
  return value != nullptr;
}

[[nodiscard]] bool ReadInput(const PropertySet& request, PropertySet* out) {
  PropertySet room;
  const PropertySet* input = wire::FindNestedSet(request, wire::kDataKey, &room);
  if (input == nullptr) return false;
  if (input == &room) {
    *out = std::move(room);
  } else {
    *out = *input;
  }
  return true;
}

[[nodiscard]] bool ReadEnvelope(const PropertySet& request, Envelope* out) {
  return ReadGuid(request, wire::kObjectIdKey, ZN_TYPE_OBJECT_ID, &out->object) &&
         ReadGuid(request, wire::kInterfaceIdKey, ZN_TYPE_GUID, &out->interfaceId) &&
         ReadNumber(request, wire::kMajorCodeKey, &out->majorCode) &&
         ReadNumber(request, wire::kMinorCodeKey, &out->minorCode) &&
         ReadInput(request, &out->input) && ReadNumber(request, wire::kFlagsKey, &out->flags) &&
         ReadNumber(request, wire::kReservedKey, &out->reserved);
}

// What a call answers.
struct CallAnswer {
  ObjectId provider{};
  ObjectId task{};
  PropertySet output;
};

// The changes of the call that it stands around have left at its end, however that comes.
class ChangesLeaveFirst {
 public:
  explicit ChangesLeaveFirst(ServerObject& server) noexcept : server_(server) {}
  ~ChangesLeaveFirst() { WaitForChangesToLeave(server_); }
  ChangesLeaveFirst(const ChangesLeaveFirst&) = delete;
  ChangesLeaveFirst& operator=(const ChangesLeaveFirst&) = delete;

 private:
  ServerObject& server_;
};

[[nodiscard]] u32 Call(Envelope& envelope, CallAnswer* answer) {
  const WrappedSet in(std::move(envelope.input));
  const WrappedSet out{PropertySet()};
  const CallerTellsChanges tells;
  const u32 status =
      PrCallDispatch(nullptr, envelope.object, &envelope.interfaceId, envelope.majorCode,
                     envelope.minorCode, in.Get(), out.Get(), envelope.flags, envelope.reserved,
                     nullptr, nullptr, &answer->provider, &answer->task);
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "Failed to execute request Mj=%ld,Mn=%ld,Provider=%ld\n",
             static_cast<long>(envelope.majorCode), static_cast<long>(envelope.minorCode),
             static_cast<long>(answer->provider.Data1));
  }
  answer->output = out.Take();
  return status;
}

}  // namespace

u32 ServeCacheRequest(Exchange& exchange) {
  ServerObject& server = exchange.server;
  if (server.traces.Dispatch()) {
    ZN_TRACE(6, "CacheRequest by client %ul %ul", exchange.address, exchange.connectionId);
  }
  CountListener(server, *exchange.client);
  static constexpr auto kData = wire::HeadOf(ZN_TYPE_PROPSET, "Data");
  BinaryWriter& stream = exchange.bytes;
  stream.WriteUInt32(3);
  wire::WriteHead(stream, kData);
  const u32 begin = stream.Buffer().Size();
  const u32 status = DbRemoteCacheRequest(nullptr, exchange.request, stream);
  if (status != ZN_OK) {  // a warning has no list either
    stream.Buffer().CutTo(begin);
    stream.WriteUInt32(0);  // an empty set
  }
  WriteAnswerEnd(stream, wire::kCacheAnswer, status);
  return status;
}

u32 ServeRequest(Exchange& exchange) {
  Envelope envelope;
  CallAnswer answer;
  u32 status = ZNE_INVALID_ARGUMENTS;
  if (ReadEnvelope(exchange.request, &envelope)) {
    const ChangesLeaveFirst order(exchange.server);
    status = Call(envelope, &answer);
  }
  exchange.answer.Put(wire::kProviderIdKey, Value::Id(answer.provider));
  exchange.answer.Put(wire::kTaskIdKey, Value::Id(answer.task));
  exchange.answer.Put(wire::kMessageKey, Value::UInt32(wire::kRequestAnswer));
  exchange.answer.Put(wire::kDataKey, Value::Set(std::move(answer.output)));
  return status;
}

}  // namespace zn
