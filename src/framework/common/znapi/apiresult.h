// What the exported frames of objects, databases and types share beyond the frame itself: lists
// that go to the caller, the checks of names, and the flags that a caller may give.
#pragma once

#include <string_view>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "support/common/block.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "zn/types.h"

namespace zn {

// Hands a list over as one block: nothing is written when memory is short, an empty list is count 0
// and a null array.
template <typename T>
[[nodiscard]] u32 ListToCaller(const std::vector<T>& items, u32* count, T** out) noexcept {
  T* block = ArrayToBlock(items);
  if (block == nullptr && !items.empty()) return ZNE_OUT_OF_MEMORY;
  *out = block;
  *count = static_cast<u32>(items.size());
  return ZN_OK;
}

// The same for texts: one block with the pointers first and the terminated texts behind them.
[[nodiscard]] u32 NamesToCaller(const std::vector<std::string_view>& names, u32* count,
                                char*** out) noexcept;

// A type name as a caller gives it.
[[nodiscard]] inline bool IsTypeName(const char* type) noexcept {
  return IsGoodString(type, kMaxTypeLength);
}
[[nodiscard]] inline bool IsNonEmptyTypeName(const char* type) noexcept {
  return IsTypeName(type) && *type != '\0';
}
// Null stands for the root type.
[[nodiscard]] inline bool IsTypeNameOrNull(const char* type) noexcept {
  return type == nullptr || IsTypeName(type);
}
[[nodiscard]] inline std::string_view TypeNameOrRoot(const char* type) noexcept {
  return type == nullptr ? kRootTypeName : std::string_view(type);
}
// Both outputs of a call that returns a list.
[[nodiscard]] inline bool AreListOutputs(const void* count, const void* out) noexcept {
  return IsGoodPointer(count) && IsGoodPointer(out);
}

// What a caller's flags come to: hidden wins over not displayed, whatever else is set. 0 when
// neither is.
[[nodiscard]] constexpr u32 VisibilityFlags(u32 flags) noexcept {
  if ((flags & OBJECT_HIDDEN) != 0) return OBJECT_HIDDEN;
  return flags & OBJECT_NODISPLAY;
}

// The handle of a provider that may be gone.
[[nodiscard]] inline ZnHandle HandleOf(const Provider* provider) noexcept {
  return provider == nullptr ? nullptr : provider->Handle();
}

}  // namespace zn
