// The shape of an id's text form, "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}": 38 characters, narrow
// or wide. Nothing but the standard library is included: the console includes this too.
#pragma once

#include <cstddef>
#include <string_view>

namespace zn {

inline constexpr size_t kGuidTextLength = 38;
inline constexpr size_t kNoShapeFault = static_cast<size_t>(-1);

// The place of the first character that breaks the shape, which is the length where the text ends
// too early; kNoShapeFault where none does.
// Contract: any letter or digit will do between the hyphens, not hexadecimal ones alone.
template <typename Unit>
[[nodiscard]] constexpr size_t GuidShapeFault(std::basic_string_view<Unit> text) noexcept {
  const auto fits = [](size_t place, Unit c) {
    if (place == 0) return c == Unit{'{'};
    if (place == kGuidTextLength - 1) return c == Unit{'}'};
    if (place == 9 || place == 14 || place == 19 || place == 24) return c == Unit{'-'};
    return (c >= Unit{'0'} && c <= Unit{'9'}) || (c >= Unit{'A'} && c <= Unit{'Z'}) ||
           (c >= Unit{'a'} && c <= Unit{'z'});
  };
  for (size_t i = 0; i < kGuidTextLength; ++i) {
    if (i == text.size() || !fits(i, text[i])) return i;
  }
  return text.size() == kGuidTextLength ? kNoShapeFault : kGuidTextLength;
}

}  // namespace zn
