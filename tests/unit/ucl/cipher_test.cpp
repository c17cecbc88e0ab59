#include "ucl/common/cipher.h"

#include <string>

#include <gtest/gtest.h>

#include "zn/memory.h"
#include "zn/status.h"

namespace zn {
namespace {

std::string Hex(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[static_cast<u8>(c) >> 4];
    text += kDigits[static_cast<u8>(c) & 15];
  }
  return text;
}

std::string Enciphered(const std::string& plain, i32 keyIndex = 0, u32 encryption = 2) {
  void* out = nullptr;
  u32 length = 0;
  EXPECT_EQ(EncipherBlock(plain.data(), static_cast<u32>(plain.size()), encryption, keyIndex, &out,
                          &length),
            ZN_OK);
  std::string result(static_cast<const char*>(out), length);
  ZnFree(out);
  return result;
}

u32 Decipher(const std::string& text, std::string* plain, i32 keyIndex = 0) {
  void* out = nullptr;
  u32 length = 0;
  const u32 status =
      DecipherBlock(text.data(), static_cast<u32>(text.size()), 2, keyIndex, &out, &length);
  if (status == ZN_OK) plain->assign(static_cast<const char*>(out), length);
  EXPECT_EQ(out == nullptr, status != ZN_OK);
  ZnFree(out);
  return status;
}

struct Golden {
  const char* plain;
  i32 keyIndex;
  const char* text;
};

// From the command line of the cryptographic library, which has the same scheme under another
// interface.
constexpr Golden kGolden[] = {
    {"", 0, "7be5b8bf642ba77a"},
    {"ABCDEFG", 0, "ac2e95e0a062d626"},
    {"ABCDEFGH", 0, "a4e597086f77b90d208dab4760bc5e9f"},
    {"", 1, "f7604dd6a2e488fc"},
    {"ABCDEFG", 1, "2eba10f96b70b430"},
    {"ABCDEFGH", 1, "57ec88b4ec1049abb28c0422d1445316"},
};

TEST(Cipher, GivesTheFixedBytes) {
  for (const Golden& golden : kGolden) {
    SCOPED_TRACE(golden.text);
    EXPECT_EQ(Hex(Enciphered(golden.plain, golden.keyIndex)), golden.text);
    std::string plain;
    EXPECT_EQ(Decipher(Enciphered(golden.plain, golden.keyIndex), &plain, golden.keyIndex), ZN_OK);
    EXPECT_EQ(plain, golden.plain);
  }
}

TEST(Cipher, SevenBytesBecome8AndEightBecome16) {
  EXPECT_EQ(Enciphered("1234567").size(), 8u);
  EXPECT_EQ(Enciphered("12345678").size(), 16u);
}

TEST(Cipher, EveryLengthComesBack) {
  for (size_t length = 0; length <= 40; ++length) {
    const std::string plain(length, static_cast<char>(length));
    std::string back;
    EXPECT_EQ(Decipher(Enciphered(plain), &back), ZN_OK);
    EXPECT_EQ(back, plain);
    EXPECT_EQ(Enciphered(plain).size(), length / 8 * 8 + 8);
  }
}

TEST(Cipher, EveryCallStartsFromTheSameVector) {
  EXPECT_EQ(Enciphered("the same text twice"), Enciphered("the same text twice"));
}

TEST(Cipher, AKeyIndexBeyondTheTableUsesTheFirstKey) {
  EXPECT_EQ(Enciphered("text", 2), Enciphered("text", 0));
  EXPECT_NE(Enciphered("text", 1), Enciphered("text", 0));
}

TEST(Cipher, EncryptionOfOnePassesLikeTwo) {
  EXPECT_EQ(Enciphered("text", 0, 1), Enciphered("text", 0, 2));
}

TEST(Cipher, MissingArgumentsChangeNothing) {
  int mark = 0;
  for (const auto call : {EncipherBlock, DecipherBlock}) {
    void* out = &mark;
    u32 length = 77;
    EXPECT_EQ(call(nullptr, 8, 2, 0, &out, &length), ZN_OK);
    EXPECT_EQ(call("12345678", 8, 0, 0, &out, &length), ZN_OK);
    EXPECT_EQ(call("12345678", 8, 2, -1, &out, &length), ZN_OK);
    EXPECT_EQ(call("12345678", 8, 2, 0, nullptr, &length), ZN_OK);
    EXPECT_EQ(call("12345678", 8, 2, 0, &out, nullptr), ZN_OK);
    EXPECT_EQ(out, &mark);
    EXPECT_EQ(length, 77u);
  }
}

TEST(Cipher, TextThatIsNoWholeNumberOfBlocksIsRefused) {
  const std::string text = Enciphered("twelve bytes");
  std::string plain;
  for (size_t length = 0; length < text.size(); ++length) {
    if (length == 8) continue;
    EXPECT_EQ(Decipher(text.substr(0, length), &plain), ZNE_UNEXPECTED) << length;
  }
}

TEST(Cipher, LastByteThatPointsOutsideIsRefused) {
  int refused = 0;
  for (int i = 0; i < 2000; ++i) {  // 8 bytes of noise: the last one is seldom below 8
    std::string text(8, 0);
    for (size_t at = 0; at < 8; ++at) text[at] = static_cast<char>(i * 31 + i / 7 * 5 + at * 77);
    std::string plain;
    const u32 status = Decipher(text, &plain);
    EXPECT_TRUE(status == ZNE_UNEXPECTED || plain.size() < 8);
    refused += status == ZNE_UNEXPECTED ? 1 : 0;
  }
  EXPECT_GT(refused, 1500);
}

TEST(Cipher, WhatThePaddingHoldsButForItsLastByteIsNotChecked) {
  // 15 bytes whose last one reads as a padding of 4, then padding of its own: cut the last block
  // off, and a text is left that ends in other bytes than 0, 1, 2, 3.
  const std::string text = Enciphered(std::string("AAAAzzz\3", 8)).substr(0, 8);
  std::string plain;
  EXPECT_EQ(Decipher(text, &plain), ZN_OK);
  EXPECT_EQ(plain, "AAAA");
}

}  // namespace
}  // namespace zn
