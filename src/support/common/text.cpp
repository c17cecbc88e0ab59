// UTF-8 and UTF-16, both ways, and the copies made of them.
#include "support/common/text.h"

#include <algorithm>

#include "support/common/block.h"
#include "support/common/platform.h"

namespace zn {

namespace {

// The first byte of a sequence: how many follow, the bits it gives, and the range of the second
// byte, which keeps out overlong forms, surrogates and what lies beyond U+10FFFF.
struct LeadByte {
  int following;
  char32_t bits;
  u8 secondLow;
  u8 secondHigh;
};

constexpr LeadByte Classify(u8 byte) noexcept {
  if (byte >= 0xC2 && byte <= 0xDF) return {1, byte & 0x1Fu, 0x80, 0xBF};
  if (byte == 0xE0) return {2, byte & 0x0Fu, 0xA0, 0xBF};
  if (byte == 0xED) return {2, byte & 0x0Fu, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {2, byte & 0x0Fu, 0x80, 0xBF};
  if (byte == 0xF0) return {3, byte & 0x07u, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {3, byte & 0x07u, 0x80, 0xBF};
  if (byte == 0xF4) return {3, byte & 0x07u, 0x80, 0x8F};
  return {0, kReplacementCharacter, 0, 0};
}

constexpr bool IsHighSurrogate(char32_t unit) noexcept {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(char32_t unit) noexcept {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

template <typename View>
int CompareFolded(View a, View b) noexcept {
  while (!a.empty() && !b.empty()) {
    const char32_t left = TakeCharacter(&a);
    const char32_t right = TakeCharacter(&b);
    if (left == right) continue;
    const char32_t leftCapital = ToUpper(left);
    const char32_t rightCapital = ToUpper(right);
    if (leftCapital != rightCapital) return leftCapital < rightCapital ? -1 : 1;
  }
  if (a.empty() && b.empty()) return 0;
  return a.empty() ? -1 : 1;
}

}  // namespace

char32_t TakeCharacter(std::string_view* text) noexcept {
  const auto first = static_cast<u8>(text->front());
  text->remove_prefix(1);
  if (first < 0x80) return first;
  const LeadByte lead = Classify(first);
  char32_t character = lead.bits;
  u8 low = lead.secondLow;
  u8 high = lead.secondHigh;
  for (int i = 0; i < lead.following; ++i) {
    if (text->empty()) return kReplacementCharacter;
    const auto next = static_cast<u8>(text->front());
    if (next < low || next > high) return kReplacementCharacter;
    character = (character << 6) | (next & 0x3Fu);
    text->remove_prefix(1);
    low = 0x80;
    high = 0xBF;
  }
  return character;
}

char32_t TakeCharacter(std::u16string_view* text) noexcept {
  const char32_t first = text->front();
  text->remove_prefix(1);
  if (!IsHighSurrogate(first)) return IsLowSurrogate(first) ? kReplacementCharacter : first;
  if (text->empty() || !IsLowSurrogate(text->front())) return kReplacementCharacter;
  const char32_t second = text->front();
  text->remove_prefix(1);
  return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

size_t PutCharacter(char32_t character, char* out) noexcept {
  const auto put = [&](size_t at, char32_t value) { out[at] = static_cast<char>(value); };
  if (character < 0x80) {
    put(0, character);
    return 1;
  }
  if (character < 0x800) {
    put(0, 0xC0 | (character >> 6));
    put(1, 0x80 | (character & 0x3F));
    return 2;
  }
  if (character < 0x10000) {
    put(0, 0xE0 | (character >> 12));
    put(1, 0x80 | ((character >> 6) & 0x3F));
    put(2, 0x80 | (character & 0x3F));
    return 3;
  }
  put(0, 0xF0 | (character >> 18));
  put(1, 0x80 | ((character >> 12) & 0x3F));
  put(2, 0x80 | ((character >> 6) & 0x3F));
  put(3, 0x80 | (character & 0x3F));
  return 4;
}

size_t PutCharacter(char32_t character, ZnWChar* out) noexcept {
  if (character < 0x10000) {
    out[0] = static_cast<ZnWChar>(character);
    return 1;
  }
  out[0] = static_cast<ZnWChar>(0xD800 + ((character - 0x10000) >> 10));
  out[1] = static_cast<ZnWChar>(0xDC00 + ((character - 0x10000) & 0x3FF));
  return 2;
}

namespace {

// Character by character from one form to another; what is no character becomes U+FFFD.
template <typename To, size_t kMaxUnits, typename From>
std::basic_string<To> Convert(std::basic_string_view<From> text) {
  std::basic_string<To> result;
  result.reserve(text.size());
  while (!text.empty()) {
    To units[kMaxUnits];
    const size_t count = PutCharacter(TakeCharacter(&text), units);
    result.append(units, count);
  }
  return result;
}

}  // namespace

std::string ToNarrow(std::u16string_view text) {
  return Convert<char, kMaxNarrowUnits>(text);
}

std::u16string ToWide(std::string_view text) {
  return Convert<ZnWChar, kMaxWideUnits>(text);
}

std::string ToWellFormed(std::string_view text) {
  return Convert<char, kMaxNarrowUnits>(text);
}

char32_t ToUpper(char32_t character) noexcept {
  if (character < 0x80) {
    return character >= 'a' && character <= 'z' ? character - ('a' - 'A') : character;
  }
  return character <= 0xFFFF ? HostToUpper(static_cast<ZnWChar>(character)) : character;
}

ZnWChar ToUpper(ZnWChar unit) noexcept {
  return static_cast<ZnWChar>(ToUpper(static_cast<char32_t>(unit)));
}

int CompareNoCase(std::string_view a, std::string_view b) noexcept {
  return CompareFolded(a, b);
}
int CompareNoCase(std::u16string_view a, std::u16string_view b) noexcept {
  return CompareFolded(a, b);
}

char* ZnDupA(const char* text) noexcept {
  return text == nullptr ? nullptr : TextToBlock(std::string_view(text));
}
ZnWChar* ZnDupW(const ZnWChar* text) noexcept {
  return text == nullptr ? nullptr : TextToBlock(std::u16string_view(text));
}

ZnWChar* ZnToWide(const char* text) noexcept {
  if (text == nullptr) return nullptr;
  try {
    return TextToBlock(std::u16string_view(ToWide(text)));
  } catch (const std::exception&) {
    return nullptr;
  }
}

char* ZnToNarrow(const ZnWChar* text) noexcept {
  if (text == nullptr) return nullptr;
  try {
    return TextToBlock(std::string_view(ToNarrow(text)));
  } catch (const std::exception&) {
    return nullptr;
  }
}

u32 ZnByteLengthA(const char* text) noexcept {
  return text == nullptr ? 0 : static_cast<u32>(std::string_view(text).size() + 1);
}
u32 ZnByteLengthW(const ZnWChar* text) noexcept {
  return text == nullptr
             ? 0
             : static_cast<u32>((std::u16string_view(text).size() + 1) * sizeof(ZnWChar));
}

}  // namespace zn
