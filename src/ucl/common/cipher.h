// The cipher of the logon block: DES-X in CBC mode (outer and inner whitening of each block's input
// and output), the one scheme that a session agrees on. It hides a password from a casual look at
// the wire and no more: the keys are constants of the program, the same on both ends, and any peer
// needs the same five values (docs/wire-format.md). They were drawn once from a random source:
//
//   key 0              32 F6 4D 26 EF 8B AB 8D
//   key 1              29 FC E8 E5 D5 E2 F8 37
//   initial vector     92 AA A4 A6 DA BB 0E D4
//   input whitening    6E D4 6B A2 CA 0A 12 75
//   output whitening   F8 29 3A 6F EF 76 0D 0F
//
// Padding: 1 to 8 bytes 0, 1, 2, ... follow the plain text, so that the last byte is the count less
// one; a length that is a multiple of 8 gets 8 of them.
#pragma once

#include "zn/types.h"

namespace zn {

inline constexpr u32 kEncryptionDes = 2;  // bit of the session option `Encryption`
inline constexpr u32 kCipherKeyCount = 2;

// Both make *out a block for ZnFree. With a null argument, `encryption` 0 or a negative key index
// nothing happens: 0, the outputs stay. A key index beyond the table uses the schedule of key 0.
// `length` 0 is a text of no bytes, and `in` must still not be null. Any thread.
// ZNE_OUT_OF_MEMORY when there is no block; for EncipherBlock also beyond 2 GiB.
[[nodiscard]] u32 EncipherBlock(const void* in, u32 length, u32 encryption, i32 keyIndex,
                                void** out, u32* outLength);
// Also ZNE_UNEXPECTED for a length that is no multiple of 8 (0 included) and for a last byte that
// is negative or says more than the text has.
[[nodiscard]] u32 DecipherBlock(const void* in, u32 length, u32 encryption, i32 keyIndex,
                                void** out, u32* outLength);

}  // namespace zn
