// Blocks of one size from chunks of large pages.
#include "support/common/block_pool.h"

#include <cstring>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "support/common/platform.h"

namespace zn {
namespace {

TEST(BlockPool, GivesEachBlockOnceAndKeepsItsBytes) {
  BlockPool pool(40);
  std::vector<unsigned char*> blocks;
  for (int i = 0; i < 200000; ++i) {
    auto* block = static_cast<unsigned char*>(pool.Allocate());
    std::memset(block, i & 0xFF, 40);
    blocks.push_back(block);
  }
  EXPECT_EQ(std::set<unsigned char*>(blocks.begin(), blocks.end()).size(), blocks.size());
  for (size_t i = 0; i < blocks.size(); ++i) {
    ASSERT_EQ(blocks[i][0], i & 0xFF);
    ASSERT_EQ(blocks[i][39], i & 0xFF);
  }
  for (unsigned char* block : blocks) pool.Free(block);
}

TEST(BlockPool, HandsOutAFreedBlockAgain) {
  BlockPool pool(64);
  std::set<void*> first;
  for (int i = 0; i < 1000; ++i) first.insert(pool.Allocate());
  for (void* block : first) pool.Free(block);
#if !defined(__SANITIZE_ADDRESS__)  // under it the heap decides
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(first.contains(pool.Allocate()));
#endif
}

TEST(BlockPool, RoundsABlockUpToWholeWords) {
  BlockPool pool(20);
  void* one = pool.Allocate();
  void* two = pool.Allocate();
  EXPECT_EQ(reinterpret_cast<uintptr_t>(one) % sizeof(void*), 0u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(two) % sizeof(void*), 0u);
  pool.Free(one);
  pool.Free(two);
}

TEST(BlockPool, TakesAndFreesInAnyOrderAcrossChunks) {
  BlockPool pool(1024);
  std::vector<void*> blocks;
  u32 random = 7;
  for (int i = 0; i < 50000; ++i) {
    random = random * 1664525 + 1013904223;
    if (blocks.empty() || (random >> 16) % 3 != 0) {
      blocks.push_back(pool.Allocate());
      std::memset(blocks.back(), 0xA5, 1024);
    } else {
      std::swap(blocks[(random >> 8) % blocks.size()], blocks.back());
      pool.Free(blocks.back());
      blocks.pop_back();
    }
  }
  EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), blocks.size());
  for (void* block : blocks) pool.Free(block);
}

TEST(Pages, ComeZeroedAtAMultipleOfALargePage) {
  constexpr size_t kBytes = kLargePageBytes + 1;
  auto* pages = static_cast<unsigned char*>(AllocatePages(kBytes));
  ASSERT_NE(pages, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(pages) % kLargePageBytes, 0u);
  UseLargePages(pages, kBytes);
  for (size_t i = 0; i < kBytes; i += 4095) ASSERT_EQ(pages[i], 0);
  pages[kBytes - 1] = 1;
  FreePages(pages, kBytes);
  FreePages(nullptr, kBytes);
}

}  // namespace
}  // namespace zn
