// Blocks that cross the boundary: made here and nowhere else, freed by the caller with ZnFree.
#pragma once

#include <cstring>
#include <string_view>
#include <vector>

#include "zn/memory.h"

namespace zn {

// A copy of `bytes` bytes, or null when memory is short. For 0 bytes: null.
[[nodiscard]] inline void* CopyToBlock(const void* data, size_t bytes) noexcept {
  if (bytes == 0 || bytes > 0xFFFFFFFFu) return nullptr;
  void* block = ZnAlloc(static_cast<u32>(bytes));
  if (block != nullptr) std::memcpy(block, data, bytes);
  return block;
}

// The items in one block, or null for none or when memory is short.
template <typename T>
[[nodiscard]] T* ArrayToBlock(const std::vector<T>& items) noexcept {
  return static_cast<T*>(CopyToBlock(items.data(), items.size() * sizeof(T)));
}

// A terminated copy of a text.
[[nodiscard]] inline char* TextToBlock(std::string_view text) noexcept {
  char* block = static_cast<char*>(ZnAlloc(static_cast<u32>(text.size() + 1)));
  if (block != nullptr) std::memcpy(block, text.data(), text.size());
  return block;
}
[[nodiscard]] inline ZnWChar* TextToBlock(std::u16string_view text) noexcept {
  auto* block =
      static_cast<ZnWChar*>(ZnAlloc(static_cast<u32>((text.size() + 1) * sizeof(ZnWChar))));
  if (block != nullptr) std::memcpy(block, text.data(), text.size() * sizeof(ZnWChar));
  return block;
}

}  // namespace zn
