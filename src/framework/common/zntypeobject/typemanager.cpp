// The table of types, creation by the rules, copies of types. The base types: basetypes.cpp.
#include "framework/common/zntypeobject/typemanager.h"

#include <algorithm>
#include <new>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/zntypeobject/typerules.h"
#include "framework/common/zntypeobject/typewalk.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

namespace {

void TraceRule(int number) {
  ZN_TRACE(1, "ZnAPI:CreateTypeInstance:Applying Rule %d", number);
}

// What the property form of a type says. Borrowed from the form.
struct TypeForm {
  const Value* id;
  const Value* data;
  const Value* name;
  const Value* flags;
  const Value* supertypes;
  const Value* interfaces;
};

u32 ReadForm(const PropertySet& form, TypeForm* out) {
  const struct {
    const char* name;
    u32 tag;
    const Value* TypeForm::*member;
  } fields[] = {
      {"ObjectId", ZN_TYPE_OBJECT_ID, &TypeForm::id},
      {"Data", ZN_TYPE_PROPSET, &TypeForm::data},
      {"TypeName", ZN_TYPE_STRING, &TypeForm::name},
      {"Flags", ZN_TYPE_UINT32, &TypeForm::flags},
      {"SuperTypes", ZN_TYPE_ARRAY | ZN_TYPE_STRING, &TypeForm::supertypes},
      {"InterfaceList", ZN_TYPE_ARRAY | ZN_TYPE_PROPSET, &TypeForm::interfaces},
  };
  for (const auto& field : fields) {
    const Value* value = form.FindValue(field.name, field.tag);
    if (value == nullptr) return ZNE_PROPERTY_NOT_FOUND;
    out->*field.member = value;
  }
  return ZN_OK;
}

u32 ReadInterfaceList(const Value& list, std::vector<InterfaceRecord>* out) {
  for (const Value& entry : list.AsArray()) {
    const Value* interfaceId = entry.AsSet().FindValue("Interface", ZN_TYPE_GUID);
    const Value* provider = entry.AsSet().FindValue("Provider", ZN_TYPE_OBJECT_ID);
    if (interfaceId == nullptr || provider == nullptr) return ZNE_PROPERTY_NOT_FOUND;
    out->push_back({interfaceId->AsGuid(), provider->AsId()});
  }
  return ZN_OK;
}

// Best effort: the type stands, told or not.
void AnnounceType(Database& database, TypeObject& type) noexcept {
  try {
    database.NotifyTypeChange(TypeTopic(type.Name().Text(), ".object.add.", type.Guid()),
                              type.GetId(), type, type.GetProperties(), EVENT_LOCAL | EVENT_REMOTE);
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

TypeManager::~TypeManager() {
  types_.clear();
}  // here, while the generation can still be counted

TypeObject* TypeManager::FindType(std::string_view name) noexcept {
  const auto found = types_.find(name.empty() ? kRootTypeName : name);
  return found == types_.end() ? nullptr : found->second.get();
}

TypeObject* TypeManager::FindTypeById(const ObjectId& id) noexcept {
  for (const auto& [name, type] : types_) {
    if (SameGuid(type->Guid(), id)) return type.get();
  }
  return nullptr;
}

bool TypeManager::TypeIsA(std::string_view type, std::string_view base) {
  const TypeObject* derived = FindType(type);
  if (derived == nullptr) return false;
  if (type == base) return true;
  const TypeObject* ancestor = FindType(base);
  return ancestor != nullptr && derived->IsA(*ancestor);
}

u32 TypeManager::ResolveSupertypes(const std::vector<std::string>& names,
                                   std::vector<TypeObject*>* out) {
  TypeSet seen;
  for (const std::string& name : names) {
    TypeObject* super = FindType(name);
    if (super == nullptr || !seen.insert(super).second) return ZNE_INVALID_ARGUMENTS;
    out->push_back(super);
  }
  return ZN_OK;
}

u32 TypeManager::CreateTypeInstance(std::string_view name, const PropertySet* properties,
                                    const std::vector<std::string>& supertypes, u32 flags,
                                    TypeObject** out) {
  AssertBusLocked();
  const PropertySet none;
  const PropertySet& own = properties == nullptr ? none : *properties;

  TraceRule(1);
  if (!IsTypeNameText(name)) return ZNE_INVALID_ARGUMENTS;
  TraceRule(2);
  if (FindType(name) != nullptr) return ZNE_TYPE_EXISTS;
  TraceRule(3);
  ZN_RETURN_IF_FAILED(CheckIndexable(own));
  TraceRule(4);
  std::vector<TypeObject*> resolved;
  ZN_RETURN_IF_FAILED(ResolveSupertypes(supertypes, &resolved));
  TraceRule(5);
  ZN_RETURN_IF_FAILED(CheckInheritedTags(own, resolved));
  TraceRule(6);
  ZN_RETURN_IF_FAILED(CheckDiamonds(resolved));

  TypeObject* typeType = FindOrCreateTypeType();
  const std::string text(name);
  ZN_TRACE(1, "ZnAPI:CreateTypeInstance:Creating object for type %s", text.c_str());
  auto type = std::make_unique<TypeObject>(database_, typeType, name, flags);
  type->LinkSupertypes(resolved);
  static_cast<void>(type->SetProperties(own));  // into an empty set: nothing to disagree with
  ZN_TRACE(1, "ZnAPI:CreateTypeInstance:Registering type object %s", text.c_str());
  *out = Register(std::move(type));
  // Contract: a success without a type. The name can only be that of the type of types, which the
  // creation of a first type has just made.
  if (*out == nullptr) return ZN_OK;
  AnnounceType(*database_, **out);
  return ZN_OK;
}

TypeObject* TypeManager::FindOrCreateTypeType() {
  if (TypeObject* found = FindType(kTypeTypeName)) return found;
  ZN_TRACE(1, "ZnAPI:CreateTypeInstance:Creating type object for type objects");
  return Register(std::make_unique<TypeObject>(database_, nullptr, kTypeTypeName, 0));
}

TypeObject* TypeManager::Register(std::unique_ptr<TypeObject> type) {
  std::string name(type->Name().Text());
  const auto [place, isNew] = types_.try_emplace(std::move(name), std::move(type));
  return isNew ? place->second.get() : nullptr;
}

u32 TypeManager::InstallType(const PropertySet& form) {
  AssertBusLocked();
  TypeForm fields{};
  ZN_RETURN_IF_FAILED(ReadForm(form, &fields));
  std::vector<InterfaceRecord> interfaces;
  ZN_RETURN_IF_FAILED(ReadInterfaceList(*fields.interfaces, &interfaces));

  const std::string_view name = fields.name->AsText();
  if (name.empty()) return ZNE_PROPERTY_NOT_FOUND;
  TypeObject* type = FindType(name);
  if (type == nullptr) {
    TypeObject* typeType = name == kTypeTypeName ? nullptr : FindOrCreateTypeType();
    type = Register(std::make_unique<TypeObject>(database_, typeType, name, 0));
  }
  // The objects leave the indexes of the ancestors they had and join those of the new ones.
  std::vector<DBNode*> nodes;
  type->CollectInstances(&nodes);
  for (DBNode* node : nodes) node->GetType()->RemoveFromIndexes(node);
  type->SetId(fields.id->AsId());
  type->SetRawFlags(fields.flags->AsUInt32());
  type->ReplaceInterfaces(std::move(interfaces));

  std::vector<TypeObject*> supertypes;
  for (const Value& value : fields.supertypes->AsArray()) {
    TypeObject* super = FindType(value.AsText());
    const bool isNew = std::find(supertypes.begin(), supertypes.end(), super) == supertypes.end();
    if (super != nullptr && isNew && !super->IsA(*type)) supertypes.push_back(super);
  }
  type->LinkSupertypes(supertypes);
  type->ReplaceDeclarations(fields.data->AsSet());
  for (DBNode* node : nodes) node->GetType()->AddToIndexes(node);
  return ZN_OK;
}

u32 TypeManager::ReplaceInterfaces(const GUID& id, const PropertySet& change) {
  const Value* name = change.FindValue("TypeName", ZN_TYPE_STRING);
  const Value* list = change.FindValue("InterfaceList", ZN_TYPE_ARRAY | ZN_TYPE_PROPSET);
  if (name == nullptr || list == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  std::vector<InterfaceRecord> interfaces;
  ZN_RETURN_IF_FAILED(ReadInterfaceList(*list, &interfaces));
  TypeObject* type = FindType(name->AsText());
  if (type == nullptr || !SameGuid(type->Guid(), id)) return ZNE_TYPE_NOT_FOUND;
  type->ReplaceInterfaces(std::move(interfaces));
  return ZN_OK;
}

std::vector<PropertySet> TypeManager::DumpTypeGraph() const {
  TypeSet done;
  std::vector<TypeObject*> order;
  const auto typeType = types_.find(kTypeTypeName);
  if (typeType != types_.end()) AppendAncestorsFirst(*typeType->second, &done, &order);
  for (const auto& [name, type] : types_) AppendAncestorsFirst(*type, &done, &order);

  std::vector<PropertySet> forms;
  forms.reserve(order.size());
  for (const TypeObject* type : order) forms.push_back(type->GetProperties());
  return forms;
}

}  // namespace zn
