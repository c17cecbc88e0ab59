// An object id as a value. Written without the library so that it can be used before the bus runs.
#include "ids.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstring>

namespace zn::ctl {
namespace {

constexpr size_t kDigitsLength = 36;

bool IsHex(char c) {
  return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool IsDashPlace(size_t i) {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

std::string_view WithoutBraces(std::string_view text) {
  if (!text.empty() && text.front() == '{') text.remove_prefix(1);
  if (!text.empty() && text.back() == '}') text.remove_suffix(1);
  return text;
}

}  // namespace

bool operator==(const Id& a, const Id& b) {
  return std::memcmp(&a.guid, &b.guid, sizeof(GUID)) == 0;
}

bool operator<(const Id& a, const Id& b) {
  if (a.guid.Data1 != b.guid.Data1) return a.guid.Data1 < b.guid.Data1;
  if (a.guid.Data2 != b.guid.Data2) return a.guid.Data2 < b.guid.Data2;
  if (a.guid.Data3 != b.guid.Data3) return a.guid.Data3 < b.guid.Data3;
  return std::memcmp(a.guid.Data4, b.guid.Data4, sizeof(a.guid.Data4)) < 0;
}

size_t IdHash::operator()(const Id& id) const noexcept {
  size_t words[2];
  static_assert(sizeof(words) == sizeof(GUID));
  std::memcpy(words, &id.guid, sizeof(words));
  return words[0] ^ (words[1] * 0x9E3779B97F4A7C15u);
}

std::string IdDigits(const Id& id) {
  const GUID& g = id.guid;
  const u8* d = g.Data4;
  return fmt::format("{:08x}-{:04x}-{:04x}-{:02x}{:02x}-{:02x}{:02x}{:02x}{:02x}{:02x}{:02x}",
                     g.Data1, g.Data2, g.Data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

std::string IdText(const Id& id) {
  return "{" + IdDigits(id) + "}";
}

bool LooksLikeIdPrefix(std::string_view text) {
  const std::string_view digits = WithoutBraces(text);
  if (digits.empty() || digits.size() > kDigitsLength) return false;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (IsDashPlace(i) ? digits[i] != '-' : !IsHex(digits[i])) return false;
  }
  return text.back() != '}' || (digits.size() == kDigitsLength && text.front() == '{');
}

std::optional<Id> ParseId(std::string_view text) {
  const std::string_view digits = WithoutBraces(text);
  if (digits.size() != kDigitsLength || !LooksLikeIdPrefix(text)) return std::nullopt;
  if ((text.front() == '{') != (text.back() == '}')) return std::nullopt;
  const auto number = [&](size_t from, size_t length) {
    return static_cast<u32>(std::stoul(std::string(digits.substr(from, length)), nullptr, 16));
  };
  Id id;
  id.guid.Data1 = number(0, 8);
  id.guid.Data2 = static_cast<u16>(number(9, 4));
  id.guid.Data3 = static_cast<u16>(number(14, 4));
  constexpr size_t kBytePlaces[] = {19, 21, 24, 26, 28, 30, 32, 34};
  for (size_t i = 0; i < 8; ++i) id.guid.Data4[i] = static_cast<u8>(number(kBytePlaces[i], 2));
  return id;
}

bool HasIdPrefix(const Id& id, std::string_view prefix) {
  const std::string_view digits = WithoutBraces(prefix);
  const std::string whole = IdDigits(id);
  return digits.size() <= whole.size() &&
         std::equal(digits.begin(), digits.end(), whole.begin(), [](char a, char b) {
           return std::tolower(static_cast<unsigned char>(a)) == b;
         });
}

}  // namespace zn::ctl
