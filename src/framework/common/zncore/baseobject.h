// What objects, providers and types have in common: an id, a type, a flags word, a property set.
// Every call runs under FAST_LOCK.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "framework/common/znguid/znguid.h"
#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstring/znstring.h"
#include "zn/types.h"

namespace zn {

class TypeObject;

// Object flags of the library itself, above the 16 public bits.
inline constexpr u32 OBJECT_PUBLIC_FLAGS = 0x0000FFFF;
inline constexpr u32 OBJECT_DELETING = 0x00020000;         // being torn down: no relation events
inline constexpr u32 OBJECT_GROUP_SERVER = 0x00100000;     // a group of a local database
inline constexpr u32 OBJECT_GROUP_CLIENT = 0x00200000;     // a group of a client copy
inline constexpr u32 OBJECT_IN_CLIENT_GROUP = 0x00400000;  // tested, set by nothing
inline constexpr u32 OBJECT_TASK = 0x00800000;             // its changes are never merged
inline constexpr u32 OBJECT_TASK_DONE = 0x01000000;        // a finished task
inline constexpr u32 OBJECT_CLIENT_LOCAL = 0x02000000;     // exists on the client side only

// Names of contained types, in strcmp order.
using NameSet = std::set<std::string, std::less<>>;

class BaseObject {
 public:
  // `room` is memory for so many properties that the object has behind itself, for life.
  BaseObject(InternedId id, TypeObject* type, u32 flags, void* room = nullptr,
             u32 roomCount = 0) noexcept
      : guid_(id.Value()),
        id_(std::move(id)),
        type_(type),
        flags_(flags),
        roomCount_(roomCount),
        properties_(roomCount == 0 ? PropertySet() : PropertySet(room, roomCount)) {}
  virtual ~BaseObject() = default;
  BaseObject(const BaseObject&) = delete;
  BaseObject& operator=(const BaseObject&) = delete;

  [[nodiscard]] const InternedId& GetId() const noexcept { return id_; }
  // The id's bytes, kept with the object: a look-up among a million need not follow the pointer.
  [[nodiscard]] const GUID& Guid() const noexcept { return guid_; }
  void SetId(InternedId id) noexcept {
    guid_ = id.Value();
    id_ = std::move(id);
  }
  // The name of its type; "KELD_Type" for a type object without one.
  [[nodiscard]] const String& GetTypeName() const noexcept;
  [[nodiscard]] TypeObject* GetType() const noexcept { return type_; }
  void SetType(TypeObject* type) noexcept { type_ = type; }
  // The whole word.
  [[nodiscard]] u32 GetFlags() const noexcept { return flags_; }
  // Stores the word, no event.
  void SetRawFlags(u32 flags) noexcept { flags_ = flags; }
  [[nodiscard]] bool IsHidden() const noexcept { return (flags_ & OBJECT_HIDDEN) != 0; }

  void AddContainedType(std::string_view name);
  // Null until a name was added; only groups have any.
  [[nodiscard]] const NameSet* GetContainedTypes() const noexcept { return containedTypes_.get(); }
  void ClearContainedTypes() noexcept { containedTypes_.reset(); }

  // Takes a copy of the property into the set: 0, ZNI_PROPSET_UNCHANGED, ZNE_INVALID_ARGUMENTS for
  // another tag than the present one.
  [[nodiscard]] virtual u32 SetProperty(const Property& property);
  [[nodiscard]] virtual u32 SetProperties(const PropertySet& properties);
  [[nodiscard]] virtual u32 DeleteProperty(std::string_view name);

  // ZNE_PROPERTY_NOT_FOUND when there is none.
  [[nodiscard]] u32 GetProperty(std::string_view name, Property* out) const;
  [[nodiscard]] bool HasProperty(std::string_view name) const noexcept {
    return properties_.Find(name) != nullptr;
  }
  // The set itself, to look at. Valid until the object changes.
  [[nodiscard]] const PropertySet& Properties() const noexcept { return properties_; }
  // A copy for a caller; a type object gives its property form instead.
  [[nodiscard]] virtual PropertySet GetProperties() const { return properties_; }
  void CopyPropertiesTo(PropertySet& target) const;
  void ReplaceProperties(const PropertySet& properties);
  void ReplaceProperties(PropertySet&& properties) noexcept { properties_.TakeFrom(properties); }
  // Merges and does not look at the result.
  void MergeProperties(const PropertySet& properties);

 protected:
  [[nodiscard]] PropertySet& MutableProperties() noexcept { return properties_; }
  [[nodiscard]] u32 RoomCount() const noexcept { return roomCount_; }

 private:
  // What a look-up reads fills one line of the cache.
  GUID guid_;
  InternedId id_;
  TypeObject* type_;  // borrowed; the type outlives its instances
  u32 flags_;
  u32 roomCount_;
  PropertySet properties_;
  std::unique_ptr<NameSet> containedTypes_;
};

}  // namespace zn
