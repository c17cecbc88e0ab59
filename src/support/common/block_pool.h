// Blocks of one size, cut from chunks of memory that the system backs with large pages: a store of
// a million objects is walked at random, and on small pages every step would miss the page tables'
// cache as well as the data's. A chunk that empties goes back to the system, but for the last.
//
// A pool has no lock: its owner holds the one that guards what the blocks are for.
#pragma once

#include "zn/types.h"

namespace zn {

class BlockPool {
 public:
  // Blocks of at least so many bytes, at most 64 KiB.
  constexpr explicit BlockPool(u32 blockBytes) noexcept
      : blockBytes_((blockBytes + sizeof(void*) - 1) & ~u32{sizeof(void*) - 1}) {}
  BlockPool(const BlockPool&) = delete;
  BlockPool& operator=(const BlockPool&) = delete;

  // A block with undefined content. Throws std::bad_alloc.
  [[nodiscard]] void* Allocate();
  // Takes back a block of this pool.
  void Free(void* block) noexcept;

 private:
  struct Chunk;

  [[nodiscard]] Chunk* AddChunk();
  void Open(Chunk* chunk) noexcept;
  void Close(Chunk* chunk) noexcept;

  u32 blockBytes_;
  u32 chunks_ = 0;
  Chunk* open_ = nullptr;  // chunks with a free block
};

}  // namespace zn
