// The exports as the verbs use them.
#include "bus.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "failure.h"
#include "text.h"
#include "zn/db.h"
#include "zn/ob.h"
#include "zn/platform.h"
#include "zn/pr.h"
#include "zn/status.h"
#include "zn/type.h"

namespace zn::ctl {
namespace {

std::vector<Id> TakeIds(u32 count, GUID* ids) {
  const Block<GUID> owner(ids);
  std::vector<Id> out;
  for (u32 i = 0; ids != nullptr && i < count; ++i) out.push_back(Id{ids[i]});
  return out;
}

std::vector<std::string> TakeNames(u32 count, char** names) {
  const Block<char*> owner(names);
  std::vector<std::string> out;
  for (u32 i = 0; names != nullptr && i < count; ++i) out.emplace_back(names[i]);
  return out;
}

template <typename T>
T ReadAs(const void* bytes) {
  T out{};
  if (bytes != nullptr) std::memcpy(&out, bytes, sizeof(out));
  return out;
}

Message ReadMessage(const GUID& catalog, u32 number, const char* name) {
  return {Id{catalog}, number, name == nullptr ? "" : name, {}};
}

Value::Data ReadScalar(u32 type, const void* at, u32 size) {
  switch (type) {
    case ZN_TYPE_BOOLEAN:
      return ReadAs<u8>(at) != 0;
    case ZN_TYPE_INT32:
      return i64{ReadAs<i32>(at)};
    case ZN_TYPE_UINT32:
      return u64{ReadAs<u32>(at)};
    case ZN_TYPE_INT64:
    case ZN_TYPE_TIME:
      return ReadAs<i64>(at);
    case ZN_TYPE_UINT64:
      return ReadAs<u64>(at);
    case ZN_TYPE_STRING:
      return std::string(at == nullptr ? "" : static_cast<const char*>(at));
    case ZN_TYPE_WIDESTRING:
      return ToUtf8(static_cast<const ZnWChar*>(at));
    case ZN_TYPE_BINARY: {
      const u8* bytes = static_cast<const u8*>(at);
      return at == nullptr ? std::vector<u8>() : std::vector<u8>(bytes, bytes + size);
    }
    case ZN_TYPE_GUID:
    case ZN_TYPE_OBJECT_ID:
      return Id{ReadAs<GUID>(at)};
    case ZN_TYPE_I18N: {
      const auto message = ReadAs<I18nString>(at);
      return ReadMessage(message.catalog, message.message, message.name);
    }
    case ZN_TYPE_I18N_FORMAT_STRING: {
      const auto format = ReadAs<I18nFormatString>(at);
      Message message = ReadMessage(format.catalog, format.message, format.name);
      if (format.insertions != nullptr) message.insertions = ReadPropset(format.insertions);
      return message;
    }
    default:
      return std::monostate();
  }
}

// Bytes from one array element to the next; 0 for what has no flat array.
size_t StrideOf(u32 type) {
  switch (type) {
    case ZN_TYPE_BOOLEAN:
      return 1;
    case ZN_TYPE_INT32:
    case ZN_TYPE_UINT32:
      return 4;
    case ZN_TYPE_INT64:
    case ZN_TYPE_UINT64:
    case ZN_TYPE_TIME:
      return 8;
    case ZN_TYPE_STRING:
    case ZN_TYPE_WIDESTRING:
    case ZN_TYPE_PROPSET:
      return sizeof(void*);
    case ZN_TYPE_GUID:
    case ZN_TYPE_OBJECT_ID:
      return sizeof(GUID);
    case ZN_TYPE_I18N:
      return sizeof(I18nString);
    case ZN_TYPE_I18N_FORMAT_STRING:
      return sizeof(I18nFormatString);
    default:
      return 0;
  }
}

Value ReadElement(u32 type, const u8* at) {
  const bool pointer = type == ZN_TYPE_STRING || type == ZN_TYPE_WIDESTRING;
  if (type == ZN_TYPE_PROPSET) return {type, ReadPropset(ReadAs<ZnHandle>(at))};
  return {type, ReadScalar(type, pointer ? ReadAs<const void*>(at) : at, 0)};
}

Value ReadArray(u32 type, const void* at, u32 count) {
  const u32 element = type & ~ZN_TYPE_ARRAY;
  const size_t stride = StrideOf(element);
  if (stride == 0) return {type, std::monostate()};
  Value::List list;
  for (u32 i = 0; at != nullptr && i < count; ++i) {
    list.push_back(ReadElement(element, static_cast<const u8*>(at) + i * stride));
  }
  return {type, std::move(list)};
}

struct FreeProperty {
  void operator()(Property2* property) const { PsFreeProperty(property); }
};
using OwnedProperty = std::unique_ptr<Property2, FreeProperty>;

}  // namespace

void Check(u32 status, const std::string& what) {
  if (ZN_FAILED(status)) throw Failure(status, "cannot " + what);
}

Property ReadFlat(const Property2& flat) {
  Property property{flat.Name == nullptr ? "" : flat.Name, flat.Flags, {flat.Type, {}}};
  if ((flat.Type & ZN_TYPE_ARRAY) != 0) {
    property.value = ReadArray(flat.Type, flat.Value, flat.Size);
  } else if (flat.Type == ZN_TYPE_PROPSET) {
    property.value.data = ReadPropset(static_cast<ZnHandle>(flat.Value));
  } else {
    property.value.data = ReadScalar(flat.Type, flat.Value, flat.Size);
  }
  return property;
}

PropertyList ReadPropset(ZnHandle set) {
  PropertyList list;
  ZnHandle iterator = nullptr;
  if (ZN_FAILED(PsOpenPropset(set, &iterator))) return list;
  for (;;) {
    Property2* flat = nullptr;
    const u32 status = PsFindNextProperty(set, iterator, &flat);
    if (ZN_FAILED(status)) break;
    const OwnedProperty owner(flat);
    list.push_back(ReadFlat(*flat));
  }
  ZnCloseHandle(iterator);
  return list;
}

Propset::Propset() {
  Check(PsCreatePropset(&handle_), "make a property set");
}

Propset::Propset(const PropertyList& list) : Propset() {
  for (const Property& property : list) {
    const FlatProperty flat(property);
    Check(PsAddProperty(handle_, flat.Record()),
          fmt::format("add the value \"{}\" ({})", property.name, TypeName(property.value.type)));
  }
}

Propset::~Propset() {
  if (handle_ != nullptr) PsDestroyPropset(handle_);
}

Propset::Propset(Propset&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}

PropertyList Propset::Read() const {
  return ReadPropset(handle_);
}

FlatProperty::FlatProperty(const Property& property) : name_(property.name) {
  record_.Name = name_.data();
  record_.Type = property.value.type;
  record_.Flags = property.flags;
  if ((record_.Type & ZN_TYPE_ARRAY) != 0) {
    FillArray(property.value);
  } else {
    FillScalar(property.value);
  }
}

void* FlatProperty::Keep(const void* bytes, size_t size) {
  blocks_.push_back(std::make_unique<u8[]>(size + 1));
  if (size > 0) std::memcpy(blocks_.back().get(), bytes, size);
  return blocks_.back().get();
}

// Writes the value and its size in bytes to the record.
void FlatProperty::FillScalar(const Value& value) {
  const auto put = [&](const void* bytes, size_t size) {
    record_.Value = Keep(bytes, size);
    record_.Size = static_cast<u32>(size);
  };
  const size_t stride = StrideOf(value.type);
  if (const auto* flag = std::get_if<bool>(&value.data)) {
    const u8 byte = *flag ? 1 : 0;
    put(&byte, 1);
  } else if (const auto* whole = std::get_if<i64>(&value.data)) {
    put(whole, stride);  // little-endian: the low bytes of a narrower type come first
  } else if (const auto* count = std::get_if<u64>(&value.data)) {
    put(count, stride);
  } else if (const auto* id = std::get_if<Id>(&value.data)) {
    put(&id->guid, sizeof(GUID));
  } else if (const auto* bytes = std::get_if<std::vector<u8>>(&value.data)) {
    put(bytes->data(), bytes->size());
  } else if (const auto* set = std::get_if<PropertyList>(&value.data)) {
    sets_.emplace_back(*set);
    record_.Value = sets_.back().Handle();
    record_.Size = 8;
  } else if (const auto* message = std::get_if<Message>(&value.data);
             message != nullptr && value.type == ZN_TYPE_I18N) {
    FillMessage(*message);
  } else if (const auto* text = std::get_if<std::string>(&value.data)) {
    const std::u16string wide = ToUtf16(*text);
    const bool isWide = value.type == ZN_TYPE_WIDESTRING;
    put(isWide ? static_cast<const void*>(wide.c_str()) : text->c_str(),
        isWide ? (wide.size() + 1) * sizeof(ZnWChar) : text->size() + 1);
  } else {
    throw UsageError(fmt::format("a value of type \"{}\" cannot be sent", TypeName(value.type)));
  }
}

void FlatProperty::FillMessage(const Message& message) {
  texts_.push_back(std::make_unique<std::string>(message.name));
  const I18nString record{message.catalog.guid, message.number, texts_.back()->data()};
  record_.Value = Keep(&record, sizeof(record));
  record_.Size = static_cast<u32>(sizeof(record) + std::strlen(texts_.back()->c_str()) + 1);
}

void FlatProperty::FillArray(const Value& value) {
  const u32 type = value.type & ~ZN_TYPE_ARRAY;
  const auto* list = std::get_if<Value::List>(&value.data);
  const size_t stride = StrideOf(type);
  if (list == nullptr || stride == 0) {
    throw UsageError(fmt::format("a value of type \"{}\" cannot be sent", TypeName(value.type)));
  }
  record_.Size = static_cast<u32>(list->size());
  if (list->empty()) return;
  std::vector<u8> elements(list->size() * stride);
  Property2 whole = record_;
  for (size_t i = 0; i < list->size(); ++i) {
    FillScalar((*list)[i]);
    const bool pointer = stride == sizeof(void*) && !std::holds_alternative<i64>((*list)[i].data) &&
                         !std::holds_alternative<u64>((*list)[i].data);
    std::memcpy(&elements[i * stride], pointer ? &record_.Value : record_.Value, stride);
  }
  record_ = whole;
  record_.Value = Keep(elements.data(), elements.size());
}

std::vector<Id> Database::Objects(const std::string& type) const {
  u32 count = 0;
  ObjectId* ids = nullptr;
  const char* name = type.empty() ? nullptr : type.c_str();
  Check(DbGetObjects(handle_, name, &count, &ids),
        type.empty() ? "list the objects" : fmt::format("list objects of type \"{}\"", type));
  return TakeIds(count, ids);
}

u32 Database::Query(const std::string& text, std::vector<Id>* ids) const {
  const std::u16string wide = ToUtf16(text);
  u32 count = 0;
  ObjectId* found = nullptr;
  const u32 status = DbGetObjectsByQuery(handle_, wide.c_str(), &count, &found);
  if (!ZN_FAILED(status)) *ids = TakeIds(count, found);
  return status;
}

std::optional<std::string> Database::TypeOf(const Id& id) const {
  char* type = nullptr;
  if (ZN_FAILED(ObGetObjectType(handle_, id.guid, &type)) || type == nullptr) return std::nullopt;
  const Block<char> owner(type);
  return std::string(type);
}

u32 Database::FlagsOf(const Id& id) const {
  u32 flags = 0;
  return ZN_FAILED(ObGetObjectFlags(handle_, id.guid, &flags)) ? 0 : flags;
}

std::vector<Id> Database::Children(const Id& id) const {
  u32 count = 0;
  ObjectId* ids = nullptr;
  if (ZN_FAILED(ObGetChildObjects(handle_, id.guid, nullptr, &count, &ids))) return {};
  return TakeIds(count, ids);
}

std::vector<Id> Database::Parents(const Id& id) const {
  u32 count = 0;
  ObjectId* ids = nullptr;
  if (ZN_FAILED(ObGetParentObjects(handle_, id.guid, nullptr, &count, &ids))) return {};
  return TakeIds(count, ids);
}

std::vector<Id> Database::Interfaces(const Id& id) const {
  u32 count = 0;
  GUID* ids = nullptr;
  if (ZN_FAILED(ObQueryInterfaces(handle_, id.guid, &count, &ids))) return {};
  return TakeIds(count, ids);
}

std::optional<PropertyList> Database::Properties(const Id& id) const {
  ZnHandle set = nullptr;
  if (ZN_FAILED(ObGetProperties(handle_, id.guid, &set))) return std::nullopt;
  return Propset(set).Read();
}

std::optional<Property> Database::FindProperty(const Id& id, const std::string& name) const {
  Property2* flat = nullptr;
  if (ZN_FAILED(ObGetProperty(handle_, id.guid, name.c_str(), &flat))) return std::nullopt;
  const OwnedProperty owner(flat);
  return ReadFlat(*flat);
}

Property Database::GetProperty(const Id& id, const std::string& name,
                               const std::string& what) const {
  Property2* flat = nullptr;
  Check(ObGetProperty(handle_, id.guid, name.c_str(), &flat), what);
  const OwnedProperty owner(flat);
  return ReadFlat(*flat);
}

void Database::SetProperty(const Id& id, const Property& property, const std::string& what) const {
  const FlatProperty flat(property);
  Check(ObSetProperty(handle_, id.guid, flat.Record()), what);
}

void Database::Delete(const Id& id) const {
  ObDeleteObject(handle_, id.guid);
}

bool Database::Exists(const Id& id) const {
  return ObExists(handle_, id.guid);
}

std::vector<std::string> Database::Types() const {
  u32 count = 0;
  char** names = nullptr;
  Check(TypeGetObjects(handle_, &count, &names), "list the types");
  return TakeNames(count, names);
}

std::vector<std::string> Database::SuperTypes(const std::string& type) const {
  u32 count = 0;
  char** names = nullptr;
  Check(TypeGetSuperTypeObjects(handle_, type.c_str(), &count, &names),
        fmt::format("read the type \"{}\"", type));
  return TakeNames(count, names);
}

std::vector<std::string> Database::DerivedTypes(const std::string& type) const {
  u32 count = 0;
  char** names = nullptr;
  Check(TypeGetDerivedTypeObjects(handle_, type.c_str(), &count, &names),
        fmt::format("read the type \"{}\"", type));
  return TakeNames(count, names);
}

PropertyList Database::TypeProperties(const std::string& type, bool inherited) const {
  ZnHandle set = nullptr;
  Check(TypeGetTypeProperties(handle_, type.c_str(), inherited ? 1 : 0, &set),
        fmt::format("read the properties of the type \"{}\"", type));
  return Propset(set).Read();
}

std::vector<Id> Database::TypeInterfaces(const std::string& type, bool inherited) const {
  u32 count = 0;
  GUID* ids = nullptr;
  Check(TypeQueryTypeInterfaces(handle_, type.c_str(), inherited ? 1 : 0, &count, &ids),
        fmt::format("read the interfaces of the type \"{}\"", type));
  return TakeIds(count, ids);
}

bool Database::TypeIsA(const std::string& type, const std::string& base) const {
  return ::TypeIsA(handle_, type.c_str(), base.c_str());
}

ZnHandle Database::ProviderByName(const std::string& name) const {
  ZnHandle provider = nullptr;
  const std::u16string wide = ToUtf16(name);
  return ZN_FAILED(PrGetProviderByName(handle_, wide.c_str(), &provider)) ? nullptr : provider;
}

std::string Database::ProviderNameOf(const Id& providerId) const {
  ZnHandle provider = nullptr;
  if (ZN_FAILED(PrGetProviderHandle(handle_, providerId.guid, &provider))) return {};
  return NameOfProvider(provider);
}

std::string Database::OwnerOf(const Id& object) const {
  ZnHandle provider = nullptr;
  if (ZN_FAILED(ObGetProviderForObject(handle_, object.guid, &provider))) return {};
  return NameOfProvider(provider);
}

std::string NameOfProvider(ZnHandle provider) {
  ZnWChar* name = nullptr;
  if (ZN_FAILED(PrGetProviderName(provider, &name))) return {};
  const Block<ZnWChar> owner(name);
  return ToUtf8(name);
}

Id IdOfProvider(ZnHandle provider) {
  Id id;
  PrGetProviderId(provider, &id.guid);
  return id;
}

PropertyList PropertiesOfProvider(ZnHandle provider) {
  ZnHandle set = nullptr;
  if (ZN_FAILED(PrGetProperties(provider, &set))) return {};
  return Propset(set).Read();
}

}  // namespace zn::ctl
