// Who hears a raised topic in one database: the tree of registrations and the wait events. Embedded
// in the Database; every call runs under FAST_LOCK. Queues and threads: eventqueue.h.
//
// The tree has one node per token of a pattern; leaves are provider registrations, one per provider
// and node. Trailing "*" tokens of a pattern are dropped, since a pattern matches every topic that
// extends it. Branches that become empty stay: the tree only grows.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn {

class Database;
class Provider;
class EventNode;
class TopicTokens;
class TypeObject;
struct EventEntry;
struct EventRegistration;

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
  // Every registration of a provider that goes, here and in the other databases of the process. A
  // registration handle of it may still be given to Remove, which then succeeds.
  void RemoveProvider(const Provider& provider) noexcept;
  // Counts up when a provider goes: what Collect found before may hold a handle too many.
  [[nodiscard]] u64 ProviderRemovals() const noexcept { return providerRemovals_; }
  // Handles of the providers that hear the topic, each once, in handle order. ZNE_EVENT_NOT_FOUND
  // for a topic with a
  // "*" token, which nobody hears; then and on success `out` is replaced.
  [[nodiscard]] u32 Collect(Database& database, std::string_view topic,
                            std::vector<ZnHandle>* out) const;
  void Dump() const;  // to the standard output, for diagnosis

  [[nodiscard]] std::vector<WaitEntry>& Waits() noexcept { return waits_; }

 private:
  // The nodes that a walk stands on at one depth.
  using Frontier = std::vector<const EventNode*>;

  [[nodiscard]] u32 NewHandle(const std::shared_ptr<EventEntry>& entry, ZnHandle* out);
  void WithdrawLeavesOf(ZnHandle provider);
  void Descend(Database& database, const TopicTokens& tokens, size_t depth,
               const EventNode& node) const;
  void DescendByType(Database& database, std::string_view typeName, const EventNode& node) const;

  std::unique_ptr<EventNode> root_;
  size_t leafCount_ = 0;
  u64 providerRemovals_ = 0;
  std::vector<WaitEntry> waits_;
  std::vector<std::unique_ptr<EventRegistration>> registrations_;
  // Leaves of providers that went: no longer in the tree, kept for the handles on them.
  std::vector<std::shared_ptr<EventEntry>> withdrawn_;
  mutable Frontier frontier_;  // scratch of Collect
  mutable Frontier next_;
  mutable std::vector<const TypeObject*> lineage_;
};

}  // namespace zn
