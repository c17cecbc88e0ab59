// Reading a password without showing it.
#pragma once

#include <cstddef>

namespace zn {

inline constexpr size_t kPasswordBytes = 256;  // the terminator among them

// Reads from `in` until a carriage return, a newline, the end of the input or a full buffer, and
// writes a '*' to `out` for each character; a backspace takes the last one back. When `in` is a
// terminal, its echo is off meanwhile and Ctrl-C breaks the reading off.
enum class PasswordEnd { kComplete, kInterrupted, kFailed };
[[nodiscard]] PasswordEnd ReadPassword(int in, int out, char (&password)[kPasswordBytes]) noexcept;

}  // namespace zn
