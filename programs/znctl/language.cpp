// The table of locales that have names. A language stands first, with its home country behind it.
#include "language.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

namespace zn::ctl {
namespace {

struct LocaleRow {
  std::string_view name;
  u32 id;
};

constexpr LocaleRow kLocales[] = {
    {"cs-CZ", 0x405}, {"da-DK", 0x406},  {"de-DE", 0x407}, {"de-AT", 0xC07}, {"de-CH", 0x807},
    {"en-US", 0x409}, {"en-GB", 0x809},  {"es-ES", 0xC0A}, {"fi-FI", 0x40B}, {"fr-FR", 0x40C},
    {"fr-CA", 0xC0C}, {"fr-CH", 0x100C}, {"hu-HU", 0x40E}, {"it-IT", 0x410}, {"ja-JP", 0x411},
    {"ko-KR", 0x412}, {"nl-NL", 0x413},  {"nb-NO", 0x414}, {"pl-PL", 0x415}, {"pt-PT", 0x816},
    {"pt-BR", 0x416}, {"ru-RU", 0x419},  {"sv-SE", 0x41D}, {"tr-TR", 0x41F}, {"uk-UA", 0x422},
    {"zh-CN", 0x804}, {"zh-TW", 0x404},
};

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return out;
}

std::optional<u32> ParseNumber(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  u32 number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, isHex ? 16 : 10);
  if (error != std::errc{} || end != text.data() + text.size() || number == 0) return std::nullopt;
  return number;
}

std::string_view LanguageOf(std::string_view name) {
  return name.substr(0, name.find('-'));
}

}  // namespace

std::optional<u32> ParseLocale(std::string_view text) {
  if (const auto number = ParseNumber(text)) return number;
  std::string name = Lower(text.substr(0, text.find_first_of(".@")));
  std::replace(name.begin(), name.end(), '_', '-');
  for (const LocaleRow& row : kLocales) {
    if (Lower(row.name) == name) return row.id;
  }
  for (const LocaleRow& row : kLocales) {
    if (LanguageOf(row.name) == LanguageOf(name)) return row.id;
  }
  return std::nullopt;
}

u32 LocaleOfEnvironment() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    return ParseLocale(value).value_or(kEnglish);
  }
  return kEnglish;
}

std::string LocaleName(u32 locale) {
  for (const LocaleRow& row : kLocales) {
    if (row.id == locale) return std::string(row.name);
  }
  return fmt::to_string(locale);
}

u32 HomeLocale(u32 locale) {
  const std::string name = LocaleName(locale);
  for (const LocaleRow& row : kLocales) {
    if (LanguageOf(row.name) == LanguageOf(name)) return row.id;
  }
  return locale;
}

}  // namespace zn::ctl
