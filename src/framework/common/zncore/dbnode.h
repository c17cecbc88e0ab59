// An object of a database: a BaseObject with a creator, a lookup key, parents, children and the
// interfaces registered on it. Its changes are announced through Database::NotifyChange. Owned by
// the database; every call runs under FAST_LOCK.
#pragma once

#include <memory>
#include <set>
#include <string_view>
#include <vector>

#include "framework/common/zncore/baseobject.h"

namespace zn {

class Database;
class ObjectIndex;
class Provider;

// Ordered set of ids: the two ends of a relation.
using IdSet = std::set<InternedId>;

struct InterfaceRecord {
  GUID interfaceId;
  InternedId provider;
};

class DBNode final : public BaseObject {
 public:
  DBNode(Database* database, TypeObject* type, InternedId id, InternedId creator,
         u32 flags) noexcept;
  // Removes relations, key, interfaces and table entries, then announces the deletion.
  ~DBNode() override;

  static void* operator new(size_t size);
  static void operator delete(void* block) noexcept;

  [[nodiscard]] Database& GetDatabase() const noexcept { return *database_; }
  [[nodiscard]] const InternedId& CreatorId() const noexcept { return creatorId_; }
  void SetCreatorId(InternedId id) noexcept { creatorId_ = std::move(id); }

  // The notifying forms: unchanged counts as success and raises nothing. They keep the indexes of
  // the type in step with the values.
  [[nodiscard]] u32 SetProperty(const Property& property) override;
  [[nodiscard]] u32 SetProperties(const PropertySet& properties) override;
  [[nodiscard]] u32 DeleteProperty(std::string_view name) override;
  // The work of ObSetFlags: stores 1, 2 or 0 in the low half and raises ".flag.change.".
  void SetFlags(u32 flags);

  // Told by the database once the object is complete.
  void AnnounceCreation() noexcept;

  // The key block: 16 bytes of the provider's id, then the provider's bytes. Null clears. The
  // caller has made sure that no object has that key.
  void SetKey(std::unique_ptr<u8[]> block, u32 length);
  // Empty for an object without a key.
  [[nodiscard]] std::string_view Key() const noexcept {
    return {reinterpret_cast<const char*>(key_.get()), keyLength_};
  }
  // What ObGetKey answers: a copy without the prefix. ZNE_THING_NOT_FOUND with no key.
  [[nodiscard]] u32 CopyKey(void** out, u32* length) const;

  // ZNE_DUPLICATE_CHILD when it is one already.
  [[nodiscard]] u32 AddChild(const InternedId& child);
  void RemoveChild(const InternedId& child);
  [[nodiscard]] u32 GetChildren(std::string_view typeFilter, std::vector<ObjectId>* out) const;
  [[nodiscard]] u32 GetParents(std::string_view typeFilter, std::vector<ObjectId>* out) const;
  // Whether a child that can be found carries every bit of the mask.
  [[nodiscard]] bool HasChildren(u32 mask) const;
  [[nodiscard]] const IdSet& Children() const noexcept;
  [[nodiscard]] const IdSet& Parents() const noexcept;
  void ReplaceChildren(IdSet ids);
  void ReplaceParents(IdSet ids);

  // ZNE_INTERFACE_EXISTS, ZNE_INTERFACE_NOT_FOUND.
  [[nodiscard]] u32 AddInterface(const GUID& interfaceId, const InternedId& provider);
  [[nodiscard]] u32 RemoveInterface(const GUID& interfaceId);
  // The object's own records in order, then its type's. ZNE_INTERFACE_NOT_FOUND.
  [[nodiscard]] u32 GetInterfaceProvider(const GUID& interfaceId, InternedId* out) const;
  [[nodiscard]] const std::vector<InterfaceRecord>& Interfaces() const noexcept {
    return interfaces_;
  }

  // Place in its type's instance list; kept by the list. kNoInstanceSlot before the node joins it.
  static constexpr u32 kNoInstanceSlot = 0xFFFFFFFF;
  [[nodiscard]] u32 InstanceSlot() const noexcept { return instanceSlot_; }
  void SetInstanceSlot(u32 slot) noexcept { instanceSlot_ = slot; }

 private:
  // A value of this node that its type has in an index, before a change.
  struct IndexedValue {
    PropertyName name;
    ObjectIndex* index = nullptr;  // null when the property has no index
    Value old;                     // no value when the node did not have the property
  };

  [[nodiscard]] IndexedValue RememberIndexed(PropertyName name) const;
  void UpdateIndex(const IndexedValue& before);

  // Best effort: a change that cannot be told is lost, and the operation succeeds all the same.
  void Announce(struct ChangeKind kind, const InternedId& subject, u32 eventFlags,
                const PropertySet* extra = nullptr) noexcept;
  void AnnounceChildChange(const InternedId& child) noexcept;

  void DropRelations() noexcept;
  void EraseParent(const InternedId& parent) noexcept;
  [[nodiscard]] u32 ListRelated(const IdSet& ids, std::string_view typeFilter,
                                std::vector<ObjectId>* out) const;

  Database* database_;  // borrowed owner
  InternedId creatorId_;
  std::unique_ptr<u8[]> key_;
  u32 keyLength_ = 0;
  u32 instanceSlot_ = kNoInstanceSlot;
  std::unique_ptr<IdSet> children_;  // null while empty: most objects of a large store have none
  std::unique_ptr<IdSet> parents_;
  std::vector<InterfaceRecord> interfaces_;
};

}  // namespace zn
