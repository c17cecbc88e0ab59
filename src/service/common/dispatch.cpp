// The dispatcher: what becomes of one buffer of a client. It tells the messages apart, refuses
// those whose time has not come, and makes the answer's bytes; what a message does stands with its
// handler (session.cpp, request.cpp, filerequest.cpp).
#include <algorithm>
#include <exception>
#include <iterator>
#include <new>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/recordhead.h"
#include "service/common/exchange.h"
#include "support/common/fastlock.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

namespace {

enum class Needs { kNothing, kDatabase, kLogon };

struct MessageRow {
  u32 message;
  Needs needs;
  u32 (*serve)(Exchange&);
};
constexpr MessageRow kRows[] = {
    {wire::kSessionOffer, Needs::kNothing, ServeSessionOffer},
    {wire::kChallengeRequest, Needs::kNothing, ServeChallengeRequest},
    {wire::kLogon, Needs::kDatabase, ServeLogon},
    {wire::kCacheRequest, Needs::kLogon, ServeCacheRequest},
    {wire::kRequest, Needs::kLogon, ServeRequest},
    {wire::kFileRequest, Needs::kLogon, ServeFileRequest},
};

// A message that is in no row needs all there is, and does nothing.
constexpr MessageRow kUnknown = {0, Needs::kLogon, [](Exchange&) -> u32 { return ZN_OK; }};

[[nodiscard]] const MessageRow& FindRow(u32 message) noexcept {
  const auto* row = std::find_if(std::begin(kRows), std::end(kRows),
                                 [message](const MessageRow& r) { return r.message == message; });
  return row == std::end(kRows) ? kUnknown : *row;
}

[[nodiscard]] bool IsLoggedOn(const ClientPtr& client) noexcept {
  return client != nullptr && client->IsLoggedOn();
}

// Whether an answer is due; `*result` is what it carries, or else the frame's status.
[[nodiscard]] bool Serve(Exchange& exchange, u32* result) {
  const Value* message = exchange.request.FindValue(wire::kMessageKey, ZN_TYPE_UINT32);
  if (message == nullptr) {
    *result = ZNE_INVALID_ARGUMENTS;
    return true;
  }
  const MessageRow& row = FindRow(message->AsUInt32());
  if (row.needs != Needs::kNothing && !exchange.server.isReady.load(std::memory_order_acquire)) {
    *result = ZNE_SERVER_NOT_READY;
    return false;
  }
  if (row.needs == Needs::kLogon && !IsLoggedOn(exchange.client)) {
    *result = ZNE_CLIENT_NOT_AUTHORIZED;
    return true;
  }
  *result = row.serve(exchange);
  return true;
}

// False when the buffer is not to be served any further.
[[nodiscard]] bool ReadRequest(ServerObject& server, const ClientPtr& client,
                               const Exchange& exchange, BinaryReader& reader,
                               PropertySet* request) {
  if (!ZN_FAILED(request->Unmarshal(reader))) return true;
  if (!IsLoggedOn(client)) {
    ZN_TRACE(6, "ZnSendReceive: Unauthorized bad client");
    server.transport.Disconnect(exchange.address, exchange.connectionId);
    return true;  // with a set that has no message
  }
  ZN_TRACE(6, "ZnSendReceive: Out of memory");
  return false;
}

void HandOver(Exchange& exchange, u32 result, u32* outLength, void** out) {
  if (exchange.bytes.Buffer().Size() == 0) {
    exchange.answer.Put(wire::kResultKey, Value::UInt32(result));
    exchange.answer.Marshal(exchange.bytes);
  }
  *out = exchange.bytes.Buffer().Take(outLength);
}

[[nodiscard]] u32 Dispatch(ServerObject& server, u32 inLength, const void* in, u32* outLength,
                           void** out, u32 address, u32 connectionId) {
  const ClientPtr client = server.clients.Find(address, connectionId);
  PropertySet request;
  BinaryReader reader(in, inLength, IsLoggedOn(client) ? NamesRead::kAll : NamesRead::kKnown);
  Exchange exchange{server, client, address, connectionId, request, {}, {}};
  u32 result = ZNE_INVALID_ARGUMENTS;
  if (ReadRequest(server, client, exchange, reader, &request) && !Serve(exchange, &result)) {
    return result;
  }
  HandOver(exchange, result, outLength, out);
  return result;
}

// The refusals that have a text, traced when the host has switched this trace on.
struct Refusal {
  bool applies;
  const char* text;
};

}  // namespace

void WriteAnswerEnd(BinaryWriter& stream, u32 message, u32 status) {
  static constexpr auto kMessage = wire::HeadOf(ZN_TYPE_UINT32, "Message");
  static constexpr auto kResult = wire::HeadOf(ZN_TYPE_UINT32, "Result");
  wire::WriteHead(stream, kMessage);
  stream.WriteUInt32(message);
  wire::WriteHead(stream, kResult);
  stream.WriteUInt32(status);
}

u32 ZnSendReceive(ServerObject& server, u32 inLength, const void* in, u32* outLength, void** out,
                  u32 address, u32 connectionId) noexcept {
  const Refusal refusals[] = {
      {inLength == 0, "ZnSendReceive: ulcInData = 0"},
      {!IsGoodPointer(in), "ZnSendReceive: pbInData is bad"},
      {!IsGoodPointer(out) || !IsGoodPointer(outLength), "ZnSendReceive: ppbOutData is bad"},
  };
  for (const Refusal& refusal : refusals) {
    if (!refusal.applies) continue;
    if (server.traces.Dispatch()) ZN_TRACE(6, "%s", refusal.text);
    return ZNE_INVALID_ARGUMENTS;
  }
  try {
    return Dispatch(server, inLength, in, outLength, out, address, connectionId);
  } catch (const std::bad_alloc&) {
    if (server.traces.Dispatch()) ZN_TRACE(6, "ZnSendReceive: Out of memory");
    return ZNE_OUT_OF_MEMORY;
  } catch (const std::exception&) {
    return ZNE_UNEXPECTED;
  }
}

namespace {

void QueueMarkerOfId(u32 serviceId, void*) {
  const BusLock lock;
  Database* database = ZnGetSystemDatabase();
  if (database != nullptr) database->QueueMarker(serviceId);
}

}  // namespace

// Most requests change nothing, and then nothing stands before their answers: a change that the
// request made was queued before its provider returned. What is queued is told and sent right here,
// which spares the way through two threads; only where another thread is telling changes at this
// moment a marker goes behind them. The change queue is looked at first, since a change is counted
// by the sender before the queue forgets it.
void WaitForChangesToLeave(ServerObject& server) noexcept {
  if (ChangesUnderWay() == 0 || TellChangesHere()) {
    if (server.sender.UnderWay() != 0) server.sender.RunRound();
    return;
  }
  if (server.sendsNothing.load(std::memory_order_relaxed)) return;
  u32 serviceId = 0;
  if (ZN_FAILED(server.serviceIds.Take(QueueMarkerOfId, nullptr, &serviceId))) return;
  // Contract: a wait that fails changes nothing in the answer.
  static_cast<void>(server.serviceIds.WaitOnServiceId(serviceId));
}

}  // namespace zn
