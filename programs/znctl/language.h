// Locales by name and by number. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn::ctl {

inline constexpr u32 kEnglish = 0x409;

// "de", "de-DE", "de_DE.UTF-8", "1031", "0x407"; nothing for a name that is not known. A language
// without a region is that of its home country; an unknown region of a known language as well.
std::optional<u32> ParseLocale(std::string_view text);

// The locale that LC_ALL, LC_MESSAGES or LANG names, English where they name none that is known.
u32 LocaleOfEnvironment();

// "de-DE", or the number where there is no name for it.
std::string LocaleName(u32 locale);

// The locale of the same language in its home country; the locale itself where that is not known.
u32 HomeLocale(u32 locale);

}  // namespace zn::ctl
