// One TCP connection: what it reads, what it still has to send, who waits on it.
//
// Reading is a role that one thread holds at a time: a worker that was told of input, or, on a
// client, a caller that waits for its response. The holder reads, runs the callbacks and gives the
// role on: a caller to the next caller that waits, else back to the poller. So frames are handled
// one at a time in the order of arrival, and a response costs no hand-over between threads.
//
// Ending: Stop marks the connection and shuts the socket down, which wakes whoever reads; the
// holder of the role then finishes it (takes it off the poller and the manager's table, tells the
// loss). Where nobody holds the role, the stopper takes it and finishes. A server that is closed
// lets a request that is being served have its answer first. The descriptor is closed
// by the destructor, that is by the last reference, and by nothing else.
//
// Locks: sendLock_ (what is to be sent), then lock_ (the role, the waiters). Both are held for
// short steps only, never while waiting for a socket and never around a callback.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "support/common/sync.h"
#include "ucl/common/comm_object.h"
#include "ucl/common/frame.h"
#include "ucl/common/out_queue.h"
#include "ucl/common/round.h"

namespace zn {

enum class StopCause {
  kOwner,       // UCLDisconnect, UCLCloseServer, UCLCleanup
  kPeerCall,    // UCLDisconnectPeer
  kStopCall,    // UCLStopConnection
  kPeerGone,    // end of the stream, or its failure
  kBadInput,    // no frame, too long a frame, no memory for it
  kDropped,     // a time-out, a backlog
  kSendFailed,  // the sender tells the loss
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // Takes the socket over.
  Connection(std::shared_ptr<CommObject> owner, u32 socket, u32 address, std::string host);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] u32 Id() const noexcept { return id_; }
  [[nodiscard]] u32 Address() const noexcept { return address_; }
  [[nodiscard]] const std::string& Host() const noexcept { return host_; }
  [[nodiscard]] CommObject& Owner() const noexcept { return *owner_; }

  // Once it is in the manager's table: reading begins. False when the host refuses; the connection
  // has then ended.
  [[nodiscard]] bool Start();
  void TellLossToOwner() noexcept { notifyOnLoss_ = true; }
  void MarkLoggedOn() noexcept { loggedOn_ = true; }

  [[nodiscard]] u32 SendAndWait(u32 length, const void* data, u32* outLength, void** outData);
  [[nodiscard]] u32 SendOneWay(u32 length, const void* data);
  [[nodiscard]] u32 SendRound(const SendingRound& round);

  // Marks it as ended and returns; the first cause counts.
  void Stop(StopCause cause);
  // Until no callback of it runs and no caller is inside. Called from one of its callbacks, it does
  // not wait.
  void WaitUntilSettled();
  void End(StopCause cause) {
    Stop(cause);
    WaitUntilSettled();
  }

  // On a worker.
  void OnEvents(u32 events);
  // Drops the connection when a deadline of it is over; else the next one, or 0.
  [[nodiscard]] i64 CheckDeadlines(i64 now);

 private:
  struct Waiter;
  struct Scratch;
  class UserScope;
  class CallbackFrame;
  enum class Ownership { kCopy, kBorrow, kTake };
  enum class ReadEnd { kMore, kDrained, kParked, kStopped };

  // connection.cpp: the role, the end
  void TakeInput(u32 events);
  void ServeInput(u32 events);
  [[nodiscard]] bool HasMoreInput(u32* events);
  void LeaveRole();
  void Break() ZN_REQUIRES(sendLock_);
  void MarkStopped(StopCause cause) ZN_REQUIRES(lock_);
  [[nodiscard]] bool StopBehindTheAnswer();
  void Finish();
  [[nodiscard]] bool TellsLoss() const noexcept;
  void TellLoss();
  void Watch() ZN_REQUIRES(lock_);
  void Rewatch() ZN_REQUIRES(lock_);
  [[nodiscard]] bool IsStopped() const noexcept { return stop_.load(); }
  [[nodiscard]] bool IsInOwnCallback(bool ofData) const noexcept;

