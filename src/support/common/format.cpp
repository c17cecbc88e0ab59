// Formats without wide text (nearly all) go to vsnprintf as they are. A format with one is walked
// conversion by conversion, each argument taken by its type and printed by a format of its own.
#include "support/common/format.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "support/common/text.h"
#include "zn/types.h"

namespace zn {

namespace {

enum class Length { kNone, kChar, kShort, kLong, kLongLong, kLongDouble, kMax, kSize, kDifference };

// One conversion: %[flags][width][.precision][length]conversion.
struct Conversion {
  std::string flags;
  int width = -1;      // -1: none
  int precision = -1;  // -1: none
  Length length = Length::kNone;
  char kind = '\0';
};

// A va_list that can be handed on by reference.
struct Arguments {
  va_list list;
};

bool IsWide(char kind, Length length) noexcept {
  return kind == 'S' || kind == 'C' || (length == Length::kLong && (kind == 's' || kind == 'c'));
}

int TakeNumber(const char** at) noexcept {
  int number = 0;
  for (; **at >= '0' && **at <= '9'; ++*at) number = std::min(number * 10 + (**at - '0'), 1 << 20);
  return number;
}

struct LengthRow {
  std::string_view text;
  Length length;
};
constexpr LengthRow kLengths[] = {
    {"hh", Length::kChar}, {"h", Length::kShort},    {"ll", Length::kLongLong},
    {"l", Length::kLong},  {"q", Length::kLongLong}, {"L", Length::kLongDouble},
    {"j", Length::kMax},   {"z", Length::kSize},     {"t", Length::kDifference},
};

Length TakeLength(const char** at) noexcept {
  for (const LengthRow& row : kLengths) {
    if (std::strncmp(*at, row.text.data(), row.text.size()) != 0) continue;
    *at += row.text.size();
    return row.length;
  }
  return Length::kNone;
}

// Reads a conversion from behind the '%'. With `arguments` null, '*' takes nothing: for looking
// through a format only.
Conversion TakeConversion(const char** at, Arguments* arguments) {
  Conversion c;
  while (**at != '\0' && std::strchr("-+ #0'", **at) != nullptr) c.flags += *(*at)++;
  if (**at == '*') {
    ++*at;
    const int width = arguments != nullptr ? va_arg(arguments->list, int) : 0;
    if (width < 0) c.flags += '-';
    c.width = std::min(width < 0 ? -std::max(width, -(1 << 20)) : width, 1 << 20);
  } else if (**at >= '0' && **at <= '9') {
    c.width = TakeNumber(at);
  }
  if (**at == '.') {
    ++*at;
    if (**at == '*') {
      ++*at;
      const int precision = arguments != nullptr ? va_arg(arguments->list, int) : 0;
      c.precision = std::max(precision, -1);
    } else {
      c.precision = TakeNumber(at);
    }
  }
  c.length = TakeLength(at);
  if (**at != '\0') c.kind = *(*at)++;
  return c;
}

bool NeedsOwnWalk(const char* format) {
  for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
    ++at;
    const Conversion c = TakeConversion(&at, nullptr);
    if (IsWide(c.kind, c.length) || c.kind == 'n') return true;
  }
  return false;
}

std::string Print(const char* format, va_list arguments) {
  char buffer[1024];
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, sizeof(buffer), format, arguments);
  std::string result;
  if (length < 0) {
    result = format;
  } else if (static_cast<size_t>(length) < sizeof(buffer)) {
    result.assign(buffer, static_cast<size_t>(length));
  } else {
    result.resize(static_cast<size_t>(length));
    std::vsnprintf(result.data(), result.size() + 1, format, again);
  }
  va_end(again);
  return result;
}

std::string PrintOne(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string result = Print(format, arguments);
  va_end(arguments);
  return result;
}

// The conversion as a format of its own, with `length` and `kind` in it.
std::string FormatOf(const Conversion& c, std::string_view length, char kind) {
  std::string format = "%" + c.flags;
  if (c.width >= 0) format += std::to_string(c.width);
  if (c.precision >= 0) format += "." + std::to_string(c.precision);
  format += length;
  return format + kind;
}

