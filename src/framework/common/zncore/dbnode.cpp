// The life of an object, its values and the indexes over them, its flags, key and interfaces. The
// relations stand in dbnode_relations.cpp.
#include "framework/common/zncore/dbnode.h"

#include <algorithm>
#include <new>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/objectindex.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/block.h"
#include "support/common/status.h"

namespace zn {

namespace {

auto FindInterface(const std::vector<InterfaceRecord>& records, const GUID& interfaceId) noexcept {
  return std::find_if(records.begin(), records.end(), [&](const InterfaceRecord& record) {
    return SameGuid(record.interfaceId, interfaceId);
  });
}

}  // namespace

DBNode::DBNode(Database* database, TypeObject* type, InternedId id, InternedId creator,
               u32 flags) noexcept
    : BaseObject(std::move(id), type, flags), database_(database), creatorId_(std::move(creator)) {
  if ((flags & OBJECT_GROUP_CLIENT) != 0) SetRawFlags(GetFlags() | OBJECT_CLIENT_LOCAL);
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
  if (key_ != nullptr) database_->RemoveKey(this);
  key_.reset();
  for (const InterfaceRecord& record : interfaces_) {
    database_->ForgetInterface(this, record.interfaceId);
  }
  interfaces_.clear();
  if (!IsHidden()) Announce(kObjectDeleted, GetId(), kEventEverywhere);
}

void* DBNode::operator new(size_t size) {
  void* block = ZnAlloc(static_cast<u32>(size));
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void DBNode::operator delete(void* block) noexcept {
  ZnFree(block);
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

void DBNode::SetKey(std::unique_ptr<u8[]> block, u32 length) {
  if (key_ != nullptr) database_->RemoveKey(this);
  keyLength_ = block == nullptr ? 0 : length;
  key_ = std::move(block);
  if (key_ == nullptr) return;
  try {
    database_->EnterKey(this);
  } catch (...) {
    // A key that the table lacks could never be found: the object has none, then.
    key_.reset();
    keyLength_ = 0;
    throw;
  }
}

u32 DBNode::CopyKey(void** out, u32* length) const {
  constexpr u32 kPrefix = sizeof(ObjectId);
  *out = nullptr;
  *length = 0;
  if (key_ == nullptr) return ZNE_THING_NOT_FOUND;
  const u32 bytes = keyLength_ - kPrefix;
  void* copy = CopyToBlock(key_.get() + kPrefix, bytes);
  if (copy == nullptr && bytes != 0) return ZNE_OUT_OF_MEMORY;
  *out = copy;
  *length = bytes;
  return ZN_OK;
}

u32 DBNode::AddInterface(const GUID& interfaceId, const InternedId& provider) {
  if (FindInterface(interfaces_, interfaceId) != interfaces_.end()) return ZNE_INTERFACE_EXISTS;
  interfaces_.push_back({interfaceId, provider});
  if (!IsHidden()) Announce(kInterfaceChanged, GetId(), kEventEverywhere);
  return ZN_OK;
}

u32 DBNode::RemoveInterface(const GUID& interfaceId) {
  const auto found = FindInterface(interfaces_, interfaceId);
  if (found == interfaces_.end()) return ZNE_INTERFACE_NOT_FOUND;
  interfaces_.erase(found);
  if ((GetFlags() & (OBJECT_HIDDEN | OBJECT_DELETING)) == 0) {
    Announce(kInterfaceChanged, GetId(), kEventEverywhere);
  }
  return ZN_OK;
}

u32 DBNode::GetInterfaceProvider(const GUID& interfaceId, InternedId* out) const {
  if (const auto found = FindInterface(interfaces_, interfaceId); found != interfaces_.end()) {
    *out = found->provider;
    return ZN_OK;
  }
  const InterfaceRecord* ofType = GetType()->FindInterface(interfaceId);
  if (ofType == nullptr) return ZNE_INTERFACE_NOT_FOUND;
  *out = ofType->provider;
  return ZN_OK;
}

}  // namespace zn
