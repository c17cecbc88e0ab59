// Conversion between the two kinds of text: UTF-8 in narrow strings, UTF-16 in wide ones, whatever
// the locale. Nothing here fails on bad input: whatever is not well formed becomes U+FFFD, one for
// each longest sequence that could still have begun a character. Any thread.
#pragma once

#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

// Takes one character off the front of a text that is not empty.
[[nodiscard]] char32_t TakeCharacter(std::string_view* text) noexcept;
[[nodiscard]] char32_t TakeCharacter(std::u16string_view* text) noexcept;

// Writes one character; the number of units written. `out` holds at least kMaxNarrowUnits or
// kMaxWideUnits.
inline constexpr size_t kMaxNarrowUnits = 4;
inline constexpr size_t kMaxWideUnits = 2;
size_t PutCharacter(char32_t character, char* out) noexcept;
size_t PutCharacter(char32_t character, ZnWChar* out) noexcept;

[[nodiscard]] std::string ToNarrow(std::u16string_view text);
[[nodiscard]] std::u16string ToWide(std::string_view text);

// The text as it is, but with every ill-formed sequence replaced.
[[nodiscard]] std::string ToWellFormed(std::string_view text);

// One simple capital for one unit, by the host's Unicode tables, independent of the locale that
// ZnSetLocale chose. Units of surrogate pairs and characters whose capital takes several units stay
// as they are.
[[nodiscard]] ZnWChar ToUpper(ZnWChar unit) noexcept;
[[nodiscard]] char32_t ToUpper(char32_t character) noexcept;

// Order without regard to case: -1, 0 or 1, by the capitals of the characters, so that a narrow
// text and the same text made wide compare alike.
[[nodiscard]] int CompareNoCase(std::string_view a, std::string_view b) noexcept;
[[nodiscard]] int CompareNoCase(std::u16string_view a, std::u16string_view b) noexcept;

// Copies in new ZnAlloc blocks, for the caller to free with ZnFree. Null for null, and when memory
// is short.
[[nodiscard]] char* ZnDupA(const char* text) noexcept;
[[nodiscard]] ZnWChar* ZnDupW(const ZnWChar* text) noexcept;
[[nodiscard]] ZnWChar* ZnToWide(const char* text) noexcept;
[[nodiscard]] char* ZnToNarrow(const ZnWChar* text) noexcept;

// Length in bytes with the terminator, as the allocator and the settings store want it; 0 for null.
[[nodiscard]] u32 ZnByteLengthA(const char* text) noexcept;
[[nodiscard]] u32 ZnByteLengthW(const ZnWChar* text) noexcept;

}  // namespace zn
