// Scanning and expansion of templates: see the header.
#include "framework/common/fmtstr/template.h"

#include "support/common/status.h"

namespace zn {

namespace {

// The number that begins at `*at`, which moves behind its digits. 0 when there are none; a number
// beyond 32 bits counts as the largest, which no insertion has.
u32 TakeNumber(std::u16string_view text, size_t* at) noexcept {
  constexpr u64 kLargest = 0xFFFFFFFF;
  u64 number = 0;
  for (; *at < text.size() && text[*at] >= u'0' && text[*at] <= u'9'; ++*at) {
    number = number * 10 + (text[*at] - u'0');
    if (number > kLargest) number = kLargest;
  }
  return static_cast<u32>(number);
}

// The specifier whose "%" stands at `begin`. Nothing but digits may stand in braces, so a pair of
// braces inside another is malformed with the outer one.
[[nodiscard]] bool ReadSpecifier(std::u16string_view text, size_t begin, Specifier* out) noexcept {
  size_t at = begin + 1;
  const bool hasBraces = at < text.size() && text[at] == u'{';
  if (hasBraces) ++at;
  const u32 index = TakeNumber(text, &at);
  if (index == 0) return false;
  if (hasBraces && (at == text.size() || text[at++] != u'}')) return false;
  *out = {begin, at, index};
  return true;
}

// Contract: the pairs are looked for in the whole text, what was inserted into it included.
void CollapsePercents(std::u16string* text) {
  size_t to = 0;
  for (size_t from = 0; from < text->size(); ++from) {
    (*text)[to++] = (*text)[from];
    const bool isPair =
        (*text)[from] == u'%' && from + 1 < text->size() && (*text)[from + 1] == u'%';
    if (isPair) ++from;
  }
  text->resize(to);
}

}  // namespace

SpecifierScan FindSpecifier(std::u16string_view text, size_t from, Specifier* out) noexcept {
  for (size_t at = text.find(u'%', from); at != std::u16string_view::npos;
       at = text.find(u'%', at + 2)) {
    const bool isPercent = at + 1 < text.size() && text[at + 1] == u'%';
    if (isPercent) continue;
    return ReadSpecifier(text, at, out) ? SpecifierScan::kFound : SpecifierScan::kMalformed;
  }
  return SpecifierScan::kNone;
}

u32 ExpandTemplate(std::u16string_view text, InsertionSource& insertions, std::u16string* out) {
  std::u16string done;
  for (;;) {
    Specifier place;
    const SpecifierScan scan = FindSpecifier(text, 0, &place);
    // Contract: a malformed template is no failure; what stands behind the last good specifier is
    // lost with the bad one.
    if (scan == SpecifierScan::kMalformed) break;
    done.append(text.substr(0, scan == SpecifierScan::kFound ? place.begin : text.size()));
    if (scan == SpecifierScan::kNone) break;
    ZN_RETURN_IF_FAILED(insertions.Append(place.index, &done));
    if (done.size() > kMaxExpandedUnits) return ZNE_OUT_OF_MEMORY;
    text.remove_prefix(place.end);
  }
  CollapsePercents(&done);
  *out = std::move(done);
  return ZN_OK;
}

}  // namespace zn