long long TakeSigned(Length length, Arguments& a) {
  switch (length) {
    case Length::kChar:
      return static_cast<signed char>(va_arg(a.list, int));
    case Length::kShort:
      return static_cast<short>(va_arg(a.list, int));
    case Length::kLong:
      return va_arg(a.list, long);
    case Length::kLongLong:
      return va_arg(a.list, long long);
    case Length::kMax:
      return va_arg(a.list, std::intmax_t);
    case Length::kSize:
    case Length::kDifference:
      return va_arg(a.list, std::ptrdiff_t);
    default:
      return va_arg(a.list, int);
  }
}

unsigned long long TakeUnsigned(Length length, Arguments& a) {
  switch (length) {
    case Length::kChar:
      return static_cast<unsigned char>(va_arg(a.list, unsigned));
    case Length::kShort:
      return static_cast<unsigned short>(va_arg(a.list, unsigned));
    case Length::kLong:
      return va_arg(a.list, unsigned long);
    case Length::kLongLong:
      return va_arg(a.list, unsigned long long);
    case Length::kMax:
      return va_arg(a.list, std::uintmax_t);
    case Length::kSize:
    case Length::kDifference:
      return va_arg(a.list, size_t);
    default:
      return va_arg(a.list, unsigned);
  }
}

// Wide text: a precision counts UTF-16 units of the argument, a width bytes of what is written.
std::string PrintWideText(Conversion c, Arguments& a) {
  const ZnWChar* text = va_arg(a.list, const ZnWChar*);
  if (text == nullptr) text = u"(null)";
  size_t units = 0;
  while ((c.precision < 0 || units < static_cast<size_t>(c.precision)) && text[units] != 0) ++units;
  c.precision = -1;
  return PrintOne(FormatOf(c, "", 's').c_str(), ToNarrow({text, units}).c_str());
}

std::string PrintWideCharacter(Conversion c, Arguments& a) {
  const auto unit = static_cast<ZnWChar>(va_arg(a.list, int));
  c.precision = -1;
  return PrintOne(FormatOf(c, "", 's').c_str(), ToNarrow({&unit, 1}).c_str());
}

std::string PrintFloating(const Conversion& c, Arguments& a) {
  if (c.length == Length::kLongDouble) {
    return PrintOne(FormatOf(c, "L", c.kind).c_str(), va_arg(a.list, long double));
  }
  return PrintOne(FormatOf(c, "", c.kind).c_str(), va_arg(a.list, double));
}

std::string PrintConversion(const Conversion& c, std::string_view written, Arguments& a) {
  if (IsWide(c.kind, c.length)) {
    return c.kind == 'S' || c.kind == 's' ? PrintWideText(c, a) : PrintWideCharacter(c, a);
  }
  switch (c.kind) {
    case 'd':
    case 'i':
      return PrintOne(FormatOf(c, "ll", 'd').c_str(), TakeSigned(c.length, a));
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      return PrintOne(FormatOf(c, "ll", c.kind).c_str(), TakeUnsigned(c.length, a));
    case 'a':
    case 'A':
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      return PrintFloating(c, a);
    case 'c':
      return PrintOne(FormatOf(c, "", 'c').c_str(), va_arg(a.list, int));
    case 's':
      return PrintOne(FormatOf(c, "", 's').c_str(), va_arg(a.list, const char*));
    case 'p':
      return PrintOne(FormatOf(c, "", 'p').c_str(), va_arg(a.list, void*));
    case 'n':
      static_cast<void>(va_arg(a.list, void*));
      return {};
    case '%':
      return "%";
    default:
      return std::string(written);  // no conversion of ours: as it stands
  }
}

}  // namespace

std::string FormatText(const char* format, va_list arguments) {
  if (!NeedsOwnWalk(format)) return Print(format, arguments);
  Arguments a;
  va_copy(a.list, arguments);
  std::string result;
  const char* at = format;
  while (*at != '\0') {
    const char* percent = std::strchr(at, '%');
    if (percent == nullptr) {
      result += at;
      break;
    }
    result.append(at, percent);
    at = percent + 1;
    const Conversion c = TakeConversion(&at, &a);
    result += PrintConversion(c, {percent, static_cast<size_t>(at - percent)}, a);
  }
  va_end(a.list);
  return result;
}

}  // namespace zn
