// The life of an object, its values and the indexes over them, its flags, key and interfaces. The
// relations stand in dbnode_relations.cpp.
#include "framework/common/zncore/dbnode.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/objectindex.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/block.h"
#include "support/common/block_pool.h"
#include "support/common/status.h"

namespace zn {

namespace {

auto FindInterface(const std::vector<InterfaceRecord>& records, const GUID& interfaceId) noexcept {
  return std::find_if(records.begin(), records.end(), [&](const InterfaceRecord& record) {
    return SameGuid(record.interfaceId, interfaceId);
  });
}

// Nodes are cut in whole lines of the cache. One pool for each number of lines; what is larger
// comes from the heap. FAST_LOCK guards them, as it does the nodes.
constexpr size_t kLineBytes = 64;
constexpr size_t kPooledLines = 16;

template <size_t... kIndex>
constexpr std::array<BlockPool, sizeof...(kIndex)> MakePools(std::index_sequence<kIndex...>) {
  return {BlockPool((kIndex + 1) * kLineBytes)...};
}
constinit std::array<BlockPool, kPooledLines> nodePools =
    MakePools(std::make_index_sequence<kPooledLines>());

constexpr size_t NodeBytes(u32 roomCount) noexcept {
  return sizeof(DBNode) + size_t{roomCount} * sizeof(Property);
}

BlockPool* PoolFor(size_t bytes) noexcept {
  const size_t lines = (bytes + kLineBytes - 1) / kLineBytes;
  return lines > kPooledLines ? nullptr : &nodePools[lines - 1];
}

void* AllocateNode(size_t bytes) {
  BlockPool* pool = PoolFor(bytes);
  return pool != nullptr ? pool->Allocate() : ::operator new(bytes);
}

void FreeNode(void* block, size_t bytes) noexcept {
  BlockPool* pool = PoolFor(bytes);
  if (pool != nullptr) {
    pool->Free(block);
  } else {
    ::operator delete(block);
  }
}

}  // namespace

DBNode::DBNode(Database* database, TypeObject* type, InternedId id, InternedId creator, u32 flags,
               u32 roomCount) noexcept
    : BaseObject(std::move(id), type, flags, this + 1, roomCount),
      database_(database),
      creatorId_(std::move(creator)) {
  if ((flags & OBJECT_GROUP_CLIENT) != 0) SetRawFlags(GetFlags() | OBJECT_CLIENT_LOCAL);
}

std::unique_ptr<DBNode> DBNode::Make(Database* database, TypeObject* type, InternedId id,
                                     InternedId creator, u32 flags) {
  const u32 roomCount = type->AllProperties().Count();
  void* block = AllocateNode(NodeBytes(roomCount));
  return std::unique_ptr<DBNode>(
      ::new (block) DBNode(database, type, std::move(id), std::move(creator), flags, roomCount));
}

void DBNode::operator delete(DBNode* node, std::destroying_delete_t) noexcept {
  const size_t bytes = NodeBytes(node->RoomCount());
  node->~DBNode();
  FreeNode(node, bytes);
}

DBNode::~DBNode() {
  if (!GetId().IsZero()) SetRawFlags(GetFlags() | OBJECT_DELETING);
  if (instanceSlot_ != kNoInstanceSlot) {
    GetType()->RemoveFromIndexes(this);
    GetType()->Instances().Remove(this);
  }
  database_->ForgetGroup(this);
  DropRelations();
  database_->RemoveObject(this);
  if (!Key().empty()) database_->RemoveKey(this);
  key_.Clear();
  for (const InterfaceRecord& record : Interfaces()) {
    database_->ForgetInterface(this, record.interfaceId);
  }
  links_.reset();
  if (!IsHidden()) Announce(kObjectDeleted, GetId(), kEventEverywhere);
}

void DBNode::Announce(ChangeKind kind, const InternedId& subject, u32 eventFlags,
                      const PropertySet* extra) noexcept {
  try {
    database_->NotifyChange(kind, subject, *this, eventFlags, extra);
  } catch (...) {
    // Nothing to do: the next change of the object makes up for it.
  }
}

void DBNode::AnnounceCreation() noexcept {
  if (!IsHidden()) Announce(kObjectAdded, GetId(), kEventEverywhere);
}

DBNode::IndexedValue DBNode::RememberIndexed(PropertyName name) const {
  IndexedValue before{name, nullptr, {}};
  if (!database_->IsLocal()) return before;
  before.index = GetType()->FormalizedIndex(name);
  if (before.index == nullptr) return before;
  if (const Property* present = Properties().Find(name)) before.old = present->GetValue();
  return before;
}

void DBNode::UpdateIndex(const IndexedValue& before) {
  if (before.index == nullptr) return;
  const Property* stored = Properties().Find(before.name);
  if (stored != nullptr && before.old.HasValue() && before.old.Equals(stored->GetValue())) return;
  // Types that were installed from elsewhere keep no rules: two ancestors may own an index on one
  // name, and the object stands in both.
  for (TypeObject* type : GetType()->AncestorsFirst()) {
    ObjectIndex* index = type->FindIndex(before.name);
    if (index == nullptr) continue;
    if (before.old.HasValue()) index->Remove(before.old, this);
    if (stored != nullptr) index->Add(stored->GetValue(), this);
  }
}

u32 DBNode::SetProperty(const Property& property) {
  const IndexedValue before = RememberIndexed(property.Key());
  const u32 status = BaseObject::SetProperty(property);
  if (ZN_FAILED(status)) return status;
  if (status == ZNI_PROPSET_UNCHANGED) return ZN_OK;
  UpdateIndex(before);
  const Property* stored = Properties().Find(property.Key());
  if (stored->IsHidden() || IsHidden()) return ZN_OK;
  Announce(kDataChanged, GetId(), stored->IsRemoteOnly() ? EVENT_REMOTE : kEventEverywhere);
  return ZN_OK;
}

u32 DBNode::SetProperties(const PropertySet& properties) {
  std::vector<IndexedValue> before;
  for (const Property& property : properties) {
    IndexedValue value = RememberIndexed(property.Key());
    if (value.index != nullptr) before.push_back(std::move(value));
  }
  const u32 status = BaseObject::SetProperties(properties);
  // A merge that stops keeps what it merged, so the indexes follow whatever the outcome.
  for (const IndexedValue& value : before) UpdateIndex(value);
  if (ZN_FAILED(status)) return status;
  if (status == ZNI_PROPSET_UNCHANGED || IsHidden()) return ZN_OK;
  // Contract: hidden properties are told all the same here, unlike when they are set one by one.
  Announce(kDataChanged, GetId(), properties.AllRemoteOnly() ? EVENT_REMOTE : kEventEverywhere);
  return ZN_OK;
}

u32 DBNode::DeleteProperty(std::string_view name) {
  const Property* present = Properties().Find(name);
  const IndexedValue before = present == nullptr ? IndexedValue{} : RememberIndexed(present->Key());
  ZN_RETURN_IF_FAILED(BaseObject::DeleteProperty(name));
  UpdateIndex(before);
  if (!HasProperty(name) && !IsHidden()) Announce(kDataChanged, GetId(), kEventEverywhere);
  return ZN_OK;
}

void DBNode::SetFlags(u32 flags) {
  const u32 asked = flags & OBJECT_PUBLIC_FLAGS;
  u32 shown = 0;
  if ((asked & OBJECT_NODISPLAY) != 0) shown = OBJECT_NODISPLAY;
  if ((asked & OBJECT_HIDDEN) != 0) shown = OBJECT_HIDDEN;
  const u32 oldFlags = GetFlags();
  if ((oldFlags & OBJECT_PUBLIC_FLAGS) == shown) return;
  SetRawFlags((oldFlags & ~OBJECT_PUBLIC_FLAGS) | shown);
  if (!database_->WouldNotify(*this)) return;
  PropertySet change;
  change.Put("OldFlags", Value::UInt32(oldFlags));
  change.Put("NewFlags", Value::UInt32(GetFlags()));
  // Contract: the stored flags are the event flags, so showing an object again (0) reaches the
  // clients and no listener of this process.
  Announce(kFlagChanged, GetId(), shown, &change);
}

void DBNode::SetKey(std::string_view block) {
  if (!Key().empty()) database_->RemoveKey(this);
  try {
    key_.Assign(block);
    if (!block.empty()) database_->EnterKey(this);
  } catch (...) {
    // A key that the table lacks could never be found: the object has none, then.
    key_.Clear();
    throw;
  }
}

u32 DBNode::CopyKey(void** out, u32* length) const {
  *out = nullptr;
  *length = 0;
  if (Key().empty()) return ZNE_THING_NOT_FOUND;
  const std::string_view bytes = Key().substr(sizeof(ObjectId));
  void* copy = CopyToBlock(bytes.data(), static_cast<u32>(bytes.size()));
  if (copy == nullptr && !bytes.empty()) return ZNE_OUT_OF_MEMORY;
  *out = copy;
  *length = static_cast<u32>(bytes.size());
  return ZN_OK;
}

// Made once and never destroyed: objects may still be read while the process ends.
const DBNode::Links& DBNode::NoLinks() noexcept {
  static const Links& none = *new Links;
  return none;
}

DBNode::Links& DBNode::NeedLinks() {
  if (links_ == nullptr) links_ = std::make_unique<Links>();
  return *links_;
}

u32 DBNode::AddInterface(const GUID& interfaceId, const InternedId& provider) {
  const std::vector<InterfaceRecord>& present = Interfaces();
  if (FindInterface(present, interfaceId) != present.end()) return ZNE_INTERFACE_EXISTS;
  NeedLinks().interfaces.push_back({interfaceId, provider});
  if (!IsHidden()) Announce(kInterfaceChanged, GetId(), kEventEverywhere);
  return ZN_OK;
}

u32 DBNode::RemoveInterface(const GUID& interfaceId) {
  const auto found = FindInterface(Interfaces(), interfaceId);
  if (found == Interfaces().end()) return ZNE_INTERFACE_NOT_FOUND;
  links_->interfaces.erase(found);
  if ((GetFlags() & (OBJECT_HIDDEN | OBJECT_DELETING)) == 0) {
    Announce(kInterfaceChanged, GetId(), kEventEverywhere);
  }
  return ZN_OK;
}

u32 DBNode::GetInterfaceProvider(const GUID& interfaceId, InternedId* out) const {
  if (const auto found = FindInterface(Interfaces(), interfaceId); found != Interfaces().end()) {
    *out = found->provider;
    return ZN_OK;
  }
  const InterfaceRecord* ofType = GetType()->FindInterface(interfaceId);
  if (ofType == nullptr) return ZNE_INTERFACE_NOT_FOUND;
  *out = ofType->provider;
  return ZN_OK;
}

}  // namespace zn
