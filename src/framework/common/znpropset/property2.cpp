// Conversions between the flat record and a property. What each tag looks like flat stands in one
// table of rows, for the scalar and for the array: how many bytes it takes, how it is read, how it
// is written.
#include "framework/common/znpropset/property2.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "framework/common/zncore/database_value.h"
#include "framework/common/znpropset/i18nvalue.h"
#include "support/common/block.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/pointers.h"
#include "support/common/trace.h"
#include "zn/db.h"

namespace zn {

namespace {

// The record sizes that callers built for 32-bit pointers count with.
constexpr u32 kHandleSize = 8;
constexpr u32 kI18nSize32 = 25;
constexpr u32 kFormatSize32 = 28;

u32 TextLength(const char* text) noexcept {
  return IsGoodPointer(text) ? static_cast<u32>(std::strlen(text)) : 0;
}

// --- i18n records ---

// The text of `name` goes to `text`.
void FillI18n(const PropertySet& set, I18nString* record, char* text) noexcept {
  const I18nParts parts = PartsOfI18n(set);
  record->catalog = parts.catalog;
  record->message = parts.message;
  record->name = text;
  std::memcpy(text, parts.name.data(), parts.name.size());
  text[parts.name.size()] = 0;
}

// The name and the insertions are blocks of their own, which PsFreeProperty frees.
void FillFormatString(const PropertySet& set, I18nFormatString* record) {
  *record = {};  // what is given up half-way reads as null
  const I18nParts parts = PartsOfFormatString(set);
  record->catalog = parts.catalog;
  record->message = parts.message;
  record->name = TextToBlock(parts.name);
  if (record->name == nullptr) throw std::bad_alloc();
  const PropertySet* insertions = InsertionsOf(set);
  if (insertions == nullptr) return;
  record->insertions = WrapPropertySet(PropertySet(*insertions));
  if (record->insertions == nullptr) throw std::bad_alloc();
}

// --- reading a flat value ---

template <typename T>
T Load(const void* at) noexcept {
  T value{};
  std::memcpy(&value, at, sizeof value);
  return value;
}

// One scalar or array element at `at`; `size` is that of the record. False when there is none.
bool ReadBool(const void* at, u32, Value* out) {
  *out = Value::Bool(Load<u8>(at));
  return true;
}
bool ReadInt32(const void* at, u32 size, Value* out) {
  i32 v = 0;
  std::memcpy(&v, at, size < sizeof v ? size : sizeof v);
  *out = Value::Int32(v);
  return true;
}
bool ReadUInt32(const void* at, u32, Value* out) {
  *out = Value::UInt32(Load<u32>(at));
  return true;
}
bool ReadInt64(const void* at, u32, Value* out) {
  *out = Value::Int64(Load<i64>(at));
  return true;
}
bool ReadUInt64(const void* at, u32, Value* out) {
  *out = Value::UInt64(Load<u64>(at));
  return true;
}
bool ReadTime(const void* at, u32, Value* out) {
  *out = Value::Time(Load<i64>(at));
  return true;
}
bool ReadGuidValue(const void* at, u32, Value* out) {
  *out = Value::Guid(Load<GUID>(at));
  return true;
}
bool ReadId(const void* at, u32, Value* out) {
  *out = Value::Id(Load<GUID>(at));
  return true;
}
bool ReadText(const void* at, u32, Value* out) {
  *out = Value::Text(std::string_view(static_cast<const char*>(at)));
  return true;
}
bool ReadWide(const void* at, u32, Value* out) {
  *out = Value::WideText(std::u16string_view(static_cast<const ZnWChar*>(at)));
  return true;
}
bool ReadBinary(const void* at, u32 size, Value* out) {
  *out = Value::Binary(at, size);
  return true;
}
bool ReadSetHandle(ZnHandle handle, Value* out) {
  if (!IsValidHandle(handle, HANDLE_PROPSET)) return false;
  *out = Value::Set(PropertySet(*HandleThing<PropertySet>(handle)));
  return true;
}
bool ReadSet(const void* at, u32, Value* out) {
  return ReadSetHandle(static_cast<ZnHandle>(const_cast<void*>(at)), out);
}
bool ReadDatabase(const void* at, u32, Value* out) {
  PropertySet set;
  if (!MarshalPrivateDatabase(static_cast<ZnHandle>(const_cast<void*>(at)), &set)) return false;
  *out = Value::Set(ZN_TYPE_DATABASE, std::move(set));
  return true;
}
bool ReadI18n(const void* at, u32, Value* out) {
  *out = I18nValueOf(Load<I18nString>(at));
  return true;
}
bool ReadFormatString(const void* at, u32, Value* out) {
  *out = FormatStringValueOf(Load<I18nFormatString>(at));
  return true;
}
// Elements of an array that are pointers or handles.
bool ReadTextElement(const void* at, u32 size, Value* out) {
  const auto* text = Load<const char*>(at);
  return IsGoodPointer(text) && ReadText(text, size, out);
}
bool ReadWideElement(const void* at, u32 size, Value* out) {
  const auto* text = Load<const ZnWChar*>(at);
  return IsGoodPointer(text) && ReadWide(text, size, out);
}
bool ReadSetElement(const void* at, u32, Value* out) {
  return ReadSetHandle(Load<ZnHandle>(at), out);
}

// --- sizes of a flat scalar that a caller passes in ---

template <u32 kBytes>
bool SizeIs(const Property2& p) noexcept {
  return p.Size == kBytes;
}
bool SizeOfText(const Property2& p) noexcept {
  return strnlen(static_cast<const char*>(p.Value), p.Size) + 1 == p.Size;
}
// Contract: any size but 0 goes for a wide text; int32 takes any readable span, since a formatted
// string travels under that tag.
bool SizeIsAny(const Property2&) noexcept {
  return true;
}
bool SizeOfHandle(const Property2& p) noexcept {
  return p.Size == kHandleSize || p.Size == sizeof(ZnHandleRecord);
}
bool SizeOfI18n(const Property2& p) noexcept {
  const u32 length = TextLength(Load<I18nString>(p.Value).name);
  return p.Size == length + kI18nSize32 || p.Size == length + sizeof(I18nString) + 1;
}
bool SizeOfFormatString(const Property2& p) noexcept {
  return p.Size == kFormatSize32 || p.Size == sizeof(I18nFormatString);
}

// --- the table ---

enum class FlatForm : u8 { kNone, kBytes, kText, kWide, kHandle, kI18n, kFormatString };

struct FlatRow {
  u32 tag;
  FlatForm form;
  u32 width;  // of a number or id, and of an array element
  bool (*sizeFits)(const Property2&) noexcept;
  bool (*read)(const void* at, u32 size, Value* out);
  bool (*readElement)(const void* at, u32 size, Value* out);  // null: no flat array
};

constexpr u32 kPointer = sizeof(void*);

// Rows 0 to 16 are those of the tags 1 to 17; the last is that of times.
constexpr FlatRow kFlatRows[] = {
    {ZN_TYPE_BOOLEAN, FlatForm::kBytes, 1, SizeIs<1>, ReadBool, ReadBool},
    {ZN_TYPE_INT32, FlatForm::kBytes, 4, SizeIsAny, ReadInt32, ReadInt32},
    {ZN_TYPE_UINT32, FlatForm::kBytes, 4, SizeIs<4>, ReadUInt32, ReadUInt32},
    {ZN_TYPE_INT64, FlatForm::kBytes, 8, SizeIs<8>, ReadInt64, ReadInt64},
    {ZN_TYPE_UINT64, FlatForm::kBytes, 8, SizeIs<8>, ReadUInt64, ReadUInt64},
    {ZN_TYPE_STRING, FlatForm::kText, kPointer, SizeOfText, ReadText, ReadTextElement},
    {ZN_TYPE_WIDESTRING, FlatForm::kWide, kPointer, SizeIsAny, ReadWide, ReadWideElement},
    {ZN_TYPE_BINARY, FlatForm::kBytes, 0, SizeIsAny, ReadBinary, nullptr},
    {ZN_TYPE_GUID, FlatForm::kBytes, 16, SizeIs<16>, ReadGuidValue, ReadGuidValue},
    {ZN_TYPE_PROPSET, FlatForm::kHandle, kPointer, SizeOfHandle, ReadSet, ReadSetElement},
    {ZN_TYPE_OBJECT_ID, FlatForm::kBytes, 16, SizeIs<16>, ReadId, ReadId},
    {ZN_TYPE_OBJECT, FlatForm::kNone, 0, nullptr, nullptr, nullptr},
    {ZN_TYPE_PROVIDER, FlatForm::kNone, 0, nullptr, nullptr, nullptr},
    {ZN_TYPE_DATABASE, FlatForm::kHandle, kPointer, SizeOfHandle, ReadDatabase, nullptr},
    {ZN_TYPE_TYPE_OBJECT, FlatForm::kNone, 0, nullptr, nullptr, nullptr},
    {ZN_TYPE_I18N, FlatForm::kI18n, sizeof(I18nString), SizeOfI18n, ReadI18n, ReadI18n},
    {ZN_TYPE_I18N_FORMAT_STRING, FlatForm::kFormatString, sizeof(I18nFormatString),
     SizeOfFormatString, ReadFormatString, ReadFormatString},
    {ZN_TYPE_TIME, FlatForm::kBytes, 8, SizeIs<8>, ReadTime, ReadTime},
};

// The row of exactly that tag, array bit left out. Null for a tag without a flat form.
const FlatRow* FindRow(u32 tag) noexcept {
  const u32 scalar = tag & ~ZN_TYPE_ARRAY;
  if (scalar == ZN_TYPE_TIME) return &kFlatRows[17];
  if (scalar - 1 >= 17 || kFlatRows[scalar - 1].form == FlatForm::kNone) return nullptr;
  return &kFlatRows[scalar - 1];
}

bool IsArrayTag(u32 tag) noexcept {
  return (tag & ZN_TYPE_ARRAY) != 0;
}

bool ReadArray(const FlatRow& row, const Property2& p, Value* out) {
  if (row.readElement == nullptr) return false;
  std::vector<Value> elements(p.Size);
  const auto* at = static_cast<const u8*>(p.Value);
  for (Value& element : elements) {
    if (!row.readElement(at, row.width, &element)) return false;
    at += row.width;
  }
  *out = Value::Array(row.tag, std::move(elements));
  return true;
}

// False for a type without a flat form and for what cannot be read.
bool ReadValue(const Property2& p, Value* out) {
  const FlatRow* row = FindRow(p.Type);
  if (row == nullptr) return false;
  return IsArrayTag(p.Type) ? ReadArray(*row, p, out) : row->read(p.Value, p.Size, out);
}

bool HasValidShape(const Property2& p) noexcept {
  if (IsArrayTag(p.Type)) return (p.Size == 0) == (p.Value == nullptr);
  const FlatRow* row = FindRow(p.Type);
  return row != nullptr && p.Size != 0 && IsGoodPointer(p.Value) && row->sizeFits(p);
}

bool IsNameStart(char c) noexcept {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

}  // namespace

bool IsPropertyNameText(std::string_view name) noexcept {
  if (name.empty()) return true;
  if (!IsNameStart(name[0])) return false;
  for (const char c : name) {
    if (!IsNameStart(c) && !(c >= '0' && c <= '9') && c != ' ') return false;
  }
  return true;
}

bool IsReadableProperty(const Property2* property) noexcept {
  if (!IsGoodPointer(property) || !IsGoodString(property->Name, kMaxNameLength)) return false;
  // Contract: the bit that asks for a computed span is looked for in Flags, not in Type. No span is
  // probed byte by byte on this host, so both readings come to a test of the pointer.
  return property->Size == 0 || IsGoodPointer(property->Value);
}

u32 ConvertProperty2ToProperty3(const Property2* in, Property* out) {
  if (in == nullptr || out == nullptr || in->Name == nullptr || !HasValidShape(*in)) {
    ZN_TRACE(3, "ZnAPI:ConvertProperty2ToProperty3: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  const std::string_view name(in->Name);
  if (!IsPropertyNameText(name)) {
    ZN_TRACE(3, "ZnAPI:ConvertProperty2ToProperty3: Invalid property name: %s", in->Name);
    return ZNE_INVALID_ARGUMENTS;
  }
  Value value;
  if (!ReadValue(*in, &value)) {
    ZN_TRACE(3, "ZnAPI:ConvertProperty2ToProperty3: Unable to convert Value to IValue");
    return ZNE_INVALID_ARGUMENTS;
  }
  *out = Property(name, std::move(value), in->Flags & kPropertyFlagsMask);
  return ZN_OK;
}

namespace {

// Lays a record out as one block: the record, the value bytes, the name.
class RecordWriter {
 public:
  RecordWriter(const Property& in, size_t valueBytes) noexcept {
    const std::string_view name = in.Name();
    const size_t bytes = sizeof(Property2) + valueBytes + name.size() + 1;
    if (bytes > 0xFFFFFFFFu) return;
    auto* block = static_cast<u8*>(std::malloc(bytes));
    if (block == nullptr) return;
    record_ = reinterpret_cast<Property2*>(block);
    char* nameText = reinterpret_cast<char*>(block + sizeof(Property2) + valueBytes);
    std::memcpy(nameText, name.data(), name.size());
    nameText[name.size()] = 0;
    record_->Name = nameText;
    record_->Type = in.TypeTag();
    record_->Flags = in.Flags();
    record_->Size = static_cast<u32>(valueBytes);
    record_->Value = valueBytes == 0 ? nullptr : Bytes();
  }
  [[nodiscard]] Property2* Record() const noexcept { return record_; }
  [[nodiscard]] u8* Bytes() const noexcept {
    return reinterpret_cast<u8*>(record_) + sizeof(Property2);
  }

 private:
  Property2* record_ = nullptr;
};

struct BlockFree {
  void operator()(Property2* record) const noexcept { static_cast<void>(FreeProperty2(record)); }
};
using OwnedRecord = std::unique_ptr<Property2, BlockFree>;

u64 BitsOf(const Value& value) noexcept {
  return value.AsUInt64();
}

size_t ScalarBytes(const FlatRow& row, const Value& value) noexcept {
  switch (row.form) {
    case FlatForm::kNone:
      return 0;
    case FlatForm::kBytes:
      return row.width != 0 ? row.width : value.AsBinary().size();
    case FlatForm::kText:
      return value.AsText().size() + 1;
    case FlatForm::kWide:
      return 2 * (value.AsWideText().size() + 1);
    case FlatForm::kHandle:
      return 0;
    case FlatForm::kI18n:
      return sizeof(I18nString) + PartsOfI18n(value.AsSet()).name.size() + 1;
    case FlatForm::kFormatString:
      return sizeof(I18nFormatString);
  }
  return 0;
}

void WriteBytes(const FlatRow& row, const Value& value, u8* to) noexcept {
  if (row.width == 0) {
    std::memcpy(to, value.AsBinary().data(), value.AsBinary().size());
  } else if (row.width == sizeof(GUID)) {
    std::memcpy(to, &value.AsGuid(), sizeof(GUID));
  } else {
    const u64 bits = BitsOf(value);
    const auto low = static_cast<u32>(bits);
    if (row.width == 8) std::memcpy(to, &bits, 8);
    if (row.width == 4) std::memcpy(to, &low, 4);
    if (row.width == 1) *to = static_cast<u8>(low);
  }
}

// A new set, or a new private database with the content.
u32 MakeHandle(const FlatRow& row, const Value& value, ZnHandle* out) {
  if (row.tag == ZN_TYPE_DATABASE) return UnmarshalPrivateDatabase(value.AsSet(), out);
  *out = WrapPropertySet(PropertySet(value.AsSet()));
  return *out == nullptr ? ZNE_OUT_OF_MEMORY : ZN_OK;
}

u32 WriteScalar(const FlatRow& row, const Value& value, Property2* record, u8* bytes) {
  switch (row.form) {
    case FlatForm::kNone:
      break;
    case FlatForm::kBytes:
      WriteBytes(row, value, bytes);
      break;
    case FlatForm::kText:
      std::memcpy(bytes, value.AsText().data(), record->Size);
      break;
    case FlatForm::kWide:
      std::memcpy(bytes, value.AsWideText().data(), record->Size);
      break;
    case FlatForm::kHandle: {
      ZnHandle handle = nullptr;
      ZN_RETURN_IF_FAILED(MakeHandle(row, value, &handle));
      record->Size = kHandleSize;
      record->Value = handle;
      break;
    }
    case FlatForm::kI18n:
      FillI18n(value.AsSet(), reinterpret_cast<I18nString*>(bytes),
               reinterpret_cast<char*>(bytes + sizeof(I18nString)));
      break;
    case FlatForm::kFormatString:
      FillFormatString(value.AsSet(), reinterpret_cast<I18nFormatString*>(bytes));
      break;
  }
  return ZN_OK;
}

// Bytes of an array's texts, which lie behind its pointers or records.
size_t TailBytes(const FlatRow& row, const Value& element) noexcept {
  switch (row.form) {
    case FlatForm::kText:
      return element.AsText().size() + 1;
    case FlatForm::kWide:
      return 2 * (element.AsWideText().size() + 1);
    case FlatForm::kI18n:
      return PartsOfI18n(element.AsSet()).name.size() + 1;
    default:
      return 0;
  }
}

// One element at `at`; texts go to `tail`, which moves on.
void WriteElement(const FlatRow& row, const Value& element, u8* at, u8** tail) {
  const size_t tailBytes = TailBytes(row, element);
  switch (row.form) {
    case FlatForm::kNone:
      break;
    case FlatForm::kBytes:
      WriteBytes(row, element, at);
      break;
    case FlatForm::kText:
      std::memcpy(at, tail, sizeof *tail);
      std::memcpy(*tail, element.AsText().data(), tailBytes);
      break;
    case FlatForm::kWide:
      std::memcpy(at, tail, sizeof *tail);
      std::memcpy(*tail, element.AsWideText().data(), tailBytes);
      break;
    case FlatForm::kHandle: {
      ZnHandle handle = nullptr;
      if (ZN_FAILED(MakeHandle(row, element, &handle))) throw std::bad_alloc();
      std::memcpy(at, &handle, sizeof handle);
      break;
    }
    case FlatForm::kI18n:
      FillI18n(element.AsSet(), reinterpret_cast<I18nString*>(at), reinterpret_cast<char*>(*tail));
      break;
    case FlatForm::kFormatString:
      FillFormatString(element.AsSet(), reinterpret_cast<I18nFormatString*>(at));
      break;
  }
  *tail += tailBytes;
}

u32 ConvertArray(const FlatRow& row, const Property& in, Property2** out) {
  const std::vector<Value>& elements = in.GetValue().AsArray();
  size_t bytes = elements.size() * row.width;
  const size_t tailAt = bytes;
  for (const Value& element : elements) bytes += TailBytes(row, element);
  const RecordWriter writer(in, bytes);
  if (writer.Record() == nullptr) return ZNE_OUT_OF_MEMORY;
  std::memset(writer.Bytes(), 0, tailAt);
  OwnedRecord record(writer.Record());
  record->Size = static_cast<u32>(elements.size());
  u8* at = writer.Bytes();
  u8* tail = at + tailAt;
  for (const Value& element : elements) {
    WriteElement(row, element, at, &tail);
    at += row.width;
  }
  *out = record.release();
  return ZN_OK;
}

}  // namespace

u32 ConvertProperty3ToProperty2(const Property& in, Property2** out) {
  const FlatRow* row = FindRow(in.TypeTag());
  const bool isArray = IsArrayTag(in.TypeTag());
  if (row == nullptr || (isArray && row->readElement == nullptr)) {
    ZN_TRACE(3, "ZnAPI:ConvertProperty3ToProperty2: Invalid arguments");
    return ZNE_INVALID_ARGUMENTS;
  }
  if (isArray) return ConvertArray(*row, in, out);
  const size_t bytes = ScalarBytes(*row, in.GetValue());
  const RecordWriter writer(in, bytes);
  if (writer.Record() == nullptr) return ZNE_OUT_OF_MEMORY;
  // What is freed with the record is null until it is there.
  if (row->form == FlatForm::kFormatString) std::memset(writer.Bytes(), 0, bytes);
  OwnedRecord record(writer.Record());
  ZN_RETURN_IF_FAILED(WriteScalar(*row, in.GetValue(), record.get(), writer.Bytes()));
  *out = record.release();
  return ZN_OK;
}

namespace {

// Embedded handles go through the same check as any, so one that is already gone is passed over.
// The lock, since another thread may be in a call with the very set.
void DestroySet(ZnHandle set) noexcept {
  const BusLock lock;
  static_cast<void>(DestroyPropertySet(set));
}

void DestroyFormatString(const I18nFormatString& record) noexcept {
  ZnFree(record.name);
  DestroySet(record.insertions);
}

// Size counts the elements of an array; a scalar is one.
template <typename T, typename Destroy>
void DestroyElements(const Property2& property, Destroy&& destroy) noexcept {
  const auto* elements = static_cast<const T*>(property.Value);
  const u32 count = IsArrayTag(property.Type) ? property.Size : 1;
  for (u32 i = 0; i < count; ++i) destroy(elements[i]);
}

// What a record's value holds besides bytes. There is a value.
void DestroyHeld(const FlatRow& row, const Property2& property) noexcept {
  const bool isArray = IsArrayTag(property.Type);
  if (row.form == FlatForm::kHandle && isArray) {
    DestroyElements<ZnHandle>(property, DestroySet);
  } else if (row.form == FlatForm::kHandle && row.tag == ZN_TYPE_DATABASE) {
    static_cast<void>(DbDeletePrivateDatabase(static_cast<ZnHandle>(property.Value)));
  } else if (row.form == FlatForm::kHandle) {
    DestroySet(static_cast<ZnHandle>(property.Value));
  } else if (row.form == FlatForm::kFormatString) {
    DestroyElements<I18nFormatString>(property, DestroyFormatString);
  }
}

}  // namespace

u32 FreeProperty2(Property2* property) noexcept {
  const FlatRow* row = FindRow(property->Type);
  const bool isArray = IsArrayTag(property->Type);
  if (row == nullptr || (isArray && row->readElement == nullptr)) return ZNE_INVALID_ARGUMENTS;
  if (property->Value != nullptr) DestroyHeld(*row, *property);
  std::free(property);
  return ZN_OK;
}

ZnHandle WrapPropertySet(PropertySet&& set) noexcept {
  auto owned = std::unique_ptr<PropertySet>(new (std::nothrow) PropertySet(std::move(set)));
  if (owned == nullptr) return nullptr;
  const ZnHandle handle = AllocateHandle(HANDLE_PROPSET, owned.get());
  if (handle != nullptr) static_cast<void>(owned.release());
  return handle;
}

bool DestroyPropertySet(ZnHandle handle) noexcept {
  void* set = nullptr;
  if (!IsValidHandle(handle, HANDLE_PROPSET) || !FreeHandle(handle, HANDLE_PROPSET, &set)) {
    return false;
  }
  delete static_cast<PropertySet*>(set);
  return true;
}

}  // namespace zn
