// The arena of handle records: a large reserved range that the system backs with zero pages as it
// is touched, a high-water mark, and a queue of freed records threaded through their second word.
#include "support/common/handle.h"

#include "support/common/platform.h"
#include "support/common/sync.h"

namespace zn {

HandleArenaBounds handleArena{};
std::atomic<u32> libraryAlive{1};

namespace {

// Room for 2^28 records; halved while the system refuses (an address-space limit may stand).
constexpr size_t kLargestArena = sizeof(void*) == 8 ? size_t{4} << 30 : size_t{64} << 20;
constexpr size_t kSmallestArena = size_t{1} << 20;

struct FreeQueue {
  Mutex mutex;
  ZnHandleRecord* head ZN_GUARDED_BY(mutex) = nullptr;
  ZnHandleRecord* tail ZN_GUARDED_BY(mutex) = nullptr;
  size_t used ZN_GUARDED_BY(mutex) = 0;  // records ever handed out
};

FreeQueue& Queue() noexcept {
  static FreeQueue& queue = *new FreeQueue;  // never destroyed: handles outlive every static
  return queue;
}

bool ReserveArena() noexcept {
  for (size_t bytes = kLargestArena; bytes >= kSmallestArena; bytes /= 2) {
    void* memory = ReserveMemory(bytes);
    if (memory == nullptr) continue;
    handleArena.base.store(reinterpret_cast<std::uintptr_t>(memory), std::memory_order_relaxed);
    handleArena.bytes.store(bytes, std::memory_order_relaxed);
    return true;
  }
  return false;
}

}  // namespace

ZnHandle AllocateHandle(u32 tag, void* thing) noexcept {
  FreeQueue& queue = Queue();
  const MutexLock lock(queue.mutex);
  if (handleArena.base.load(std::memory_order_relaxed) == 0 && !ReserveArena()) return nullptr;
  ZnHandleRecord* record = queue.head;
  if (record != nullptr) {
    queue.head = static_cast<ZnHandleRecord*>(record->thing);
    if (queue.head == nullptr) queue.tail = nullptr;
  } else {
    const size_t limit = handleArena.bytes.load(std::memory_order_relaxed) / sizeof(ZnHandleRecord);
    if (queue.used == limit) return nullptr;
    const auto base = handleArena.base.load(std::memory_order_relaxed);
    record = reinterpret_cast<ZnHandleRecord*>(base) + queue.used++;
  }
  record->thing = thing;
  record->tag.store(tag, std::memory_order_release);
  return record;
}

namespace {

void Recycle(ZnHandle handle) noexcept {
  FreeQueue& queue = Queue();
  const MutexLock lock(queue.mutex);
  handle->thing = nullptr;
  if (queue.tail != nullptr) {
    queue.tail->thing = handle;
  } else {
    queue.head = handle;
  }
  queue.tail = handle;
}

}  // namespace

bool FreeHandle(ZnHandle handle, u32 tag) noexcept {
  if (tag == 0 || !IsHandleAddress(handle)) return false;
  u32 expected = tag;
  if (!handle->tag.compare_exchange_strong(expected, 0, std::memory_order_acq_rel)) return false;
  Recycle(handle);
  return true;
}

bool FreeAnyHandle(ZnHandle handle) noexcept {
  if (!IsHandleAddress(handle)) return false;
  if (handle->tag.exchange(0, std::memory_order_acq_rel) == 0) return false;
  Recycle(handle);
  return true;
}

}  // namespace zn
