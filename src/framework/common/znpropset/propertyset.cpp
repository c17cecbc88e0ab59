// Properties and the sorted array of a property set.
#include "framework/common/znpropset/propertyset.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace zn {

namespace {

// Up to here a search by pointer beats the text comparisons of a binary search.
constexpr u32 kLinearSearchLimit = 24;
// Tag, name length, flags and the least value of a property on the wire.
constexpr u32 kLeastPropertyBytes = 13;

}  // namespace

u32 Property::SetValue(const Property& other) {
  if (value_.HasValue()) {
    if (value_.Tag() != other.value_.Tag()) return ZNE_INVALID_ARGUMENTS;
    if (value_.Equals(other.value_)) return ZNI_PROPSET_UNCHANGED;
  }
  value_ = other.value_;
  return ZN_OK;
}

u32 Property::Assign(const Property& other) {
  if (value_.HasValue() && value_.Tag() != other.value_.Tag()) return ZNE_INVALID_ARGUMENTS;
  CopyFrom(other);
  return ZN_OK;
}

bool Property::Equals(const Property& other) const noexcept {
  return name_ == other.name_ && value_.Equals(other.value_);
}

void Property::Print(std::string& out, u32 indent) const {
  char head[512];
  const int length =
      std::snprintf(head, sizeof head, "%*c <%s>, 0x%x, %s:", static_cast<int>(indent * 4), ' ',
                    TypeName(), flags_, name_.CStr());
  out.append(head, std::min(sizeof head - 1, static_cast<size_t>(length)));
  value_.Print(out, indent);
  out += '\n';
}

// Tag, name and flags lie in one piece, so that one test of the room serves all three.
void Property::Marshal(BinaryWriter& stream) const {
  const std::string_view name = name_.Text();
  u8* at = stream.Extend(12 + name.size());
  StoreU32(at, value_.Tag());
  StoreU32(at + 4, static_cast<u32>(name.size()));
  std::memcpy(at + 8, name.data(), name.size());
  StoreU32(at + 8 + name.size(), flags_);
  value_.Marshal(stream);
}

u32 Property::Unmarshal(u32 tag, BinaryReader& stream, bool* isKnown) {
  const u8* name = nullptr;
  u32 length = 0;
  u32 flags = 0;
  ZN_RETURN_IF_FAILED(stream.ReadCounted(1, &name, &length));
  ZN_RETURN_IF_FAILED(stream.ReadUInt32(&flags));
  ZN_RETURN_IF_FAILED(value_.Unmarshal(tag, stream));
  const std::string_view text(reinterpret_cast<const char*>(name), length);
  if (stream.Names() == NamesRead::kKnown) {
    *isKnown = PropertyName::Find(text, &name_);
  } else {
    *isKnown = true;
    if (!PropertyName::InternRead(text, &name_)) return ZNE_UNEXPECTED;
  }
  // Contract: flags from a stream are kept with all their bits, not masked to the public twelve.
  flags_ = flags;
  return ZN_OK;
}

void Property::WriteXml(XmlTextStream& stream) const {
  stream.BeginElement("Property");
  stream.BeginElement("Type");
  stream.WriteUnsigned(value_.Tag());
  stream.EndElement("Type");
  stream.BeginElement("Name");
  stream.WriteString(name_.Text());
  stream.EndElement("Name");
  stream.BeginElement("Flags");
  stream.WriteNumber(static_cast<i32>(flags_));
  stream.EndElement("Flags");
  stream.BeginElement("Value");
  value_.WriteXml(stream);
  stream.EndElement("Value");
  stream.EndElement("Property");
}

PropertySet::PropertySet(const PropertySet& other) : PropertySet() {
  AppendCopies(other);
}

PropertySet::~PropertySet() {
  Clear();
  if (!isRoomLent_) std::free(items_);
}

void PropertySet::AppendCopies(const PropertySet& source) {
  if (source.count_ == 0) return;
  Reserve(source.count_);
  for (const Property& property : source) {
    new (static_cast<void*>(&items_[count_])) Property(property);
    ++count_;
  }
}

void PropertySet::Clear() noexcept {
  while (count_ > 0) items_[--count_].~Property();
}

