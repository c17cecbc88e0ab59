// The types of one database: the table from name to type, and the creation of types by their rules.
// Every call runs under FAST_LOCK.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/zntypeobject/typeobject.h"

namespace zn {

class TypeManager {
 public:
  explicit TypeManager(Database* database) noexcept : database_(database) {}
  ~TypeManager();
  TypeManager(const TypeManager&) = delete;
  TypeManager& operator=(const TypeManager&) = delete;

  // The type, or null. The empty name is KELD_Object.
  [[nodiscard]] TypeObject* FindType(std::string_view name) noexcept;
  [[nodiscard]] TypeObject* FindTypeById(const ObjectId& id) noexcept;
  // Whether both are known and `base` is reachable from `type`.
  [[nodiscard]] bool TypeIsA(std::string_view type, std::string_view base);

  // Applies the rules and makes the type. ZNE_INVALID_ARGUMENTS, ZNE_TYPE_EXISTS,
  // ZNE_PROPERTY_NOT_INDEXABLE, ZNE_INHERITANCE_INVALID; the earliest rule that fails is reported.
  // `properties` may be null. `out` is written on success only.
  [[nodiscard]] u32 CreateTypeInstance(std::string_view name, const PropertySet* properties,
                                       const std::vector<std::string>& supertypes, u32 flags,
                                       TypeObject** out);
  // Installs a type from its property form: no rules, no event; an existing name is replaced in
  // place. Supertypes that are not there, or that derive from this very type, are left out. The
  // form comes from another database, maybe from another machine: ZNE_PROPERTY_NOT_FOUND when a
  // property is missing or has the wrong tag, with nothing changed.
  [[nodiscard]] u32 InstallType(const PropertySet& form);
  // Replaces the interfaces of the type that the set names by those it lists ("TypeName",
  // "InterfaceList"). ZNE_PROPERTY_NOT_FOUND; ZNE_TYPE_NOT_FOUND for one that is not here or has
  // another id.
  [[nodiscard]] u32 ReplaceInterfaces(const GUID& id, const PropertySet& change);
  // Property forms of all types, supertypes before subtypes: KELD_Type, then by name.
  [[nodiscard]] std::vector<PropertySet> DumpTypeGraph() const;
  // In name order.
  [[nodiscard]] const std::map<std::string, std::unique_ptr<TypeObject>, std::less<>>& Types()
      const noexcept {
    return types_;
  }

  // Counts the changes of the graph, so that what a type has worked out from it can tell its age.
  [[nodiscard]] u32 GraphGeneration() const noexcept { return graphGeneration_; }
  void GraphChanged() noexcept { ++graphGeneration_; }

 private:
  [[nodiscard]] u32 ResolveSupertypes(const std::vector<std::string>& names,
                                      std::vector<TypeObject*>* out);
  [[nodiscard]] TypeObject* FindOrCreateTypeType();
  TypeObject* Register(std::unique_ptr<TypeObject> type);

  Database* database_;
  u32 graphGeneration_ = 1;
  std::map<std::string, std::unique_ptr<TypeObject>, std::less<>> types_;
};

// Types the library needs before any document or provider, each with its supertype and properties:
// KELD_Object, KELD_Provider, KELD_Database, KELD_Group, KELD_SystemGroup, KELD_GenericGroup.
// Traced; the first failure ends it. Under FAST_LOCK.
[[nodiscard]] u32 RegisterBaseObjectTypes(Database& database);
// KELD_Extension, KELD_Task, KELD_Configlet: whichever no document has declared. Under FAST_LOCK.
[[nodiscard]] u32 RegisterMissingSystemTypes(Database& database);
// Whether the name is one of the eight of the base schema, which are not shown among the types.
[[nodiscard]] bool IsBaseSchemaType(std::string_view name) noexcept;

}  // namespace zn
