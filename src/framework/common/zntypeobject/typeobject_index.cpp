// Indexes of a type and the search by value. An index lies at the highest type that declares the
// property and covers the objects of every derived type, so what is asked of a derived type is
// found there too.
#include "framework/common/zntypeobject/typeobject.h"

#include <algorithm>
#include <new>

#include "framework/common/zncore/database.h"
#include "support/common/status.h"

namespace zn {

ObjectIndex* TypeObject::FindIndex(PropertyName name) noexcept {
  for (const auto& [key, index] : indexes_) {
    if (key == name) return index.get();
  }
  return nullptr;
}

// Asked for every property of every object that changes: it looks at the few indexes there are, not
// at the declarations.
ObjectIndex* TypeObject::FormalizedIndex(PropertyName name) {
  for (TypeObject* type : GetLineage().ancestorsFirst) {
    if (ObjectIndex* index = type->FindIndex(name)) return index;
  }
  return nullptr;
}

void TypeObject::EnsureIndex(PropertyName name) {
  TypeObject* owner = FormalizingType(name);
  if (owner == nullptr || owner->FindIndex(name) != nullptr) return;
  // A client copy is searched by its server, and does not keep indexes in step.
  if (!database_->IsLocal()) return;
  Property* declaration = owner->MutableProperties().Find(name);
  auto index = CreateObjectIndex(declaration->TypeTag());
  if (index == nullptr) return;
  declaration->SetIndexed();
  owner->GraphChanged();

  std::vector<DBNode*> nodes;
  owner->CollectInstances(&nodes);
  for (DBNode* node : nodes) {
    const Property* property = node->Properties().Find(name);
    if (property != nullptr) index->Add(property->GetValue(), node);
  }
  owner->indexes_.emplace_back(name, std::move(index));
}

void TypeObject::MakeIndexes(const PropertySet& properties) {
  for (const Property& property : properties) {
    if (property.IsIndexed()) EnsureIndex(property.Key());
  }
}

void TypeObject::ReplaceDeclarations(const PropertySet& properties) {
  ReplaceProperties(properties);
  GraphChanged();
  // A derived type may own an index on what this type declares from now on, and may ask for one.
  const std::vector<TypeObject*> types = Descendants();
  for (TypeObject* type : types) type->indexes_.clear();
  for (TypeObject* type : types) type->MakeIndexes(type->Properties());
}

void TypeObject::AddToIndexes(DBNode* node) {
  for (TypeObject* type : GetLineage().ancestorsFirst) {
    for (const auto& [name, index] : type->indexes_) {
      const Property* property = node->Properties().Find(name);
      if (property != nullptr) index->Add(property->GetValue(), node);
    }
  }
}

// The node may be in its destructor: where there is no memory for the lineage, every type is asked.
void TypeObject::RemoveFromIndexes(DBNode* node) {
  const auto removeFrom = [node](const TypeObject& type) {
    for (const auto& [name, index] : type.indexes_) {
      const Property* property = node->Properties().Find(name);
      if (property != nullptr) index->Remove(property->GetValue(), node);
    }
  };
  try {
    for (const TypeObject* type : GetLineage().ancestorsFirst) removeFrom(*type);
  } catch (const std::bad_alloc&) {
    for (const auto& [name, type] : database_->Types().Types()) removeFrom(*type);
  }
}

u32 TypeObject::FindInstances(const Property& value, std::vector<DBNode*>* out) {
  TypeObject* owner = FormalizingType(value.Key());
  if (owner == nullptr) return ZNE_PROPERTY_NOT_FORMALIZED;
  const ObjectIndex* index = owner->FindIndex(value.Key());
  if (index == nullptr) {
    ScanInstances(value, out);
    return ZN_OK;
  }
  if (owner == this) {
    index->Find(value.GetValue(), out);
    return ZN_OK;
  }
  // The index of an ancestor also holds objects of other types: whichever is shorter is walked.
  if (index->Count(value.GetValue()) > CountInstances()) {
    ScanInstances(value, out);
    return ZN_OK;
  }
  std::vector<DBNode*> nodes;
  index->Find(value.GetValue(), &nodes);
  std::copy_if(nodes.begin(), nodes.end(), std::back_inserter(*out),
               [this](const DBNode* node) { return node->GetType()->IsA(*this); });
  return ZN_OK;
}

void TypeObject::ScanInstances(const Property& value, std::vector<DBNode*>* out) const {
  for (const TypeObject* type : Descendants()) {
    for (DBNode* node : type->instances_.Slots()) {
      if (node == nullptr) continue;
      const Property* property = node->Properties().Find(value.Key());
      if (property != nullptr && property->GetValue().Equals(value.GetValue())) {
        out->push_back(node);
      }
    }
  }
}

}  // namespace zn
