// Making an object from its marshalled form: the twin of Database::MarshalObject.
#include "framework/common/zncore/database.h"

#include <memory>
#include <new>
#include <vector>

#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/status.h"

namespace zn {

namespace {

// An array property of that element tag, or null.
const std::vector<Value>* FindArray(const PropertySet& form, std::string_view name,
                                    u32 elementTag) noexcept {
  const Value* value = form.FindValue(name, elementTag | ZN_TYPE_ARRAY);
  return value == nullptr ? nullptr : &value->AsArray();
}

IdSet ReadIds(const PropertySet& form, std::string_view name) {
  IdSet ids;
  const std::vector<Value>* list = FindArray(form, name, ZN_TYPE_OBJECT_ID);
  if (list == nullptr) return ids;
  for (const Value& id : *list) ids.insert(id.AsId());
  return ids;
}

// Records that lack a word are passed over.
void ReadInterfaces(const PropertySet& form, Database& database, DBNode& node) {
  const std::vector<Value>* list = FindArray(form, "InterfaceList", ZN_TYPE_PROPSET);
  if (list == nullptr) return;
  for (const Value& record : *list) {
    const Value* interfaceId = record.AsSet().FindValue("Interface", ZN_TYPE_GUID);
    const Value* provider = record.AsSet().FindValue("Provider", ZN_TYPE_OBJECT_ID);
    if (interfaceId == nullptr || provider == nullptr) continue;
    static_cast<void>(database.RegisterInterface(&node, interfaceId->AsGuid(), provider->AsId()));
  }
}

void ReadBody(const PropertySet& form, DBNode& node) {
  const Value* data = form.FindValue("Data", ZN_TYPE_PROPSET);
  if (data != nullptr) node.ReplaceProperties(data->AsSet());
  const std::vector<Value>* contained = FindArray(form, "ContainedTypes", ZN_TYPE_STRING);
  if (contained != nullptr) {
    node.ClearContainedTypes();
    for (const Value& name : *contained) node.AddContainedType(name.AsText());
  }
  node.ReplaceChildren(ReadIds(form, "ChildList"));
  node.ReplaceParents(ReadIds(form, "ParentList"));
}

}  // namespace

u32 Database::InstallObject(const PropertySet& form) {
  const Value* id = form.FindValue("ObjectId", ZN_TYPE_OBJECT_ID);
  if (id == nullptr || ObjectExists(id->AsGuid())) return ZN_OK;  // the first copy stays
  const Value* typeName = form.FindValue("ObjectType", ZN_TYPE_STRING);
  const Value* flags = form.FindValue("Flags", ZN_TYPE_UINT32);
  const Value* creator = form.FindValue("CreatorId", ZN_TYPE_OBJECT_ID);
  if (typeName == nullptr || flags == nullptr) return ZNE_INVALID_ARGUMENTS;
  TypeObject* type = types_.FindType(typeName->AsText());
  if (type == nullptr) return ZNE_TYPE_NOT_FOUND;

  LowerNotifyEnable();
  u32 status = ZN_OK;
  try {
    std::unique_ptr<DBNode> node =
        DBNode::Make(this, type, id->AsId(), creator == nullptr ? InternedId() : creator->AsId(),
                     flags->AsUInt32());
    ReadBody(form, *node);
    type->Instances().Add(node.get());
    InsertObject(node.get());
    ReadInterfaces(form, *this, *node);
    if (IsLocal()) type->AddToIndexes(node.get());
    static_cast<void>(node.release());
  } catch (const std::bad_alloc&) {
    status = ZNE_OUT_OF_MEMORY;
  }
  RaiseNotifyEnable();
  return status;
}

}  // namespace zn
