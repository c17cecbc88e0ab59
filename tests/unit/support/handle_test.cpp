// The arena of handle records: stale, foreign and twice freed handles, and the order of reuse.
#include "support/common/handle.h"

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {
namespace {

TEST(HandleArena, ARecordHasItsTagAndThing) {
  int thing = 0;
  ZnHandle handle = AllocateHandle(HANDLE_PROPSET, &thing);
  ASSERT_NE(handle, nullptr);
  EXPECT_TRUE(IsHandleAddress(handle));
  EXPECT_EQ(HandleTag(handle), HANDLE_PROPSET);
  EXPECT_EQ(HandleThing<int>(handle), &thing);
  EXPECT_TRUE(IsValidHandle(handle, HANDLE_PROPSET));
  EXPECT_FALSE(IsValidHandle(handle, HANDLE_DATABASE));
  EXPECT_EQ(LiveHandleThing<int>(handle, HANDLE_PROPSET), &thing);
  EXPECT_EQ(LiveHandleThing<int>(handle, HANDLE_DATABASE), nullptr);
  EXPECT_TRUE(FreeHandle(handle, HANDLE_PROPSET));
}

TEST(HandleArena, AFreedHandleIsRefusedEverywhere) {
  ZnHandle handle = AllocateHandle(HANDLE_PROPSET, nullptr);
  EXPECT_FALSE(FreeHandle(handle, HANDLE_DATABASE)) << "of another kind";
  EXPECT_FALSE(FreeHandle(handle, 0));
  EXPECT_TRUE(FreeHandle(handle, HANDLE_PROPSET));
  EXPECT_EQ(HandleTag(handle), 0u);
  EXPECT_FALSE(IsValidHandle(handle, HANDLE_PROPSET));
  EXPECT_FALSE(IsValidHandleOrNull(handle, HANDLE_PROPSET));
  EXPECT_FALSE(FreeHandle(handle, HANDLE_PROPSET)) << "the second time";
  EXPECT_FALSE(FreeAnyHandle(handle));
  EXPECT_EQ(LiveHandleThing<int>(handle, HANDLE_PROPSET), nullptr);
}

TEST(HandleArena, ForeignPointersAreNoHandles) {
  alignas(16) static unsigned char memory[32] = {3};
  ZnHandle live = AllocateHandle(HANDLE_DATABASE, nullptr);
  const auto inside = reinterpret_cast<std::uintptr_t>(live);
  const std::uintptr_t foreign[] = {
      0,          1,           4095,
      0xFFFFFFFF, UINTPTR_MAX, reinterpret_cast<std::uintptr_t>(memory),
      inside + 1, inside + 8,  inside - 4};
  for (const std::uintptr_t address : foreign) {
    SCOPED_TRACE(address);
    auto* handle = reinterpret_cast<ZnHandle>(address);
    EXPECT_FALSE(IsHandleAddress(handle));
    EXPECT_EQ(HandleTag(handle), 0u);
    EXPECT_FALSE(IsValidHandle(handle, HANDLE_DATABASE));
    EXPECT_FALSE(FreeAnyHandle(handle));
    EXPECT_FALSE(FreeHandle(handle, HANDLE_DATABASE));
  }
  EXPECT_TRUE(FreeAnyHandle(live));
}

TEST(HandleArena, NullIsAcceptedByTheLooseCheckAlone) {
  EXPECT_TRUE(IsValidHandleOrNull(nullptr, HANDLE_DATABASE));
  EXPECT_FALSE(IsValidHandle(nullptr, HANDLE_DATABASE));
}

TEST(HandleArena, EveryCheckFailsOnceTheLibraryIsDown) {
  ZnHandle handle = AllocateHandle(HANDLE_DATABASE, nullptr);
  libraryAlive = 0;
  EXPECT_FALSE(IsValidHandle(handle, HANDLE_DATABASE));
  EXPECT_FALSE(IsValidHandleOrNull(handle, HANDLE_DATABASE));
  EXPECT_FALSE(IsValidHandleOrNull(nullptr, HANDLE_DATABASE));
  libraryAlive = 1;
  EXPECT_TRUE(IsValidHandle(handle, HANDLE_DATABASE));
  EXPECT_TRUE(FreeAnyHandle(handle));
}

TEST(HandleArena, AFreedSlotIsNotUsedAgainAtOnce) {
  ZnHandle freed = AllocateHandle(HANDLE_PROPSET, nullptr);
  ASSERT_TRUE(FreeHandle(freed, HANDLE_PROPSET));
  std::vector<ZnHandle> others;
  for (int i = 0; i < 500; ++i) {
    others.push_back(AllocateHandle(HANDLE_PROPSET, nullptr));
    EXPECT_NE(others.back(), freed);
  }
  for (ZnHandle handle : others) EXPECT_TRUE(FreeHandle(handle, HANDLE_PROPSET));
}

TEST(HandleArena, SlotsComeBackInTheOrderOfTheirFreeing) {
  std::vector<ZnHandle> freed;
  for (int i = 0; i < 3000; ++i) freed.push_back(AllocateHandle(HANDLE_PROPSET, nullptr));
  for (ZnHandle handle : freed) ASSERT_TRUE(FreeHandle(handle, HANDLE_PROPSET));
  std::vector<ZnHandle> reused;
  for (int i = 0; i < 3000; ++i) reused.push_back(AllocateHandle(HANDLE_PROPSET, nullptr));
  const std::set<ZnHandle> known(freed.begin(), freed.end());
  std::vector<ZnHandle> again;  // those of ours that came back, in the order in which they did
  for (ZnHandle handle : reused) {
    if (known.count(handle) != 0) again.push_back(handle);
  }
  ASSERT_FALSE(again.empty());
  EXPECT_TRUE(std::equal(again.begin(), again.end(), freed.begin()));
  for (ZnHandle handle : reused) EXPECT_TRUE(FreeHandle(handle, HANDLE_PROPSET));
}

TEST(HandleArena, TheArenaGrowsWithoutReuse) {
  std::set<ZnHandle> live;
  for (int i = 0; i < 100000; ++i) live.insert(AllocateHandle(HANDLE_PROPSET, nullptr));
  EXPECT_EQ(live.size(), 100000u);
  EXPECT_EQ(live.count(nullptr), 0u);
  for (ZnHandle handle : live) EXPECT_TRUE(FreeAnyHandle(handle));
}

TEST(HandleArena, ZnFreeTakesARecordAndLeavesAStaleOneAlone) {
  ZnHandle handle = AllocateHandle(HANDLE_PROPITER, nullptr);
  ZnFree(handle);
  EXPECT_EQ(HandleTag(handle), 0u);
  ZnFree(handle);
  _ZnFree(handle, "src/x", 1);
  EXPECT_EQ(HandleTag(handle), 0u);
}

TEST(HandleArena, AnOwnerToleratesThatItsHandleIsGone) {
  int thing = 0;
  ZnHandle seen = nullptr;
  {
    OwnedHandle owned(HANDLE_PROVIDER, &thing);
    seen = owned.Get();
    EXPECT_TRUE(IsValidHandle(seen, HANDLE_PROVIDER));
    EXPECT_TRUE(FreeAnyHandle(seen));
  }
  EXPECT_EQ(HandleTag(seen), 0u);
}

TEST(HandleArena, FreeingHandsOverTheThing) {
  int thing = 0;
  ZnHandle handle = AllocateHandle(HANDLE_THREAD, &thing);
  void* given = nullptr;
  EXPECT_TRUE(FreeHandle(handle, HANDLE_THREAD, &given));
  EXPECT_EQ(given, &thing);
  given = nullptr;
  EXPECT_FALSE(FreeHandle(handle, HANDLE_THREAD, &given));
  EXPECT_EQ(given, nullptr);
}

TEST(HandleArenaThreads, OfTwoConcurrentFreesOneAnswersTrue) {
  constexpr int kRounds = 2000;
  std::vector<ZnHandle> handles;
  for (int i = 0; i < kRounds; ++i) handles.push_back(AllocateHandle(HANDLE_PROPSET, nullptr));
  std::atomic<int> freed{0};
  const auto freeAll = [&] {
    for (ZnHandle handle : handles) freed += FreeHandle(handle, HANDLE_PROPSET) ? 1 : 0;
  };
  std::thread one(freeAll);
  std::thread two(freeAll);
  one.join();
  two.join();
  EXPECT_EQ(freed, kRounds);
}

TEST(HandleArenaThreads, EveryThreadGetsRecordsOfItsOwn) {
  constexpr int kThreads = 4;
  std::vector<std::vector<ZnHandle>> got(kThreads);
  std::vector<std::thread> threads;
  for (auto& mine : got) {
    threads.emplace_back([&mine] {
      for (int i = 0; i < 5000; ++i) {
        ZnHandle handle = AllocateHandle(HANDLE_PROPSET, &mine);
        EXPECT_EQ(HandleThing<void>(handle), &mine);
        if (i % 2 == 0) {
          EXPECT_TRUE(FreeHandle(handle, HANDLE_PROPSET));
        } else {
          mine.push_back(handle);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<ZnHandle> all;
  for (const auto& mine : got) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), size_t{kThreads} * 2500);
  for (ZnHandle handle : all) EXPECT_TRUE(FreeAnyHandle(handle));
}

}  // namespace
}  // namespace zn
