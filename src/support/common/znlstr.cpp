// The exported string family. Null texts are empty ones, so that none of these can fault on them.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "support/common/text.h"
#include "zn/text.h"

namespace zn {

namespace {

std::string_view View(const char* text) noexcept {
  return text == nullptr ? std::string_view("") : std::string_view(text);
}
std::u16string_view View(const ZnWChar* text) noexcept {
  return text == nullptr ? std::u16string_view(u"") : std::u16string_view(text);
}

// Copies a text with its terminator; `from` may overlap.
template <typename Unit, typename Text>
Unit* CopyTo(Unit* to, Text from) noexcept {
  if (to == nullptr) return nullptr;
  std::memmove(to, from.data(), from.size() * sizeof(Unit));
  to[from.size()] = 0;
  return to;
}

// At most `count` units, and zeros in what room is left.
template <typename Unit, typename Text>
Unit* CopyAtMost(Unit* to, Text from, i32 count) noexcept {
  if (to == nullptr || count <= 0) return to;
  const auto room = static_cast<size_t>(count);
  const size_t copied = std::min(from.size(), room);
  std::copy_n(from.data(), copied, to);
  std::fill(to + copied, to + room, Unit{0});
  return to;
}

// Converts whole characters while they fit into `count` units; a terminator when room is left. With
// a null `out`, counts alone. Answers the units written, the terminator not among them.
template <typename Unit, typename Text>
u32 Convert(Unit* out, Text in, size_t count) noexcept {
  size_t written = 0;
  while (!in.empty()) {
    Unit units[kMaxNarrowUnits];
    const size_t needed = PutCharacter(TakeCharacter(&in), units);
    if (out != nullptr) {
      if (written + needed > count) break;
      std::copy_n(units, needed, out + written);
    }
    written += needed;
  }
  if (out != nullptr && written < count) out[written] = 0;
  return static_cast<u32>(written);
}

constexpr u32 kConversionFailed = 0xFFFFFFFFu;

}  // namespace

}  // namespace zn

extern "C" {

i32 ZnlstrlenA(const char* s) {
  return static_cast<i32>(zn::View(s).size());
}
i32 ZnlstrlenW(const ZnWChar* s) {
  return static_cast<i32>(zn::View(s).size());
}

char* ZnlstrcpyA(char* dst, const char* src) {
  return zn::CopyTo(dst, zn::View(src));
}
ZnWChar* ZnlstrcpyW(ZnWChar* dst, const ZnWChar* src) {
  return zn::CopyTo(dst, zn::View(src));
}

char* ZnlstrncpyA(char* dst, const char* src, i32 count) {
  return zn::CopyAtMost(dst, zn::View(src), count);
}
ZnWChar* ZnlstrncpyW(ZnWChar* dst, const ZnWChar* src, i32 count) {
  return zn::CopyAtMost(dst, zn::View(src), count);
}

char* ZnlstrcatA(char* dst, const char* src) {
  if (dst != nullptr) zn::CopyTo(dst + zn::View(dst).size(), zn::View(src));
  return dst;
}
ZnWChar* ZnlstrcatW(ZnWChar* dst, const ZnWChar* src) {
  if (dst != nullptr) zn::CopyTo(dst + zn::View(dst).size(), zn::View(src));
  return dst;
}

i32 ZnlstrcmpA(const char* a, const char* b) {
  return zn::CompareNoCase(zn::View(a), zn::View(b));
}
i32 ZnlstrcmpW(const ZnWChar* a, const ZnWChar* b) {
  return zn::CompareNoCase(zn::View(a), zn::View(b));
}

char* ZnlstruprA(char* s) {
  std::string_view rest = zn::View(s);
  while (!rest.empty()) {
    char* const at = s + (rest.data() - s);
    const char32_t character = zn::TakeCharacter(&rest);
    char capital[zn::kMaxNarrowUnits];
    const size_t length = zn::PutCharacter(zn::ToUpper(character), capital);
    const auto taken = static_cast<size_t>(rest.data() - at);
    const bool wasWellFormed = character != zn::kReplacementCharacter;
    if (wasWellFormed && length == taken) std::memcpy(at, capital, length);
  }
  return s;
}

ZnWChar* ZnlstruprW(ZnWChar* s) {
  for (ZnWChar* at = s; at != nullptr && *at != 0; ++at) *at = zn::ToUpper(*at);
  return s;
}

u32 Znmbstowcs(ZnWChar* out, const char* in, u32 count) {
  return in == nullptr ? zn::kConversionFailed : zn::Convert(out, zn::View(in), count);
}
u32 Znwcstombs(char* out, const ZnWChar* in, u32 count) {
  return in == nullptr ? zn::kConversionFailed : zn::Convert(out, zn::View(in), count);
}

u32 Znwcslen(const ZnWChar* s) {
  return static_cast<u32>(zn::View(s).size());
}

i32 Znwcscmp(const ZnWChar* a, const ZnWChar* b) {
  const int order = zn::View(a).compare(zn::View(b));
  return order == 0 ? 0 : order < 0 ? -1 : 1;
}

}  // extern "C"
