// Making objects, providers and types from their marshalled forms: the twin of
// Database::MarshalObject.
#include "framework/common/zncore/database.h"

#include <memory>
#include <new>
#include <vector>

#include "framework/common/zncore/database_value.h"
#include "framework/common/zncore/wireform.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "support/common/status.h"

namespace zn {

namespace {

void ReadBody(const PropertySet& form, PropertySet* data, DBNode& node) {
  if (data != nullptr) {
    node.ReplaceProperties(std::move(*data));
  } else if (const Value* present = form.FindValue(wire::kDataKey, ZN_TYPE_PROPSET)) {
    node.ReplaceProperties(present->AsSet());
  }
  const std::vector<Value>* contained = FindArray(form, wire::kContainedTypesKey, ZN_TYPE_STRING);
  if (contained != nullptr) {
    node.ClearContainedTypes();
    for (const Value& name : *contained) node.AddContainedType(name.AsText());
  }
  node.ReplaceChildren(ReadIds(form, wire::kChildListKey));
  node.ReplaceParents(ReadIds(form, wire::kParentListKey));
}

std::string_view TextOf(const PropertySet& form, std::string_view name) noexcept {
  const Value* value = form.FindValue(name, ZN_TYPE_STRING);
  return value == nullptr ? std::string_view() : value->AsText();
}

}  // namespace

const std::vector<Value>* FindArray(const PropertySet& form, std::string_view name,
                                    u32 elementTag) noexcept {
  const Value* value = form.FindValue(name, elementTag | ZN_TYPE_ARRAY);
  return value == nullptr ? nullptr : &value->AsArray();
}

IdSet ReadIds(const PropertySet& form, std::string_view name) {
  IdSet ids;
  const std::vector<Value>* list = FindArray(form, name, ZN_TYPE_OBJECT_ID);
  if (list == nullptr) return ids;
  for (const Value& id : *list) ids.insert(ids.end(), id.AsId());  // they come in their order
  return ids;
}

PropertySet* FindOwnSet(PropertySet& form, std::string_view name) noexcept {
  PropertyName key;
  if (!PropertyName::Find(name, &key)) return nullptr;
  Property* property = form.Find(key);
  const bool isSet = property != nullptr && property->TypeTag() == ZN_TYPE_PROPSET;
  return isSet ? &property->GetValue().AsSet() : nullptr;
}

bool TakeNestedSet(PropertySet& message, std::string_view name, PropertySet* out) {
  if (PropertySet* own = FindOwnSet(message, name)) {
    out->TakeFrom(*own);
    return true;
  }
  return wire::FindNestedSet(message, name, out) != nullptr;
}

std::vector<Value>* FindOwnSetList(PropertySet& set, std::string_view name) noexcept {
  return const_cast<std::vector<Value>*>(FindSetList(set, name));
}

void Database::ReadInterfaces(const PropertySet& form, DBNode& node) {
  while (!node.Interfaces().empty()) {
    const GUID last = node.Interfaces().back().interfaceId;
    static_cast<void>(DeregisterInterface(&node, last));
  }
  const std::vector<Value>* list = FindArray(form, wire::kInterfaceListKey, ZN_TYPE_PROPSET);
  if (list == nullptr) return;
  for (const Value& record : *list) {
    const Value* interfaceId = record.AsSet().FindValue(wire::kInterfaceKey, ZN_TYPE_GUID);
    const Value* provider = record.AsSet().FindValue(wire::kProviderKey, ZN_TYPE_OBJECT_ID);
    if (interfaceId == nullptr || provider == nullptr) continue;
    static_cast<void>(RegisterInterface(&node, interfaceId->AsGuid(), provider->AsId()));
  }
}

u32 Database::MakeFromForm(const PropertySet& form, PropertySet* data,
                           std::unique_ptr<DBNode>* out) {
  const Value* id = form.FindValue(wire::kObjectIdKey, ZN_TYPE_OBJECT_ID);
  const Value* typeName = form.FindValue(wire::kObjectTypeKey, ZN_TYPE_STRING);
  const Value* flags = form.FindValue(wire::kFlagsKey, ZN_TYPE_UINT32);
  const Value* creator = form.FindValue(wire::kCreatorIdKey, ZN_TYPE_OBJECT_ID);
  if (id == nullptr || typeName == nullptr || flags == nullptr) return ZNE_INVALID_ARGUMENTS;
  TypeObject* type = types_.FindType(typeName->AsText());
  if (type == nullptr) return ZNE_TYPE_NOT_FOUND;
  *out = DBNode::Make(this, type, id->AsId(), creator == nullptr ? InternedId() : creator->AsId(),
                      flags->AsUInt32());
  ReadBody(form, data, **out);
  return ZN_OK;
}

void Database::EnterInstalled(std::unique_ptr<DBNode> node, const PropertySet& form) {
  TypeObject* type = node->GetType();
  type->Instances().Add(node.get());
  InsertObject(node.get());
  ReadInterfaces(form, *node);
  if (IsLocal()) {
    type->AddToIndexes(node.get());
  } else {
    AddToGroups(node.get());  // of the client's own
  }
  static_cast<void>(node.release());
}

u32 Database::InstallUnlessHere(const PropertySet& form, PropertySet* data) {
  const Value* id = form.FindValue(wire::kObjectIdKey, ZN_TYPE_OBJECT_ID);
  if (id == nullptr || ObjectExists(id->AsGuid())) return ZN_OK;  // the first copy stays
  const NotifyHold hold(*this);
  try {
    std::unique_ptr<DBNode> node;
    ZN_RETURN_IF_FAILED(MakeFromForm(form, data, &node));
    EnterInstalled(std::move(node), form);
  } catch (const std::bad_alloc&) {
    return ZNE_OUT_OF_MEMORY;
  }
  return ZN_OK;
}

u32 Database::InstallObject(const PropertySet& form) {
  return InstallUnlessHere(form, nullptr);
}

u32 Database::InstallObjectFrom(PropertySet& form) {
  return InstallUnlessHere(form, FindOwnSet(form, wire::kDataKey));
}

u32 Database::InstallProvider(const PropertySet& form) {
  const Value* id = form.FindValue(wire::kProviderIdKey, ZN_TYPE_OBJECT_ID);
  if (id == nullptr || FindProviderById(id->AsGuid()) != nullptr) return ZN_OK;
  const Value* name = form.FindValue(wire::kNameKey, ZN_TYPE_WIDESTRING);
  if (name == nullptr) return ZNE_INVALID_ARGUMENTS;
  TypeObject* type = types_.FindType(kProviderTypeName);
  if (type == nullptr) return ZNE_TYPE_NOT_FOUND;
  auto provider = std::make_unique<Provider>(this, type, name->AsWideText(), ProviderCallbacks{},
                                             nullptr, false);
  if (provider->Handle() == nullptr) return ZNE_OUT_OF_MEMORY;
  provider->SetId(id->AsId());
  provider->SetExtensions(TextOf(form, wire::kExtensionIdKey),
                          TextOf(form, wire::kMessageCatalogIdKey));
  if (const Value* data = form.FindValue(wire::kDataKey, ZN_TYPE_PROPSET)) {
    provider->ReplaceProperties(data->AsSet());
  }
  provider->SetRegistered();
  AddProvider(std::move(provider));
  return ZN_OK;
}

u32 Database::InstallProviders(PropertySet& reply, std::vector<ObjectId>*) {
  const std::vector<Value>* providers = FindSetList(reply, wire::kProvidersKey);
  if (providers == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  for (const Value& form : *providers) ZN_RETURN_IF_FAILED(InstallProvider(form.AsSet()));
  return ZN_OK;
}

u32 Database::InstallTypes(PropertySet& reply, std::vector<ObjectId>*) {
  const std::vector<Value>* types = FindSetList(reply, wire::kTypesKey);
  if (types == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  for (const Value& form : *types) ZN_RETURN_IF_FAILED(types_.InstallType(form.AsSet()));
  return ZN_OK;
}

u32 Database::InstallListing(PropertySet& reply, std::vector<ObjectId>* added) {
  std::vector<Value>* objects = FindOwnSetList(reply, wire::kObjectsKey);
  if (objects == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  for (Value& object : *objects) {
    const Value* id = object.AsSet().FindValue(wire::kObjectIdKey, ZN_TYPE_OBJECT_ID);
    // Contract: what the copy holds already is not reported, and so a query that is asked again
    // answers with nothing.
    if (id == nullptr || ObjectExists(id->AsGuid())) continue;
    const ObjectId guid = id->AsGuid();
    ZN_RETURN_IF_FAILED(InstallObjectFrom(object.AsSet()));
    added->push_back(guid);
  }
  return ZN_OK;
}

}  // namespace zn
