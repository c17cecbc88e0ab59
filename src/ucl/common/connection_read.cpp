// Bytes to frames to callbacks: what the holder of the reading role does.
#include "ucl/common/connection.h"

#include <cstring>
#include <memory>

#include "support/common/trace.h"
#include "ucl/common/connection_parts.h"
#include "ucl/common/manager.h"
#include "ucl/common/tap.h"
#include "zn/memory.h"

namespace zn {

namespace {

constexpr size_t kScratchSize = size_t{64} << 10;

thread_local std::unique_ptr<u8[]> spareScratch;

void TapReceived(const Connection& connection, const ReceivedFrame& frame) {
  if (!IsTapped()) return;
  const FrameHeader& header = frame.header;
  TellTap({false, connection.Owner().IsServer(), connection.Id(), header.type, header.id,
           header.status, header.length, frame.data});
}

}  // namespace

// Room to receive into: the thread's own, or another one while a callback further up uses that.
struct Connection::Scratch {
  Scratch() : bytes(std::move(spareScratch)) {
    if (bytes == nullptr) bytes.reset(new u8[kScratchSize]);
  }
  ~Scratch() { spareScratch = std::move(bytes); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  std::unique_ptr<u8[]> bytes;
  size_t received = 0;  // in all
};

u32 Connection::FrameLimit() const noexcept {
  const ConnectionLimits& limits = owner_->Limits();
  if (loggedOn_ || limits.maxLogonFrameLength == 0) return limits.maxFrameLength;
  const bool isTighter =
      limits.maxFrameLength == 0 || limits.maxLogonFrameLength < limits.maxFrameLength;
  return isTighter ? limits.maxLogonFrameLength : limits.maxFrameLength;
}

Connection::ReadEnd Connection::ReadUntilDrained(bool untilEnd) {
  if (IsStopped()) return ReadEnd::kStopped;
  if (!leftover_.empty()) {
    const ReadEnd end = ProcessLeftover();
    if (end != ReadEnd::kMore) return end;
  }
  Scratch scratch;
  while (scratch.received < kBytesPerTurn) {
    if (IsStopped()) return ReadEnd::kStopped;
    const size_t before = scratch.received;
    const ReadEnd end = ReceiveOnce(scratch, false);
    if (end == ReadEnd::kMore) continue;
    // After the end of the stream was told there is no further event: read up to it.
    if (end == ReadEnd::kDrained && untilEnd && scratch.received != before) continue;
    return end;
  }
  return ReadEnd::kMore;
}

// One receive, and all that it completes. kDrained: the socket has nothing more just now.
Connection::ReadEnd Connection::ReceiveOnce(Scratch& scratch, bool waits) {
  ByteRoom rooms[2] = {{nullptr, 0}, {scratch.bytes.get(), kScratchSize}};
  bool isLast = false;
  const size_t direct = reader_.DirectRoom(&rooms[0].data, &isLast);
  rooms[0].length = direct;
  const bool usesScratch = direct == 0 || isLast;
  const size_t asked = direct + (usesScratch ? kScratchSize : 0);
  const i64 result = direct == 0 ? ReceiveParts(socket_, &rooms[1], 1, waits)
                                 : ReceiveParts(socket_, rooms, usesScratch ? 2 : 1, waits);
  if (result == kReceivedNothing) return ReadEnd::kDrained;
  if (result <= 0) {
    PeerGone();
    return ReadEnd::kStopped;
  }
  const auto received = static_cast<size_t>(result);
  scratch.received += received;
  const size_t inBlock = received < direct ? received : direct;
  if (inBlock > 0) reader_.DirectReceived(inBlock);
  if (received > inBlock) {
    const u8* begin = scratch.bytes.get();
    const ReadEnd end = ProcessInput(begin, begin + (received - inBlock));
    if (end != ReadEnd::kMore) return end;
  }
  return received < asked ? ReadEnd::kDrained : ReadEnd::kMore;
}

Connection::ReadEnd Connection::ProcessInput(const u8* at, const u8* end) {
  while (at != end) {
    ReceivedFrame frame;
    const FrameReader::Step step = reader_.Next(&at, end, FrameLimit(), &frame);
    if (step == FrameReader::Step::kMore) return ReadEnd::kMore;
    if (step != FrameReader::Step::kFrame) {
      BadInput(step);
      return ReadEnd::kStopped;
    }
    HandleFrame(frame);
    if (hasQueue_ && Park(at, end)) return ReadEnd::kParked;
    if (IsStopped()) return ReadEnd::kStopped;
  }
  return ReadEnd::kMore;
}

Connection::ReadEnd Connection::ProcessLeftover() {
  const std::vector<u8> input = std::move(leftover_);
  leftover_.clear();
  return ProcessInput(input.data(), input.data() + input.size());
}

// While an answer is still on its way out, a server takes no further request of that peer: what it
// has read already is kept for later. The answers that wait in memory are thus bounded by what one
// request may ask for.
bool Connection::Park(const u8* at, const u8* end) {
  if (!owner_->IsServer()) return false;
  leftover_.assign(at, end);
  {
    const MutexLock lock(sendLock_);
    // Once it is set, another thread may go on with the connection at any time.
    if (queue_ != nullptr && queue_->Answers() > 0 && !broken_ && !IsStopped()) {
      parked_ = true;
      return true;
    }
  }
  leftover_.clear();
  return false;
}

// Contract: whoever waits for a response hears of a loss between frames before the callback has
// run, and of one inside a frame only after it.
void Connection::PeerGone() {
  if (IsStopped()) return;
  const bool tellsFirst = reader_.IsInsideFrame() && notifyOnLoss_;
  if (tellsFirst) TellLoss();
  Stop(StopCause::kPeerGone);
}

void Connection::BadInput(FrameReader::Step step) {
  if (step == FrameReader::Step::kTooLong) {
    ZN_TRACE(4, "Connection of %s dropped: a frame of %u bytes exceeds the limit of %u\n",
             host_.c_str(), reader_.LastHeader().length, FrameLimit());
  }
  Stop(StopCause::kBadInput);
}

void Connection::HandleFrame(const ReceivedFrame& frame) {
  TapReceived(*this, frame);
  switch (frame.header.type) {
    case kFrameResponse:
      DeliverResponse(frame);
      return;
    case kFrameRequest:
    case kFrameOneWay:
      Serve(frame);
      break;
    default:  // of no known type: dropped
      break;
  }
  ZnFree(frame.block);
}

void Connection::Serve(const ReceivedFrame& frame) {
  const FrameHeader& header = frame.header;
  const bool isOneWay = header.type == kFrameOneWay;
  if (isOneWay) ZN_TRACE(1, "pRcvData->ulType = 3");
  void* answer = nullptr;
  u32 answerLength = 0;
  u32 status = ZN_OK;
  {
    const CallbackFrame inside(*this, true);
    status = owner_->CallData(isOneWay, address_, id_, header.length, const_cast<u8*>(frame.data),
                              &answer, &answerLength);
  }
  if (answer == nullptr) answerLength = 0;
  if (isOneWay) {
    ZnFree(answer);
  } else {
    static_cast<void>(SendFrame({answerLength, kFrameResponse, header.id, status}, answer,
                                Ownership::kTake, nullptr));
  }
  ZN_TRACE(1, "send on server-recv-thread, size = %d, id = %d, type = 1\n", answerLength,
           header.id);
}

// To the one that waits for it; dropped when there is none.
void Connection::DeliverResponse(const ReceivedFrame& frame) {
  const FrameHeader& header = frame.header;
  const MutexLock lock(lock_);
  Waiter* waiter = waiters_;
  while (waiter != nullptr && (waiter->id != header.id || waiter->isDone)) waiter = waiter->next;
  if (waiter == nullptr) {
    ZnFree(frame.block);
    return;
  }
  void* block = frame.block;
  if (block == nullptr && header.length != 0) {
    block = ZnRealloc(nullptr, header.length);
    if (block == nullptr) throw std::bad_alloc();
    std::memcpy(block, frame.data, header.length);
  }
  waiter->length = header.length;
  waiter->data = block;
  waiter->isDone = true;
  if (!waiter->leads) waiter->wake.NotifyOne();
}

// The caller holds the role and reads until its own response is there.
void Connection::LeadUntil(const Waiter& waiter) {
  try {
    Scratch scratch;
    while (!waiter.isDone && !IsStopped()) static_cast<void>(ReceiveOnce(scratch, true));
  } catch (const std::bad_alloc&) {
    Stop(StopCause::kBadInput);
  }
  LeaveRole();
}

}  // namespace zn
