// Capital letters by the C library's Unicode tables. They hang on a locale object of our own, so
// that neither setlocale nor the environment changes them.
#include <locale.h>
#include <wctype.h>

#include "support/common/platform.h"

namespace zn {

ZnWChar HostToUpper(ZnWChar unit) noexcept {
  static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (unicode == nullptr || (unit >= 0xD800 && unit <= 0xDFFF)) return unit;
  const wint_t upper = towupper_l(unit, unicode);
  return upper <= 0xFFFF ? static_cast<ZnWChar>(upper) : unit;
}

}  // namespace zn
