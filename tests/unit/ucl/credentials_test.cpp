#include "ucl/common/credentials.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zn/status.h"

namespace zn {
namespace {

std::string Challenge(size_t length) {
  std::string challenge(length, 0);
  for (size_t i = 0; i < length; ++i) challenge[i] = static_cast<char>(i * 7 + i / 256);
  return challenge;
}

std::vector<u8> Block(const std::string& challenge, const Credentials& credentials) {
  std::vector<u8> block;
  EXPECT_EQ(BuildCredentialBlock(challenge, credentials, &block), ZN_OK);
  return block;
}

u32 Read(const std::vector<u8>& block, const std::string& challenge, Credentials* out) {
  return ReadCredentialBlock(block.data(), static_cast<u32>(block.size()), challenge, out);
}

const Credentials kUser = {u"user", u"päss", u"domain", u"x\xD83D"};

TEST(CredentialBlock, HasTheLayoutOfTheWire) {
  const std::string c = Challenge(512);
  const std::vector<u8> block = Block(c, kUser);
  const std::string expected = c.substr(0, 64) + std::string("\0\0\0\4\0u\0s\0e\0r", 12) +
                               c.substr(64, 128) + std::string("\0\0\0\4\0p\0\xE4\0s\0s", 12) +
                               c.substr(192, 128) + std::string("\0\0\0\2\0x\xD8\x3D", 8) +
                               c.substr(320, 128) + std::string("\0\0\0\6\0d\0o\0m\0a\0i\0n", 16) +
                               c.substr(448);
  EXPECT_EQ(std::string(block.begin(), block.end()), expected);
  EXPECT_EQ(block.size(), 512u + 16 + 2 * (4 + 4 + 6 + 2));
}

TEST(CredentialBlock, ComesBackAsItWas) {
  for (const size_t length : {size_t{512}, size_t{513}, size_t{2048}}) {
    const std::string c = Challenge(length);
    Credentials found;
    EXPECT_EQ(Read(Block(c, kUser), c, &found), ZN_OK);
    EXPECT_EQ(found.user, kUser.user);
    EXPECT_EQ(found.password, kUser.password);
    EXPECT_EQ(found.domain, kUser.domain);
    EXPECT_EQ(found.fourth, kUser.fourth);
    EXPECT_EQ(Read(Block(c, {}), c, &found), ZN_OK);
    EXPECT_TRUE(found.user.empty() && found.fourth.empty());
  }
}

TEST(CredentialBlock, EveryTruncationIsRefusedAndLeavesTheOutputs) {
  const std::string c = Challenge(512);
  const std::vector<u8> block = Block(c, kUser);
  for (size_t length = 0; length < block.size(); ++length) {
    Credentials found{u"as", u"it", u"was", u""};
    const std::vector<u8> cut(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(Read(cut, c, &found), ZNE_UNEXPECTED) << length;
    EXPECT_EQ(found.user, u"as");
  }
}

TEST(CredentialBlock, CountsBeyondTheBlockAreRefused) {
  const std::string c = Challenge(512);
  const std::vector<u8> good = Block(c, kUser);
  const size_t counts[] = {64, 64 + 12 + 128, 64 + 12 + 128 + 12 + 128,
                           64 + 12 + 128 + 12 + 128 + 8 + 128};
  for (const size_t at : counts) {
    for (const u32 count : {0xFFFFFFFFu, 0x80000001u, 0x7FFFFFFFu, 100000u}) {
      std::vector<u8> block = good;
      for (u32 i = 0; i < 4; ++i) block[at + i] = static_cast<u8>(count >> (24 - 8 * i));
      Credentials found;
      EXPECT_EQ(Read(block, c, &found), ZNE_UNEXPECTED) << at << " " << count;
    }
  }
}

TEST(CredentialBlock, OfAnotherChallengeIsRefused) {
  const std::string c = Challenge(512);
  const std::vector<u8> block = Block(c, kUser);
  Credentials found;
  for (size_t i = 0; i < c.size(); i += 37) {
    std::string other = c;
    other[i] = static_cast<char>(other[i] ^ 1);
    EXPECT_EQ(Read(block, other, &found), ZNE_UNEXPECTED);
  }
  EXPECT_EQ(Read(block, c.substr(0, 511), &found), ZNE_UNEXPECTED);
  EXPECT_EQ(Read(block, "", &found), ZNE_UNEXPECTED);
}

TEST(CredentialBlock, JoinedChallengeBeyond2048BytesIsRefused) {
  const std::string c = Challenge(2049);
  Credentials found;
  EXPECT_EQ(Read(Block(c, kUser), c, &found), ZNE_UNEXPECTED);
}

TEST(CredentialBlock, ShorterThan512BytesIsRefused) {
  const std::string c = Challenge(448);  // 448 + 16 + 46 = 510
  Credentials found;
  const Credentials texts{std::u16string(23, u'x'), u"", u"", u""};
  const std::vector<u8> block = Block(c, texts);
  ASSERT_EQ(block.size(), 510u);
  EXPECT_EQ(Read(block, c, &found), ZNE_UNEXPECTED);
  EXPECT_EQ(ReadCredentialBlock(nullptr, 600, c, &found), ZNE_UNEXPECTED);
}

TEST(CredentialBlock, WipedTextsLeaveNothing) {
  for (const size_t length : {size_t{0}, size_t{3}, size_t{7}, size_t{100}}) {
    std::u16string text(length, u'x');
    const char16_t* place = text.data();
    const size_t room = text.capacity();
    WipeText(&text);
    EXPECT_TRUE(text.empty());
    ASSERT_EQ(text.data(), place);
    ASSERT_EQ(text.capacity(), room);
    for (size_t i = 0; i < room; ++i) EXPECT_EQ(place[i], u'\0') << i;
  }
}

TEST(CredentialBlock, NeedsAChallengeOf448Bytes) {
  std::vector<u8> block{1, 2, 3};
  EXPECT_EQ(BuildCredentialBlock(Challenge(447), kUser, &block), ZNE_UNEXPECTED);
  EXPECT_EQ(block.size(), 3u);
}

}  // namespace
}  // namespace zn
