// Tests of caller's pointers. This host has no probe for memory, so null, the first page and
// all-ones are bad and everything else is taken as good. A string is also bad when no terminator
// stands within its limit.
#pragma once

#include <cstdint>
#include <cstring>

#include "zn/types.h"

namespace zn {

[[nodiscard]] inline bool IsGoodPointer(const void* p) noexcept {
  constexpr std::uintptr_t kFirstPage = 4096;
  const auto address = reinterpret_cast<std::uintptr_t>(p);
  return address >= kFirstPage && address != UINTPTR_MAX;
}

// True when a terminator stands within the first `limit` units after at most `limit` characters.
template <typename Unit>
[[nodiscard]] inline bool IsGoodString(const Unit* text, size_t limit) noexcept {
  if (!IsGoodPointer(text)) return false;
  if constexpr (sizeof(Unit) == 1) {
    const size_t units = limit < SIZE_MAX / 2 ? limit + 1 : SIZE_MAX / 2;
    return std::memchr(text, 0, units) != nullptr;
  }
  for (size_t i = 0; i <= limit && i < SIZE_MAX / sizeof(Unit); ++i) {
    if (text[i] == 0) return true;
  }
  return false;
}

inline constexpr size_t kMaxNameLength = 0x1000;  // property and provider names
inline constexpr size_t kMaxTypeLength = 0x2000;  // type names, queries, topics

}  // namespace zn
