// The caller of UCLSendRcv: it sends, and then reads the connection itself until its response is
// there, or waits for the one that does.
#include "ucl/common/connection.h"

#include "support/common/trace.h"
#include "ucl/common/connection_parts.h"
#include "zn/memory.h"

namespace zn {

// Takes the role for a caller, before its request goes out, so that no worker is woken for the
// response.
void Connection::TakeLead(Waiter& waiter) {
  reading_ = true;
  waiter.leads = true;
  pendingEvents_ = 0;
  if (isLed_) return;
  isLed_ = true;
  Watch();
}

void Connection::Unlink(const Waiter& waiter) {
  Waiter** link = &waiters_;
  while (*link != &waiter) link = &(*link)->next;
  *link = waiter.next;
}

u32 Connection::SendAndWait(u32 length, const void* data, u32* outLength, void** outData) {
  if (IsInOwnCallback(true)) return UCLE_CALLBACK_THREAD_SENDRECV;
  const UserScope user(*this);
  Waiter waiter;
  const u32 status = AwaitResponse(waiter, length, data);
  if (status != ZN_OK) {
    ZnFree(waiter.data);
    TellLoss();
    return status;
  }
  *outLength = waiter.length;
  if (waiter.length != 0) *outData = waiter.data;
  return ZN_OK;
}

u32 Connection::AwaitResponse(Waiter& waiter, u32 length, const void* data) {
  waiter.id = owner_->NextSendId();
  {
    const MutexLock lock(lock_);
    if (IsStopped()) return UCLW_SOCKET_DISCONNECTED;
    waiter.next = waiters_;
    waiters_ = &waiter;
    if (!owner_->IsServer() && !reading_) TakeLead(waiter);
  }
  const u32 sent =
      SendFrame({length, kFrameRequest, waiter.id, 0}, data, Ownership::kBorrow, &waiter.isSent);
  bool isDone = false;
  lock_.Lock();
  for (;;) {
    if (waiter.leads) {
      lock_.Unlock();
      LeadUntil(waiter);
      lock_.Lock();
      waiter.leads = false;
    }
    isDone = waiter.isDone;
    if (isDone || IsStopped()) break;
    if (!owner_->IsServer() && !reading_) {
      TakeLead(waiter);
    } else {
      waiter.wake.Wait(lock_);
    }
  }
  Unlink(waiter);
  lock_.Unlock();
  const bool isSent = IsRequestSent(waiter);
  if (isDone) return ZN_OK;
  return sent != ZN_OK || !isSent ? UCLE_SOCKET_ERROR : UCLW_SOCKET_DISCONNECTED;
}

// Also makes sure that nothing refers to the caller's bytes or to the waiter any more. A peer that
// answers a request before it has read all of it still gets the rest.
bool Connection::IsRequestSent(Waiter& waiter) {
  bool isOwned = true;
  {
    const MutexLock lock(sendLock_);
    if (waiter.isSent) return true;
    if (queue_ != nullptr) isOwned = queue_->OwnBorrowed(&waiter.isSent);
  }
  if (!isOwned) Stop(StopCause::kSendFailed);
  return false;
}

}  // namespace zn
