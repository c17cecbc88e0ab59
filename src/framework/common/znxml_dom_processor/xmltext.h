// The texts inside formalization documents: trimming, splitting into tokens, lists of flag words.
// Pure functions over UTF-8; white space is that of the C locale, whatever the process has chosen.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn {

[[nodiscard]] bool IsXmlSpace(char c) noexcept;
[[nodiscard]] std::string_view TrimXmlText(std::string_view text) noexcept;

struct XmlTokenRule {
  char separator;
  char quote;
  bool splitsAtSeparator = true;
};
// Appends the tokens. White space separates too.
void TokenizeXmlText(std::string_view text, const XmlTokenRule& rule,
                     std::vector<std::string>* out);
[[nodiscard]] std::vector<std::string> XmlTokens(std::string_view text, char separator, char quote);

// The list of flags and severities: words joined by "|".
[[nodiscard]] inline std::vector<std::string> XmlWords(std::string_view text) {
  return XmlTokens(text, '|', '"');
}
// Flags of a property: the sum of its words.
[[nodiscard]] u32 PropertyFlagsOf(std::string_view text);
// Flags of an object type: false when the one word is unknown.
[[nodiscard]] bool TypeFlagsOf(std::string_view text, u32* out) noexcept;

}  // namespace zn
