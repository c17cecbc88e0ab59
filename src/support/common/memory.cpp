// The allocator family of the boundary: thin calls of the runtime's heap, so that a block may be
// released by ZnFree and by free alike. Handle records are not heap blocks; ZnFree tells them by
// their address.
#include "zn/memory.h"

#include <cstdlib>
#include <cstring>

#include "support/common/handle.h"

namespace {

// Small blocks come faster from malloc's thread cache, which calloc passes by; large ones may be
// fresh pages that calloc knows to be zero.
constexpr u32 kSmallBlock = 1024;

inline void* AllocateCleared(u32 size) noexcept {
  if (size > kSmallBlock) return std::calloc(1, size);
  void* block = std::malloc(size);
  __asm__("" : "+r"(block));  // or the compiler makes one calloc of the two
  if (block != nullptr) std::memset(block, 0, size);
  return block;  // NOLINT(clang-analyzer-unix.Malloc): the line in between confuses it
}

inline void Release(void* block) noexcept {
  if (zn::IsHandleAddress(block)) [[unlikely]] {
    static_cast<void>(zn::FreeAnyHandle(static_cast<ZnHandle>(block)));
    return;
  }
  std::free(block);
}

}  // namespace

extern "C" {

void* ZnAlloc(u32 size) {
  return AllocateCleared(size);
}
void* ZnRealloc(void* block, u32 size) {
  return std::realloc(block, size);
}
void ZnFree(void* block) {
  Release(block);
}

void* _ZnAlloc(u32 size, const char*, u32) {
  return AllocateCleared(size);
}
void* _ZnRealloc(void* block, u32 size, const char*, u32) {
  return std::realloc(block, size);
}
void _ZnFree(void* block, const char*, u32) {
  Release(block);
}

void CheckMemory(void) {}
void _ZnDumpAllocations(void) {}

}  // extern "C"
