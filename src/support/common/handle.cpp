// The arena of handle records: a large reserved range that the system backs with zero pages as it
// is touched, a high-water mark, and a queue of freed records threaded through their second word.
#include "support/common/handle.h"

#include "support/common/platform.h"
#include "support/common/wordlock.h"

static_assert(sizeof(void*) != 8 || sizeof(ZnHandleRecord) == 16);

namespace zn {

HandleArenaBounds handleArena{};
std::atomic<u32> libraryAlive{1};

namespace {

// Room for 2^28 records; halved while the system refuses (an address-space limit may stand).
constexpr size_t kLargestArena = sizeof(void*) == 8 ? size_t{4} << 30 : size_t{64} << 20;
constexpr size_t kSmallestArena = size_t{1} << 20;

// So many freed records wait before the first of them is used again: a stale handle keeps reading
// as freed for a while, and the ring still fits a processor's first cache.
constexpr size_t kQuarantine = 1024;

struct FreeQueue {
  WordLock mutex;
  ZnHandleRecord* head ZN_GUARDED_BY(mutex) = nullptr;
  ZnHandleRecord* tail ZN_GUARDED_BY(mutex) = nullptr;
  size_t waiting ZN_GUARDED_BY(mutex) = 0;  // records in the queue
  size_t used ZN_GUARDED_BY(mutex) = 0;     // records ever handed out
};

// Nothing of it is ever destroyed: handles outlive every static.
constinit FreeQueue freeQueue;

bool ReserveArena() noexcept {
  for (size_t bytes = kLargestArena; bytes >= kSmallestArena; bytes /= 2) {
    void* memory = ReserveMemory(bytes);
    if (memory == nullptr) continue;
    handleArena.base.store(reinterpret_cast<std::uintptr_t>(memory), std::memory_order_relaxed);
    handleArena.bytes.store(bytes, std::memory_order_release);
    return true;
  }
  return false;
}

}  // namespace

ZnHandle AllocateHandle(u32 tag, void* thing) noexcept {
  FreeQueue& queue = freeQueue;
  const WordLockHold lock(queue.mutex);
  if (handleArena.base.load(std::memory_order_relaxed) == 0 && !ReserveArena()) return nullptr;
  const size_t limit = handleArena.bytes.load(std::memory_order_relaxed) / sizeof(ZnHandleRecord);
  ZnHandleRecord* record = nullptr;
  if (queue.waiting > kQuarantine || (queue.used == limit && queue.waiting > 0)) {
    record = queue.head;
    queue.head = HandleThing<ZnHandleRecord>(record);
    if (queue.head == nullptr) queue.tail = nullptr;
    --queue.waiting;
  } else {
    if (queue.used == limit) return nullptr;
    const auto base = handleArena.base.load(std::memory_order_relaxed);
    record = reinterpret_cast<ZnHandleRecord*>(base) + queue.used++;
  }
  record->thing.store(thing, std::memory_order_relaxed);
  record->tag.store(tag, std::memory_order_release);
  return record;
}

namespace {

void Recycle(ZnHandle handle) noexcept {
  FreeQueue& queue = freeQueue;
  const WordLockHold lock(queue.mutex);
  handle->thing.store(nullptr, std::memory_order_relaxed);
  if (queue.tail != nullptr) {
    queue.tail->thing.store(handle, std::memory_order_relaxed);
  } else {
    queue.head = handle;
  }
  queue.tail = handle;
  ++queue.waiting;
}

}  // namespace

bool FreeHandle(ZnHandle handle, u32 tag, void** thing) noexcept {
  if (tag == 0 || !IsHandleAddress(handle)) return false;
  u32 expected = tag;
  if (!handle->tag.compare_exchange_strong(expected, 0, std::memory_order_acq_rel)) return false;
  *thing = HandleThing<void>(handle);  // ours alone until it is queued
  Recycle(handle);
  return true;
}

bool FreeHandle(ZnHandle handle, u32 tag) noexcept {
  void* thing = nullptr;
  return FreeHandle(handle, tag, &thing);
}

bool FreeAnyHandle(ZnHandle handle) noexcept {
  if (!IsHandleAddress(handle)) return false;
  if (handle->tag.exchange(0, std::memory_order_acq_rel) == 0) return false;
  Recycle(handle);
  return true;
}

}  // namespace zn
