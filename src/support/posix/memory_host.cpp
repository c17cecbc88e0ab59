// Memory straight from the system and the kernel's random bytes.
#include <pthread.h>
#include <sys/mman.h>
#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "support/common/platform.h"

namespace zn {

void* ReserveMemory(size_t bytes) noexcept {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  static_cast<void>(madvise(memory, bytes, MADV_DONTDUMP));
  return memory;
}

namespace {

size_t WholeLargePages(size_t bytes) noexcept {
  return (bytes + kLargePageBytes - 1) & ~(kLargePageBytes - 1);
}

}  // namespace

// GCC says it by a macro of its own, clang by a feature.
#if defined(__SANITIZE_ADDRESS__)
#define ZN_LEAKS_ARE_CHECKED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZN_LEAKS_ARE_CHECKED
#endif
#endif

#if defined(ZN_LEAKS_ARE_CHECKED)

// The leak check follows pointers through the heap only.
void* AllocatePages(size_t bytes) noexcept {
  const size_t whole = WholeLargePages(bytes);
  void* memory = std::aligned_alloc(kLargePageBytes, whole);
  if (memory != nullptr) std::memset(memory, 0, whole);
  return memory;
}
void FreePages(void* memory, size_t) noexcept {
  std::free(memory);
}

#else

void* AllocatePages(size_t bytes) noexcept {
  const size_t whole = WholeLargePages(bytes);
  // One large page more than asked, so that a multiple lies in it; what is too much goes back.
  void* mapped = mmap(nullptr, whole + kLargePageBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  auto* first = static_cast<unsigned char*>(mapped);
  const size_t ahead =
      WholeLargePages(reinterpret_cast<uintptr_t>(first)) - reinterpret_cast<uintptr_t>(first);
  if (ahead > 0) munmap(first, ahead);
  if (ahead < kLargePageBytes) munmap(first + ahead + whole, kLargePageBytes - ahead);
  return first + ahead;
}

void FreePages(void* memory, size_t bytes) noexcept {
  if (memory != nullptr) munmap(memory, WholeLargePages(bytes));
}

#endif

void UseLargePages(void* memory, size_t bytes) noexcept {
  static_cast<void>(madvise(memory, bytes, MADV_HUGEPAGE));
}

namespace {

bool ReadKernelRandom(void* out, size_t count) noexcept {
  auto* at = static_cast<unsigned char*>(out);
  while (count > 0) {
    const ssize_t got = getrandom(at, count, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    count -= static_cast<size_t>(got);
  }
  return true;
}

// Rises in every forked child, so that no child hands out bytes that its parent hands out too.
std::atomic<u32> forkGeneration{1};

void WatchForks() noexcept {
  [[maybe_unused]] static const int watched = pthread_atfork(
      nullptr, nullptr, [] { forkGeneration.fetch_add(1, std::memory_order_relaxed); });
}

struct RandomBuffer {
  unsigned char bytes[512] = {};
  size_t left = 0;
  u32 generation = 0;
};

}  // namespace

bool RandomBytes(void* out, size_t count) noexcept {
  thread_local RandomBuffer buffer;
  if (count > sizeof(buffer.bytes)) return ReadKernelRandom(out, count);
  WatchForks();
  const u32 generation = forkGeneration.load(std::memory_order_relaxed);
  if (buffer.generation != generation || buffer.left < count) {
    buffer.left = 0;
    if (!ReadKernelRandom(buffer.bytes, sizeof(buffer.bytes))) return false;
    buffer.left = sizeof(buffer.bytes);
    buffer.generation = generation;
  }
  // Handed out from the end and wiped, so that a byte is never given twice and leaves no copy.
  unsigned char* from = buffer.bytes + (buffer.left - count);
  if (count != 0) std::memcpy(out, from, count);
  explicit_bzero(from, count);
  buffer.left -= count;
  return true;
}

}  // namespace zn
