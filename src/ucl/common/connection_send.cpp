// What a connection sends: at once what the socket takes, the rest through its queue. Frames never
// mix, because all of it happens under the send lock; nobody waits, because every send is one that
// returns at once.
#include "ucl/common/connection.h"

#include <new>
#include <utility>

#include "support/common/trace.h"
#include "ucl/common/connection_parts.h"
#include "ucl/common/manager.h"
#include "ucl/common/tap.h"
#include "zn/memory.h"

namespace zn {

// A frame on its way: header, payload, trailer, and how many of its bytes have left.
struct Connection::Outgoing {
  FrameHeader header;
  const void* payload = nullptr;
  Ownership ownership = {};
  bool* sent = nullptr;
  u8 head[kFrameHeaderSize] = {};
  u64 done = 0;

  [[nodiscard]] u64 Size() const noexcept {
    return u64{header.length} + kFrameHeaderSize + kFrameTrailerSize;
  }
};

void Connection::TapSent(const FrameHeader& header, const void* payload) const {
  TellTap({true, owner_->IsServer(), id_, header.type, header.id, header.status, header.length,
           payload});
}

OutQueue& Connection::Queue() {
  if (queue_ == nullptr) {
    queue_ = std::make_unique<OutQueue>();
    lastProgress_ = UclManager::NowMs();
    hasQueue_ = true;
  }
  return *queue_;
}

bool Connection::IsOverLimit(u64 more) const {
  const u64 limit = owner_->Limits().maxQueuedBytes;
  return limit != 0 && queue_ != nullptr && queue_->OneWayBytes() + more > limit;
}

// Sends what the socket takes of a frame; false on failure.
bool Connection::SendNow(Outgoing& frame, u32* error) const {
  const bool hasPayload = frame.header.length != 0;
  BytePart parts[3] = {{frame.head, kFrameHeaderSize},
                       {static_cast<const u8*>(frame.payload), frame.header.length},
                       {kFrameTrailer, kFrameTrailerSize}};
  if (!hasPayload) parts[1] = parts[2];
  const i64 sent = SendParts(socket_, parts, hasPayload ? 3 : 2, error);
  if (sent < 0) return false;
  frame.done = static_cast<u64>(sent);
  return true;
}

// Queues what is left of a frame. False when memory is short.
bool Connection::QueueRest(Outgoing& frame) {
  const bool isOneWay = frame.header.type == kFrameOneWay;
  OutQueue& queue = Queue();
  u64 at = 0;
  const auto add = [&](const void* data, size_t length, std::shared_ptr<const void> keep,
                       bool* sent, bool endsAnswer) {
    const u64 begin = at;
    at += length;
    if (at <= frame.done || length == 0) return;
    const size_t skipped = frame.done > begin ? static_cast<size_t>(frame.done - begin) : 0;
    queue.Append({static_cast<const u8*>(data) + skipped, length - skipped, std::move(keep),
                  isOneWay, endsAnswer, sent});
  };
  const auto head = KeepCopy(frame.head, kFrameHeaderSize);
  std::shared_ptr<const void> payload;
  if (frame.ownership == Ownership::kTake) {
    // Handed over before: where there is no memory to keep it, it is freed in there.
    payload = KeepBlock(const_cast<void*>(std::exchange(frame.payload, nullptr)));
  } else if (frame.ownership == Ownership::kCopy && frame.header.length != 0) {
    payload = KeepCopy(frame.payload, frame.header.length);
    if (payload == nullptr) return false;
  }
  if (head == nullptr) return false;
  const void* bytes = payload != nullptr ? payload.get() : frame.payload;
  const bool isPayloadLeft =
      frame.done < u64{kFrameHeaderSize} + frame.header.length && frame.header.length != 0;
  add(head.get(), kFrameHeaderSize, head, nullptr, false);
  add(bytes, frame.header.length, payload, frame.sent, false);
  if (!isPayloadLeft && frame.sent != nullptr) *frame.sent = true;  // nothing of the caller's left
  add(kFrameTrailer, kFrameTrailerSize, nullptr, nullptr, frame.header.type == kFrameResponse);
  return true;
}

// The queue exists or has gone: has the poller tell when the socket takes more. Only a client's
// interest changes with it.
void Connection::WatchQueue() {
  owner_->Manager().RequestTimer(owner_->Limits().sendStallMs);
  if (owner_->IsServer()) return;
  const MutexLock lock(lock_);
  Watch();
}

u32 Connection::SendFrame(const FrameHeader& header, const void* payload, Ownership ownership,
                          bool* sent) {
  Outgoing frame{header, payload, ownership, sent, {}};
  EncodeFrameHeader(header, frame.head);
  bool isGood = true;
  bool isBacklog = false;
  bool isQueued = false;
  u32 error = 0;
  {
    const MutexLock lock(sendLock_);
    isGood = !broken_;
    if (isGood && IsTapped()) TapSent(header, payload);
    if (isGood && queue_ == nullptr) {
      isGood = SendNow(frame, &error);
    } else if (isGood && header.type == kFrameOneWay) {
      isBacklog = IsOverLimit(frame.Size());
      isGood = !isBacklog;
    }
    if (isGood && frame.done < frame.Size()) {
      try {
        isGood = QueueRest(frame);
      } catch (const std::bad_alloc&) {
        isGood = false;
      }
      isQueued = isGood;
    } else if (isGood && sent != nullptr) {
      *sent = true;
    }
  }
  if (ownership == Ownership::kTake) ZnFree(const_cast<void*>(frame.payload));
  if (!isGood) return SendFailed(error, isBacklog);
  if (isQueued) WatchQueue();
  return ZN_OK;
}

// Nothing more goes out on this connection: it ends.
u32 Connection::SendFailed(u32 error, bool isBacklog) {
  if (!IsStopped()) {
    if (isBacklog) {
      ZN_TRACE(4, "Connection of %s dropped: it does not read, and more than %u KiB wait for it\n",
               host_.c_str(), static_cast<u32>(owner_->Limits().maxQueuedBytes >> 10));
    } else {
      ZN_TRACE(6, "Socket error in data sending. err code = %x\n", error);
    }
  }
  Stop(isBacklog || error == TimeoutErrorCode() ? StopCause::kDropped : StopCause::kSendFailed);
  return UCLE_SOCKET_ERROR;
}

u32 Connection::SendOneWay(u32 length, const void* data) {
  const UserScope user(*this);
  const u32 status =
      SendFrame({length, kFrameOneWay, owner_->NextSendId(), 0}, data, Ownership::kCopy, nullptr);
  if (status != ZN_OK) TellLoss();
  return status;
}

void Connection::QueueRound(const SendingRound& round, size_t first, size_t done) {
  OutQueue& queue = Queue();
  for (size_t i = first; i < round.pieces.size(); ++i) {
    OutPiece piece = round.pieces[i];
    piece.data += done;
    piece.length -= done;
    done = 0;
    queue.Append(std::move(piece));
  }
}

bool Connection::SendPieces(const SendingRound& round, u32* error) {
  size_t first = 0;
  while (first < round.pieces.size()) {
    BytePart parts[kMostParts];
    size_t count = 0;
    while (count < kMostParts && first + count < round.pieces.size()) {
      parts[count] = {round.pieces[first + count].data, round.pieces[first + count].length};
      ++count;
    }
    const i64 result = SendParts(socket_, parts, count, error);
    if (result < 0) return false;
    auto sent = static_cast<size_t>(result);
    size_t whole = 0;
    while (whole < count && sent >= parts[whole].length) sent -= parts[whole++].length;
    first += whole;
    if (whole == count) continue;
    QueueRound(round, first, sent);
    break;
  }
  return true;
}

u32 Connection::SendRound(const SendingRound& round) {
  const UserScope user(*this);
  bool isGood = true;
  bool isBacklog = false;
  bool isQueued = false;
  u32 error = 0;
  {
    const MutexLock lock(sendLock_);
    isGood = !broken_;
    if (isGood) {
      for (UclTapFrame frame : round.frames) {
        frame.connectionId = id_;
        TellTap(frame);
      }
      isBacklog = IsOverLimit(round.bytes);
      isGood = !isBacklog;
    }
    const bool hadQueue = queue_ != nullptr;
    try {
      if (isGood && hadQueue) {
        QueueRound(round, 0, 0);
      } else if (isGood) {
        isGood = SendPieces(round, &error);
      }
    } catch (const std::bad_alloc&) {
      isGood = false;
    }
    isQueued = !hadQueue && queue_ != nullptr;
  }
  if (!isGood) {
    const u32 status = SendFailed(error, isBacklog);
    TellLoss();
    return status;
  }
  if (isQueued) WatchQueue();
  return ZN_OK;
}

Connection::DrainEnd Connection::DrainPieces(u32* error) {
  size_t drained = 0;
  while (!queue_->IsEmpty()) {
    BytePart parts[kMostParts];
    size_t bytes = 0;
    const size_t count = queue_->Parts(parts, &bytes);
    const i64 result = SendParts(socket_, parts, count, error);
    if (result < 0) return DrainEnd::kFailed;
    const auto sent = static_cast<size_t>(result);
    if (sent > 0) {
      queue_->Consume(sent);
      lastProgress_ = UclManager::NowMs();
    }
    if (sent < bytes) return DrainEnd::kFull;
    drained += sent;
    if (drained >= kBytesPerTurn && !queue_->IsEmpty()) return DrainEnd::kTurnOver;
  }
  return DrainEnd::kEmpty;
}

// The socket takes more. On a worker.
void Connection::Drain() {
  u32 error = 0;
  bool resumes = false;
  DrainEnd end = DrainEnd::kEmpty;
  {
    const MutexLock lock(sendLock_);
    if (queue_ == nullptr) return;
    end = DrainPieces(&error);
    resumes = end != DrainEnd::kFailed && parked_ && queue_->Answers() == 0;
    if (resumes) parked_ = false;
    if (end == DrainEnd::kEmpty) {
      queue_.reset();
      hasQueue_ = false;
    }
  }
  if (end == DrainEnd::kFailed) {
    static_cast<void>(SendFailed(error, false));
    return;
  }
  if (end != DrainEnd::kFull) {
    const MutexLock lock(lock_);
    Watch();
    if (end == DrainEnd::kTurnOver) Rewatch();
  }
  if (resumes) ServeInput(kPollIn | kPollGone);
}

}  // namespace zn
