// Wide shared text: the 16-bit twin of String, with the searching operations that the expansion of
// message templates uses.
#pragma once

#include "framework/common/znstring/znstring.h"

namespace zn {

using WideString = SharedText<ZnWChar>;

// Widened from UTF-8 and back.
[[nodiscard]] WideString Widen(std::string_view narrow);
// A new ZnAlloc block with the text in UTF-8, or null when memory is short.
[[nodiscard]] char* ToNarrowCopy(const WideString& text);

// 1-based position of `what` at or behind the 0-based index `from`; 0 when it is not there; -1 when
// `what` is longer than the text.
[[nodiscard]] i32 Find(const WideString& text, std::u16string_view what, u32 from) noexcept;
// The units from index `from` up to and without `to`, cut to the text.
[[nodiscard]] WideString Sub(const WideString& text, u32 from, u32 to);

// Without regard to case, as ZnlstrcmpA and ZnlstrcmpW compare: -1, 0 or 1.
[[nodiscard]] int CompareNoCase(const WideString& a, const WideString& b) noexcept;

}  // namespace zn