// A property has no pointer into itself, so the array moves as bytes.
void PropertySet::Reserve(u32 capacity) {
  if (capacity <= capacity_) return;
  const size_t bytes = capacity * sizeof(Property);
  void* grown = isRoomLent_ ? std::malloc(bytes) : std::realloc(static_cast<void*>(items_), bytes);
  if (grown == nullptr) throw std::bad_alloc();
  if (isRoomLent_ && count_ > 0) {
    std::memcpy(grown, static_cast<const void*>(items_), count_ * sizeof(Property));
  }
  items_ = static_cast<Property*>(grown);
  capacity_ = capacity & kCapacityMask;
  isRoomLent_ = false;
}

u32 PropertySet::LowerBound(PropertyName name, bool* present) const noexcept {
  u32 low = 0;
  u32 high = count_;
  // Sets are mostly built in order: look at the end first.
  if (count_ > 0 && items_[count_ - 1].Key() < name) low = count_;
  while (low < high) {
    const u32 middle = low + (high - low) / 2;
    if (items_[middle].Key() < name) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  *present = low < count_ && items_[low].Key() == name;
  return low;
}

void PropertySet::MakeRoom() {
  if (count_ == capacity_) Reserve(capacity_ + std::max<u32>(4, capacity_ / 2));
}

void PropertySet::InsertAt(u32 position, Property&& property) {
  MakeRoom();
  void* place = &items_[position];
  std::memmove(static_cast<void*>(&items_[position] + 1), place,
               (count_ - position) * sizeof(Property));
  new (place) Property(std::move(property));
  ++count_;
}

const Property* PropertySet::Find(PropertyName name) const noexcept {
  if (count_ <= kLinearSearchLimit) {
    for (const Property& property : *this) {
      if (property.Key() == name) return &property;
    }
    return nullptr;
  }
  bool present = false;
  const u32 position = LowerBound(name, &present);
  return present ? &items_[position] : nullptr;
}

const Property* PropertySet::Find(std::string_view name) const noexcept {
  PropertyName key;
  return PropertyName::Find(name, &key) ? Find(key) : nullptr;
}

const Value* PropertySet::FindValue(std::string_view name, u32 tag) const noexcept {
  const Property* property = Find(name);
  return property != nullptr && property->TypeTag() == tag ? &property->GetValue() : nullptr;
}

u32 PropertySet::AddOwned(Property&& property) {
  bool present = false;
  const u32 position = LowerBound(property.Key(), &present);
  if (present) return ZNE_DUPLICATE_LOOKUP_KEY;
  InsertAt(position, std::move(property));
  return ZN_OK;
}

u32 PropertySet::Set(const Property& property) {
  Property* existing = Find(property.Key());
  return existing == nullptr ? Add(property) : existing->SetValue(property);
}

void PropertySet::Put(std::string_view name, Value value, u32 flags) {
  Property property(name, std::move(value), flags);
  Property* existing = Find(property.Key());
  if (existing != nullptr) {
    *existing = std::move(property);
    return;
  }
  static_cast<void>(AddOwned(std::move(property)));
}

u32 PropertySet::Delete(std::string_view name) noexcept {
  PropertyName key;
  if (!PropertyName::Find(name, &key)) return ZNE_PROPERTY_NOT_FOUND;
  Property* property = Find(key);
  if (property == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  property->~Property();
  const auto behind = static_cast<size_t>(items_ + count_ - (property + 1));
  std::memmove(static_cast<void*>(property), static_cast<const void*>(property + 1),
               behind * sizeof(Property));
  --count_;
  return ZN_OK;
}

u32 PropertySet::Merge(const PropertySet& source) {
  bool changed = false;
  for (const Property& property : source) {
    Property* existing = Find(property.Key());
    const u32 status = existing == nullptr ? Add(property) : existing->SetValue(property);
    if (ZN_FAILED(status)) return status;
    changed = changed || status != ZNI_PROPSET_UNCHANGED;
  }
  return changed ? ZN_OK : ZNI_PROPSET_UNCHANGED;
}

void PropertySet::CopyFrom(const PropertySet& source) {
  if (&source == this) return;
  if (count_ > 0) {
    PropertySet copy(source);
    TakeFrom(copy);
    return;
  }
  try {
    AppendCopies(source);
  } catch (...) {
    Clear();
    throw;
  }
}

// What fits in lent room goes there: the owner wants its properties near itself.
void PropertySet::TakeFrom(PropertySet& source) noexcept {
  Clear();
  if (!isRoomLent_ || source.count_ > capacity_) {
    if (!isRoomLent_) std::free(items_);
    items_ = std::exchange(source.items_, nullptr);
    capacity_ = source.capacity_;
    isRoomLent_ = false;
    source.capacity_ = 0;
  } else if (source.count_ > 0) {
    std::memcpy(static_cast<void*>(items_), static_cast<const void*>(source.items_),
                source.count_ * sizeof(Property));
  }
  count_ = std::exchange(source.count_, 0u);
}

bool PropertySet::IsHidden(std::string_view name) const noexcept {
  const Property* property = Find(name);
  return property != nullptr && property->IsHidden();
}
bool PropertySet::IsIndexed(std::string_view name) const noexcept {
  const Property* property = Find(name);
  return property != nullptr && property->IsIndexed();
}
void PropertySet::SetIndexed(std::string_view name) noexcept {
  PropertyName key;
  Property* property = PropertyName::Find(name, &key) ? Find(key) : nullptr;
  if (property != nullptr) property->SetIndexed();
}

bool PropertySet::AllRemoteOnly() const noexcept {
  return std::all_of(begin(), end(), [](const Property& p) { return p.IsRemoteOnly(); });
}

bool PropertySet::Equals(const PropertySet& other) const noexcept {
  return std::all_of(begin(), end(), [&](const Property& property) {
    const Property* theirs = other.Find(property.Key());
    return theirs != nullptr && property.Equals(*theirs);
  });
}

void PropertySet::Print(std::string& out, u32 indent) const {
  if (count_ == 0) {
    out += "(No Properties)";
    return;
  }
  out += '\n';
  for (const Property& property : *this) property.Print(out, indent + 1);
}

void PropertySet::Marshal(BinaryWriter& stream) const {
  stream.WriteUInt32(count_);
  for (const Property& property : *this) property.Marshal(stream);
}

// One sort at the end: sorting each property in as it comes would let names in falling order cost
// the square of their number.
void PropertySet::SortAndDropRepeats() {
  std::stable_sort(items_, items_ + count_,
                   [](const Property& a, const Property& b) { return a.Key() < b.Key(); });
  // Contract: of a name that comes twice the first property stays; nothing is reported.
  Property* kept = std::unique(items_, items_ + count_, [](const Property& a, const Property& b) {
    return a.Key() == b.Key();
  });
  while (items_ + count_ != kept) items_[--count_].~Property();
}

// Reads one property in its place behind the last, unless the reader leaves it out.
u32 PropertySet::UnmarshalNext(BinaryReader& stream) {
  u32 tag = 0;
  ZN_RETURN_IF_FAILED(stream.ReadUInt32(&tag));
  MakeRoom();
  Property& property = *new (static_cast<void*>(&items_[count_])) Property;
  ++count_;  // what fails from here on goes with the set
  bool isKnown = false;
  ZN_RETURN_IF_FAILED(property.Unmarshal(tag, stream, &isKnown));
  if (!isKnown) items_[--count_].~Property();
  return ZN_OK;
}

u32 PropertySet::Unmarshal(BinaryReader& stream) {
  Clear();
  PropertySet read;
  u32 count = 0;
  ZN_RETURN_IF_FAILED(stream.ReadUInt32(&count));
  ZN_RETURN_IF_FAILED(stream.Enter());
  if (static_cast<i32>(count) < 0) count = 0;  // a negative count reads as none
  if (count > stream.Left() / kLeastPropertyBytes) return ZNE_UNEXPECTED;
  if (count != 0) read.Reserve(std::min(count, kRoomAhead));
  bool inOrder = true;
  for (u32 i = 0; i < count; ++i) {
    ZN_RETURN_IF_FAILED(read.UnmarshalNext(stream));
    const Property* behind = read.items_ + read.count_;
    inOrder = inOrder && (read.count_ < 2 || behind[-2].Key() < behind[-1].Key());
  }
  if (!inOrder) read.SortAndDropRepeats();
  stream.Leave();
  Swap(read);
  return ZN_OK;
}

void PropertySet::WriteXml(XmlTextStream& stream) const {
  stream.BeginElement("PropertyCount");
  stream.WriteNumber(count_);
  stream.EndElement("PropertyCount");
  for (const Property& property : *this) property.WriteXml(stream);
}

}  // namespace zn
