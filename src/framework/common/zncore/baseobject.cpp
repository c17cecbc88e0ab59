// The part of an object that needs neither database nor events: its property set, its contained
// types and the name of its type.
#include "framework/common/zncore/baseobject.h"

#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

const String& BaseObject::GetTypeName() const noexcept {
  // Made once and never destroyed: objects may still be read while the process ends.
  static const String& nameOfTypes = *new String(kTypeTypeName);
  return type_ == nullptr ? nameOfTypes : type_->Name();
}

void BaseObject::AddContainedType(std::string_view name) {
  if (containedTypes_ == nullptr) containedTypes_ = std::make_unique<NameSet>();
  containedTypes_->emplace(name);
}

u32 BaseObject::SetProperty(const Property& property) {
  ZN_TRACE(1, "  ZnApi:Entering BaseObject::SetProperty");
  const u32 status = properties_.Set(property);
  ZN_TRACE(1, "  ZnApi:Exiting BaseObject::SetProperty: 0x%x, %u", status, status);
  return status;
}

u32 BaseObject::SetProperties(const PropertySet& properties) {
  return properties_.Merge(properties);
}

u32 BaseObject::DeleteProperty(std::string_view name) {
  return properties_.Delete(name);
}

u32 BaseObject::GetProperty(std::string_view name, Property* out) const {
  const Property* property = properties_.Find(name);
  if (property == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  out->CopyFrom(*property);
  return ZN_OK;
}

void BaseObject::CopyPropertiesTo(PropertySet& target) const {
  if (target.IsEmpty()) {
    target.CopyFrom(properties_);
    return;
  }
  // A name that the target has already keeps its property.
  for (const Property& property : properties_) static_cast<void>(target.Add(property));
}

void BaseObject::ReplaceProperties(const PropertySet& properties) {
  properties_.CopyFrom(properties);
}

void BaseObject::MergeProperties(const PropertySet& properties) {
  static_cast<void>(properties_.Merge(properties));
}

}  // namespace zn
