// Chunks of a block pool. A chunk lies at a multiple of its size, so that a block finds its chunk
// by its address alone.
#include "support/common/block_pool.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "support/common/platform.h"

namespace zn {

namespace {

constexpr size_t kChunkBytes = kLargePageBytes;
constexpr size_t kHeadBytes = 64;  // one line of the cache, so that blocks can start on one

}  // namespace

struct BlockPool::Chunk {
  Chunk* next;
  Chunk* previous;
  void* freed;  // blocks given back, each holding the address of the next
  u32 used;     // blocks in use
  u32 cut;      // blocks that were ever in use; those behind them are untouched
};

#if defined(__SANITIZE_ADDRESS__)

// The sanitizer tells blocks apart only when each comes from the heap.
void* BlockPool::Allocate() {
  void* block = std::malloc(blockBytes_);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void BlockPool::Free(void* block) noexcept {
  std::free(block);
}

#else

void* BlockPool::Allocate() {
  Chunk* chunk = open_ != nullptr ? open_ : AddChunk();
  void* block = chunk->freed;
  if (block != nullptr) {
    std::memcpy(&chunk->freed, block, sizeof(void*));
  } else {
    block = reinterpret_cast<u8*>(chunk) + kHeadBytes + size_t{chunk->cut} * blockBytes_;
    ++chunk->cut;
  }
  ++chunk->used;
  if (chunk->used == (kChunkBytes - kHeadBytes) / blockBytes_) Close(chunk);
  return block;
}

void BlockPool::Free(void* block) noexcept {
  auto* chunk = reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(block) & ~(kChunkBytes - 1));
  if (chunk->used == (kChunkBytes - kHeadBytes) / blockBytes_) Open(chunk);
  std::memcpy(block, &chunk->freed, sizeof(void*));
  chunk->freed = block;
  --chunk->used;
  if (chunk->used == 0 && chunks_ > 1) {
    Close(chunk);
    --chunks_;
    FreePages(chunk, kChunkBytes);
  }
}

#endif

BlockPool::Chunk* BlockPool::AddChunk() {
  static_assert(sizeof(Chunk) <= kHeadBytes);
  void* memory = AllocatePages(kChunkBytes);
  if (memory == nullptr) throw std::bad_alloc();
  // The first chunk stays on small pages: a small store should not cost a large page.
  if (chunks_ > 0) UseLargePages(memory, kChunkBytes);
  auto* chunk = new (memory) Chunk{};
  ++chunks_;
  Open(chunk);
  return chunk;
}

void BlockPool::Open(Chunk* chunk) noexcept {
  chunk->previous = nullptr;
  chunk->next = open_;
  if (open_ != nullptr) open_->previous = chunk;
  open_ = chunk;
}

void BlockPool::Close(Chunk* chunk) noexcept {
  (chunk->previous == nullptr ? open_ : chunk->previous->next) = chunk->next;
  if (chunk->next != nullptr) chunk->next->previous = chunk->previous;
}

}  // namespace zn
