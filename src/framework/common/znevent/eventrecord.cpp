// Making and freeing the blocks of queued events.
#include "framework/common/znevent/eventrecord.h"

#include <cstring>
#include <new>
#include <utility>

#include "framework/common/znpropset/property2.h"

namespace zn {

namespace {

// The size word of a record has 32 bits, which no text that was ever read comes near.
constexpr size_t kMaxBlock = 0x7FFFFFFF;

QueuedEvent* AllocateEvent(size_t typeRoom, std::string_view topic) noexcept {
  if (topic.size() >= kMaxBlock || typeRoom >= kMaxBlock - topic.size()) return nullptr;
  void* block = ::operator new(sizeof(QueuedEvent) + typeRoom + topic.size() + 1, std::nothrow);
  if (block == nullptr) return nullptr;
  auto* event = new (block) QueuedEvent{};
  event->topicLength = static_cast<u32>(topic.size());
  return event;
}

const char* CopyText(char* at, std::string_view text) noexcept {
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  at[text.size()] = '\0';
  return at;
}

// The set that the record owns, or null.
ZnHandle OwnedSet(const QueuedEvent& event) noexcept {
  const EventRecord& record = event.Record();
  if (record.size == sizeof(EventRecord)) {
    return (record.flags & EVENT_OWNS_DATA) != 0 ? record.data : nullptr;
  }
  return (record.flags & EVENT_HAS_DATA) != 0 ? event.record.change.data : nullptr;
}

}  // namespace

void QueuedEventDeleter::operator()(QueuedEvent* event) const noexcept {
  const ZnHandle set = OwnedSet(*event);
  // A receiver that has destroyed it already is tolerated.
  if (set != nullptr) static_cast<void>(DestroyPropertySet(set));
  ::operator delete(event);
}

QueuedEventPtr MakeRaisedEvent(ZnHandle database, ZnHandle provider, std::string_view topic,
                               u32 flags) noexcept {
  QueuedEvent* event = AllocateEvent(0, topic);
  if (event == nullptr) return nullptr;
  const char* text = CopyText(reinterpret_cast<char*>(event + 1), topic);
  event->record.raised = {sizeof(EventRecord), flags, text, provider, database, nullptr};
  return QueuedEventPtr(event);
}

QueuedEventPtr MakeChangeEvent(ZnHandle database, std::string_view topic, const GUID& id,
                               std::string_view typeName, bool plain,
                               std::unique_ptr<PropertySet> data) noexcept {
  const size_t typeRoom = plain ? 0 : typeName.size() + 1;
  QueuedEvent* event = AllocateEvent(typeRoom, topic);
  if (event == nullptr) return nullptr;
  QueuedEventPtr owner(event);
  char* const text = reinterpret_cast<char*>(event + 1);
  LocalEventRecord& record = event->record.change;
  record = {};
  record.size = static_cast<u32>(sizeof(LocalEventRecord) + typeRoom);
  record.flags = EVENT_LOCAL;
  record.topic = CopyText(text + typeRoom, topic);
  record.database = database;
  if (plain) return owner;
  record.objectId = id;
  record.typeName = CopyText(text, typeName);
  if (data == nullptr) return owner;
  record.data = WrapPropertySet(std::move(*data));
  if (record.data == nullptr) return nullptr;
  record.flags |= EVENT_HAS_DATA;
  return owner;
}

void EventList::Append(QueuedEventPtr event) noexcept {
  QueuedEvent* item = event.release();
  item->next = nullptr;
  (last_ == nullptr ? first_ : last_->next) = item;
  last_ = item;
}

QueuedEventPtr EventList::TakeFirst() noexcept {
  QueuedEventPtr event(first_);
  if (first_ != nullptr) first_ = first_->next;
  if (first_ == nullptr) last_ = nullptr;
  return event;
}

void EventList::Swap(EventList& other) noexcept {
  std::swap(first_, other.first_);
  std::swap(last_, other.last_);
}

void EventList::Clear() noexcept {
  while (!IsEmpty()) static_cast<void>(TakeFirst());
}

void EventList::MoveEventsOf(ZnHandle database, EventList* out) noexcept {
  EventList kept;
  while (QueuedEventPtr event = TakeFirst()) {
    EventList& target = event->Record().database == database ? *out : kept;
    target.Append(std::move(event));
  }
  Swap(kept);
}

void EventList::WithdrawEventsOf(ZnHandle database) noexcept {
  for (QueuedEvent* event = first_; event != nullptr; event = event->next) {
    if (event->Record().database == database) event->isWithdrawn = true;
  }
}

}  // namespace zn
