// Sending of notifications: changes (message 11) and events (message 12) as one-way messages to
// every client that hears them. Two callbacks of the system database fill one queue, the change
// callback on the thread that tells changes and the event callback on the raise thread; it is
// emptied a round at a time, in order: by the thread that tells changes, once it has told what
// there is, so that a single change leaves without a hand-over, else by the send thread. A message
// is marshalled once, whatever the number of clients, and a round costs each client one send.
#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "framework/common/znpropset/propertyset.h"
#include "service/common/clienttable.h"
#include "service/common/serviceid.h"
#include "service/common/traceflags.h"
#include "service/common/transport.h"
#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

// One message on its way, or a marker, which has no message.
struct PendingNotification {
  UclBuffer message;
  u32 serviceId = 0;  // not 0: a marker, which no client gets
};

class NotificationSender {
 public:
  // All of them outlive the sender.
  NotificationSender(ClientTable& clients, ServiceIds& serviceIds, Transport& transport,
                     const TraceFlags& traces) noexcept
      : clients_(clients), serviceIds_(serviceIds), transport_(transport), traces_(traces) {}
  ~NotificationSender() { Stop(); }
  NotificationSender(const NotificationSender&) = delete;
  NotificationSender& operator=(const NotificationSender&) = delete;

  // Starts the send thread; false when there is none to be had.
  [[nodiscard]] bool Start() noexcept;
  // One more round for what is queued, then the end of the thread, which is waited for.
  void Stop() noexcept;

  // The work of the two callbacks. Memory that is short loses the message, and nothing is reported.
  // `roundFollows` says that the caller runs a round soon, so that the send thread need not; it is
  // woken all the same when many messages wait. Of a change, whether it was a marker: somebody
  // waits for it, so the caller runs a round at once.
  bool ChangeNotify(const PropertySet& change, bool roundFollows = false) noexcept;
  [[nodiscard]] bool EventNotify(const EventRecord& event) noexcept;

  // Messages and markers that are queued or being sent. Any thread.
  [[nodiscard]] u64 UnderWay() const noexcept { return underWay_.load(std::memory_order_acquire); }

  // One round, on the calling thread; the send thread does nothing else. Without the bus lock.
  void RunRound() noexcept ZN_EXCLUDES(roundMutex_);

 private:
  void Append(PendingNotification item, bool roundFollows) noexcept;
  [[nodiscard]] bool WaitForWork() noexcept;
  void Run() noexcept;
  void Send(const std::vector<ClientPtr>& listeners) ZN_REQUIRES(roundMutex_);

  ClientTable& clients_;
  ServiceIds& serviceIds_;
  Transport& transport_;
  const TraceFlags& traces_;
  std::atomic<u64> underWay_{0};
  Mutex mutex_;
  Condition wake_;
  std::vector<PendingNotification> queue_ ZN_GUARDED_BY(mutex_);
  bool stop_ ZN_GUARDED_BY(mutex_) = false;
  // One round at a time, so that they keep their order; taken before the queue's. The vectors keep
  // their room from one round to the next.
  Mutex roundMutex_;
  std::vector<PendingNotification> round_ ZN_GUARDED_BY(roundMutex_);
  std::vector<UclBuffer> messages_ ZN_GUARDED_BY(roundMutex_);
  std::vector<UclTarget> targets_ ZN_GUARDED_BY(roundMutex_);
  std::thread thread_;
};

}  // namespace zn
