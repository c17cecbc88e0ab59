// Comparison of shared texts without regard to case.
#include "framework/common/znstring/znstring.h"

#include "framework/common/widestring/widestring.h"

namespace zn {

namespace {

template <typename Unit>
Unit Folded(Unit unit) noexcept {
  return unit >= 'A' && unit <= 'Z' ? static_cast<Unit>(unit - 'A' + 'a') : unit;
}

template <typename Unit>
int CompareFolded(std::basic_string_view<Unit> a, std::basic_string_view<Unit> b) noexcept {
  using Traits = std::char_traits<Unit>;
  const size_t shared = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < shared; ++i) {
    const Unit left = Folded(a[i]);
    const Unit right = Folded(b[i]);
    if (!Traits::eq(left, right)) return Traits::lt(left, right) ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

}  // namespace

int CompareNoCase(const String& a, const String& b) noexcept {
  return CompareFolded(a.Text(), b.Text());
}
int CompareNoCase(const WideString& a, const WideString& b) noexcept {
  return CompareFolded(a.Text(), b.Text());
}

}  // namespace zn