  // connection_read.cpp: bytes to frames to callbacks
  [[nodiscard]] ReadEnd ReadUntilDrained(bool untilEnd);
  [[nodiscard]] ReadEnd ReceiveOnce(Scratch& scratch, bool waits);
  [[nodiscard]] ReadEnd ProcessInput(const u8* at, const u8* end);
  [[nodiscard]] ReadEnd ProcessLeftover();
  [[nodiscard]] bool Park(const u8* at, const u8* end);
  [[nodiscard]] u32 FrameLimit() const noexcept;
  void PeerGone();
  void BadInput(FrameReader::Step step);
  void HandleFrame(const ReceivedFrame& frame);
  void Serve(const ReceivedFrame& frame);
  void DeliverResponse(const ReceivedFrame& frame);

  // connection_wait.cpp: the caller of UCLSendRcv
  [[nodiscard]] u32 AwaitResponse(Waiter& waiter, u32 length, const void* data);
  void TakeLead(Waiter& waiter) ZN_REQUIRES(lock_);
  void LeadUntil(const Waiter& waiter);
  void Unlink(const Waiter& waiter) ZN_REQUIRES(lock_);
  [[nodiscard]] bool IsRequestSent(Waiter& waiter);

  // connection_send.cpp
  [[nodiscard]] u32 SendFrame(const FrameHeader& header, const void* payload, Ownership ownership,
                              bool* sent);
  struct Outgoing;
  [[nodiscard]] bool SendNow(Outgoing& frame, u32* error) const ZN_REQUIRES(sendLock_);
  [[nodiscard]] bool QueueRest(Outgoing& frame) ZN_REQUIRES(sendLock_);
  [[nodiscard]] bool SendPieces(const SendingRound& round, u32* error) ZN_REQUIRES(sendLock_);
  void QueueRound(const SendingRound& round, size_t first, size_t done) ZN_REQUIRES(sendLock_);
  [[nodiscard]] bool IsOverLimit(u64 more) const ZN_REQUIRES(sendLock_);
  [[nodiscard]] OutQueue& Queue() ZN_REQUIRES(sendLock_);
  void WatchQueue();
  void TapSent(const FrameHeader& header, const void* payload) const;
  [[nodiscard]] u32 SendFailed(u32 error, bool isBacklog);
  enum class DrainEnd { kEmpty, kFull, kTurnOver, kFailed };
  [[nodiscard]] DrainEnd DrainPieces(u32* error) ZN_REQUIRES(sendLock_);
  void Drain();

  static thread_local const CallbackFrame* innermostFrame;  // of the thread's callbacks

  const std::shared_ptr<CommObject> owner_;
  const u32 socket_;
  const u32 address_;
  const u32 id_;
  std::string host_;
  const i64 logonDeadline_;  // 0: none

  std::atomic<bool> stop_{false};
  std::atomic<bool> told_{false};
  std::atomic<bool> notifyOnLoss_;
  std::atomic<bool> loggedOn_{false};
  std::atomic<bool> hasQueue_{false};
  std::atomic<u32> users_{0};  // callers inside a send or a wait

  Mutex sendLock_;
  std::unique_ptr<OutQueue> queue_ ZN_GUARDED_BY(sendLock_);  // null while empty
  i64 lastProgress_ ZN_GUARDED_BY(sendLock_) = 0;
  bool broken_ ZN_GUARDED_BY(sendLock_) = false;
  bool parked_ ZN_GUARDED_BY(sendLock_) = false;  // reading waits for the answers to leave

  Mutex lock_;
  Condition settled_;
  bool reading_ ZN_GUARDED_BY(lock_) = false;  // somebody holds the role
  bool isLed_ ZN_GUARDED_BY(lock_) = false;    // a caller does or did: the poller is off
  bool finished_ ZN_GUARDED_BY(lock_) = false;
  bool isWatched_ ZN_GUARDED_BY(lock_) = false;
  u32 watched_ ZN_GUARDED_BY(lock_) = 0;  // the interest told to the poller
  u32 pendingEvents_ ZN_GUARDED_BY(lock_) = 0;
  StopCause cause_ ZN_GUARDED_BY(lock_) = StopCause::kOwner;
  Waiter* waiters_ ZN_GUARDED_BY(lock_) = nullptr;

  // Of the holder of the role.
  FrameReader reader_;
  std::vector<u8> leftover_;  // read, not handled yet
};

}  // namespace zn
