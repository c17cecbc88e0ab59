// Queries: from the text of one to the ids of the objects that it asks for. On a client copy the
// server answers; here, the type's index or its instances do. The words: znquery/querytext.h.
#include "framework/common/zncore/database.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "framework/common/znquery/querytext.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/text.h"

namespace zn {

namespace {

GUID GuidOf(std::u16string_view text) {
  GUID guid{};
  static_cast<void>(ParseGuid(ToNarrow(text), &guid));  // its shape has been looked at
  return guid;
}

// The number fills the first eight bytes as they stand in memory, the last eight are zero.
GUID IdOf(u64 number) noexcept {
  GUID id{};
  std::memcpy(&id, &number, sizeof number);
  return id;
}

// How a value of that type is made of what was read.
struct ValueRow {
  u32 tag;
  Value (*make)(u64 number, std::u16string_view text);
};
constexpr ValueRow kValueRows[] = {
    {ZN_TYPE_BOOLEAN,
     [](u64 number, std::u16string_view) { return Value::Bool(static_cast<u8>(number)); }},
    {ZN_TYPE_INT32,
     [](u64 number, std::u16string_view) { return Value::Int32(static_cast<i32>(number)); }},
    {ZN_TYPE_UINT32,
     [](u64 number, std::u16string_view) { return Value::UInt32(static_cast<u32>(number)); }},
    {ZN_TYPE_INT64,
     [](u64 number, std::u16string_view) { return Value::Int64(static_cast<i64>(number)); }},
    {ZN_TYPE_TIME,
     [](u64 number, std::u16string_view) { return Value::Time(static_cast<i64>(number)); }},
    {ZN_TYPE_UINT64, [](u64 number, std::u16string_view) { return Value::UInt64(number); }},
    {ZN_TYPE_STRING,
     [](u64, std::u16string_view text) { return Value::Text(String(ToNarrow(text))); }},
    {ZN_TYPE_WIDESTRING, [](u64, std::u16string_view text) { return Value::WideText(text); }},
    {ZN_TYPE_GUID, [](u64, std::u16string_view text) { return Value::Guid(GuidOf(text)); }},
    {ZN_TYPE_OBJECT_ID, [](u64 number, std::u16string_view) { return Value::Id(IdOf(number)); }},
};

const ValueRow* FindValueRow(u32 tag) noexcept {
  const auto* row = std::find_if(std::begin(kValueRows), std::end(kValueRows),
                                 [tag](const ValueRow& candidate) { return candidate.tag == tag; });
  return row == std::end(kValueRows) ? nullptr : row;
}

}  // namespace

u32 Database::Query(std::u16string_view text, std::vector<ObjectId>* out) {
  AssertBusLocked();
  if (!IsLocal()) return QueryServer(text, out);
  QueryText query(text);
  if (!query.Parse()) return ZNE_INVALID_ARGUMENTS;
  // Contract: the empty name is that of the root type here too.
  TypeObject* type = types_.FindType(ToNarrow(query.Type()));
  if (type == nullptr) return ZNE_TYPE_NOT_FOUND;
  PropertyName name;
  if (!PropertyName::Find(ToNarrow(query.Property()), &name)) return ZNE_PROPERTY_NOT_FOUND;
  const Property* declaration = type->FindDeclaration(name);
  if (declaration == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  const ValueRow* row = FindValueRow(declaration->TypeTag());
  if (row == nullptr || !IsIndexableTag(row->tag)) return ZNE_QUERY_TYPE_UNSUPPORTED;
  u64 number = 0;
  if (!query.ReadValue(row->tag, &number)) return ZNE_INVALID_ARGUMENTS;
  return type->FindInstanceIds(Property(name, row->make(number, query.Value())), out);
}

}  // namespace zn
