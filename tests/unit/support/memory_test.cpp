// The allocator family, and the host's memory and random bytes.
#include "zn/memory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include "support/common/block.h"
#include "support/common/platform.h"

namespace zn {
namespace {

bool IsAllZero(const void* block, size_t bytes) {
  const auto* at = static_cast<const unsigned char*>(block);
  return std::all_of(at, at + bytes, [](unsigned char c) { return c == 0; });
}

TEST(Memory, BlocksAreCleared) {
  for (const u32 size : {1u, 16u, 24u, 100u, 1024u, 1025u, 100000u}) {
    SCOPED_TRACE(size);
    for (int round = 0; round < 3; ++round) {  // a block that was used before comes back cleared
      void* block = ZnAlloc(size);
      ASSERT_NE(block, nullptr);
      EXPECT_TRUE(IsAllZero(block, size));
      std::memset(block, 0xAB, size);
      ZnFree(block);
    }
    void* block = _ZnAlloc(size, "", 0);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(IsAllZero(block, size));
    _ZnFree(block, "src/x", 1);
  }
}

TEST(Memory, SizeZeroIsHarmless) {
  ZnFree(ZnAlloc(0));
  _ZnFree(_ZnAlloc(0, "", 0), "", 0);
}

TEST(Memory, NullIsFreed) {
  ZnFree(nullptr);
  _ZnFree(nullptr, "", 0);
}

TEST(Memory, ReallocKeepsContentsAndTakesNull) {
  auto* block = static_cast<char*>(ZnRealloc(nullptr, 4));
  ASSERT_NE(block, nullptr);
  std::memcpy(block, "abc", 4);
  block = static_cast<char*>(ZnRealloc(block, 4000));
  ASSERT_NE(block, nullptr);
  EXPECT_STREQ(block, "abc");
  block = static_cast<char*>(_ZnRealloc(block, 2, "", 0));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::memcmp(block, "ab", 2), 0);
  ZnFree(block);
}

TEST(Memory, BlocksAreTheRuntimesOwn) {
  std::free(ZnAlloc(10));
  ZnFree(std::malloc(10));
}

TEST(Memory, ChecksDoNothing) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  CheckMemory();
  _ZnDumpAllocations();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST(Memory, BlockHelpersCopy) {
  EXPECT_EQ(CopyToBlock("abc", 0), nullptr);
  const std::vector<u32> items = {1, 2, 3};
  u32* block = ArrayToBlock(items);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(std::equal(items.begin(), items.end(), block));
  ZnFree(block);
  EXPECT_EQ(ArrayToBlock(std::vector<u32>()), nullptr);
  char* text = TextToBlock(std::string_view("ab"));
  EXPECT_STREQ(text, "ab");
  ZnFree(text);
  ZnWChar* wide = TextToBlock(std::u16string_view(u"ab"));
  EXPECT_EQ(std::u16string(wide), u"ab");
  ZnFree(wide);
}

TEST(Memory, ReservedMemoryReadsZeroAndTakesWrites) {
  auto* memory = static_cast<char*>(ReserveMemory(size_t{1} << 24));
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(memory[(size_t{1} << 24) - 1], 0);
  memory[12345] = 'x';
  EXPECT_EQ(memory[12345], 'x');
}

using Bytes = std::array<unsigned char, 16>;

TEST(RandomBytes, NeverRepeat) {
  std::set<Bytes> seen;
  for (int i = 0; i < 1000; ++i) {
    Bytes bytes{};
    ASSERT_TRUE(RandomBytes(bytes.data(), bytes.size()));
    EXPECT_TRUE(seen.insert(bytes).second);
  }
  EXPECT_TRUE(RandomBytes(nullptr, 0));
  std::vector<unsigned char> many(4096);
  ASSERT_TRUE(RandomBytes(many.data(), many.size()));
  EXPECT_FALSE(IsAllZero(many.data() + many.size() - 64, 64));
}

TEST(RandomBytes, AForkedChildHasOthersThanItsParent) {
  Bytes first{};
  ASSERT_TRUE(RandomBytes(first.data(), first.size()));  // fills the buffer that both would share
  int channel[2];
  ASSERT_EQ(pipe(channel), 0);
  const pid_t child = fork();
  Bytes bytes{};
  const bool good = RandomBytes(bytes.data(), bytes.size());
  if (child == 0) {
    const ssize_t put = write(channel[1], bytes.data(), bytes.size());
    _exit(good && put == static_cast<ssize_t>(bytes.size()) ? 0 : 1);
  }
  ASSERT_TRUE(good);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  Bytes others{};
  ASSERT_EQ(read(channel[0], others.data(), others.size()), static_cast<ssize_t>(others.size()));
  EXPECT_NE(bytes, others);
  close(channel[0]);
  close(channel[1]);
}

}  // namespace
}  // namespace zn
