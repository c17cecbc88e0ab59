// A property is a named, flagged value; a PropertySet holds at most one of a name, in strcmp order
// of the names, as a sorted flat array with the values inside. Sets have no lock: the exported
// frames hold the bus lock while they touch one.
#pragma once

#include <cassert>
#include <memory>
#include <string>
#include <utility>

#include "framework/common/znpropset/propertyname.h"
#include "framework/common/znpropset/value.h"
#include "zn/types.h"

namespace zn {

// Flags as stored. A stream may carry more; they are kept as they come.
inline constexpr u32 kPropertyFlagsMask = 0xFFF;

class Property {
 public:
  Property() = default;
  Property(PropertyName name, Value value, u32 flags = 0) noexcept
      : name_(name), value_(std::move(value)), flags_(flags) {}
  Property(std::string_view name, Value value, u32 flags = 0)
      : Property(PropertyName::Intern(name), std::move(value), flags & kPropertyFlagsMask) {}

  [[nodiscard]] PropertyName Key() const noexcept { return name_; }
  [[nodiscard]] std::string_view Name() const noexcept { return name_.Text(); }
  [[nodiscard]] u32 Flags() const noexcept { return flags_; }
  [[nodiscard]] u32 TypeTag() const noexcept { return value_.Tag(); }
  [[nodiscard]] const char* TypeName() const noexcept { return value_.TypeName(); }
  [[nodiscard]] const zn::Value& GetValue() const noexcept { return value_; }
  [[nodiscard]] zn::Value& GetValue() noexcept { return value_; }
  [[nodiscard]] bool IsHidden() const noexcept { return (flags_ & ZN_PROPERTY_HIDDEN) != 0; }
  [[nodiscard]] bool IsRemoteOnly() const noexcept {
    return (flags_ & ZN_PROPERTY_REMOTE_ONLY) != 0;
  }
  [[nodiscard]] bool IsIndexed() const noexcept { return (flags_ & ZN_PROPERTY_INDEXED) != 0; }
  void SetIndexed() noexcept { flags_ |= ZN_PROPERTY_INDEXED; }
  void SetName(std::string_view name) { name_ = PropertyName::Intern(name); }

  // Takes the other's value alone, name and flags stay. ZNE_INVALID_ARGUMENTS for another tag,
  // ZNI_PROPSET_UNCHANGED for an equal value, else 0.
  [[nodiscard]] u32 SetValue(const Property& other);
  // Takes name, value and flags. ZNE_INVALID_ARGUMENTS when this has a value of another tag.
  [[nodiscard]] u32 Assign(const Property& other);
  void CopyFrom(const Property& other) { *this = other; }
  // Same name, same tag, equal value.
  [[nodiscard]] bool Equals(const Property& other) const noexcept;

  void Print(std::string& out, u32 indent) const;
  void Marshal(BinaryWriter& stream) const;
  // The tag has been read. ZNE_UNEXPECTED on bad bytes, and for one new name too many. `*isKnown`
  // is false for a property that the reader leaves out.
  [[nodiscard]] u32 Unmarshal(u32 tag, BinaryReader& stream, bool* isKnown);
  void WriteXml(XmlTextStream& stream) const;

 private:
  PropertyName name_;
  [[no_unique_address]] zn::Value value_;
  u32 flags_ = 0;
};
#if UINTPTR_MAX == UINT64_MAX
static_assert(sizeof(Property) == 24, "a million objects hold many of these");
#endif

class PropertySet {
 public:
  PropertySet() = default;
  PropertySet(const PropertySet& other);
  PropertySet(PropertySet&& other) noexcept { Swap(other); }
  // An empty set that keeps its properties in `room`, for so many of them, which the owner of the
  // set lends it for life; more of them move to the heap. Such a set is neither moved nor swapped.
  PropertySet(void* room, u32 capacity) noexcept
      : items_(static_cast<Property*>(room)),
        capacity_(capacity & kCapacityMask),
        isRoomLent_(true) {}
  ~PropertySet();
  PropertySet& operator=(const PropertySet& other) {
    CopyFrom(other);
    return *this;
  }
  PropertySet& operator=(PropertySet&& other) noexcept {
    Swap(other);
    return *this;
  }
  void Swap(PropertySet& other) noexcept {
    assert(!isRoomLent_ && !other.isRoomLent_);
    std::swap(items_, other.items_);
    std::swap(count_, other.count_);
    const u32 capacity = capacity_;
    capacity_ = other.capacity_;
    other.capacity_ = capacity & kCapacityMask;
  }

