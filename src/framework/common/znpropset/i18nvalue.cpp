// Messages as values: see the header.
#include "framework/common/znpropset/i18nvalue.h"

#include <utility>

#include "support/common/handle.h"
#include "support/common/pointers.h"

namespace zn {

namespace {

constexpr std::string_view kCatalogKey = "Catalog";
constexpr std::string_view kMessageKey = "Message";
constexpr std::string_view kNameKey = "Name";
constexpr std::string_view kFormatSpecKey = "FormatSpec";
constexpr std::string_view kInsertionsKey = "Insertions";

PropertySet I18nSet(const I18nParts& parts) {
  PropertySet set;
  set.Put(kCatalogKey, Value::Guid(parts.catalog));
  set.Put(kMessageKey, Value::UInt32(parts.message));
  set.Put(kNameKey, Value::Text(parts.name));
  return set;
}

std::string_view NameOrEmpty(const char* name) noexcept {
  return IsGoodPointer(name) ? std::string_view(name) : std::string_view();
}

}  // namespace

I18nParts PartsOfI18n(const PropertySet& set) noexcept {
  I18nParts parts;
  const Value* catalog = set.FindValue(kCatalogKey, ZN_TYPE_GUID);
  const Value* message = set.FindValue(kMessageKey, ZN_TYPE_UINT32);
  const Value* name = set.FindValue(kNameKey, ZN_TYPE_STRING);
  if (catalog != nullptr) parts.catalog = catalog->AsGuid();
  if (message != nullptr) parts.message = message->AsUInt32();
  if (name != nullptr) parts.name = name->AsText();
  return parts;
}

I18nParts PartsOfFormatString(const PropertySet& set) noexcept {
  const Value* spec = set.FindValue(kFormatSpecKey, ZN_TYPE_PROPSET);
  return spec != nullptr ? PartsOfI18n(spec->AsSet()) : I18nParts{};
}

const PropertySet* InsertionsOf(const PropertySet& set) noexcept {
  const Value* insertions = set.FindValue(kInsertionsKey, ZN_TYPE_PROPSET);
  return insertions != nullptr ? &insertions->AsSet() : nullptr;
}

Value I18nValueOf(const I18nParts& parts) {
  return Value::Set(ZN_TYPE_I18N, I18nSet(parts));
}

Value I18nValueOf(const I18nString& record) {
  return I18nValueOf({record.catalog, record.message, NameOrEmpty(record.name)});
}

Value FormatStringValueOf(const I18nParts& parts, PropertySet&& insertions) {
  PropertySet set;
  set.Put(kFormatSpecKey, Value::Set(I18nSet(parts)));
  set.Put(kInsertionsKey, Value::Set(std::move(insertions)));
  return Value::Set(ZN_TYPE_I18N_FORMAT_STRING, std::move(set));
}

Value FormatStringValueOf(const I18nFormatString& record) {
  PropertySet set;
  set.Put(kFormatSpecKey,
          Value::Set(I18nSet({record.catalog, record.message, NameOrEmpty(record.name)})));
  if (IsValidHandle(record.insertions, HANDLE_PROPSET)) {
    set.Put(kInsertionsKey, Value::Set(PropertySet(*HandleThing<PropertySet>(record.insertions))));
  }
  return Value::Set(ZN_TYPE_I18N_FORMAT_STRING, std::move(set));
}

}  // namespace zn
