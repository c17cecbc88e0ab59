// The table of clients: see the header.
#include "service/common/clienttable.h"

#include <utility>

#include "support/common/fastlock.h"

namespace zn {

void ConnectedClients::Add() noexcept {
  AssertBusLocked();
  count_.fetch_add(1, std::memory_order_relaxed);
}

void ConnectedClients::Remove() noexcept {
  AssertBusLocked();
  if (Count() != 0) count_.fetch_sub(1, std::memory_order_relaxed);
}

void ClientTable::Add(ClientPtr client) {
  const MutexLock lock(mutex_);
  const u64 sequence = nextSequence_++;
  inOrder_.emplace(sequence, client);
  try {
    // The newest of a key counts, should a connection id ever come twice.
    Slot& slot = byKey_[client->SessionKey()];
    if (slot.client != nullptr) inOrder_.erase(slot.sequence);
    slot = {std::move(client), sequence};
  } catch (...) {
    inOrder_.erase(sequence);
    throw;
  }
}

ClientPtr ClientTable::Find(u32 address, u32 connectionId) {
  const MutexLock lock(mutex_);
  const auto found = byKey_.find(static_cast<u64>(address) << 32 | connectionId);
  return found == byKey_.end() ? nullptr : found->second.client;
}

ClientPtr ClientTable::Remove(u32 address, u32 connectionId) {
  const MutexLock lock(mutex_);
  const auto found = byKey_.find(static_cast<u64>(address) << 32 | connectionId);
  if (found == byKey_.end()) return nullptr;
  ClientPtr client = std::move(found->second.client);
  inOrder_.erase(found->second.sequence);
  byKey_.erase(found);
  listeners_.reset();
  return client;
}

size_t ClientTable::Count() {
  const MutexLock lock(mutex_);
  return byKey_.size();
}

ClientList ClientTable::Listeners(size_t* count) {
  const MutexLock lock(mutex_);
  *count = byKey_.size();
  if (listeners_ == nullptr) {
    auto listeners = std::make_shared<std::vector<ClientPtr>>();
    for (const auto& [sequence, client] : inOrder_) {
      if (client->HearsNotifications()) listeners->push_back(client);
    }
    listeners_ = std::move(listeners);
  }
  return listeners_;
}

void ClientTable::StateChanged() {
  const MutexLock lock(mutex_);
  listeners_.reset();
}

void ClientTable::Clear() {
  const MutexLock lock(mutex_);
  byKey_.clear();
  inOrder_.clear();
  listeners_.reset();
}

}  // namespace zn
