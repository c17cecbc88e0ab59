// The two queues, the two threads that empty them, and the delivery of one event.
#include "framework/common/znevent/eventqueue.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventrecord.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/provider.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "support/common/trace.h"
#include "zn/platform.h"

namespace zn {

namespace {

// The database of an event, or null when it has gone. Under FAST_LOCK.
Database* LiveDatabase(ZnHandle handle) noexcept {
  return IsValidHandle(handle, HANDLE_DATABASE) ? HandleThing<Database>(handle) : nullptr;
}

// Delivers events, one at a time, to wait events, registered providers and the event callback.
// Used by the raise thread alone; the vectors keep their room from one event to the next.
class Delivery {
 public:
  void Deliver(const QueuedEvent& event, u32 parameter);

 private:
  // Who is to hear the event; false when its database has gone. `waits_` empty: the receivers are
  // found in the same hold of the lock.
  [[nodiscard]] bool LookUp(const QueuedEvent& event);
  void Collect(Database& database, const QueuedEvent& event);
  void TestWaits(const EventRecord& record) const;
  void SendToProviders(const QueuedEvent& event);
  [[nodiscard]] bool MayStillHear(const QueuedEvent& event, ZnHandle provider);

  std::vector<WaitEntry> waits_;
  std::vector<ZnHandle> receivers_;
  std::vector<ZnHandle> current_;
  ZnEventCallback callback_ = nullptr;
  u64 removals_ = 0;  // of providers, at the time of the collection
};

void Delivery::Deliver(const QueuedEvent& event, u32 parameter) {
  const EventRecord& record = event.Record();
  if (!LookUp(event)) return;
  if (!waits_.empty()) {
    TestWaits(record);
    const BusLock lock;
    Database* database = LiveDatabase(record.database);
    if (database == nullptr) return;
    Collect(*database, event);
  }
  if (!receivers_.empty()) SendToProviders(event);
  if (callback_ == nullptr || (record.flags & EVENT_REMOTE) == 0 || event.isWithdrawn) return;
  static_cast<void>(callback_(&record, parameter));
}

bool Delivery::LookUp(const QueuedEvent& event) {
  waits_.clear();
  receivers_.clear();
  const BusLock lock;
  Database* database = LiveDatabase(event.Record().database);
  if (database == nullptr) return false;
  callback_ = database->Callbacks().eventCallback;
  if ((event.Record().flags & EVENT_LOCAL) == 0) return true;
  waits_ = database->Events().Waits();
  if (waits_.empty()) Collect(*database, event);
  return true;
}

void Delivery::Collect(Database& database, const QueuedEvent& event) {
  removals_ = database.Events().ProviderRemovals();
  // The status says nothing that the list does not: whoever was found hears the event.
  static_cast<void>(database.Events().Collect(database, event.Topic(), &receivers_));
}

void Delivery::TestWaits(const EventRecord& record) const {
  for (const WaitEntry& wait : waits_) {
    bool wakes = false;
    try {
      wakes = wait.predicate(&record, wait.context);
    } catch (...) {  // an exception is no answer, and must not end the thread
    }
    // The entry may be gone by now; its event is closed then, and setting it does nothing.
    if (wakes) static_cast<void>(ZnSetEvent(wait.event));
  }
}

void Delivery::SendToProviders(const QueuedEvent& event) {
  for (const ZnHandle provider : receivers_) {
    const BusLock lock;
    if (event.isWithdrawn || !MayStillHear(event, provider)) continue;
    // What the provider answers concerns nobody.
    static_cast<void>(HandleThing<Provider>(provider)->SendEvent(&event.Record()));
  }
}

// The lock was free since the collection, so a provider may have gone, and another may even have
// got its handle. Under FAST_LOCK.
bool Delivery::MayStillHear(const QueuedEvent& event, ZnHandle provider) {
  if (!IsValidHandle(provider, HANDLE_PROVIDER)) return false;
  Database* database = LiveDatabase(event.Record().database);
  if (database == nullptr) return false;
  if (database->Events().ProviderRemovals() == removals_) return true;
  static_cast<void>(database->Events().Collect(*database, event.Topic(), &current_));
  for (const ZnHandle handle : current_) {
    if (handle == provider) return true;
  }
  return false;
}

// A change on its way to the change callback. The callback is kept, not the database, which may be
// gone when the change's turn comes.
struct QueuedChange {
  ZnChangeCallback callback;
  PropertySet change;
};

void Tell(QueuedChange& item) noexcept {
  const ZnHandle set = WrapPropertySet(std::move(item.change));
  if (set == nullptr) return;
  try {
    item.callback(set);
  } catch (...) {  // must not end the thread
  }
  static_cast<void>(DestroyPropertySet(set));
}

// The threads of the process. They may be started and stopped any number of times.
class EventThreads {
 public:
  [[nodiscard]] bool Start(u32 parameter);
  void Stop() noexcept;
  [[nodiscard]] bool Accepts() const noexcept { return accepting_.load(std::memory_order_relaxed); }
  // False when the threads have ended meanwhile.
  [[nodiscard]] bool Append(QueuedEventPtr event) noexcept;
  void Append(QueuedChange change);
  [[nodiscard]] bool TellHere() noexcept;
  void Drain(ZnHandle database) noexcept;
  [[nodiscard]] bool WaitForDelivery(u32 timeoutMs) noexcept;
  [[nodiscard]] u64 ChangesUnderWay() const noexcept {
    return changesUnderWay_.load(std::memory_order_acquire);
  }

