// An object of a database: a BaseObject with a creator, a lookup key, parents, children and the
// interfaces registered on it. Its changes are announced through Database::NotifyChange. Owned by
// the database; every call runs under FAST_LOCK.
#pragma once

#include <cstring>
#include <memory>
#include <new>
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

// The lookup key of an object, as one block: 16 bytes of the provider's id, then the provider's
// bytes. A short one, which most are, lies in the object itself.
class LookupKey {
 public:
  LookupKey() noexcept = default;
  ~LookupKey() { Clear(); }
  LookupKey(const LookupKey&) = delete;
  LookupKey& operator=(const LookupKey&) = delete;

  // Empty for an object without a key.
  [[nodiscard]] std::string_view Bytes() const noexcept {
    return {length_ <= sizeof(near_) ? near_ : Far(), length_};
  }
  // Throws std::bad_alloc with the key as it was.
  void Assign(std::string_view bytes) {
    char* target = near_;
    if (bytes.size() > sizeof(near_)) target = new char[bytes.size()];
    Clear();
    if (!bytes.empty()) std::memcpy(target, bytes.data(), bytes.size());
    if (target != near_) std::memcpy(near_, &target, sizeof(target));
    length_ = static_cast<u32>(bytes.size());
  }
  void Clear() noexcept {
    if (length_ > sizeof(near_)) delete[] Far();
    length_ = 0;
  }

 private:
  [[nodiscard]] char* Far() const noexcept {
    char* far = nullptr;
    std::memcpy(&far, near_, sizeof(far));
    return far;
  }

  char near_[32];  // the bytes, or the address of a longer block
  u32 length_ = 0;
};

class DBNode final : public BaseObject {
 public:
  // In one block with room for the properties that the type gives each instance. Throws
  // std::bad_alloc.
  [[nodiscard]] static std::unique_ptr<DBNode> Make(Database* database, TypeObject* type,
                                                    InternedId id, InternedId creator, u32 flags);
  // Removes relations, key, interfaces and table entries, then announces the deletion.
  ~DBNode() override;

  static void operator delete(DBNode* node, std::destroying_delete_t) noexcept;

  // Starts to bring the first properties into the cache where they lie behind the node.
  void PrefetchProperties() const noexcept {
    const char* room = reinterpret_cast<const char*>(this + 1);
    __builtin_prefetch(room);
    __builtin_prefetch(room + 64);
  }

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

  // A whole key block; an empty one clears. The caller has made sure that no object has that key.
  void SetKey(std::string_view block);
  // Empty for an object without a key.
  [[nodiscard]] std::string_view Key() const noexcept { return key_.Bytes(); }
  // What ObGetKey answers: a copy without the prefix. ZNE_THING_NOT_FOUND with no key.
  [[nodiscard]] u32 CopyKey(void** out, u32* length) const;

  // ZNE_DUPLICATE_CHILD when it is one already.
  [[nodiscard]] u32 AddChild(const InternedId& child);
  void RemoveChild(const InternedId& child);
  // On a client copy the lock may be given up: this node may be gone afterwards, which is
  // ZNE_OBJECT_NOT_FOUND where it matters. `typeFilter` must not lie in an object.
  [[nodiscard]] u32 GetChildren(std::string_view typeFilter, std::vector<ObjectId>* out) const;
  [[nodiscard]] u32 GetParents(std::string_view typeFilter, std::vector<ObjectId>* out) const;
  // Whether a child that can be found carries every bit of the mask. What is here is asked first;
  // on a client copy the others are then fetched, with the lock given up.
  [[nodiscard]] bool HasChildren(u32 mask) const;
  [[nodiscard]] const IdSet& Children() const noexcept { return GetLinks().children; }
  [[nodiscard]] const IdSet& Parents() const noexcept { return GetLinks().parents; }
  // The entry alone, no event.
  void ForgetChild(const InternedId& child) noexcept;
  void ReplaceChildren(IdSet ids);
  void ReplaceParents(IdSet ids);

  // ZNE_INTERFACE_EXISTS, ZNE_INTERFACE_NOT_FOUND.
  [[nodiscard]] u32 AddInterface(const GUID& interfaceId, const InternedId& provider);
  [[nodiscard]] u32 RemoveInterface(const GUID& interfaceId);
  // The object's own records in order, then its type's. ZNE_INTERFACE_NOT_FOUND.
  [[nodiscard]] u32 GetInterfaceProvider(const GUID& interfaceId, InternedId* out) const;
  [[nodiscard]] const std::vector<InterfaceRecord>& Interfaces() const noexcept {
    return GetLinks().interfaces;
  }

  // Place in its type's instance list; kept by the list. kNoInstanceSlot before the node joins it.
  static constexpr u32 kNoInstanceSlot = 0xFFFFFFFF;
  [[nodiscard]] u32 InstanceSlot() const noexcept { return instanceSlot_; }
  void SetInstanceSlot(u32 slot) noexcept { instanceSlot_ = slot; }

 private:
  DBNode(Database* database, TypeObject* type, InternedId id, InternedId creator, u32 flags,
         u32 roomCount) noexcept;

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

  // What most objects of a large store have nothing of.
  struct Links {
    IdSet children;
    IdSet parents;
    std::vector<InterfaceRecord> interfaces;
  };
  [[nodiscard]] const Links& GetLinks() const noexcept {
    return links_ == nullptr ? NoLinks() : *links_;
  }
  [[nodiscard]] static const Links& NoLinks() noexcept;
  // Makes them. Throws std::bad_alloc.
  [[nodiscard]] Links& NeedLinks();

  void DropRelations() noexcept;
  void EraseParent(const InternedId& parent) noexcept;
  using Relation = const IdSet& (DBNode::*)() const noexcept;
  [[nodiscard]] u32 ListRelated(Relation relation, std::string_view typeFilter,
                                std::vector<ObjectId>* out) const;

  Database* database_;  // borrowed owner
  InternedId creatorId_;
  LookupKey key_;
  u32 instanceSlot_ = kNoInstanceSlot;
  std::unique_ptr<Links> links_;
};

#if UINTPTR_MAX == UINT64_MAX
static_assert(sizeof(DBNode) == 136, "with five properties it fills four lines of the cache");
#endif

}  // namespace zn
