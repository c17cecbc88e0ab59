// printf-like formatting for traces, in which wide text is UTF-16: %S, %ls and %C, %lc take ZnWChar
// text and characters and write UTF-8. %n consumes its argument and writes nothing. Everything else
// is the C library's.
#pragma once

#include <cstdarg>
#include <string>

namespace zn {

[[nodiscard]] std::string FormatText(const char* format, va_list arguments);

}  // namespace zn