  [[nodiscard]] u32 Count() const noexcept { return count_; }
  [[nodiscard]] bool IsEmpty() const noexcept { return count_ == 0; }
  // In name order.
  [[nodiscard]] const Property* begin() const noexcept { return items_; }
  [[nodiscard]] const Property* end() const noexcept { return items_ + count_; }
  [[nodiscard]] const Property& At(u32 index) const noexcept { return items_[index]; }

  // The property of that name in place, or null. Valid until the set changes.
  [[nodiscard]] const Property* Find(PropertyName name) const noexcept;
  [[nodiscard]] const Property* Find(std::string_view name) const noexcept;
  [[nodiscard]] Property* Find(PropertyName name) noexcept {
    return const_cast<Property*>(std::as_const(*this).Find(name));
  }
  // The value of that name when it has that tag, or null.
  [[nodiscard]] const Value* FindValue(std::string_view name, u32 tag) const noexcept;

  // ZNE_DUPLICATE_LOOKUP_KEY when the name is there.
  [[nodiscard]] u32 Add(const Property& property) { return AddOwned(Property(property)); }
  // Takes the property on success; it is the caller's still on failure.
  [[nodiscard]] u32 AddOwned(Property&& property);
  // Adds, or gives the present one the value: 0, ZNI_PROPSET_UNCHANGED, or ZNE_INVALID_ARGUMENTS
  // when the tags differ. Flags of a present property stay.
  [[nodiscard]] u32 Set(const Property& property);
  // Sets a value under a name whatever was there. For sets that the library builds itself.
  void Put(std::string_view name, Value value, u32 flags = 0);
  // ZNE_PROPERTY_NOT_FOUND when there is none.
  [[nodiscard]] u32 Delete(std::string_view name) noexcept;
  void Clear() noexcept;
  // Adds and sets from `source` in name order. Ends at the first tag that differs with
  // ZNE_INVALID_ARGUMENTS, keeping what was merged so far; ZNI_PROPSET_UNCHANGED when nothing
  // changed.
  [[nodiscard]] u32 Merge(const PropertySet& source);
  // Takes the properties of a set that lies in no lent room, and leaves it empty.
  void TakeFrom(PropertySet& source) noexcept;
  // Throws std::bad_alloc with the set as it was.
  void CopyFrom(const PropertySet& source);

  [[nodiscard]] bool IsHidden(std::string_view name) const noexcept;
  [[nodiscard]] bool IsIndexed(std::string_view name) const noexcept;
  void SetIndexed(std::string_view name) noexcept;
  // Whether every property is remote-only; true for an empty set.
  [[nodiscard]] bool AllRemoteOnly() const noexcept;
  // Contract: one-sided. Every property of this set must be found equal in `other`; what only
  // `other` has does not matter.
  [[nodiscard]] bool Equals(const PropertySet& other) const noexcept;

  void Print(std::string& out, u32 indent) const;
  void Marshal(BinaryWriter& stream) const;
  // Replaces the content. ZNE_UNEXPECTED on bad bytes, with the set empty. A name that comes twice
  // keeps its first property.
  [[nodiscard]] u32 Unmarshal(BinaryReader& stream);
  void WriteXml(XmlTextStream& stream) const;

 private:
  static constexpr u32 kCapacityMask = 0x7FFFFFFF;

  [[nodiscard]] u32 LowerBound(PropertyName name, bool* present) const noexcept;
  void InsertAt(u32 position, Property&& property);
  [[nodiscard]] u32 UnmarshalNext(BinaryReader& stream);
  void SortAndDropRepeats();
  void MakeRoom();  // for one more
  void Reserve(u32 capacity);
  void AppendCopies(const PropertySet& source);  // to an empty set

  Property* items_ = nullptr;
  u32 count_ = 0;
  u32 capacity_ : 31 = 0;
  u32 isRoomLent_ : 1 = false;  // the array is not this set's to free
};
#if UINTPTR_MAX == UINT64_MAX
static_assert(sizeof(PropertySet) == 16, "each object has one");
#endif

}  // namespace zn