 private:
  enum class State { kStopped, kRunning, kStopping };

  void RunRaise() noexcept;
  void RunChange() noexcept;
  // Waits for a batch; false at the stop, with what is queued left where it is.
  [[nodiscard]] bool TakeEvents(EventList* batch) noexcept;
  void DeliverBatch(EventList& batch) noexcept;
  // Waits for changes and takes them all; false at the stop. `hasTold`: the ones before are done.
  [[nodiscard]] bool TakeChanges(std::vector<QueuedChange>* batch, bool hasTold) noexcept;
  void TellBatch(std::vector<QueuedChange>* batch) noexcept;
  [[nodiscard]] bool MarkStopping(std::thread* raise, std::thread* change) noexcept;

  std::atomic<bool> accepting_ = false;
  Mutex mutex_;
  Condition eventQueued_;
  Condition changeQueued_;
  Condition batchDone_;
  Condition stopped_;
  State state_ ZN_GUARDED_BY(mutex_) = State::kStopped;
  u64 starts_ ZN_GUARDED_BY(mutex_) = 0;
  EventList events_ ZN_GUARDED_BY(mutex_);
  bool raiseSleeps_ ZN_GUARDED_BY(mutex_) = false;
  bool inBatch_ ZN_GUARDED_BY(mutex_) = false;
  u64 batches_ ZN_GUARDED_BY(mutex_) = 0;  // done ones
  std::vector<QueuedChange> changes_ ZN_GUARDED_BY(mutex_);
  std::atomic<u64> changesUnderWay_ = 0;
  bool changeSleeps_ ZN_GUARDED_BY(mutex_) = false;
  bool isTelling_ ZN_GUARDED_BY(mutex_) = false;  // one thread at a time, so that the order holds
  std::vector<QueuedChange> toldHere_;            // of a thread in TellHere
  u32 parameter_ = 0;                             // written before the threads start
  Delivery delivery_;                             // of the raise thread
  // The batch and the event that the raise thread works on; touched by that thread alone.
  EventList* batch_ = nullptr;
  QueuedEvent* current_ = nullptr;
  std::thread raise_ ZN_GUARDED_BY(mutex_);
  std::thread change_ ZN_GUARDED_BY(mutex_);
};

// Never destroyed: a program may end without stopping the threads.
EventThreads& Threads() noexcept {
  static EventThreads& threads = *new EventThreads;
  return threads;
}

thread_local bool onRaiseThread = false;
thread_local bool onChangeThread = false;  // or on one that tells changes in its place
thread_local bool queuesQuietly = false;

bool EventThreads::Start(u32 parameter) {
  for (;;) {
    {
      const MutexLock lock(mutex_);
      if (state_ == State::kRunning) return true;
      if (state_ == State::kStopped) break;
    }
    if (onRaiseThread || onChangeThread) return false;
    Stop();
  }
  try {
    const MutexLock lock(mutex_);
    parameter_ = parameter;
    state_ = State::kRunning;
    ++starts_;
    accepting_.store(true, std::memory_order_relaxed);
    raise_ = std::thread([this] { RunRaise(); });
    change_ = std::thread([this] { RunChange(); });
    return true;
  } catch (...) {  // no thread to be had, or no memory for one
    Stop();
    return false;
  }
}

// Marks the stop and takes the threads over; false when there is nothing to join or another thread
// does it, which is waited for.
bool EventThreads::MarkStopping(std::thread* raise, std::thread* change) noexcept {
  const MutexLock lock(mutex_);
  if (state_ == State::kStopped) return false;
  const bool isTaken = state_ == State::kStopping && !raise_.joinable();
  state_ = State::kStopping;
  eventQueued_.NotifyAll();
  changeQueued_.NotifyAll();
  if (onRaiseThread || onChangeThread) return false;
  const u64 start = starts_;
  while (isTaken && state_ != State::kStopped && starts_ == start) stopped_.Wait(mutex_);
  if (isTaken) return false;
  *raise = std::move(raise_);
  *change = std::move(change_);
  return true;
}

void EventThreads::Stop() noexcept {
  const BusRelease release;
  std::thread raise;
  std::thread change;
  if (!MarkStopping(&raise, &change)) return;
  if (raise.joinable()) raise.join();
  if (change.joinable()) change.join();
  EventList events;
  std::vector<QueuedChange> changes;
  const MutexLock lock(mutex_);
  while (isTelling_) stopped_.Wait(mutex_);
  accepting_.store(false, std::memory_order_relaxed);
  events.Swap(events_);
  changes.swap(changes_);
  changesUnderWay_.fetch_sub(changes.size(), std::memory_order_release);
  state_ = State::kStopped;
  stopped_.NotifyAll();
}

bool EventThreads::Append(QueuedEventPtr event) noexcept {
  bool wake = false;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::kStopped) return false;
    events_.Append(std::move(event));
    wake = std::exchange(raiseSleeps_, false);
  }
  if (wake) eventQueued_.NotifyOne();
  return true;
}

