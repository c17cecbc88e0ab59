// Objects of a database: creation, the tables by id, key and interface, and the end of it all.
#include "framework/common/zncore/database.h"

#include <cstring>
#include <new>

#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

namespace {

// The length counts too, since blocks are compared by length first.
u64 KeyHash(std::string_view block) noexcept {
  return HashBytes(block.data(), block.size());
}

u32 RefuseCreation(u32 status) noexcept {
  ZN_TRACE(1, "Database::CreateDBNode :");
  return status;
}

}  // namespace

Database::Database(u32 flags, const DatabaseCallbacks& callbacks)
    : id_(InternedId::Generate()),
      handle_(HANDLE_DATABASE, this),
      flags_(flags | DB_AUTHENTICATED),
      callbacks_(callbacks),
      types_(this) {}

Database::~Database() {
  AssertBusLocked();
  BeginClose();
  WaitForRequests();
  DrainDatabaseEvents(*this);
  UnloadProviders();
  // The providers may have raised more while they were shut down.
  DrainDatabaseEvents(*this);
  DeleteAllObjects();
}

// With the relations gone first, no node looks another one up; the tables go with the database.
void Database::DeleteAllObjects() noexcept {
  notifyEnable_ = 0;
  pendingEvents_.Clear();
  groups_.clear();
  interfaceRegistry_.clear();
  objectTable_.ForEach([](DBNode& node) {
    node.ReplaceChildren({});
    node.ReplaceParents({});
  });
  tearingDown_ = true;
  objectTable_.ForEach([](DBNode& node) { delete &node; });
}

u32 Database::CreateDBNode(Provider* provider, std::string_view typeName, u32 flags,
                           DBNode** outNode, const std::vector<std::string>* containedTypes) {
  *outNode = nullptr;
  TypeObject* type = types_.FindType(typeName);
  if (type == nullptr) return RefuseCreation(ZNE_TYPE_NOT_FOUND);
  std::unique_ptr<DBNode> node;
  const u32 status = MakeNode(provider, *type, flags, containedTypes, &node);
  if (ZN_FAILED(status)) return RefuseCreation(status);
  *outNode = node.release();
  (*outNode)->AnnounceCreation();
  AddToGroups(*outNode);
  return ZN_OK;
}

u32 Database::MakeNode(Provider* provider, TypeObject& type, u32 flags,
                       const std::vector<std::string>* containedTypes,
                       std::unique_ptr<DBNode>* out) {
  // The node of a creation that fails goes before its deletion could be told.
  const NotifyHold hold(*this);
  if (provider == nullptr) provider = FindProviderByName(kSystemProviderName);
  GUID id{};
  static_cast<void>(GenerateRawGuid(&id));  // the zero id when none can be had
  objectTable_.Prefetch(GuidHash(id));
  try {
    std::unique_ptr<DBNode> node = DBNode::Make(
        this, &type, InternedId(id), provider == nullptr ? InternedId() : provider->GetId(),
        type.GetFlags() | flags);
    if (containedTypes != nullptr) {
      for (const std::string& name : *containedTypes) node->AddContainedType(name);
    }
    type.Instances().Add(node.get());
    InsertObject(node.get());
    node->ReplaceProperties(type.AllProperties());
    if (IsLocal()) type.AddToIndexes(node.get());
    *out = std::move(node);
    return ZN_OK;
  } catch (const std::bad_alloc&) {
    return ZNE_OUT_OF_MEMORY;
  }
}

// The lines of the node that the caller reads next come in while its id is compared.
DBNode* Database::FindCached(const ObjectId& id) const noexcept {
  return objectTable_.Find(GuidHash(id), [&](const DBNode& node) {
    node.PrefetchProperties();
    return SameGuid(node.Guid(), id);
  });
}

void Database::InsertObject(DBNode* node) {
  objectTable_.Insert(GuidHash(node->Guid()), node);
}

void Database::RemoveObject(DBNode* node) noexcept {
  if (tearingDown_) return;
  static_cast<void>(objectTable_.Erase(GuidHash(node->Guid()), node));
}

u32 Database::GetObjectsOfType(std::string_view typeName, std::vector<ObjectId>* out) {
  if (!IsLocal()) ZN_RETURN_IF_FAILED(CompleteType(typeName));
  return ListInstances(typeName, out);
}

u32 Database::ListInstances(std::string_view typeName, std::vector<ObjectId>* out) {
  TypeObject* type = types_.FindType(typeName);
  if (type == nullptr) {
    return typeName == kTypeTypeName ? ZNE_UNEXPECTED : ZNE_INVALID_ARGUMENTS;
  }
  std::vector<ObjectId> found;
  type->CollectInstanceIds(&found);
  *out = std::move(found);
  return ZN_OK;
}

DBNode* Database::FindByKey(std::string_view key) {
  if (IsKeyed()) {
    return keyTable_.Find(KeyHash(key), [&](const DBNode& node) { return node.Key() == key; });
  }
  TypeObject* root = types_.FindType(kRootTypeName);
  if (root == nullptr) return nullptr;
  std::vector<DBNode*> nodes;
  root->CollectInstances(&nodes);
  for (DBNode* node : nodes) {
    if (!node->Key().empty() && node->Key() == key) return node;
  }
  return nullptr;
}

void Database::EnterKey(DBNode* node) {
  if (IsKeyed()) keyTable_.Insert(KeyHash(node->Key()), node);
}

void Database::RemoveKey(DBNode* node) noexcept {
  if (IsKeyed() && !tearingDown_) {
    static_cast<void>(keyTable_.Erase(KeyHash(node->Key()), node));
  }
}

u32 Database::RegisterInterface(DBNode* node, const GUID& interfaceId, const InternedId& provider) {
  ZN_RETURN_IF_FAILED(node->AddInterface(interfaceId, provider));
  try {
    interfaceRegistry_[interfaceId].insert(node);
  } catch (...) {
    static_cast<void>(DeregisterInterface(node, interfaceId));
    throw;
  }
  return ZN_OK;
}

u32 Database::DeregisterInterface(DBNode* node, const GUID& interfaceId) {
  ForgetInterface(node, interfaceId);
  return node->RemoveInterface(interfaceId);
}

void Database::ForgetInterface(DBNode* node, const GUID& interfaceId) noexcept {
  const auto entry = interfaceRegistry_.find(interfaceId);
  if (entry == interfaceRegistry_.end()) return;
  entry->second.erase(node);
  if (entry->second.empty()) interfaceRegistry_.erase(entry);
}

u32 Database::GetObjectsWithInterface(std::string_view typeName, const GUID& interfaceId,
                                      std::vector<ObjectId>* out) {
  if (!IsLocal()) return AskForInterface(typeName, interfaceId, out);
  const TypeObject* type = types_.FindType(typeName);
  if (type == nullptr) return ZNE_INVALID_ARGUMENTS;
  std::vector<ObjectId> found;
  if (const auto entry = interfaceRegistry_.find(interfaceId); entry != interfaceRegistry_.end()) {
    for (const DBNode* node : entry->second) {
      if (node->GetType()->IsA(*type)) found.push_back(node->Guid());
    }
  }
  *out = std::move(found);
  return ZN_OK;
}

}  // namespace zn
