// Parents and children. A relation is stored at both ends; on a client copy one end may be absent,
// and then the other alone has it. Any directed graph is allowed, cycles and an object that is its
// own child among them.
#include "framework/common/zncore/dbnode.h"

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/status.h"

namespace zn {

namespace {

bool IsShown(const DBNode& parent, const DBNode* child) noexcept {
  return !parent.IsHidden() && (child == nullptr || !child->IsHidden());
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
  return ListRelated(Children(), typeFilter, out);
}

u32 DBNode::GetParents(std::string_view typeFilter, std::vector<ObjectId>* out) const {
  return ListRelated(Parents(), typeFilter, out);
}

u32 DBNode::ListRelated(const IdSet& ids, std::string_view typeFilter,
                        std::vector<ObjectId>* out) const {
  // Contract: the root type names every member, hidden and unknown ones included, without a look at
  // the objects.
  const bool everything = typeFilter == kRootTypeName;
  const TypeObject* filter = everything ? nullptr : database_->Types().FindType(typeFilter);
  std::vector<ObjectId> found;
  if (everything) found.reserve(ids.size());
  for (const InternedId& id : ids) {
    if (!everything) {
      const DBNode* node = database_->FindObject(id);
      if (node == nullptr && database_->IsLocal()) return ZNE_UNEXPECTED;
      if (node == nullptr || filter == nullptr || !node->GetType()->IsA(*filter)) continue;
    }
    found.push_back(id.Value());
  }
  *out = std::move(found);
  return ZN_OK;
}

bool DBNode::HasChildren(u32 mask) const {
  for (const InternedId& id : Children()) {
    const DBNode* child = database_->FindObject(id);
    if (child != nullptr && (child->GetFlags() & mask) == mask) return true;
  }
  return false;
}

}  // namespace zn
