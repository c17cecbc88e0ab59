// Text as a terminal shows it. Widths come from the C library's own tables through the C.UTF-8
// locale, so they do not depend on the user's locale.
#include "text.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cwchar>

namespace zn::ctl {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
  char32_t code;
  size_t length;  // bytes taken
  bool valid;
};

Decoded DecodeOne(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return {first, 1, true};
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC2 ? 2 : 0;
  if (length == 0 || first > 0xF4 || text.size() < length) return {kReplacement, 1, false};
  char32_t code = first & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {kReplacement, 1, false};
    code = (code << 6) | (byte(i) & 0x3Fu);
  }
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  if (code < kSmallest[length] || code > 0x10FFFF || surrogate) return {kReplacement, 1, false};
  return {code, length, true};
}

void AppendUtf8(char32_t code, std::string* out) {
  const auto put = [&](char32_t value) { out->push_back(static_cast<char>(value)); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xC0 | (code >> 6));
    put(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    put(0xE0 | (code >> 12));
    put(0x80 | ((code >> 6) & 0x3F));
    put(0x80 | (code & 0x3F));
  } else {
    put(0xF0 | (code >> 18));
    put(0x80 | ((code >> 12) & 0x3F));
    put(0x80 | ((code >> 6) & 0x3F));
    put(0x80 | (code & 0x3F));
  }
}

size_t WidthOf(char32_t code) {
  if (code >= 0x20 && code < 0x7F) return 1;
  // wcwidth reads the calling thread's locale; the previous one is put back so that nothing else
  // on the thread notices.
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  if (utf8 == nullptr) return 1;
  const locale_t before = uselocale(utf8);
  const int width = wcwidth(static_cast<wchar_t>(code));
  uselocale(before);
  return width < 0 ? 0 : static_cast<size_t>(width);
}

