// The rules of type creation, on tables of what each supertype brings.
#include "framework/common/zntypeobject/typerules.h"

#include <algorithm>
#include <map>

#include "framework/common/zntypeobject/objectindex.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/status.h"

namespace zn {

namespace {

struct Declaration {
  u32 tag;
  const TypeObject* type;  // where it was found first, ancestors first
};
using DeclarationTable = std::map<PropertyName, Declaration>;

DeclarationTable TableOf(const TypeObject& type) {
  DeclarationTable table;
  for (const TypeObject* ancestor : type.AncestorsFirst()) {
    for (const Property& property : ancestor->Properties()) {
      table.emplace(property.Key(), Declaration{property.TypeTag(), ancestor});  // the first stays
    }
  }
  return table;
}

std::vector<DeclarationTable> TablesOf(const std::vector<TypeObject*>& types) {
  std::vector<DeclarationTable> tables;
  tables.reserve(types.size());
  for (const TypeObject* type : types) tables.push_back(TableOf(*type));
  return tables;
}

// Whether every two of them agree, in the sense of `same`, on every name that both have. To agree
// is to be equal in something, so it is enough that each agrees with the first that has the name.
template <typename Same>
bool AllAgree(const std::vector<DeclarationTable>& tables, Same&& same) {
  DeclarationTable firsts;
  for (const DeclarationTable& table : tables) {
    for (const auto& entry : table) {
      const auto [first, isNew] = firsts.insert(entry);
      if (!isNew && !same(first->second, entry.second)) return false;
    }
  }
  return true;
}

constexpr bool IsLetter(char c) noexcept {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
constexpr bool IsTypeNameStart(char c) noexcept {
  return IsLetter(c) || c == '_';
}
constexpr bool IsTypeNameChar(char c) noexcept {
  return IsTypeNameStart(c) || (c >= '0' && c <= '9') || c == ':';
}

}  // namespace

bool IsTypeNameText(std::string_view name) noexcept {
  return !name.empty() && IsTypeNameStart(name.front()) &&
         std::all_of(name.begin(), name.end(), IsTypeNameChar);
}

u32 CheckIndexable(const PropertySet& properties) noexcept {
  for (const Property& property : properties) {
    if (property.IsIndexed() && !IsIndexableTag(property.TypeTag())) {
      return ZNE_PROPERTY_NOT_INDEXABLE;
    }
  }
  return ZN_OK;
}

u32 CheckInheritedTags(const PropertySet& properties, const std::vector<TypeObject*>& supertypes) {
  for (TypeObject* super : supertypes) {
    for (const Property& property : properties) {
      const TypeObject* owner = super->FormalizingType(property.Key());
      if (owner == nullptr) continue;
      if (owner->Properties().Find(property.Key())->TypeTag() != property.TypeTag()) {
        return ZNE_INHERITANCE_INVALID;
      }
    }
  }
  if (supertypes.size() < 2) return ZN_OK;
  const auto sameTag = [](const Declaration& a, const Declaration& b) { return a.tag == b.tag; };
  return AllAgree(TablesOf(supertypes), sameTag) ? ZN_OK : ZNE_INHERITANCE_INVALID;
}

u32 CheckDiamonds(const std::vector<TypeObject*>& supertypes) {
  if (supertypes.size() < 2) return ZN_OK;
  const auto sameType = [](const Declaration& a, const Declaration& b) { return a.type == b.type; };
  return AllAgree(TablesOf(supertypes), sameType) ? ZN_OK : ZNE_INHERITANCE_INVALID;
}

}  // namespace zn
