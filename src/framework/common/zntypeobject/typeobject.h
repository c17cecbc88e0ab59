// A type: itself an object whose properties say what its instances look like. Types form a
// multiple-inheritance graph under KELD_Object and never change after creation, save for their
// interface list. Owned by the TypeManager of their database; every call runs under FAST_LOCK.
#pragma once

#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "framework/common/zncore/baseobject.h"
#include "framework/common/zncore/dbnode.h"
#include "framework/common/zntypeobject/objectindex.h"

namespace zn {

class Database;

inline constexpr std::string_view kRootTypeName = "KELD_Object";
inline constexpr std::string_view kTypeTypeName = "KELD_Type";

// The objects of exactly one type in the order of creation: an array with holes, each node knowing
// its slot, so that adding and removing are constant time and a walk is sequential.
class InstanceList {
 public:
  void Add(DBNode* node);
  void Remove(DBNode* node) noexcept;
  [[nodiscard]] u32 Count() const noexcept { return live_; }
  // Slots in order; a freed slot is null.
  [[nodiscard]] const std::vector<DBNode*>& Slots() const noexcept { return slots_; }

 private:
  void Compact() noexcept;

  std::vector<DBNode*> slots_;
  u32 live_ = 0;
};

class TypeObject final : public BaseObject {
 public:
  TypeObject(Database* database, TypeObject* type, std::string_view name, u32 flags);
  // Unlinks itself from supertypes and subtypes.
  ~TypeObject() override;

  [[nodiscard]] const String& Name() const noexcept { return name_; }
  [[nodiscard]] const std::vector<TypeObject*>& Supertypes() const noexcept { return supertypes_; }
  [[nodiscard]] const std::vector<TypeObject*>& Subtypes() const noexcept { return subtypes_; }
  void LinkSupertypes(const std::vector<TypeObject*>& supertypes);

  // Types are read-only through the object interface.
  [[nodiscard]] u32 SetProperty(const Property& property) override;
  // Allowed; builds the index of a new indexed property.
  [[nodiscard]] u32 SetProperties(const PropertySet& properties) override;
  // The property form: "ObjectId", "ObjectType", "Data", "TypeName", "Flags", "SuperTypes",
  // "InterfaceList".
  [[nodiscard]] PropertySet GetProperties() const override;

  // Whether `base` is this type or an ancestor.
  [[nodiscard]] bool IsA(const TypeObject& base) const noexcept;
  // The first ancestor, supertypes depth first, that declares the property, else this type if it
  // does, else null.
  [[nodiscard]] TypeObject* FormalizingType(PropertyName name) noexcept;
  // Own and inherited properties, breadth first from this type, the nearest declaration of a name.
  [[nodiscard]] PropertySet AllProperties() const;

  // Instances of exactly this type. Types of KELD_Type join its ids instead (TypeManager).
  [[nodiscard]] InstanceList& Instances() noexcept { return instances_; }
  // All instances, those of derived types included, each type once.
  void CollectInstances(std::vector<DBNode*>* out);

  // The index on a property that this type declares, or null.
  [[nodiscard]] ObjectIndex* FindIndex(PropertyName name) noexcept;
  // The index at the formalizing type of the property, or null.
  [[nodiscard]] ObjectIndex* FormalizedIndex(PropertyName name) noexcept;
  // For a property flagged Indexed: makes the index at the formalizing type and fills it with the
  // existing instances.
  void EnsureIndex(PropertyName name);
  // Takes the node out of every index of its type, before it goes.
  void RemoveFromIndexes(DBNode* node) noexcept;
  // Instances, derived ones included, whose property equals the value.
  // ZNE_PROPERTY_NOT_FORMALIZED.
  [[nodiscard]] u32 FindInstances(const Property& value, std::vector<DBNode*>* out);

  [[nodiscard]] const std::vector<InterfaceRecord>& Interfaces() const noexcept {
    return interfaces_;
  }
  // ZNE_INTERFACE_EXISTS; ZNE_INTERFACE_NOT_FOUND, also for another provider.
  [[nodiscard]] u32 AddInterface(const GUID& interfaceId, const InternedId& provider);
  [[nodiscard]] u32 RemoveInterface(const GUID& interfaceId, const InternedId& provider);
  void ReplaceInterfaces(std::vector<InterfaceRecord> interfaces);
  // Own interfaces, and those of the supertypes, each once.
  void CollectInterfaces(bool inherited, std::vector<GUID>* out) const;
  // The provider of an interface on this type or an ancestor, or null.
  [[nodiscard]] const InterfaceRecord* FindInterface(const GUID& interfaceId) const noexcept;

  // "InterfaceList" as an array of sets, each "Interface" (guid) and "Provider" (object id).
  [[nodiscard]] static Value InterfaceList(const std::vector<InterfaceRecord>& interfaces);

 private:
  friend class TypeManager;

  Database* database_;
  String name_;
  std::vector<InterfaceRecord> interfaces_;
  std::vector<TypeObject*> supertypes_;  // direct, in declaration order
  std::vector<TypeObject*> subtypes_;    // direct, in creation order
  std::vector<std::pair<PropertyName, std::unique_ptr<ObjectIndex>>> indexes_;
  InstanceList instances_;
};

}  // namespace zn
