// The catalog file, against a model that splits the bytes into lines first. The first four bytes of
// an input are the message that is looked for, unless the fifth says to look for one that is there.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/zni18n/catalog.h"

namespace {

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

// Lines as a buffer of 1024 bytes gets them, each up to its first zero.
std::vector<std::string> LinesOf(std::string_view bytes) {
  std::vector<std::string> lines;
  while (!bytes.empty()) {
    const size_t newline = bytes.find('\n');
    const size_t whole = newline == std::string_view::npos ? bytes.size() : newline + 1;
    const size_t length = std::min<size_t>(whole, 1023);
    const std::string_view line = bytes.substr(0, length);
    lines.emplace_back(line.substr(0, line.find('\0')));
    bytes.remove_prefix(length);
  }
  return lines;
}

std::string Trimmed(std::string text) {
  const auto isBlank = [](char c) { return std::strchr(" \t\n\v\f\r", c) != nullptr && c != '\0'; };
  while (!text.empty() && isBlank(text.back())) text.pop_back();
  while (!text.empty() && isBlank(text.front())) text.erase(0, 1);
  return text;
}

// By the C library, whose 64 bits tell what does not fit into 32.
u32 NumberOf(const std::string& key) {
  std::string text = Trimmed(key);
  const bool negative = !text.empty() && text[0] == '-';
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.erase(0, 1);
  // A second sign, or blanks behind the first, would be read by strtoul once more.
  if (!text.empty() && std::strchr("+- \t\n\v\f\r", text[0]) != nullptr) return 0;
  const unsigned long long number = std::strtoull(text.c_str(), nullptr, 16);
  const u32 bounded = number > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<u32>(number);
  return negative ? 0 - bounded : bounded;
}

struct Line {
  u32 number;
  std::string text;
};

std::optional<Line> Parse(const std::string& raw) {
  const std::string line = Trimmed(raw);
  if (line.empty() || line[0] == '#') return std::nullopt;
  const size_t equals = line.find('=');
  if (equals == std::string::npos) return Line{0, line};
  return Line{NumberOf(line.substr(0, equals)), Trimmed(line.substr(equals + 1))};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 6) return 0;
  u32 wanted = 0;
  std::memcpy(&wanted, data, sizeof(wanted));
  std::string bytes(reinterpret_cast<const char*>(data + 5), size - 5);
  std::vector<Line> lines;
  for (const std::string& raw : LinesOf(bytes)) {
    if (const auto line = Parse(raw)) lines.push_back(*line);
  }
  if (data[4] % 2 == 1 && !lines.empty()) wanted = lines[wanted % lines.size()].number;
  const auto expected = std::find_if(lines.begin(), lines.end(),
                                     [&](const Line& line) { return line.number == wanted; });
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      fmemopen(bytes.data(), bytes.size(), "r"), &std::fclose);
  Require(file != nullptr, "a stream over the bytes");
  std::string found;
  const bool isFound = zn::FindMessage(file.get(), wanted, &found);
  Require(isFound == (expected != lines.end()), "whether there is such a message");
  if (isFound) Require(found == expected->text, "the text");
  return 0;
}
