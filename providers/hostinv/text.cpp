// Text helpers; see the header.
#include "text.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>

namespace hostinv {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\0';
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// How a first byte of UTF-8 goes on: bytes that follow, the bits it brings, the least code point
// that may be written with so many bytes.
struct Lead {
  unsigned following;
  char32_t bits;
  char32_t least;
};

Lead LeadOf(unsigned char byte) {
  if (byte < 0x80) return {0, byte, 0};
  if ((byte & 0xE0U) == 0xC0) return {1, byte & 0x1FU, 0x80};
  if ((byte & 0xF0U) == 0xE0) return {2, byte & 0x0FU, 0x800};
  if ((byte & 0xF8U) == 0xF0) return {3, byte & 0x07U, 0x10000};
  return {0, kReplacement, 0};
}

// Takes one code point off the front; a bad byte yields the replacement and costs one byte.
char32_t TakeCodePoint(std::string_view* bytes) {
  const Lead lead = LeadOf(static_cast<unsigned char>(bytes->front()));
  char32_t code = lead.bits;
  bool good = lead.following < bytes->size();
  for (unsigned i = 1; good && i <= lead.following; ++i) {
    const auto next = static_cast<unsigned char>((*bytes)[i]);
    good = (next & 0xC0U) == 0x80;
    code = (code << 6U) | (next & 0x3FU);
  }
  good = good && code >= lead.least && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  bytes->remove_prefix(good ? lead.following + 1 : 1);
  return good ? code : kReplacement;
}

void AppendUtf8(char32_t code, std::string* out) {
  const auto put = [out](char32_t value) { out->push_back(static_cast<char>(value)); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xC0 | (code >> 6U));
    return put(0x80 | (code & 0x3FU));
  }
  if (code < 0x10000) {
    put(0xE0 | (code >> 12U));
  } else {
    put(0xF0 | (code >> 18U));
    put(0x80 | ((code >> 12U) & 0x3FU));
  }
  put(0x80 | ((code >> 6U) & 0x3FU));
  put(0x80 | (code & 0x3FU));
}

}  // namespace

std::optional<std::string> ReadFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string text;
  std::array<char, 4096> buffer{};
  ssize_t got = 0;
  do {
    got = read(fd, buffer.data(), buffer.size());
    if (got > 0) text.append(buffer.data(), static_cast<std::size_t>(got));
  } while (got > 0 || (got < 0 && errno == EINTR));
  close(fd);
  if (got < 0) return std::nullopt;
  return text;
}

std::string ReadValue(const std::string& path) {
  const auto text = ReadFile(path);
  return text ? std::string(Trim(*text)) : std::string();
}

std::uint64_t ReadNumber(const std::string& path) {
  return ParseNumber(ReadValue(path));
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::vector<std::string_view> SplitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

std::vector<std::string_view> SplitFields(std::string_view text) {
  std::vector<std::string_view> fields;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(" \t\n", at)) != std::string_view::npos) {
    const std::size_t end = text.find_first_of(" \t\n", at);
    fields.push_back(text.substr(at, end - at));
    if (end == std::string_view::npos) break;
    at = end;
  }
  return fields;
}

bool SplitPair(std::string_view line, char separator, std::string_view* key,
               std::string_view* value) {
  const std::size_t at = line.find(separator);
  if (at == std::string_view::npos) return false;
  *key = Trim(line.substr(0, at));
  *value = Trim(line.substr(at + 1));
  return true;
}

std::uint64_t ParseNumber(std::string_view text) {
  std::uint64_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  return result.ec == std::errc() ? value : 0;
}

std::string DecodeHexEscapes(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' &&
                        HexDigit(text[i + 2]) >= 0 && HexDigit(text[i + 3]) >= 0;
    if (!escape) {
      out.push_back(text[i]);
      continue;
    }
    out.push_back(static_cast<char>(HexDigit(text[i + 2]) * 16 + HexDigit(text[i + 3])));
    i += 3;
  }
  return out;
}

std::u16string ToUtf16(std::string_view bytes) {
  std::u16string out;
  while (!bytes.empty()) {
    const char32_t code = TakeCodePoint(&bytes);
    if (code < 0x10000) {
      out.push_back(static_cast<char16_t>(code));
      continue;
    }
    out.push_back(static_cast<char16_t>(0xD7C0 + (code >> 10U)));
    out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FFU)));
  }
  return out;
}

std::string FromUtf16(std::u16string_view wide) {
  std::string out;
  for (std::size_t i = 0; i < wide.size(); ++i) {
    const char32_t unit = wide[i];
    const char32_t next = i + 1 < wide.size() ? wide[i + 1] : 0;
    const bool isPair = (unit & 0xFC00U) == 0xD800 && (next & 0xFC00U) == 0xDC00;
    const bool isSurrogate = (unit & 0xF800U) == 0xD800;
    if (isPair) ++i;
    AppendUtf8(isPair        ? 0x10000 + ((unit & 0x3FFU) << 10U) + (next & 0x3FFU)
               : isSurrogate ? kReplacement
                             : unit,
               &out);
  }
  return out;
}

std::string CleanUtf8(std::string_view bytes) {
  std::string out;
  while (!bytes.empty()) AppendUtf8(TakeCodePoint(&bytes), &out);
  return out;
}

}  // namespace hostinv
