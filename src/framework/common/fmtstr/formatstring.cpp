// Messages with insertions: see the header.
#include "framework/common/fmtstr/formatstring.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <utility>

#include "framework/common/znpropset/property2.h"
#include "support/common/block.h"
#include "support/common/handle.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"

namespace zn {

namespace {

constexpr std::string_view kTemplateKey = "TEMPLATE_I18N";
constexpr std::string_view kCountKey = "NUMBER_OF_INSERTS_UL";

constexpr std::string_view kInsertHead = "INSERT_";

std::string InsertKey(u32 index) {
  return std::string(kInsertHead) + std::to_string(index) + "_VALUE";
}

[[nodiscard]] bool IsFormatString(const I18nFormatString* fmt) noexcept {
  return IsGoodPointer(fmt) && IsValidHandle(fmt->insertions, HANDLE_PROPSET);
}

[[nodiscard]] bool ReadInsertion(u32 tag, const void* value, Value* out) {
  switch (tag) {
    case ZN_TYPE_STRING:
      *out = Value::Text(std::string_view(static_cast<const char*>(value)));
      return true;
    case ZN_TYPE_WIDESTRING:
      *out = Value::WideText(std::u16string_view(static_cast<const ZnWChar*>(value)));
      return true;
    case ZN_TYPE_I18N:
      *out = I18nValueOf(*static_cast<const I18nString*>(value));
      return true;
    default:
      return false;
  }
}

struct BlockDeleter {
  void operator()(void* block) const noexcept { ZnFree(block); }
};

// A list under construction; frees what it has unless it is released.
class TextList {
 public:
  explicit TextList(u32 count) : count_(count) {
    if (count != 0) items_ = static_cast<ZnWChar**>(ZnAlloc(count * u32{sizeof(ZnWChar*)}));
    if (count != 0 && items_ == nullptr) throw std::bad_alloc();
  }
  ~TextList() { FreeBlockList(count_, reinterpret_cast<void**>(items_)); }
  TextList(const TextList&) = delete;
  TextList& operator=(const TextList&) = delete;

  void Put(u32 index, std::u16string_view text) {
    items_[index] = TextToBlock(text);
    if (items_[index] == nullptr) throw std::bad_alloc();
  }
  [[nodiscard]] InsertList Release() noexcept {
    return {std::exchange(count_, 0u), std::exchange(items_, nullptr)};
  }

