// Conversions and searches of wide shared text.
#include "framework/common/widestring/widestring.h"

#include <algorithm>

#include "support/common/block.h"
#include "support/common/text.h"

namespace zn {

WideString Widen(std::string_view narrow) {
  return WideString(std::u16string_view(ToWide(narrow)));
}

char* ToNarrowCopy(const WideString& text) {
  return TextToBlock(ToNarrow(text.Text()));
}

i32 Find(const WideString& text, std::u16string_view what, u32 from) noexcept {
  if (what.size() > text.Length()) return -1;
  const size_t at = text.Text().find(what, from);
  return at == std::u16string_view::npos ? 0 : static_cast<i32>(at + 1);
}

WideString Sub(const WideString& text, u32 from, u32 to) {
  const u32 end = std::min(to, text.Length());
  if (from >= end) return WideString();
  return WideString(text.Text().substr(from, end - from));
}

}  // namespace zn
