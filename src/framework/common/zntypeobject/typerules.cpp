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

// Whether the two agree, in the sense of `same`, on every name that both have.
template <typename Same>
bool Agree(const DeclarationTable& a, const DeclarationTable& b, Same&& same) {
  return std::all_of(a.begin(), a.end(), [&](const auto& entry) {
    const auto other = b.find(entry.first);
    return other == b.end() || same(entry.second, other->second);
  });
}

template <typename Same>
bool AllPairsAgree(const std::vector<DeclarationTable>& tables, Same&& same) {
  for (size_t i = 0; i < tables.size(); ++i) {
    for (size_t j = i + 1; j < tables.size(); ++j) {
      if (!Agree(tables[i], tables[j], same)) return false;
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
  const std::vector<DeclarationTable> tables = TablesOf(supertypes);
  for (const DeclarationTable& table : tables) {
    for (const Property& property : properties) {
      const auto inherited = table.find(property.Key());
      if (inherited != table.end() && inherited->second.tag != property.TypeTag()) {
        return ZNE_INHERITANCE_INVALID;
      }
    }
  }
  const auto sameTag = [](const Declaration& a, const Declaration& b) { return a.tag == b.tag; };
  return AllPairsAgree(tables, sameTag) ? ZN_OK : ZNE_INHERITANCE_INVALID;
}

u32 CheckDiamonds(const std::vector<TypeObject*>& supertypes) {
  const auto sameType = [](const Declaration& a, const Declaration& b) { return a.type == b.type; };
  return AllPairsAgree(TablesOf(supertypes), sameType) ? ZN_OK : ZNE_INHERITANCE_INVALID;
}

}  // namespace zn