 private:
  u32 count_;
  ZnWChar** items_ = nullptr;
};

// No more insertions than the bytes could hold, whatever the count says: it comes from anywhere.
[[nodiscard]] u32 ReadCount(const PropertySet& set, u32 bytes, u32* out) noexcept {
  constexpr u32 kLargest = 0xFFFFFFFFu / sizeof(ZnWChar*);
  const Value* count = set.FindValue(kCountKey, ZN_TYPE_UINT32);
  *out = count == nullptr ? 0 : count->AsUInt32();
  return *out <= std::min(bytes, kLargest) ? ZN_OK : ZNE_UNEXPECTED;
}

// The number in "INSERT_<number>_VALUE"; false for every other name.
[[nodiscard]] bool ReadInsertKey(std::string_view name, u32* out) {
  if (!name.starts_with(kInsertHead)) return false;
  const char* begin = name.data() + kInsertHead.size();
  if (std::from_chars(begin, name.data() + name.size(), *out).ec != std::errc{}) return false;
  return name == InsertKey(*out);
}

// By what the set holds, not by what its count promises. A missing one stays null.
void ReadInserts(const PropertySet& set, u32 count, TextList* list) {
  for (const Property& property : set) {
    u32 index = 0;
    if (property.TypeTag() != ZN_TYPE_WIDESTRING || !ReadInsertKey(property.Name(), &index))
      continue;
    if (index < count) list->Put(index, property.GetValue().AsWideText());
  }
}

}  // namespace

I18nString* I18nRecordOf(const GUID& catalog, u32 message, std::string_view name) noexcept {
  const size_t bytes = sizeof(I18nString) + name.size() + 1;
  if (bytes > 0xFFFFFFFFu) return nullptr;
  void* block = ZnAlloc(static_cast<u32>(bytes));  // zeroed, so the text is terminated
  if (block == nullptr) return nullptr;
  char* text = static_cast<char*>(block) + sizeof(I18nString);
  if (!name.empty()) std::memcpy(text, name.data(), name.size());
  return new (block) I18nString{catalog, message, text};
}

std::string InsertionName(u32 index) {
  return "i" + std::to_string(index);
}

u32 AddInsertion(I18nFormatString* fmt, u32 index, u32 tag, const void* value) {
  if (!IsGoodPointer(value)) {
    ZN_TRACE(3, "ZnAPI:I18nAddInsertion: Invalid argument");
    return ZNE_INVALID_ARGUMENTS;
  }
  if (!IsFormatString(fmt)) {
    ZN_TRACE(3, "ZnAPI:I18nAddInsertion: Invalid handle");
    return ZNE_INVALID_ARGUMENTS;
  }
  Value insertion;
  if (!ReadInsertion(tag, value, &insertion)) {
    ZN_TRACE(3, "ZnAPI:I18nAddInsertion: Invalid Property Type");
    return ZNE_UNEXPECTED;
  }
  auto& set = *HandleThing<PropertySet>(fmt->insertions);
  return set.AddOwned(Property(InsertionName(index), std::move(insertion)));
}

u32 FindInsertion(const I18nFormatString& fmt, u32 index, const Property** out) {
  if (!IsFormatString(&fmt)) {
    ZN_TRACE(3, "ZnAPI:I18nGetInsertion: Invalid handle");
    return ZNE_INVALID_ARGUMENTS;
  }
  const auto& set = *HandleThing<const PropertySet>(fmt.insertions);
  *out = set.Find(std::string_view(InsertionName(index)));
  if (*out != nullptr) return ZN_OK;
  ZN_TRACE(3, "ZnAPI:I18nGetInsertion: Property lookup of failed");
  return ZNE_PROPERTY_NOT_FOUND;
}

u32 AppendInsertion(const I18nFormatString& fmt, u32 index, u32 ofOtherType,
                    const MessageLookUp& lookUp, std::u16string* out) {
  const Property* insertion = nullptr;
  ZN_RETURN_IF_FAILED(FindInsertion(fmt, index, &insertion));
  const Value& value = insertion->GetValue();
  switch (value.Tag()) {
    case ZN_TYPE_STRING:
      out->append(ToWide(value.AsText()));
      return ZN_OK;
    case ZN_TYPE_WIDESTRING:
      out->append(value.AsWideText());
      return ZN_OK;
    case ZN_TYPE_I18N: {
      std::u16string text;
      ZN_RETURN_IF_FAILED(lookUp(PartsOfI18n(value.AsSet()), &text));
      out->append(text);
      return ZN_OK;
    }
    default:
      return ofOtherType;
  }
}

u32 MakeFormattedProperty(const char* propertyName, const I18nString& message,
                          const std::vector<std::u16string_view>& insertions, Property2** out) {
  PropertySet set;
  set.Put(kTemplateKey, I18nValueOf(message));
  set.Put(kCountKey, Value::UInt32(static_cast<u32>(insertions.size())));
  for (u32 i = 0; i < insertions.size(); ++i) {
    set.Put(InsertKey(i), Value::WideText(insertions[i]));
  }
  BinaryWriter writer;
  set.Marshal(writer);
  u32 length = 0;
  const std::unique_ptr<void, BlockDeleter> bytes(writer.Buffer().Take(&length));
  if (bytes == nullptr || length > 0xFFFFFFFFu - sizeof(Property2)) return ZNE_OUT_OF_MEMORY;
  void* block = ZnAlloc(length + u32{sizeof(Property2)});
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  u8* value = static_cast<u8*>(block) + sizeof(Property2);
  std::memcpy(value, bytes.get(), length);
  // Contract: the tag of an int32 over bytes that are none. Whoever takes the record takes it by
  // that tag, and a set that it is added to keeps its first four bytes.
  *out = new (block) Property2{const_cast<char*>(propertyName), ZN_TYPE_INT32, 0, length, value};
  return ZN_OK;
}

u32 DecodeFormattedProperty(const Property2& in, I18nString** message, InsertList* inserts) {
  if (in.Type != ZN_TYPE_INT32 || !IsGoodPointer(in.Value)) return ZNE_INVALID_ARGUMENTS;
  PropertySet set;
  BinaryReader reader(in.Value, in.Size);
  ZN_RETURN_IF_FAILED(set.Unmarshal(reader));
  const Value* spec = set.FindValue(kTemplateKey, ZN_TYPE_I18N);
  if (spec == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  u32 count = 0;
  ZN_RETURN_IF_FAILED(ReadCount(set, in.Size, &count));
  TextList list(count);
  ReadInserts(set, count, &list);
  const I18nParts parts = PartsOfI18n(spec->AsSet());
  I18nString* record = I18nRecordOf(parts.catalog, parts.message, parts.name);
  if (record == nullptr) return ZNE_OUT_OF_MEMORY;
  *message = record;
  *inserts = list.Release();
  return ZN_OK;
}

void FreeBlockList(u32 count, void** list) noexcept {
  if (list == nullptr) return;
  for (u32 i = 0; i < count; ++i) ZnFree(list[i]);
  ZnFree(list);
}

}  // namespace zn
