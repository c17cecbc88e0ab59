// Parents and children. A relation is stored at both ends; on a client copy one end may be absent,
// and then the other alone has it. Any directed graph is allowed, cycles and an object that is its
// own child among them.
#include "framework/common/zncore/dbnode.h"

#include <algorithm>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/status.h"

namespace zn {

namespace {

bool IsShown(const DBNode& parent, const DBNode* child) noexcept {
  return !parent.IsHidden() && (child == nullptr || !child->IsHidden());
}

std::vector<ObjectId> Guids(const IdSet& ids) {
  std::vector<ObjectId> guids;
  guids.reserve(ids.size());
  for (const InternedId& id : ids) guids.push_back(id.Value());
  return guids;
}

bool IsDying(const DBNode& node) noexcept {
  return (node.GetFlags() & OBJECT_DELETING) != 0;
}

}  // namespace

void DBNode::ReplaceChildren(IdSet ids) {
  if (!ids.empty() || !Children().empty()) NeedLinks().children = std::move(ids);
}

void DBNode::ReplaceParents(IdSet ids) {
  if (!ids.empty() || !Parents().empty()) NeedLinks().parents = std::move(ids);
}

void DBNode::ForgetChild(const InternedId& child) noexcept {
  if (links_ != nullptr) links_->children.erase(child);
}

void DBNode::EraseParent(const InternedId& parent) noexcept {
  if (links_ != nullptr) links_->parents.erase(parent);
}

u32 DBNode::AddChild(const InternedId& child) {
  // An object that a client copy has not cached is not fetched for this.
  DBNode* node = database_->FindCached(child.Value());
  const auto [place, added] = NeedLinks().children.insert(child);
  if (!added) return ZNE_DUPLICATE_CHILD;
  if (node != nullptr) {
    try {
      node->NeedLinks().parents.insert(GetId());
    } catch (...) {
      links_->children.erase(place);
      throw;
    }
  }
  if (!IsShown(*this, node)) return ZN_OK;
  AnnounceChildChange(child);
  if (node != nullptr) node->Announce(kParentChanged, GetId(), kEventEverywhere);
  return ZN_OK;
}

void DBNode::RemoveChild(const InternedId& child) {
  const InternedId childId(child);  // the caller's may be the very entry that goes
  DBNode* node = database_->FindCached(childId.Value());
  if (links_ != nullptr) links_->children.erase(childId);
  if (node != nullptr) node->EraseParent(GetId());
  if (!IsShown(*this, node)) return;
  if (!IsDying(*this)) AnnounceChildChange(childId);
  if (node != nullptr && !IsDying(*node)) {
    node->Announce(kParentChanged, GetId(), kEventEverywhere);
  }
}

// The children of a client's own group are told on that client alone.
void DBNode::AnnounceChildChange(const InternedId& child) noexcept {
  if ((GetFlags() & OBJECT_GROUP_CLIENT) == 0) {
    Announce(kChildChanged, child, kEventEverywhere);
    return;
  }
  try {
    database_->NotifyLocalOnlyChange(kChildChanged, child, *this);
  } catch (...) {
    // Best effort, as every event.
  }
}

void DBNode::DropRelations() noexcept {
  while (!Children().empty()) RemoveChild(*Children().begin());
  while (!Parents().empty()) {
    const InternedId parentId(*Parents().begin());
    DBNode* parent = database_->FindCached(parentId.Value());
    if (parent != nullptr) parent->RemoveChild(GetId());
    EraseParent(parentId);  // a parent that is no more leaves its entry behind
  }
}

u32 DBNode::GetChildren(std::string_view typeFilter, std::vector<ObjectId>* out) const {
  return ListRelated(&DBNode::Children, typeFilter, out);
}

u32 DBNode::GetParents(std::string_view typeFilter, std::vector<ObjectId>* out) const {
  return ListRelated(&DBNode::Parents, typeFilter, out);
}

u32 DBNode::ListRelated(Relation relation, std::string_view typeFilter,
                        std::vector<ObjectId>* out) const {
  std::vector<ObjectId> ids = Guids((this->*relation)());
  // Contract: the root type names every member, hidden and unknown ones included, without a look at
  // the objects.
  const bool isEverything = typeFilter == kRootTypeName;
  Database& database = *database_;
  if (!database.IsLocal()) {
    const ObjectId self = Guid();
    database.FetchMissing(ids);
    const DBNode* node = database.FindCached(self);
    if (node == nullptr) return ZNE_OBJECT_NOT_FOUND;
    ids = Guids((node->*relation)());
  }
  if (isEverything) {
    *out = std::move(ids);
    return ZN_OK;
  }
  std::vector<ObjectId> found;
  for (const ObjectId& id : ids) {
    const DBNode* node = database.FindObject(id);  // from here on this node may be gone
    if (node == nullptr && database.IsLocal()) return ZNE_UNEXPECTED;
    const TypeObject* filter = database.Types().FindType(typeFilter);
    if (node == nullptr || filter == nullptr || !node->GetType()->IsA(*filter)) continue;
    found.push_back(id);
  }
  *out = std::move(found);
  return ZN_OK;
}

bool DBNode::HasChildren(u32 mask) const {
  const auto carries = [mask](const DBNode* node) {
    return node != nullptr && (node->GetFlags() & mask) == mask;
  };
  Database& database = *database_;
  std::vector<ObjectId> missing;
  for (const InternedId& id : Children()) {
    const DBNode* child = database.FindCached(id.Value());
    if (carries(child)) return true;
    if (child == nullptr && !database.IsLocal()) missing.push_back(id.Value());
  }
  return std::any_of(missing.begin(), missing.end(),
                     [&](const ObjectId& id) { return carries(database.FindObject(id)); });
}

}  // namespace zn
