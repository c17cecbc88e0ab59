// One event on its way through the raise queue: the record that receivers see, with all its text
// behind it in one block. Made by whoever raises, freed by the raise thread.
//
//   QueuedEvent | type name and NUL (changes only) | topic and NUL
//
// The record is the last field, so the type name lies directly behind it.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "framework/common/znguid/znguid.h"
#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

struct QueuedEvent {
  // Both forms begin with the same five fields; `size` tells them apart.
  union Form {
    EventRecord raised;
    LocalEventRecord change;
  };

  QueuedEvent* next;
  u32 topicLength;
  bool isWithdrawn;  // its database is going: deliver it to nobody any more
  Form record;

  [[nodiscard]] const EventRecord& Record() const noexcept { return record.raised; }
  [[nodiscard]] std::string_view Topic() const noexcept {
    return {record.raised.topic, topicLength};
  }
};
static_assert(offsetof(QueuedEvent, record) + sizeof(LocalEventRecord) == sizeof(QueuedEvent),
              "the type name must lie directly behind the record");

// Frees the block and the property set that the record owns, if a receiver has not destroyed it.
struct QueuedEventDeleter {
  void operator()(QueuedEvent* event) const noexcept;
};
using QueuedEventPtr = std::unique_ptr<QueuedEvent, QueuedEventDeleter>;

// A raised event without its set. Null when memory is short.
[[nodiscard]] QueuedEventPtr MakeRaisedEvent(ZnHandle database, ZnHandle provider,
                                             std::string_view topic, u32 flags) noexcept;
// A change; `data` may be null. `plain` leaves id and type name out. Null when memory is short.
[[nodiscard]] QueuedEventPtr MakeChangeEvent(ZnHandle database, std::string_view topic,
                                             const GUID& id, std::string_view typeName, bool plain,
                                             std::unique_ptr<PropertySet> data) noexcept;

// A queue of events, linked through the events themselves.
class EventList {
 public:
  EventList() = default;
  ~EventList() { Clear(); }
  EventList(const EventList&) = delete;
  EventList& operator=(const EventList&) = delete;

  [[nodiscard]] bool IsEmpty() const noexcept { return first_ == nullptr; }
  void Append(QueuedEventPtr event) noexcept;
  [[nodiscard]] QueuedEventPtr TakeFirst() noexcept;
  void Swap(EventList& other) noexcept;
  void Clear() noexcept;
  // Moves the events of that database out, the others keep their order.
  void MoveEventsOf(ZnHandle database, EventList* out) noexcept;
  void WithdrawEventsOf(ZnHandle database) noexcept;

 private:
  QueuedEvent* first_ = nullptr;
  QueuedEvent* last_ = nullptr;
};

}  // namespace zn
