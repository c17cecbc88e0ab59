// Messages as values. An i18n value is a set of "Catalog" (guid), "Message" (uint32) and "Name"
// (string); a format string a set of "FormatSpec" (such a set) and, where it has insertions,
// "Insertions" (a set of "i1", "i2", ...). Their flat records: property2.h.
#pragma once

#include <string_view>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

struct I18nParts {
  GUID catalog{};
  u32 message = 0;
  std::string_view name = "";  // never null: it is copied from
};

// What the set tells; a part that is missing or of another type reads as its default. The name is
// borrowed from the set.
[[nodiscard]] I18nParts PartsOfI18n(const PropertySet& set) noexcept;
// The same of the "FormatSpec" of a format string.
[[nodiscard]] I18nParts PartsOfFormatString(const PropertySet& set) noexcept;
// The insertions of a format string, or null.
[[nodiscard]] const PropertySet* InsertionsOf(const PropertySet& set) noexcept;

[[nodiscard]] Value I18nValueOf(const I18nParts& parts);
// A record's name that cannot be read counts as empty.
[[nodiscard]] Value I18nValueOf(const I18nString& record);
[[nodiscard]] Value FormatStringValueOf(const I18nParts& parts, PropertySet&& insertions);
// Without insertions where the record's handle is no live set.
[[nodiscard]] Value FormatStringValueOf(const I18nFormatString& record);

}  // namespace zn
