// From the words and texts of a PROPERTY element to a value: what the attribute "Type" names and
// how each type reads its text. Refusals are traced here, in the reader's words.
#pragma once

#include <string>
#include <string_view>

#include "framework/common/znpropset/value.h"
#include "zn/types.h"

namespace zn {

// The tag of a word such as "mira_uint32"; 0 for an unknown one.
[[nodiscard]] u32 TagOfTypeWord(std::string_view word) noexcept;

// One value of a type from its text, which is trimmed first. ZNE_INVALID_ARGUMENTS. Not for
// property sets, which are elements.
[[nodiscard]] u32 ReadScalarText(u32 tag, std::string_view text, Value* out);
// An array: the tokens of the text, joined by commas. The first bad one fails the whole.
[[nodiscard]] u32 ReadArrayText(u32 elementTag, std::string_view text, Value* out);

// The three parts of a localizable text, "catalog;number;'default text'". Any other count of parts
// gives the empty record. ZNE_INVALID_ARGUMENTS for a bad catalog or number.
struct I18nText {
  GUID catalog{};
  u32 message = 0;
  std::string name;
};
[[nodiscard]] u32 ReadI18nText(std::string_view text, I18nText* out);

}  // namespace zn