void EventThreads::Append(QueuedChange change) {
  bool wake = false;
  {
    const MutexLock lock(mutex_);
    if (state_ == State::kStopped) return;
    changes_.push_back(std::move(change));
    changesUnderWay_.fetch_add(1, std::memory_order_relaxed);
    // Whoever tells changes looks again before it ends.
    wake = !queuesQuietly && !isTelling_ && std::exchange(changeSleeps_, false);
  }
  if (wake) changeQueued_.NotifyOne();
}

void EventThreads::Drain(ZnHandle database) noexcept {
  EventList removed;
  u64 target = 0;
  {
    const MutexLock lock(mutex_);
    events_.MoveEventsOf(database, &removed);
    if (!inBatch_) return;
    target = batches_ + 1;
  }
  if (onRaiseThread) {
    // A receiver destroys the database: the batch cannot be waited for, so what is left of it for
    // this database goes to nobody.
    current_->isWithdrawn = true;
    batch_->WithdrawEventsOf(database);
    return;
  }
  const BusRelease release;
  const MutexLock lock(mutex_);
  while (batches_ < target) batchDone_.Wait(mutex_);
}

bool EventThreads::WaitForDelivery(u32 timeoutMs) noexcept {
  if (onRaiseThread) return true;
  const BusRelease release;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  const MutexLock lock(mutex_);
  // The batch under way and the one that is to come.
  const u64 target = batches_ + (inBatch_ ? 1 : 0) + (events_.IsEmpty() ? 0 : 1);
  while (state_ == State::kRunning && batches_ < target) {
    if (!batchDone_.WaitUntil(mutex_, limit)) return batches_ >= target;
  }
  return true;
}

