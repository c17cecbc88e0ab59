// A private database as one property set: "DatabaseId", "Types" (property forms, supertypes first),
// "Objects" (whole objects, hidden ones left out). Reading it back installs the types, then the
// objects that the database does not hold yet.
#include "framework/common/zncore/database_value.h"

#include <memory>
#include <utility>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/handle.h"
#include "zn/db.h"

namespace zn {

namespace {

Value TypeList(Database& database) {
  std::vector<Value> types;
  for (PropertySet& form : database.Types().DumpTypeGraph()) {
    types.push_back(Value::Set(ZN_TYPE_TYPE_OBJECT, std::move(form)));
  }
  return Value::Array(ZN_TYPE_TYPE_OBJECT, std::move(types));
}

Value ObjectList(Database& database) {
  std::vector<Value> objects;
  TypeObject* root = database.Types().FindType(kRootTypeName);
  std::vector<DBNode*> nodes;
  if (root != nullptr) root->CollectInstances(&nodes);
  for (const DBNode* node : nodes) {
    if (node->IsHidden()) continue;
    PropertySet form;
    database.MarshalObject(*node, &form);
    objects.push_back(Value::Set(ZN_TYPE_OBJECT, std::move(form)));
  }
  return Value::Array(ZN_TYPE_OBJECT, std::move(objects));
}

struct DeleteDatabase {
  void operator()(ZnHandle handle) const noexcept {
    static_cast<void>(DbDeletePrivateDatabase(handle));
  }
};

}  // namespace

const std::vector<Value>* FindSetList(const PropertySet& set, std::string_view name) noexcept {
  const Property* list = set.Find(name);
  if (list == nullptr || !list->GetValue().IsArray()) return nullptr;
  const std::vector<Value>& elements = list->GetValue().AsArray();
  const bool isOfSets = elements.empty() || elements[0].Tag() == ZN_TYPE_PROPSET ||
                        elements[0].Tag() == ZN_TYPE_OBJECT ||
                        elements[0].Tag() == ZN_TYPE_PROVIDER ||
                        elements[0].Tag() == ZN_TYPE_TYPE_OBJECT;
  return isOfSets ? &elements : nullptr;
}

void MarshalDatabase(Database& database, PropertySet* out) {
  PropertySet set;
  set.Put("DatabaseId", Value::Id(database.GetId()));
  set.Put("Types", TypeList(database));
  set.Put("Objects", ObjectList(database));
  *out = std::move(set);
}

bool MarshalPrivateDatabase(ZnHandle handle, PropertySet* out) {
  if (!IsValidHandle(handle, HANDLE_DATABASE)) return false;
  auto& database = *HandleThing<Database>(handle);
  if ((database.Flags() & DB_PRIVATE) == 0) return false;
  MarshalDatabase(database, out);
  return true;
}

u32 UnmarshalDatabase(const PropertySet& set, Database& database) {
  const Value* id = set.FindValue("DatabaseId", ZN_TYPE_OBJECT_ID);
  const std::vector<Value>* types = FindSetList(set, "Types");
  const std::vector<Value>* objects = FindSetList(set, "Objects");
  if (id == nullptr || types == nullptr || objects == nullptr) return ZNE_INVALID_ARGUMENTS;
  database.SetId(id->AsId());
  for (const Value& type : *types) {
    ZN_RETURN_IF_FAILED(database.Types().InstallType(type.AsSet()));
  }
  for (const Value& object : *objects) {
    ZN_RETURN_IF_FAILED(database.InstallObject(object.AsSet()));
  }
  return ZN_OK;
}

u32 UnmarshalPrivateDatabase(const PropertySet& set, ZnHandle* out) {
  ZnHandle handle = nullptr;
  ZN_RETURN_IF_FAILED(DbCreatePrivateDatabase(&handle));
  std::unique_ptr<ZnHandleRecord, DeleteDatabase> owned(handle);
  ZN_RETURN_IF_FAILED(UnmarshalDatabase(set, *HandleThing<Database>(handle)));
  *out = owned.release();
  return ZN_OK;
}

}  // namespace zn