bool IsControl(char32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

// Characters that turn the writing direction or hide text: a name could pose as another with them.
bool IsDeceptive(char32_t code) {
  return (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

void AppendEscape(char32_t code, std::string* out) {
  constexpr char kDigits[] = "0123456789abcdef";
  switch (code) {
    case '\n':
      *out += "\\n";
      return;
    case '\t':
      *out += "\\t";
      return;
    case '\r':
      *out += "\\r";
      return;
    default:
      break;
  }
  const bool isShort = code < 0x100;
  *out += isShort ? "\\x" : "\\u";
  for (int shift = isShort ? 4 : 12; shift >= 0; shift -= 4) {
    out->push_back(kDigits[(code >> shift) & 0xF]);
  }
}

// Bytes of `text` that fit in `width` columns, and the columns they take.
std::pair<size_t, size_t> Fitting(std::string_view text, size_t width) {
  size_t bytes = 0;
  size_t columns = 0;
  while (bytes < text.size()) {
    const Decoded one = DecodeOne(text.substr(bytes));
    const size_t next = columns + WidthOf(one.code);
    if (next > width) break;
    columns = next;
    bytes += one.length;
  }
  return {bytes, columns};
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

}  // namespace

std::string ToUtf8(std::u16string_view wide) {
  std::string out;
  for (size_t i = 0; i < wide.size(); ++i) {
    char32_t code = wide[i];
    const bool high = code >= 0xD800 && code < 0xDC00;
    const bool pair = high && i + 1 < wide.size() && wide[i + 1] >= 0xDC00 && wide[i + 1] < 0xE000;
    if (pair) {
      code = 0x10000 + ((code - 0xD800) << 10) + (wide[++i] - 0xDC00u);
    } else if (code >= 0xD800 && code < 0xE000) {
      code = kReplacement;
    }
    AppendUtf8(code, &out);
  }
  return out;
}

std::string ToUtf8(const ZnWChar* wide) {
  return wide == nullptr ? std::string() : ToUtf8(std::u16string_view(wide));
}

std::u16string ToUtf16(std::string_view text) {
  std::u16string out;
  while (!text.empty()) {
    const Decoded one = DecodeOne(text);
    text.remove_prefix(one.length);
    if (one.code < 0x10000) {
      out.push_back(static_cast<char16_t>(one.code));
      continue;
    }
    out.push_back(static_cast<char16_t>(0xD800 + ((one.code - 0x10000) >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + ((one.code - 0x10000) & 0x3FF)));
  }
  return out;
}

std::string Printable(std::string_view text, bool keepLines) {
  std::string out;
  while (!text.empty()) {
    const Decoded one = DecodeOne(text);
    text.remove_prefix(one.length);
    const bool kept = keepLines && (one.code == '\n' || one.code == '\t');
    if (!kept && (IsControl(one.code) || IsDeceptive(one.code))) {
      AppendEscape(one.code, &out);
    } else {
      AppendUtf8(one.code, &out);
    }
  }
  return out;
}

size_t DisplayWidth(std::string_view text) {
  return Fitting(text, SIZE_MAX).second;
}

std::string CutToWidth(std::string_view text, size_t width) {
  if (DisplayWidth(text) <= width) return std::string(text);
  if (width == 0) return {};
  return std::string(text.substr(0, Fitting(text, width - 1).first)) + "…";
}

std::string PadToWidth(std::string_view text, size_t width) {
  std::string out = CutToWidth(text, width);
  const size_t columns = DisplayWidth(out);
  return out.append(width - std::min(width, columns), ' ');
}

std::vector<std::string> Wrap(std::string_view text, size_t width) {
  width = std::max<size_t>(width, 2);  // a wide character must fit, or nothing would ever advance
  std::vector<std::string> lines;
  while (DisplayWidth(text) > width) {
    size_t bytes = Fitting(text, width).first;
    const size_t blank = text.rfind(' ', bytes);
    const bool atBlank = blank != std::string_view::npos && blank > 0;
    if (atBlank) bytes = blank;
    lines.emplace_back(text.substr(0, bytes));
    text.remove_prefix(bytes + (atBlank ? 1 : 0));
  }
  if (!text.empty() || lines.empty()) lines.emplace_back(text);
  return lines;
}

namespace {

// Takes the digits a text begins with off it, and gives them without leading zeros.
std::string_view TakeNumber(std::string_view* text) {
  size_t length = 0;
  while (length < text->size() && IsDigit((*text)[length])) ++length;
  std::string_view digits = text->substr(0, length);
  text->remove_prefix(length);
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  return digits;
}

}  // namespace

bool NaturalLess(std::string_view a, std::string_view b) {
  std::string_view restA = a;
  std::string_view restB = b;
  while (!restA.empty() && !restB.empty()) {
    if (IsDigit(restA.front()) && IsDigit(restB.front())) {
      const std::string_view numberA = TakeNumber(&restA);
      const std::string_view numberB = TakeNumber(&restB);
      if (numberA.size() != numberB.size()) return numberA.size() < numberB.size();
      if (numberA != numberB) return numberA < numberB;
      continue;
    }
    const auto charA = static_cast<unsigned char>(restA.front());
    const auto charB = static_cast<unsigned char>(restB.front());
    if (charA != charB) return charA < charB;
    restA.remove_prefix(1);
    restB.remove_prefix(1);
  }
  if (restA.empty() != restB.empty()) return restA.empty();
  return a < b;  // "a01" and "a1" differ after all
}

std::string HexOf(const std::vector<u8>& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const u8 byte : bytes) {
    out.push_back(kDigits[byte >> 4]);
    out.push_back(kDigits[byte & 0xF]);
  }
  return out;
}

bool ParseHex(std::string_view text, std::vector<u8>* bytes) {
  const auto digit = [](char c) -> int {
    if (IsDigit(c)) return c - '0';
    const int lower = std::tolower(static_cast<unsigned char>(c));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
  };
  if (text.size() % 2 != 0) return false;
  std::vector<u8> out;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit(text[i]);
    const int low = digit(text[i + 1]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<u8>(high * 16 + low));
  }
  *bytes = std::move(out);
  return true;
}

}  // namespace zn::ctl
