// The two event threads. The raise thread delivers raised events and local change events in the
// order in which they were queued: wait events, registered providers, then the database's event
// callback. The change thread hands marshalled changes to the database's change callback, strictly
// in queue order; a thread that would wait for it may do so in its place (TellChangesHere). No
// callback runs with the bus lock held.
//
// Both queues lie under one leaf mutex, together with the stop flag, so that no wake is lost; it is
// taken under FAST_LOCK or alone. A thread takes over all that is queued at once (a batch). The
// blocks of events: eventrecord.h. Wait events: waitevent.cpp.
#pragma once

#include <memory>
#include <string_view>

#include "framework/common/znguid/znguid.h"
#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstring/znstring.h"
#include "zn/types.h"

namespace zn {

class Database;
class Provider;

// False at the first failure. `parameter` goes to the event callbacks. A second start is ignored.
[[nodiscard]] bool StartEventThreads(u32 parameter);
// Ends both threads; what is still queued is dropped, callbacks that run are waited for. Releases
// the bus lock while it waits. Called on one of the two threads it only tells them to end: the next
// stop or start waits for them.
void StopEventThreads() noexcept;
[[nodiscard]] bool EventThreadsRunning() noexcept;

// Queues an event with a copy of the set: EVENT_LOCAL | EVENT_REMOTE or EVENT_LOCAL alone.
// ZNW_SERVICE_UNAVAILABLE without the threads (a warning: callers that must know compare for it),
// ZNE_UNEXPECTED for a bad provider, ZNE_EVENT_STRING_INVALID for a topic with other characters,
// ZNE_OUT_OF_MEMORY. Under FAST_LOCK.
[[nodiscard]] u32 RaiseEvent(Database& database, ZnHandle provider, std::string_view topic,
                             const PropertySet& data, u32 flags);
inline constexpr u32 kRaiseFlags = EVENT_LOCAL | EVENT_REMOTE | EVENT_OWNS_DATA;
inline constexpr u32 kRaiseLocalFlags = EVENT_LOCAL | EVENT_OWNS_DATA;

// The same for an event that a server raised: the set is taken over, an empty one left out, and the
// flags are the server's but for the one that says whose the set is. `provider` has been checked.
[[nodiscard]] u32 RaiseReceivedEvent(Database& database, ZnHandle provider, std::string_view topic,
                                     PropertySet&& data, u32 flags);

// Queues the local event of a change. `typeName` empty and `id` zero where there is no object;
// `plain` makes the short record. `data` may be null. Under FAST_LOCK.
void SendLocalNotificationEvent(Database& database, std::string_view topic, const InternedId& id,
                                const String& typeName, bool plain,
                                std::unique_ptr<PropertySet> data) noexcept;

// Queues a marshalled change for the change callback of the database. Under FAST_LOCK.
void QueueChange(Database& database, PropertySet&& change) noexcept;

// Changes that are queued or being told at this moment; 0 says that every change so far has been
// handed to its callback, and that the callback has returned. Any thread.
[[nodiscard]] u64 ChangesUnderWay() noexcept;

// Tells, on the calling thread, what is queued. False when another thread is telling changes, which
// goes on with what is queued, and without the threads. Without the bus lock, and for a host whose
// change callback may run on that thread.
[[nodiscard]] bool TellChangesHere() noexcept;

// While it stands, changes that the calling thread queues wake nobody: the thread calls
// TellChangesHere right after.
class QuietQueueing {
 public:
  explicit QuietQueueing(bool isQuiet) noexcept;
  ~QuietQueueing();
  QuietQueueing(const QuietQueueing&) = delete;
  QuietQueueing& operator=(const QuietQueueing&) = delete;

 private:
  const bool before_;
};

// Withdraws what is queued for a database that goes and waits until the batch that may still use it
// is done. Releases the bus lock while it waits; not on the raise thread itself.
void DrainDatabaseEvents(Database& database) noexcept;

// Waits until what is queued now has been delivered, so that an announcement is heard before what
// it announces; false when that takes longer. Releases the bus lock while it waits. Returns at once
// on the raise thread and without the threads.
[[nodiscard]] bool WaitForDelivery(u32 timeoutMs) noexcept;

// Ev* wait events; EvWaitForEvent's frame.
[[nodiscard]] u32 CreateWaitEvent(Database& database, bool (*predicate)(const EventRecord*, void*),
                                  void* context, ZnHandle* out);
[[nodiscard]] u32 WaitForEvent(Database& database, ZnHandle waitHandle, u32 timeoutMs);

}  // namespace zn
