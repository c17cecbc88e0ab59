// The credential block of a logon: the four texts of the logon record, hidden among the pieces of
// the challenge C (L bytes) that the server gave, so that a block proves freshness:
//
//   C[0,64) user C[64,192) password C[192,320) fourth C[320,448) domain C[448,L)
//
// A text is a big-endian u32 count of UTF-16 units, then the units, each most significant byte
// first, no terminator. The block is L + 16 + 2 * (all units) bytes. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn {

inline constexpr u32 kLeastChallengeLength = 512;
inline constexpr u32 kMostChallengeLength = 2048;

struct Credentials {
  std::u16string user;
  std::u16string password;
  std::u16string domain;  // third string of the logon record
  std::u16string fourth;
};

// Overwrites a text, with the room behind it, and makes it empty.
void WipeText(std::u16string* text) noexcept;

// Credentials that leave nothing secret behind, whatever becomes of them.
struct SecretCredentials : Credentials {
  SecretCredentials() = default;
  ~SecretCredentials() {
    WipeText(&user);  // may be the secret of the shared memory
    WipeText(&password);
  }
  SecretCredentials(const SecretCredentials&) = delete;
  SecretCredentials& operator=(const SecretCredentials&) = delete;
};

// `challenge` has at least 448 bytes (ZNE_UNEXPECTED).
[[nodiscard]] u32 BuildCredentialBlock(std::string_view challenge, const Credentials& credentials,
                                       std::vector<u8>* block);

// Takes a block of anybody apart. ZNE_UNEXPECTED when it is shorter than 512 bytes, when a count
// says more than the block has, when the pieces joined exceed 2048 bytes, or when they are not
// `challenge`. The outputs are written on success only; nothing else is left of the texts.
[[nodiscard]] u32 ReadCredentialBlock(const void* block, u32 length, std::string_view challenge,
                                      Credentials* credentials);

}  // namespace zn
