// Comparison of shared texts without regard to case.
#include "framework/common/znstring/znstring.h"

#include "framework/common/widestring/widestring.h"
#include "support/common/text.h"

namespace zn {

int CompareNoCase(const String& a, const String& b) noexcept {
  return CompareNoCase(a.Text(), b.Text());
}
int CompareNoCase(const WideString& a, const WideString& b) noexcept {
  return CompareNoCase(a.Text(), b.Text());
}

}  // namespace zn
