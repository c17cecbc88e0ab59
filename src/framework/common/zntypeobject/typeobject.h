// A type: itself an object whose properties say what its instances look like. Types form a
// multiple-inheritance graph under KELD_Object and never change after creation, save for their
// interface list; a copy of a database may replace one in place. Owned by the TypeManager of their
// database; every call runs under FAST_LOCK.
//
// What follows from the graph (the ancestors in their two orders, the descendants, the properties
// with the inherited ones) is worked out on first use and kept until the graph changes: objects are
// made and deleted by the million, types hardly ever.
#pragma once

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
  // No effect for a node that is not in this list.
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
  // `type` is KELD_Type, null for KELD_Type itself.
  TypeObject(Database* database, TypeObject* type, std::string_view name, u32 flags);
  // Unlinks itself from supertypes, subtypes and its type.
  ~TypeObject() override;

  [[nodiscard]] const String& Name() const noexcept { return name_; }
  [[nodiscard]] const std::vector<TypeObject*>& Supertypes() const noexcept { return supertypes_; }
  [[nodiscard]] const std::vector<TypeObject*>& Subtypes() const noexcept { return subtypes_; }
  // Replaces the supertypes, both ends of each link.
  void LinkSupertypes(const std::vector<TypeObject*>& supertypes);

  // Types are read-only through the object interface: ZNE_UNEXPECTED.
  [[nodiscard]] u32 SetProperty(const Property& property) override;
  // Allowed; builds the index of a new indexed property.
  [[nodiscard]] u32 SetProperties(const PropertySet& properties) override;
  // The property form: "ObjectId", "ObjectType", "Data", "TypeName", "Flags", "SuperTypes",
  // "InterfaceList".
  [[nodiscard]] PropertySet GetProperties() const override;

  // Whether `base` is this type or an ancestor.
  [[nodiscard]] bool IsA(const TypeObject& base) const;
  // The first ancestor, supertypes depth first, that declares the property, else this type if it
  // does, else null: a property belongs to the highest type that declares it.
  [[nodiscard]] TypeObject* FormalizingType(PropertyName name);
  // The declaration nearest to this type: its own, else that of the first ancestor, supertypes
  // depth first; null where there is none. Valid until the types of the database change.
  [[nodiscard]] const Property* FindDeclaration(PropertyName name) const;
  // Own and inherited properties, breadth first from this type, the nearest declaration of a name:
  // what a new object starts with. Valid until the types of the database change.
  [[nodiscard]] const PropertySet& AllProperties() const;
  // This type and its ancestors, each once: ancestors before descendants, in supertype order.
  [[nodiscard]] const std::vector<TypeObject*>& AncestorsFirst() const;

  // Instances of exactly this type. Types of KELD_Type join its ids instead (CollectInstanceIds).
  [[nodiscard]] InstanceList& Instances() noexcept { return instances_; }
  // All instances, those of derived types included, each type once, in the order of the lists.
  void CollectInstances(std::vector<DBNode*>* out) const;
  // Their ids; for KELD_Type the ids of the types.
  void CollectInstanceIds(std::vector<ObjectId>* out) const;

  // On a client copy: whether all instances, those of derived types included, are here. Set on this
  // type and on all below it.
  [[nodiscard]] bool IsComplete() const noexcept { return isComplete_; }
  void SetComplete();
  void SetIncomplete() noexcept { isComplete_ = false; }

  // The index on a property that this type owns, or null.
  [[nodiscard]] ObjectIndex* FindIndex(PropertyName name) noexcept;
  // The index that covers the property for objects of this type, here or at an ancestor, or null.
  [[nodiscard]] ObjectIndex* FormalizedIndex(PropertyName name);
  // For a property flagged Indexed: makes the index at the formalizing type and fills it with the
  // existing instances.
  void EnsureIndex(PropertyName name);
  // For a type that is replaced in place: the indexes are made anew from the declarations.
  void ReplaceDeclarations(const PropertySet& properties);
  // Enters the node's present values in every index of its type, or takes them out before it goes.
  void AddToIndexes(DBNode* node);
  void RemoveFromIndexes(DBNode* node);
  // Instances, derived ones included, whose property equals the value.
  // ZNE_PROPERTY_NOT_FORMALIZED.
  [[nodiscard]] u32 FindInstances(const Property& value, std::vector<DBNode*>* out);
  // Their ids, in no particular order.
  [[nodiscard]] u32 FindInstanceIds(const Property& value, std::vector<ObjectId>* out);

  [[nodiscard]] const std::vector<InterfaceRecord>& Interfaces() const noexcept {
    return interfaces_;
  }
  // ZNE_INTERFACE_EXISTS; ZNE_INTERFACE_NOT_FOUND, also for another provider. Both announce the new
  // list as ".interface.change." of the type.
  [[nodiscard]] u32 AddInterface(const GUID& interfaceId, const InternedId& provider);
  [[nodiscard]] u32 RemoveInterface(const GUID& interfaceId, const InternedId& provider);
  void ReplaceInterfaces(std::vector<InterfaceRecord> interfaces);
  // Own interfaces, and those of the ancestors when `inherited`; ids that are in `out` already are
  // left out.
  void CollectInterfaces(bool inherited, std::vector<GUID>* out) const;
  // The provider of an interface on this type or the nearest ancestor, or null.
  [[nodiscard]] const InterfaceRecord* FindInterface(const GUID& interfaceId) const;

  // "InterfaceList" as an array of sets, each "Interface" (guid) and "Provider" (object id).
  [[nodiscard]] static Value InterfaceList(const std::vector<InterfaceRecord>& interfaces);

 private:
  friend class TypeManager;

  // What follows from the graph above this type and below it, each valid for one generation of the
  // graph and each type in a list once. They are apart because the creation of a type asks for the
  // former alone, and the root has every type below it.
  struct Lineage {
    u32 generation = 0;
    std::vector<TypeObject*> nearestFirst;    // this type, then its ancestors breadth first
    std::vector<TypeObject*> ancestorsFirst;  // post-order over the supertypes
    PropertySet allProperties;
  };
  struct Descent {
    u32 generation = 0;
    std::vector<TypeObject*> types;  // this type, then its subtypes depth first
  };

  [[nodiscard]] const Lineage& GetLineage() const;
  void BuildLineage() const;
  [[nodiscard]] std::vector<TypeObject*> WalkAncestorsFirst() const;
  [[nodiscard]] const std::vector<TypeObject*>& Descendants() const;
  [[nodiscard]] std::vector<TypeObject*> WalkDescendants() const;
  // Whoever changes links or declarations calls this: no lineage of the database is valid after it.
  void GraphChanged() noexcept;
  void MakeIndexes(const PropertySet& properties);
  void ScanInstances(const Property& value, std::vector<DBNode*>* out) const;
  [[nodiscard]] size_t CountInstances() const;
  void NotifyInterfaceChange();

  Database* database_;
  bool isComplete_ = false;
  String name_;
  std::vector<InterfaceRecord> interfaces_;
  std::vector<TypeObject*> supertypes_;     // direct, in declaration order
  std::vector<TypeObject*> subtypes_;       // direct, in creation order
  std::vector<TypeObject*> typeInstances_;  // types whose type this is: all of them for KELD_Type
  std::vector<std::pair<PropertyName, std::unique_ptr<ObjectIndex>>> indexes_;
  InstanceList instances_;
  mutable Lineage lineage_;
  mutable Descent descent_;
};

}  // namespace zn
