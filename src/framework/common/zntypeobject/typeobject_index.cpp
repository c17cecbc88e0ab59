// Indexes of a type and the search by value. An index lies at the highest type that declares the
// property and covers the objects of every derived type, so what is asked of a derived type is
// found there too.
#include "framework/common/zntypeobject/typeobject.h"

#include <algorithm>
#include <new>

#include "framework/common/zncore/database.h"
#include "support/common/status.h"

namespace zn {

namespace {

const Property* PropertyAt(const PropertySet& properties, u32 place) noexcept {
  return place < properties.Count() ? &properties.At(place) : nullptr;
}

// Reads the nodes of one type. What a node has under a name is two steps away, the node's array of
// properties and the property in it, and both are asked for some nodes ahead. Instances of a type
// mostly have the property in the same place of their arrays, so the place in the last one is tried
// before any search.
void ScanNodes(const std::vector<DBNode*>& nodes, const Property& wanted,
               std::vector<DBNode*>* out) {
  constexpr size_t kAhead = 8;
  u32 place = 0;
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (i + 2 * kAhead < nodes.size() && nodes[i + 2 * kAhead] != nullptr) {
      __builtin_prefetch(&nodes[i + 2 * kAhead]->Properties());
    }
    if (i + kAhead < nodes.size() && nodes[i + kAhead] != nullptr) {
      __builtin_prefetch(PropertyAt(nodes[i + kAhead]->Properties(), place));
    }
    if (nodes[i] == nullptr) continue;
    const PropertySet& properties = nodes[i]->Properties();
    const Property* property = PropertyAt(properties, place);
    if (property == nullptr || property->Key() != wanted.Key()) {
      property = properties.Find(wanted.Key());
      if (property == nullptr) continue;
      place = static_cast<u32>(property - properties.begin());
    }
    if (property->GetValue().Equals(wanted.GetValue())) out->push_back(nodes[i]);
  }
}

}  // namespace

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

u32 TypeObject::FindInstanceIds(const Property& value, std::vector<ObjectId>* out) {
  if (FormalizingType(value.Key()) == this) {
    if (const ObjectIndex* index = FindIndex(value.Key())) {
      index->FindIds(value.GetValue(), out);  // which has them at hand
      return ZN_OK;
    }
  }
  std::vector<DBNode*> nodes;
  ZN_RETURN_IF_FAILED(FindInstances(value, &nodes));
  AppendIds(nodes, out);
  return ZN_OK;
}

void TypeObject::ScanInstances(const Property& value, std::vector<DBNode*>* out) const {
  for (const TypeObject* type : Descendants()) ScanNodes(type->instances_.Slots(), value, out);
}

}  // namespace zn