bool EventThreads::TakeEvents(EventList* batch) noexcept {
  const MutexLock lock(mutex_);
  if (std::exchange(inBatch_, false)) {
    ++batches_;
    batchDone_.NotifyAll();
  }
  while (events_.IsEmpty() && state_ == State::kRunning) {
    raiseSleeps_ = true;
    eventQueued_.Wait(mutex_);
  }
  raiseSleeps_ = false;
  if (state_ != State::kRunning) return false;
  batch->Swap(events_);
  inBatch_ = true;
  return true;
}

void EventThreads::DeliverBatch(EventList& batch) noexcept {
  batch_ = &batch;
  while (const QueuedEventPtr event = batch.TakeFirst()) {
    if (event->isWithdrawn) continue;
    current_ = event.get();
    try {
      delivery_.Deliver(*event, parameter_);
    } catch (
        ...) {  // out of memory, or a callback that throws: the event is lost, the thread stays
    }
  }
  current_ = nullptr;
  batch_ = nullptr;
}

void EventThreads::RunRaise() noexcept {
  onRaiseThread = true;
  EventList batch;
  while (TakeEvents(&batch)) DeliverBatch(batch);
}

// What came in while a batch was told is told too; a stop is seen behind it.
bool EventThreads::TakeChanges(std::vector<QueuedChange>* batch, bool hasTold) noexcept {
  const MutexLock lock(mutex_);
  if (hasTold) isTelling_ = false;
  if (!hasTold || changes_.empty()) {
    while ((changes_.empty() || isTelling_) && state_ == State::kRunning) {
      changeSleeps_ = true;
      changeQueued_.Wait(mutex_);
    }
    changeSleeps_ = false;
    if (state_ != State::kRunning) return false;
  }
  batch->swap(changes_);
  isTelling_ = true;
  return true;
}

void EventThreads::TellBatch(std::vector<QueuedChange>* batch) noexcept {
  for (QueuedChange& item : *batch) {
    Tell(item);
    changesUnderWay_.fetch_sub(1, std::memory_order_release);
  }
  batch->clear();
}

void EventThreads::RunChange() noexcept {
  onChangeThread = true;
  std::vector<QueuedChange> batch;
  bool hasTold = false;
  while (TakeChanges(&batch, hasTold)) {
    TellBatch(&batch);
    hasTold = true;
  }
}

bool EventThreads::TellHere() noexcept {
  {
    const MutexLock lock(mutex_);
    if (isTelling_ || onChangeThread || state_ != State::kRunning) return false;
    if (changes_.empty()) return true;
    toldHere_.swap(changes_);
    isTelling_ = true;
  }
  onChangeThread = true;
  TellBatch(&toldHere_);
  onChangeThread = false;
  bool wake = false;
  {
    const MutexLock lock(mutex_);
    isTelling_ = false;
    wake = !changes_.empty() && std::exchange(changeSleeps_, false);
    if (state_ != State::kRunning) stopped_.NotifyAll();
  }
  if (wake) changeQueued_.NotifyOne();
  return true;
}

u32 Queue(QueuedEventPtr event) noexcept {
  if (!IsRaisableTopic(event->Topic())) return ZNE_EVENT_STRING_INVALID;
  return Threads().Append(std::move(event)) ? ZN_OK : ZNW_SERVICE_UNAVAILABLE;
}

}  // namespace

