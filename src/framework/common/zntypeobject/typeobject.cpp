// Types: links, property form, interfaces, instances. Indexes and searches: typeobject_index.cpp.
#include "framework/common/zntypeobject/typeobject.h"

#include <algorithm>
#include <new>
#include <unordered_set>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/zntypeobject/typewalk.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"

namespace zn {

namespace {

template <typename T>
bool Contains(const std::vector<T*>& items, const T* item) noexcept {
  return std::find(items.begin(), items.end(), item) != items.end();
}

constexpr u32 kTypeEventFlags = EVENT_LOCAL | EVENT_REMOTE;

}  // namespace

// Depth first with a path of its own: a chain of supertypes may be longer than the stack is deep.
void AppendAncestorsFirst(const TypeObject& type, TypeSet* done, std::vector<TypeObject*>* out) {
  struct Step {
    const TypeObject* type;
    size_t next;  // supertype to visit next
  };
  if (done->contains(&type)) return;
  std::vector<Step> path{{&type, 0}};
  while (!path.empty()) {
    Step& step = path.back();
    const std::vector<TypeObject*>& supertypes = step.type->Supertypes();
    if (step.next == supertypes.size()) {
      done->insert(step.type);
      out->push_back(const_cast<TypeObject*>(step.type));
      path.pop_back();
      continue;
    }
    const TypeObject* super = supertypes[step.next++];
    if (!done->contains(super)) path.push_back({super, 0});
  }
}

void InstanceList::Add(DBNode* node) {
  slots_.push_back(node);
  node->SetInstanceSlot(static_cast<u32>(slots_.size() - 1));
  ++live_;
}

void InstanceList::Remove(DBNode* node) noexcept {
  const u32 slot = node->InstanceSlot();
  if (slot >= slots_.size() || slots_[slot] != node) return;
  slots_[slot] = nullptr;
  --live_;
  while (!slots_.empty() && slots_.back() == nullptr) slots_.pop_back();
  constexpr size_t kWorthCompacting = 64;
  if (slots_.size() > kWorthCompacting && live_ < slots_.size() / 2) Compact();
}

// Closes the holes; the order stays.
void InstanceList::Compact() noexcept {
  u32 next = 0;
  for (DBNode* node : slots_) {
    if (node == nullptr) continue;
    slots_[next] = node;
    node->SetInstanceSlot(next++);
  }
  slots_.resize(next);
}

TypeObject::TypeObject(Database* database, TypeObject* type, std::string_view name, u32 flags)
    : BaseObject(InternedId::Generate(), type, flags), database_(database), name_(name) {
  if (type != nullptr) type->typeInstances_.push_back(this);
}

TypeObject::~TypeObject() {
  for (TypeObject* super : supertypes_) std::erase(super->subtypes_, this);
  for (TypeObject* sub : subtypes_) std::erase(sub->supertypes_, this);
  for (TypeObject* instance : typeInstances_) instance->SetType(nullptr);
  if (GetType() != nullptr) std::erase(GetType()->typeInstances_, this);
  GraphChanged();
}

void TypeObject::GraphChanged() noexcept {
  database_->Types().GraphChanged();
}

void TypeObject::LinkSupertypes(const std::vector<TypeObject*>& supertypes) {
  for (TypeObject* super : supertypes_) std::erase(super->subtypes_, this);
  supertypes_ = supertypes;
  for (TypeObject* super : supertypes_) super->subtypes_.push_back(this);
  GraphChanged();
}

const TypeObject::Lineage& TypeObject::GetLineage() const {
  if (lineage_.generation != database_->Types().GraphGeneration()) BuildLineage();
  return lineage_;
}

void TypeObject::BuildLineage() const {
  Lineage fresh;
  TypeSet seen{this};
  fresh.nearestFirst.push_back(const_cast<TypeObject*>(this));
  for (size_t i = 0; i < fresh.nearestFirst.size(); ++i) {
    for (TypeObject* super : fresh.nearestFirst[i]->supertypes_) {
      if (seen.insert(super).second) fresh.nearestFirst.push_back(super);
    }
  }
  fresh.ancestorsFirst = WalkAncestorsFirst();
  for (const TypeObject* type : fresh.nearestFirst) {
    for (const Property& property : type->Properties()) {
      static_cast<void>(fresh.allProperties.Add(property));  // the first of a name stays
    }
  }
  fresh.generation = database_->Types().GraphGeneration();
  lineage_ = std::move(fresh);
}

std::vector<TypeObject*> TypeObject::WalkAncestorsFirst() const {
  TypeSet done;
  std::vector<TypeObject*> order;
  AppendAncestorsFirst(*this, &done, &order);
  return order;
}

const std::vector<TypeObject*>& TypeObject::Descendants() const {
  const u32 generation = database_->Types().GraphGeneration();
  if (descent_.generation != generation) {
    descent_.types = WalkDescendants();
    descent_.generation = generation;
  }
  return descent_.types;
}

std::vector<TypeObject*> TypeObject::WalkDescendants() const {
  std::vector<TypeObject*> order;
  TypeSet seen;
  std::vector<TypeObject*> open{const_cast<TypeObject*>(this)};
  while (!open.empty()) {
    TypeObject* type = open.back();
    open.pop_back();
    if (!seen.insert(type).second) continue;
    order.push_back(type);
    open.insert(open.end(), type->subtypes_.rbegin(), type->subtypes_.rend());
  }
  return order;
}

// Supertypes mostly form a chain. It is climbed as it stands: the creation of a type asks for this,
// and lists kept for each type of a chain would take its length squared.
bool TypeObject::IsA(const TypeObject& base) const {
  const TypeObject* type = this;
  while (type != &base && type->supertypes_.size() == 1) type = type->supertypes_.front();
  if (type == &base) return true;
  return !type->supertypes_.empty() && Contains(type->GetLineage().nearestFirst, &base);
}

// The types of the chain come behind all that stand where it forks.
TypeObject* TypeObject::FormalizingType(PropertyName name) {
  const auto declares = [name](const TypeObject* type) {
    return type->Properties().Find(name) != nullptr;
  };
  TypeObject* highest = nullptr;
  TypeObject* type = this;
  for (; type->supertypes_.size() == 1; type = type->supertypes_.front()) {
    if (declares(type)) highest = type;
  }
  if (type->supertypes_.empty()) return declares(type) ? type : highest;
  const std::vector<TypeObject*>& ancestors = type->GetLineage().ancestorsFirst;
  const auto found = std::find_if(ancestors.begin(), ancestors.end(), declares);
  return found == ancestors.end() ? highest : *found;
}

// Most types have one supertype, and the way up is a chain. Where it forks, each type is asked
// once, however many ways lead to it.
const Property* TypeObject::FindDeclaration(PropertyName name) const {
  const TypeObject* type = this;
  while (type->supertypes_.size() == 1 && type->Properties().Find(name) == nullptr) {
    type = type->supertypes_.front();
  }
  std::unordered_set<const TypeObject*> seen;
  std::vector<const TypeObject*> open{type};
  while (!open.empty()) {
    type = open.back();
    open.pop_back();
    if (!seen.insert(type).second) continue;
    if (const Property* found = type->Properties().Find(name)) return found;
    open.insert(open.end(), type->supertypes_.rbegin(), type->supertypes_.rend());
  }
  return nullptr;
}

const PropertySet& TypeObject::AllProperties() const {
  return GetLineage().allProperties;
}

const std::vector<TypeObject*>& TypeObject::AncestorsFirst() const {
  return GetLineage().ancestorsFirst;
}

// Contract: a type cannot be changed one property at a time.
u32 TypeObject::SetProperty(const Property&) {
  return ZNE_UNEXPECTED;
}

u32 TypeObject::SetProperties(const PropertySet& properties) {
  const u32 status = BaseObject::SetProperties(properties);
  GraphChanged();
  if (!ZN_FAILED(status)) MakeIndexes(properties);
  return status;
}

PropertySet TypeObject::GetProperties() const {
  std::vector<Value> supertypes;
  supertypes.reserve(supertypes_.size());
  for (const TypeObject* super : supertypes_) supertypes.push_back(Value::Text(super->Name()));

  PropertySet form;
  form.Put("ObjectId", Value::Id(GetId()));
  form.Put("ObjectType", Value::Text(GetTypeName()));
  form.Put("Data", Value::Set(PropertySet(Properties())));
  form.Put("TypeName", Value::Text(name_));
  form.Put("Flags", Value::UInt32(GetFlags()));
  form.Put("SuperTypes", Value::Array(ZN_TYPE_STRING, std::move(supertypes)));
  form.Put("InterfaceList", InterfaceList(interfaces_));
  return form;
}

void TypeObject::CollectInstances(std::vector<DBNode*>* out) const {
  out->reserve(out->size() + CountInstances());
  for (const TypeObject* type : Descendants()) {
    for (DBNode* node : type->instances_.Slots()) {
      if (node != nullptr) out->push_back(node);
    }
  }
}

void TypeObject::CollectInstanceIds(std::vector<ObjectId>* out) const {
  out->reserve(out->size() + CountInstances() + typeInstances_.size());
  for (const TypeObject* type : Descendants()) {
    for (const DBNode* node : type->instances_.Slots()) {
      if (node != nullptr) out->push_back(node->Guid());
    }
    for (const TypeObject* instance : type->typeInstances_) {
      out->push_back(instance->Guid());
    }
  }
}

void TypeObject::SetComplete() {
  for (TypeObject* type : Descendants()) type->isComplete_ = true;
}

size_t TypeObject::CountInstances() const {
  size_t count = 0;
  for (const TypeObject* type : Descendants()) count += type->instances_.Count();
  return count;
}

u32 TypeObject::AddInterface(const GUID& interfaceId, const InternedId& provider) {
  for (const InterfaceRecord& record : interfaces_) {
    if (SameGuid(record.interfaceId, interfaceId)) return ZNE_INTERFACE_EXISTS;
  }
  interfaces_.push_back({interfaceId, provider});
  NotifyInterfaceChange();
  return ZN_OK;
}

u32 TypeObject::RemoveInterface(const GUID& interfaceId, const InternedId& provider) {
  const auto serves = [&](const InterfaceRecord& record) {
    return SameGuid(record.interfaceId, interfaceId) && record.provider == provider;
  };
  const auto found = std::find_if(interfaces_.begin(), interfaces_.end(), serves);
  if (found == interfaces_.end()) return ZNE_INTERFACE_NOT_FOUND;
  interfaces_.erase(found);
  NotifyInterfaceChange();
  return ZN_OK;
}

void TypeObject::ReplaceInterfaces(std::vector<InterfaceRecord> interfaces) {
  interfaces_ = std::move(interfaces);
}

// Best effort: the change stands, told or not.
void TypeObject::NotifyInterfaceChange() try {
  PropertySet data;
  data.Put("InterfaceList", InterfaceList(interfaces_));
  data.Put("TypeName", Value::Text(name_));
  database_->NotifyTypeChange(TypeTopic(name_.Text(), ".interface.change.", Guid()), GetId(), *this,
                              std::move(data), kTypeEventFlags);
} catch (const std::bad_alloc&) {
}

void TypeObject::CollectInterfaces(bool inherited, std::vector<GUID>* out) const {
  const auto isListed = [out](const GUID& id) {
    return std::any_of(out->begin(), out->end(),
                       [&id](const GUID& listed) { return SameGuid(listed, id); });
  };
  for (const TypeObject* type : GetLineage().nearestFirst) {
    for (const InterfaceRecord& record : type->interfaces_) {
      if (!isListed(record.interfaceId)) out->push_back(record.interfaceId);
    }
    if (!inherited) return;
  }
}

const InterfaceRecord* TypeObject::FindInterface(const GUID& interfaceId) const {
  for (const TypeObject* type : GetLineage().nearestFirst) {
    for (const InterfaceRecord& record : type->interfaces_) {
      if (SameGuid(record.interfaceId, interfaceId)) return &record;
    }
  }
  return nullptr;
}

Value TypeObject::InterfaceList(const std::vector<InterfaceRecord>& interfaces) {
  std::vector<Value> list;
  list.reserve(interfaces.size());
  for (const InterfaceRecord& record : interfaces) {
    PropertySet entry;
    entry.Put("Interface", Value::Guid(record.interfaceId));
    entry.Put("Provider", Value::Id(record.provider));
    list.push_back(Value::Set(std::move(entry)));
  }
  return Value::Array(ZN_TYPE_PROPSET, std::move(list));
}

}  // namespace zn
