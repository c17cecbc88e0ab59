// Who hears a raised topic in one database: the tree of registrations and the wait events. Embedded
// in the Database; every call runs under FAST_LOCK. Queues and threads: eventqueue.h.
//
// The tree has one node per token of a pattern; leaves are provider registrations, one per provider
// and node. Trailing "*" tokens of a pattern are dropped, since a pattern matches every topic that
// extends it.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn {

class Database;
class Provider;
class EventNode;

// A caller that waits: the event it sleeps on and the test that wakes it.
struct WaitEntry {
  ZnHandle event;
  bool (*predicate)(const EventRecord*, void*);
  void* context;
};

class EventRegistry {
 public:
  EventRegistry();
  ~EventRegistry();
  EventRegistry(const EventRegistry&) = delete;
  EventRegistry& operator=(const EventRegistry&) = delete;

  // Whether anything could hear an event: one load, asked before a topic is built.
  [[nodiscard]] bool HasListeners() const noexcept { return leafCount_ != 0 || !waits_.empty(); }

  // ZNE_EVENT_STRING_INVALID for a bad pattern, with the tree as it was.
  [[nodiscard]] u32 Add(Provider& provider, std::string_view pattern, ZnHandle* registration);
  // ZNE_INVALID_ARGUMENTS for a bad handle, ZNE_UNEXPECTED for a leaf that is gone.
  [[nodiscard]] u32 Remove(ZnHandle registration);
  // Every registration of a provider that goes.
  void RemoveProvider(const Provider& provider) noexcept;
  // Handles of the providers that hear the topic, each once. ZNE_EVENT_NOT_FOUND for a topic with a
  // "*" token, which nobody hears.
  [[nodiscard]] u32 Collect(Database& database, std::string_view topic,
                            std::vector<ZnHandle>* out) const;
  void Dump() const;  // to the standard output, for diagnosis

  [[nodiscard]] std::vector<WaitEntry>& Waits() noexcept { return waits_; }

 private:
  std::unique_ptr<EventNode> root_;
  size_t leafCount_ = 0;
  std::vector<WaitEntry> waits_;
};

}  // namespace zn