bool StartEventThreads(u32 parameter) {
  return Threads().Start(parameter);
}

void StopEventThreads() noexcept {
  Threads().Stop();
}

bool EventThreadsRunning() noexcept {
  return Threads().Accepts();
}

u32 RaiseEvent(Database& database, ZnHandle provider, std::string_view topic,
               const PropertySet& data, u32 flags) {
  AssertBusLocked();
  if (!Threads().Accepts()) return ZNW_SERVICE_UNAVAILABLE;
  if (provider != nullptr && !IsValidHandle(provider, HANDLE_PROVIDER)) return ZNE_UNEXPECTED;
  if (!IsRaisableTopic(topic)) return ZNE_EVENT_STRING_INVALID;
  QueuedEventPtr event = MakeRaisedEvent(database.Handle(), provider, topic, flags);
  if (event == nullptr) return ZNE_OUT_OF_MEMORY;
  event->record.raised.data = WrapPropertySet(PropertySet(data));
  if (event->record.raised.data == nullptr) return ZNE_OUT_OF_MEMORY;
  return Threads().Append(std::move(event)) ? ZN_OK : ZNW_SERVICE_UNAVAILABLE;
}

u32 RaiseReceivedEvent(Database& database, ZnHandle provider, std::string_view topic,
                       PropertySet&& data, u32 flags) {
  AssertBusLocked();
  if (!Threads().Accepts()) return ZNW_SERVICE_UNAVAILABLE;
  if (!IsRaisableTopic(topic)) return ZNE_EVENT_STRING_INVALID;
  const u32 kept = data.IsEmpty() ? flags & ~EVENT_OWNS_DATA : flags | EVENT_OWNS_DATA;
  QueuedEventPtr event = MakeRaisedEvent(database.Handle(), provider, topic, kept);
  if (event == nullptr) return ZNE_OUT_OF_MEMORY;
  if (!data.IsEmpty()) {
    event->record.raised.data = WrapPropertySet(std::move(data));
    if (event->record.raised.data == nullptr) return ZNE_OUT_OF_MEMORY;
  }
  return Threads().Append(std::move(event)) ? ZN_OK : ZNW_SERVICE_UNAVAILABLE;
}

void SendLocalNotificationEvent(Database& database, std::string_view topic, const InternedId& id,
                                const String& typeName, bool plain,
                                std::unique_ptr<PropertySet> data) noexcept {
  AssertBusLocked();
  QueuedEventPtr event = MakeChangeEvent(database.Handle(), topic, id.Value(), typeName.Text(),
                                         plain, std::move(data));
  if (event == nullptr) {
    ZN_TRACE(6, "Memory allocation failure in SendLocalNotificationEvent()\n");
    return;
  }
  // Contract: a change that cannot be queued (no threads, odd characters in its type's name) is
  // lost and concerns nobody.
  static_cast<void>(Queue(std::move(event)));
}

void QueueChange(Database& database, PropertySet&& change) noexcept {
  AssertBusLocked();
  const ZnChangeCallback callback = database.Callbacks().changeCallback;
  if (callback == nullptr) return;
  try {
    Threads().Append({callback, std::move(change)});
  } catch (const std::bad_alloc&) {  // a change that cannot be told is lost
  }
}

bool WaitForDelivery(u32 timeoutMs) noexcept {
  return Threads().WaitForDelivery(timeoutMs);
}

u64 ChangesUnderWay() noexcept {
  return Threads().ChangesUnderWay();
}

bool TellChangesHere() noexcept {
  return Threads().TellHere();
}

QuietQueueing::QuietQueueing(bool isQuiet) noexcept
    : before_(std::exchange(queuesQuietly, isQuiet)) {}

QuietQueueing::~QuietQueueing() {
  queuesQuietly = before_;
}

void DrainDatabaseEvents(Database& database) noexcept {
  Threads().Drain(database.Handle());
}

}  // namespace zn
