#include "ucl/common/connection.h"

#include <new>

#include "support/common/trace.h"
#include "ucl/common/connection_parts.h"
#include "ucl/common/manager.h"

namespace zn {

namespace {

// Interest of a server's connection for all its life: the poller tells each arrival once.
constexpr u32 kServerInterest = kPollIn | kPollOut | kPollEdge;

i64 LogonDeadline(const ConnectionLimits& limits) {
  return limits.logonTimeoutMs == 0 ? 0 : UclManager::NowMs() + limits.logonTimeoutMs;
}

}  // namespace

thread_local const Connection::CallbackFrame* Connection::innermostFrame = nullptr;

Connection::CallbackFrame::CallbackFrame(const Connection& connection, bool isData)
    : connection_(connection), isData_(isData), outer_(innermostFrame) {
  innermostFrame = this;
}

Connection::CallbackFrame::~CallbackFrame() {
  innermostFrame = outer_;
}

bool Connection::IsInOwnCallback(bool ofData) const noexcept {
  for (const CallbackFrame* frame = innermostFrame; frame != nullptr; frame = frame->outer_) {
    if (&frame->connection_ == this && (frame->isData_ || !ofData)) return true;
  }
  return false;
}

Connection::Connection(std::shared_ptr<CommObject> owner, u32 socket, u32 address, std::string host)
    : owner_(std::move(owner)),
      socket_(socket),
      address_(address),
      id_(owner_->Manager().NextConnectionId()),
      host_(std::move(host)),
      logonDeadline_(LogonDeadline(owner_->Limits())),
      notifyOnLoss_(owner_->IsServer()) {
  if (owner_->Limits().tcpNoDelay) SetNoDelay(socket_);
}

Connection::~Connection() {
  CloseSocket(socket_);
}

bool Connection::Start() {
  if (logonDeadline_ != 0) owner_->Manager().RequestTimer(owner_->Limits().logonTimeoutMs);
  bool isAdded = false;
  {
    const MutexLock lock(lock_);
    watched_ = owner_->IsServer() ? kServerInterest : kPollIn | kPollEdge;
    isAdded = owner_->Manager().Threads().Set().Add(socket_, id_, watched_);
    isWatched_ = isAdded;
  }
  if (!isAdded) End(owner_->IsServer() ? StopCause::kDropped : StopCause::kOwner);
  return isAdded;
}

// Tells the poller what a client's connection waits for now. A server's never changes.
void Connection::Watch() {
  if (owner_->IsServer() || !isWatched_ || finished_) return;
  const u32 interest = (isLed_ ? 0 : kPollIn) | (hasQueue_.load() ? kPollOut : 0) | kPollEdge;
  if (interest == watched_) return;
  watched_ = interest;
  owner_->Manager().Threads().Set().Change(socket_, id_, interest);
}

// The same, and the poller tells again what is there already.
void Connection::Rewatch() {
  if (isWatched_ && !finished_) owner_->Manager().Threads().Set().Change(socket_, id_, watched_);
}

void Connection::OnEvents(u32 events) {
  if ((events & kPollOut) != 0) Drain();
  if ((events & (kPollIn | kPollGone)) != 0) TakeInput(events);
}

void Connection::TakeInput(u32 events) {
  {
    const MutexLock lock(lock_);
    if (reading_ || IsStopped()) {
      pendingEvents_ |= events;  // the holder looks before it leaves
      return;
    }
    reading_ = true;
  }
  ServeInput(events);
}

// Holding the role, on a worker.
void Connection::ServeInput(u32 events) {
  ReadEnd end = ReadEnd::kStopped;
  try {
    do {
      end = ReadUntilDrained((events & kPollGone) != 0);
    } while (end == ReadEnd::kDrained && HasMoreInput(&events));
  } catch (const std::bad_alloc&) {
    Stop(StopCause::kBadInput);
  }
  if (end == ReadEnd::kParked) return;  // the role waits with the connection
  LeaveRole();
  if (end != ReadEnd::kMore) return;
  // Its turn is over, and there may be more: back into the line.
  const MutexLock lock(lock_);
  Rewatch();
}

bool Connection::HasMoreInput(u32* events) {
  const MutexLock lock(lock_);
  if (pendingEvents_ == 0 || IsStopped()) return false;
  *events = pendingEvents_;
  pendingEvents_ = 0;
  return true;
}

// Gives the role on, or finishes the connection if it was stopped meanwhile.
void Connection::LeaveRole() {
  {
    const MutexLock lock(lock_);
    if (!IsStopped()) {
      const bool hasMissed = pendingEvents_ != 0;
      pendingEvents_ = 0;
      reading_ = false;
      Waiter* next = owner_->IsServer() ? nullptr : waiters_;
      while (next != nullptr && next->isDone) next = next->next;
      if (next != nullptr) {  // it will look for itself
        next->wake.NotifyOne();
        return;
      }
      isLed_ = false;
      Watch();
      if (hasMissed) Rewatch();
      return;
    }
  }
  Finish();
}

// Nothing more is sent.
void Connection::Break() {
  broken_ = true;
  queue_.reset();
  hasQueue_ = false;
}

void Connection::MarkStopped(StopCause cause) {
  if (IsStopped()) return;
  cause_ = cause;
  stop_ = true;
  for (Waiter* waiter = waiters_; waiter != nullptr; waiter = waiter->next) {
    waiter->wake.NotifyOne();
  }
}

// Where a worker holds the role of a server's connection it serves a request: nothing more is read,
// and the worker finishes the connection when the answer has been sent.
bool Connection::StopBehindTheAnswer() {
  if (!owner_->IsServer()) return false;
  const MutexLock sending(sendLock_);
  const MutexLock lock(lock_);
  if (!reading_ || parked_ || IsStopped()) return false;
  MarkStopped(StopCause::kOwner);
  return true;
}

void Connection::Stop(StopCause cause) {
  if (cause == StopCause::kOwner && StopBehindTheAnswer()) return;
  bool isOurs = false;
  {
    const MutexLock lock(sendLock_);
    Break();
    isOurs = parked_;
    parked_ = false;
  }
  {
    const MutexLock lock(lock_);
    MarkStopped(cause);
    if (!reading_) {
      reading_ = true;
      isOurs = true;
    }
  }
  if (isOurs) {
    Finish();
  } else {
    ShutdownBoth(socket_);
  }
}

bool Connection::TellsLoss() const noexcept ZN_NO_THREAD_SAFETY_ANALYSIS {
  // cause_ does not change any more.
  if (owner_->IsServer()) return cause_ != StopCause::kOwner;
  const bool isLoss = cause_ != StopCause::kOwner && cause_ != StopCause::kPeerCall &&
                      cause_ != StopCause::kStopCall;
  return notifyOnLoss_ && isLoss;
}

void Connection::TellLoss() {
  if (told_.exchange(true)) return;
  const CallbackFrame frame(*this, false);
  owner_->CallConnect(host_.c_str(), address_, id_, false);
}

// Holding the role, for good.
void Connection::Finish() {
  const std::shared_ptr<Connection> self = shared_from_this();
  {
    const MutexLock lock(sendLock_);
    Break();
  }
  ShutdownBoth(socket_);
  owner_->Manager().Threads().Set().Remove(socket_);
  if (TellsLoss()) TellLoss();
  owner_->Manager().RemoveConnection(id_);
  const MutexLock lock(lock_);
  finished_ = true;
  settled_.NotifyAll();
}

void Connection::WaitUntilSettled() {
  if (IsInOwnCallback(false)) return;
  const MutexLock lock(lock_);
  while (!finished_ || users_.load() > 0) settled_.Wait(lock_);
}

i64 Connection::CheckDeadlines(i64 now) {
  i64 next = 0;
  if (logonDeadline_ != 0 && !loggedOn_ && !IsStopped()) {
    if (now >= logonDeadline_) {
      ZN_TRACE(4, "Connection of %s dropped: no logon within %u ms\n", host_.c_str(),
               owner_->Limits().logonTimeoutMs);
      Stop(StopCause::kDropped);
      return 0;
    }
    next = logonDeadline_;
  }
  if (!hasQueue_ || owner_->Limits().sendStallMs == 0) return next;
  i64 deadline = 0;
  {
    const MutexLock lock(sendLock_);
    if (queue_ == nullptr) return next;
    deadline = lastProgress_ + owner_->Limits().sendStallMs;
  }
  if (now >= deadline) {
    static_cast<void>(SendFailed(TimeoutErrorCode(), false));
    return 0;
  }
  return next == 0 || deadline < next ? deadline : next;
}

Connection::UserScope::UserScope(Connection& connection) : connection_(connection) {
  connection_.users_.fetch_add(1);
}

Connection::UserScope::~UserScope() {
  if (connection_.users_.fetch_sub(1) != 1 || !connection_.IsStopped()) return;
  const MutexLock lock(connection_.lock_);
  connection_.settled_.NotifyAll();
}

}  // namespace zn
