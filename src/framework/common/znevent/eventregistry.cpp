// The tree of registrations. A node is an ordered map from token to entry; an entry is a branch
// with the next node, or a leaf with a provider. A leaf lies under the key
// "mira:provider:{id}" in the map of the node its pattern ends at, so a provider has one leaf at
// most there, whatever the number of handles on it.
#include "framework/common/znevent/eventregistry.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/provider.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/status.h"
#include "zn/platform.h"

namespace zn {

namespace {
constexpr std::string_view kLeafPrefix = "mira:provider:";
}  // namespace

class EventNode {
 public:
  using Map = std::map<std::string, std::shared_ptr<EventEntry>, std::less<>>;

  [[nodiscard]] EventEntry* Find(std::string_view key) const noexcept {
    const auto found = entries.find(key);
    return found == entries.end() ? nullptr : found->second.get();
  }

  void AppendLeaves(std::vector<ZnHandle>* out) const;

  Map entries;
  u32 leafCount = 0;
};

struct EventEntry {
  std::unique_ptr<EventNode> child;  // of a branch; null in a leaf
  EventNode* home = nullptr;         // of a leaf: the node it lies in; null once withdrawn
  ZnHandle provider = nullptr;
  std::string key;

  [[nodiscard]] bool IsLeaf() const noexcept { return child == nullptr; }
  // Where a walk that meets this entry goes on.
  // Contract: a token that spells a leaf's key leads back into the leaf's own node.
  [[nodiscard]] EventNode* Link() const noexcept { return IsLeaf() ? home : child.get(); }
};

// What a registration handle stands for. The leaf may go before it.
struct EventRegistration {
  EventRegistry* owner;
  ZnHandle handle;
  std::weak_ptr<EventEntry> entry;
};

// Leaves sort together, right behind their common prefix.
void EventNode::AppendLeaves(std::vector<ZnHandle>* out) const {
  if (leafCount == 0) return;
  for (auto it = entries.lower_bound(kLeafPrefix);
       it != entries.end() && it->first.starts_with(kLeafPrefix); ++it) {
    if (it->second->IsLeaf()) out->push_back(it->second->provider);
  }
}

namespace {

// Every registry of the process, because a provider may register in a database that is not its own.
// Under FAST_LOCK.
std::vector<EventRegistry*>& Registries() noexcept {
  static auto& registries = *new std::vector<EventRegistry*>;
  return registries;
}

std::string LeafKey(const Provider& provider) {
  std::string key(kLeafPrefix);
  key.resize(kLeafPrefix.size() + kGuidTextLength);
  FormatGuid(provider.GetId().Value(), key.data() + kLeafPrefix.size());
  return key;
}

// The tokens of a pattern without the stars at its end; false when one of them is not legal.
bool SplitPattern(std::string_view pattern, std::vector<std::string_view>* tokens) {
  *tokens = SplitTopic(pattern);
  if (!std::all_of(tokens->begin(), tokens->end(), IsPatternToken)) return false;
  while (!tokens->empty() && tokens->back() == "*") tokens->pop_back();
  return true;
}

// The node at the end of the path, made where it is missing.
EventNode* MakePath(EventNode* node, const std::vector<std::string_view>& tokens) {
  for (const std::string_view token : tokens) {
    EventEntry* entry = node->Find(token);
    if (entry == nullptr) {
      auto branch = std::make_shared<EventEntry>();
      branch->child = std::make_unique<EventNode>();
      entry = node->entries.emplace(token, std::move(branch)).first->second.get();
    }
    node = entry->Link();
  }
  return node;
}

// Takes a tree apart from the top, so that no destructor nests as deep as the tree.
void Dismantle(std::unique_ptr<EventNode> root) noexcept {
  std::vector<std::unique_ptr<EventNode>> open;
  open.push_back(std::move(root));
  while (!open.empty()) {
    const std::unique_ptr<EventNode> node = std::move(open.back());
    open.pop_back();
    for (auto& [key, entry] : node->entries) {
      if (!entry->IsLeaf()) open.push_back(std::move(entry->child));
    }
  }
}

void DumpNode(const EventNode& node, int depth) {
  for (const auto& [key, entry] : node.entries) {
    if (entry->IsLeaf()) {
      std::printf("%*c (L)%s\n", depth * 4, ' ', entry->key.c_str());
      continue;
    }
    std::printf("%*c (N)%s\n", depth * 4, ' ', key.c_str());
    DumpNode(*entry->child, depth + 1);
  }
}

}  // namespace

EventRegistry::EventRegistry() : root_(std::make_unique<EventNode>()) {
  const BusLock lock;
  Registries().push_back(this);
}

EventRegistry::~EventRegistry() {
  const BusLock lock;
  std::erase(Registries(), this);
  for (const WaitEntry& wait : waits_) static_cast<void>(ZnCloseEvent(wait.event));
  for (const auto& registration : registrations_) {
    static_cast<void>(FreeHandle(registration->handle, HANDLE_EVENT_REGISTRATION));
  }
  Dismantle(std::move(root_));
}

u32 EventRegistry::NewHandle(const std::shared_ptr<EventEntry>& entry, ZnHandle* out) {
  registrations_.push_back(
      std::make_unique<EventRegistration>(EventRegistration{this, nullptr, entry}));
  EventRegistration* registration = registrations_.back().get();
  registration->handle = AllocateHandle(HANDLE_EVENT_REGISTRATION, registration);
  if (registration->handle == nullptr) {
    registrations_.pop_back();
    return ZNE_OUT_OF_MEMORY;
  }
  *out = registration->handle;
  return ZN_OK;
}

u32 EventRegistry::Add(Provider& provider, std::string_view pattern, ZnHandle* registration) {
  AssertBusLocked();
  std::vector<std::string_view> tokens;
  if (!SplitPattern(pattern, &tokens)) return ZNE_EVENT_STRING_INVALID;
  EventNode* node = MakePath(root_.get(), tokens);
  std::string key = LeafKey(provider);
  auto found = node->entries.find(key);
  const bool isNew = found == node->entries.end();
  if (isNew) {
    auto leaf = std::make_shared<EventEntry>();
    leaf->home = node;
    leaf->provider = provider.Handle();
    leaf->key = key;
    found = node->entries.emplace(std::move(key), std::move(leaf)).first;
    ++node->leafCount;
    ++leafCount_;
  }
  u32 status = ZNE_OUT_OF_MEMORY;
  try {
    status = NewHandle(found->second, registration);
  } catch (const std::bad_alloc&) {
  }
  if (!ZN_FAILED(status) || !isNew) return status;
  // A leaf that nobody could ever remove.
  node->entries.erase(found);
  --node->leafCount;
  --leafCount_;
  return status;
}

u32 EventRegistry::Remove(ZnHandle handle) {
  AssertBusLocked();
  if (!IsValidHandle(handle, HANDLE_EVENT_REGISTRATION)) return ZNE_INVALID_ARGUMENTS;
  auto* registration = HandleThing<EventRegistration>(handle);
  EventRegistry& owner = *registration->owner;
  // Contract: the handle of a leaf that another handle removed stays allocated.
  const std::shared_ptr<EventEntry> entry = registration->entry.lock();
  if (entry == nullptr) return ZNE_UNEXPECTED;
  if (!entry->IsLeaf()) return ZNE_INVALID_ARGUMENTS;
  if (entry->home != nullptr) {
    --entry->home->leafCount;
    --owner.leafCount_;
    entry->home->entries.erase(entry->key);
  } else {
    std::erase(owner.withdrawn_, entry);
  }
  static_cast<void>(FreeHandle(handle, HANDLE_EVENT_REGISTRATION));
  std::erase_if(owner.registrations_, [=](const auto& r) { return r.get() == registration; });
  return ZN_OK;
}

void EventRegistry::RemoveProvider(const Provider& provider) noexcept {
  AssertBusLocked();
  for (EventRegistry* registry : Registries()) registry->WithdrawLeavesOf(provider.Handle());
}

// Every leaf has a registration, so the tree is not walked.
void EventRegistry::WithdrawLeavesOf(ZnHandle provider) {
  ++providerRemovals_;
  for (const auto& registration : registrations_) {
    const std::shared_ptr<EventEntry> entry = registration->entry.lock();
    if (entry == nullptr || !entry->IsLeaf() || entry->provider != provider) continue;
    EventNode* const home = std::exchange(entry->home, nullptr);
    if (home == nullptr) continue;
    --home->leafCount;
    --leafCount_;
    home->entries.erase(entry->key);
    try {
      withdrawn_.push_back(entry);
    } catch (
        const std::bad_alloc&) {  // its handles then answer as those of a leaf that was removed
    }
  }
}

u32 EventRegistry::Collect(Database& database, std::string_view topic,
                           std::vector<ZnHandle>* out) const {
  AssertBusLocked();
  out->clear();
  const TopicTokens tokens(topic);
  if (std::find(tokens.begin(), tokens.end(), "*") != tokens.end()) return ZNE_EVENT_NOT_FOUND;
  frontier_.assign(1, root_.get());
  for (size_t depth = 0;; ++depth) {
    for (const EventNode* node : frontier_) node->AppendLeaves(out);
    if (depth == tokens.Count()) break;
    next_.clear();
    for (const EventNode* node : frontier_) Descend(database, tokens, depth, *node);
    if (next_.empty()) break;
    // Only the way through a leaf's key can lead to one node twice.
    if (tokens[depth].starts_with(kLeafPrefix)) {
      std::sort(next_.begin(), next_.end());
      next_.erase(std::unique(next_.begin(), next_.end()), next_.end());
    }
    frontier_.swap(next_);
  }
  std::sort(out->begin(), out->end());
  out->erase(std::unique(out->begin(), out->end()), out->end());
  return ZN_OK;
}

void EventRegistry::Descend(Database& database, const TopicTokens& tokens, size_t depth,
                            const EventNode& node) const {
  if (depth == kTypeTokenIndex && tokens.IsObjectTopic()) {
    DescendByType(database, tokens[kTypeTokenIndex], node);
    return;
  }
  if (const EventEntry* entry = node.Find(tokens[depth])) next_.push_back(entry->Link());
  if (const EventEntry* entry = node.Find("*")) next_.push_back(entry->Link());
}

// Every branch whose key is the type or one of its ancestors. There are fewer of these than there
// may be branches, so they are looked up and the node is not scanned.
void EventRegistry::DescendByType(Database& database, std::string_view typeName,
                                  const EventNode& node) const {
  const auto enter = [this, &node](std::string_view key) {
    const EventEntry* entry = node.Find(key);
    if (entry != nullptr && !entry->IsLeaf()) next_.push_back(entry->child.get());
  };
  enter("*");
  const TypeObject* type = database.Types().FindType(typeName);
  if (type == nullptr) return;
  lineage_.assign(1, type);
  for (size_t i = 0; i < lineage_.size(); ++i) {
    const std::string_view name = lineage_[i]->Name().Text();
    enter(name);
    if (name == kRootTypeName) enter("");  // the empty name is the root type's too
    for (const TypeObject* base : lineage_[i]->Supertypes()) {
      const bool known = std::find(lineage_.begin(), lineage_.end(), base) != lineage_.end();
      if (!known) lineage_.push_back(base);
    }
  }
}

void EventRegistry::Dump() const {
  AssertBusLocked();
  DumpNode(*root_, 0);
}

}  // namespace zn
