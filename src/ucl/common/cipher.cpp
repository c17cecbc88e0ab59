// Deprecated since OpenSSL 3 and still there: the scheme is the wire's, so this file, and no other,
// uses the plain DES calls.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "ucl/common/cipher.h"

#include <cstring>

#include <openssl/crypto.h>
#include <openssl/des.h>

#include "zn/memory.h"
#include "zn/status.h"

namespace zn {

namespace {

constexpr u32 kBlock = 8;

// As the header lists them.
constexpr u8 kKeys[kCipherKeyCount][kBlock] = {{0x32, 0xF6, 0x4D, 0x26, 0xEF, 0x8B, 0xAB, 0x8D},
                                               {0x29, 0xFC, 0xE8, 0xE5, 0xD5, 0xE2, 0xF8, 0x37}};
constexpr u8 kInitialVector[kBlock] = {0x92, 0xAA, 0xA4, 0xA6, 0xDA, 0xBB, 0x0E, 0xD4};
constexpr u8 kInputWhitening[kBlock] = {0x6E, 0xD4, 0x6B, 0xA2, 0xCA, 0x0A, 0x12, 0x75};
constexpr u8 kOutputWhitening[kBlock] = {0xF8, 0x29, 0x3A, 0x6F, 0xEF, 0x76, 0x0D, 0x0F};

// Every call starts from the same vector, and keeps nothing: all state is local.
void Run(const u8* in, u8* out, u32 length, i32 keyIndex, int direction) {
  const u32 index = static_cast<u32>(keyIndex) < kCipherKeyCount ? static_cast<u32>(keyIndex) : 0;
  DES_cblock key;
  DES_cblock vector;
  DES_cblock inputWhitening;
  DES_cblock outputWhitening;
  std::memcpy(key, kKeys[index], kBlock);
  std::memcpy(vector, kInitialVector, kBlock);
  std::memcpy(inputWhitening, kInputWhitening, kBlock);
  std::memcpy(outputWhitening, kOutputWhitening, kBlock);
  DES_key_schedule schedule;
  DES_set_key_unchecked(&key, &schedule);
  DES_xcbc_encrypt(in, out, static_cast<long>(length), &schedule, &vector, &inputWhitening,
                   &outputWhitening, direction);
  OPENSSL_cleanse(&schedule, sizeof(schedule));
}

bool HasArguments(const void* in, u32 encryption, i32 keyIndex, void** out, const u32* outLength) {
  return in != nullptr && out != nullptr && outLength != nullptr && encryption >= 1 &&
         keyIndex >= 0;
}

}  // namespace

u32 EncipherBlock(const void* in, u32 length, u32 encryption, i32 keyIndex, void** out,
                  u32* outLength) {
  if (!HasArguments(in, encryption, keyIndex, out, outLength)) return ZN_OK;
  if (length > 0x7FFFFFF0u) return ZNE_OUT_OF_MEMORY;
  const u32 padding = kBlock - length % kBlock;
  auto* block = static_cast<u8*>(ZnAlloc(length + kBlock));
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  std::memcpy(block, in, length);
  for (u32 i = 0; i < padding; ++i) block[length + i] = static_cast<u8>(i);
  Run(block, block, length + padding, keyIndex, DES_ENCRYPT);
  *out = block;
  *outLength = length + padding;
  return ZN_OK;
}

u32 DecipherBlock(const void* in, u32 length, u32 encryption, i32 keyIndex, void** out,
                  u32* outLength) {
  if (!HasArguments(in, encryption, keyIndex, out, outLength)) return ZN_OK;
  if (length == 0 || length % kBlock != 0 || length > 0x7FFFFFF0u) return ZNE_UNEXPECTED;
  auto* block = static_cast<u8*>(ZnAlloc(length + kBlock));
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  Run(static_cast<const u8*>(in), block, length, keyIndex, DES_DECRYPT);
  // Contract: the last byte alone says how much is padding; what the rest of the padding holds is
  // not looked at.
  const i32 last = static_cast<signed char>(block[length - 1]);
  if (last < 0 || static_cast<u32>(last) + 1 > length) {
    OPENSSL_cleanse(block, length);
    ZnFree(block);
    return ZNE_UNEXPECTED;
  }
  *out = block;
  *outLength = length - (static_cast<u32>(last) + 1);
  return ZN_OK;
}

}  // namespace zn
