// Text as a terminal shows it: UTF-8 and UTF-16 conversion, display width, cutting and wrapping by
// columns, and the escaping that keeps a name from a disk label from steering the terminal. Pure
// functions, any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn::ctl {

std::string ToUtf8(std::u16string_view wide);
std::string ToUtf8(const ZnWChar* wide);
std::u16string ToUtf16(std::string_view text);

// Control characters become \x1b and the like, bytes that are no UTF-8 become U+FFFD. Line breaks
// and tabs are control characters too, unless keepLines.
std::string Printable(std::string_view text, bool keepLines = false);

// Columns that a terminal needs; wide characters count two, combining ones none.
size_t DisplayWidth(std::string_view text);

// At most `width` columns; what does not fit gives way to "…".
std::string CutToWidth(std::string_view text, size_t width);

// Cut or filled with blanks to exactly `width` columns.
std::string PadToWidth(std::string_view text, size_t width);

// Lines of at most `width` columns, broken at blanks where there are any. Never empty.
std::vector<std::string> Wrap(std::string_view text, size_t width);

// Order in which "sda2" comes before "sda10".
bool NaturalLess(std::string_view a, std::string_view b);

std::string HexOf(const std::vector<u8>& bytes);
bool ParseHex(std::string_view text, std::vector<u8>* bytes);

}  // namespace zn::ctl
