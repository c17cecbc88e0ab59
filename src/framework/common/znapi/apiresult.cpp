// The block of names.
#include "framework/common/znapi/apiresult.h"

namespace zn {

u32 NamesToCaller(const std::vector<std::string_view>& names, u32* count, char*** out) noexcept {
  if (names.empty()) {
    *out = nullptr;
    *count = 0;
    return ZN_OK;
  }
  size_t bytes = names.size() * sizeof(char*);
  for (const std::string_view name : names) bytes += name.size() + 1;
  if (bytes > 0xFFFFFFFFu) return ZNE_OUT_OF_MEMORY;
  void* block = ZnAlloc(static_cast<u32>(bytes));  // zeroed, so every text is terminated
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  auto** pointers = static_cast<char**>(block);
  char* text = static_cast<char*>(block) + names.size() * sizeof(char*);
  for (size_t i = 0; i < names.size(); ++i) {
    pointers[i] = text;
    std::memcpy(text, names[i].data(), names[i].size());
    text += names[i].size() + 1;
  }
  *out = pointers;
  *count = static_cast<u32>(names.size());
  return ZN_OK;
}

}  // namespace zn
