// The queue of notifications, the callbacks that fill it and the thread that empties it.
#include "service/common/notify.h"

#include <new>
#include <utility>

#include "framework/common/zncore/changerecord.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/pointers.h"
#include "support/common/trace.h"

namespace zn {

namespace {

// So many messages are worth a round of their own while more of them are made.
constexpr size_t kMany = 256;

// Null when memory is short.
[[nodiscard]] UclBuffer MarshalMessage(const PropertySet& set) {
  BinaryWriter stream;
  set.Marshal(stream);
  u32 length = 0;
  void* block = stream.Buffer().Take(&length);
  return UCLMakeBuffer(block, length);
}

// Whether the change is a marker, and whose. False ends the message.
// Contract: the bits that make a record suspect are those of nearly every change; a record that has
// them and no data is not sent.
[[nodiscard]] bool ReadServiceId(const PropertySet& change, u32 flags, u32* serviceId) {
  *serviceId = 0;
  if ((flags & kMarkerFlags) == 0) return true;
  PropertySet room;
  const PropertySet* data = wire::FindNestedSet(change, wire::kDataKey, &room);
  if (data == nullptr) return false;
  const Value* id = data->FindValue(wire::kChangeNotifyServiceIdKey, ZN_TYPE_UINT32);
  if (id != nullptr) *serviceId = id->AsUInt32();
  return true;
}

[[nodiscard]] PropertySet EventMessage(const EventRecord& event) {
  PropertySet set;
  set.Put(wire::kMessageKey, Value::UInt32(wire::kEventNotification));
  set.Put(wire::kFlagsKey, Value::UInt32(event.flags));
  set.Put(wire::kNotificationIdKey, Value::Text(std::string_view(event.topic)));
  const BusLock lock;
  ObjectId provider{};
  if (IsValidHandle(event.provider, HANDLE_PROVIDER)) {
    provider = HandleThing<Provider>(event.provider)->Guid();
  }
  set.Put(wire::kProviderIdKey, Value::Id(provider));
  // The form without a set of its own is another record behind the common fields.
  const bool hasData = (event.flags & EVENT_OWNS_DATA) != 0 && event.size == sizeof(EventRecord) &&
                       IsValidHandle(event.data, HANDLE_PROPSET);
  PropertySet data;
  if (hasData) data = *HandleThing<PropertySet>(event.data);
  set.Put(wire::kDataKey, Value::Set(std::move(data)));
  return set;
}

}  // namespace

bool NotificationSender::Start() noexcept {
  try {
    thread_ = std::thread([this] { Run(); });
    return true;
  } catch (...) {
    return false;
  }
}

void NotificationSender::Stop() noexcept {
  {
    const MutexLock lock(mutex_);
    stop_ = true;
  }
  wake_.NotifyAll();
  if (thread_.joinable()) thread_.join();
}

bool NotificationSender::ChangeNotify(const PropertySet& change, bool roundFollows) noexcept try {
  const Value* flags = change.FindValue(wire::kFlagsKey, ZN_TYPE_UINT32);
  if (flags == nullptr) {
    ZN_TRACE(6, "Flag is not set in change notification\n");
    return false;
  }
  PendingNotification item;
  if (!ReadServiceId(change, flags->AsUInt32(), &item.serviceId)) return false;
  const bool isMarker = item.serviceId != 0;
  if (!isMarker) {
    item.message = MarshalMessage(change);
    if (item.message == nullptr) return false;
  }
  if (traces_.Notifications()) ZN_TRACE(1, "ChangeNotify: sending notification");
  Append(std::move(item), roundFollows);
  return isMarker;
} catch (const std::bad_alloc&) {
  return false;
}

bool NotificationSender::EventNotify(const EventRecord& event) noexcept try {
  if (!IsGoodPointer(&event) || event.size < sizeof(EventRecord)) return false;
  PendingNotification item;
  item.message = MarshalMessage(EventMessage(event));
  if (item.message == nullptr) return false;
  if (traces_.Notifications()) ZN_TRACE(1, "EventNotify: sending event");
  Append(std::move(item), false);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

void NotificationSender::Append(PendingNotification item, bool roundFollows) noexcept {
  underWay_.fetch_add(1, std::memory_order_release);
  try {
    bool wakes = !roundFollows;
    {
      const MutexLock lock(mutex_);
      queue_.push_back(std::move(item));
      wakes = wakes || queue_.size() % kMany == 0;
    }
    if (wakes) wake_.NotifyOne();
  } catch (const std::bad_alloc&) {  // lost
    underWay_.fetch_sub(1, std::memory_order_release);
  }
}

// Contract: the stop is looked at before the wait, so that the wake of a stop still sends what is
// queued; what comes after that is not sent.
bool NotificationSender::WaitForWork() noexcept {
  const MutexLock lock(mutex_);
  while (queue_.empty() && !stop_) wake_.Wait(mutex_);
  return !stop_;
}

void NotificationSender::Run() noexcept {
  bool goesOn = true;
  while (goesOn) {
    goesOn = WaitForWork();
    RunRound();
  }
}

void NotificationSender::RunRound() noexcept {
  const MutexLock round(roundMutex_);
  {
    const MutexLock lock(mutex_);
    round_.swap(queue_);
  }
  if (round_.empty()) return;
  size_t clientCount = 0;
  try {
    const ClientList listeners = clients_.Listeners(&clientCount);
    if (traces_.Notifications()) {
      ZN_TRACE(1, "SendThread sending %d notifications to %d clients\n",
               static_cast<int>(round_.size()), static_cast<int>(clientCount));
    }
    messages_.clear();
    for (const PendingNotification& item : round_) {
      if (item.serviceId == 0) messages_.push_back(item.message);
    }
    Send(*listeners);
  } catch (const std::bad_alloc&) {  // the round is lost; nobody is to wait for it
  }
  // A marker answers for all that stood before it, so it may be raised behind the whole round.
  for (const PendingNotification& item : round_) {
    if (item.serviceId != 0) serviceIds_.RaiseEventOnServiceId(item.serviceId);
  }
  const size_t done = round_.size();
  messages_.clear();
  round_.clear();
  underWay_.fetch_sub(done, std::memory_order_release);
}

void NotificationSender::Send(const std::vector<ClientPtr>& listeners) {
  if (messages_.empty()) return;
  targets_.clear();
  for (const ClientPtr& client : listeners) {
    // It may have logged on again since the list was made.
    if (client->HearsNotifications()) targets_.push_back({client->address, client->connectionId});
  }
  if (targets_.empty()) return;
  transport_.SendRound(messages_, &targets_);
  for (const UclTarget& target : targets_) {
    if (ZN_FAILED(target.status)) ZN_TRACE(6, "SendThread: unable to send data to client");
  }
}

}  // namespace zn
