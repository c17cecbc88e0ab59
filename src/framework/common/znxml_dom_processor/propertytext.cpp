// Values from texts: one row per type word, with the function that reads its text.
#include "framework/common/znxml_dom_processor/propertytext.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <vector>

#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znxml_dom_processor/xmltext.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "zn/guid.h"
#include "zn/ob.h"

namespace zn {

namespace {

constexpr bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}
bool AreDigits(std::string_view text) noexcept {
  return std::all_of(text.begin(), text.end(), IsDigit);
}

// Traces why a text is refused. All texts here are short-lived copies with a terminator.
#define ZN_REFUSE_TEXT(...)       \
  do {                            \
    ZN_TRACE(6, __VA_ARGS__);     \
    return ZNE_INVALID_ARGUMENTS; \
  } while (false)

u32 ReadBool(const std::string& text, Value* out) {
  if (text.empty()) ZN_TRACE(3, "XML: No boolean value in xml filesetting default false");
  if (text != "true" && text != "false" && !text.empty()) {
    ZN_REFUSE_TEXT("XML: Inavalid boolean value in xml file :%s", text.c_str());
  }
  *out = Value::Bool(text == "true" ? 1 : 0);
  return ZN_OK;
}

// No text is 0 here too: the conversion uses all of it.
u32 ReadInt32(const std::string& text, Value* out) {
  char* rest = nullptr;
  errno = 0;
  const long long value = std::strtoll(text.c_str(), &rest, 10);
  if (errno == ERANGE || value < std::numeric_limits<i32>::min() ||
      value > std::numeric_limits<i32>::max()) {
    ZN_REFUSE_TEXT("XML: invalid int32 value err in strtol  : %s errno %d ", text.c_str(), ERANGE);
  }
  if (*rest != 0) ZN_REFUSE_TEXT("XML: invalid int32 value: %s", text.c_str());
  *out = Value::Int32(static_cast<i32>(value));
  return ZN_OK;
}

u32 ParseUInt32(const std::string& text, u32* out) {
  *out = 0;
  if (text.empty()) return ZN_OK;
  if (!IsDigit(text.front()) && text.front() != '+') {
    ZN_REFUSE_TEXT("XML: Invalid value of mira_uint32: %s ", text.c_str());
  }
  char* rest = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &rest, 10);
  if (errno == ERANGE || value > std::numeric_limits<u32>::max()) {
    ZN_REFUSE_TEXT("XML: invalid uint32 value err in strtoul  : %s errno %d ", text.c_str(),
                   ERANGE);
  }
  if (*rest != 0) ZN_REFUSE_TEXT("XML : Inavalid uint32 value: %s ", text.c_str());
  *out = static_cast<u32>(value);
  return ZN_OK;
}

u32 ReadUInt32(const std::string& text, Value* out) {
  u32 value = 0;
  ZN_RETURN_IF_FAILED(ParseUInt32(text, &value));
  *out = Value::UInt32(value);
  return ZN_OK;
}

// Contract: the 64-bit numbers do not tell what does not fit, it becomes the nearest that does; a
// sign alone is 0.
u32 ReadInt64(const std::string& text, Value* out) {
  if (!text.empty()) {
    const bool starts = IsDigit(text.front()) || text.front() == '+' || text.front() == '-';
    if (!starts || !AreDigits(std::string_view(text).substr(1))) {
      ZN_REFUSE_TEXT("XML: Invalid value of mira_int64: %s", text.c_str());
    }
  }
  *out = Value::Int64(std::strtoll(text.c_str(), nullptr, 10));
  return ZN_OK;
}

// Contract: a "+" in front, which the numbers take, is refused here.
u32 ReadTime(const std::string& text, Value* out) {
  if (!AreDigits(text)) ZN_REFUSE_TEXT("XML: Invalid value of mira_time: %s", text.c_str());
  *out = Value::Time(std::strtoll(text.c_str(), nullptr, 10));
  return ZN_OK;
}

u32 ReadUInt64(const std::string& text, Value* out) {
  if (!text.empty()) {
    // Contract: a bad beginning is told in the words of the signed type.
    if (!IsDigit(text.front()) && text.front() != '+') {
      ZN_REFUSE_TEXT("XML: Invalid value of mira_int64: %s", text.c_str());
    }
    if (!AreDigits(std::string_view(text).substr(1))) {
      ZN_REFUSE_TEXT("XML: Invalid value of mira_uint64: %s", text.c_str());
    }
  }
  *out = Value::UInt64(std::strtoull(text.c_str(), nullptr, 10));
  return ZN_OK;
}

u32 ReadText(const std::string& text, Value* out) {
  *out = Value::Text(std::string_view(text));
  return ZN_OK;
}

u32 ReadWideText(const std::string& text, Value* out) {
  *out = Value::WideText(std::u16string_view(ToWide(text)));
  return ZN_OK;
}

// Contract: a document gives bytes no value; the text is there for readers.
u32 ReadBinary(const std::string&, Value* out) {
  *out = Value::Binary(nullptr, 0);
  return ZN_OK;
}

u32 ParseGuidText(const std::string& text, GUID* out) {
  *out = GUID{};
  if (text.empty() || !ZN_FAILED(ZnStringToGUID(text.c_str(), out))) return ZN_OK;
  ZN_REFUSE_TEXT("XML: error in getGuidValue%s ", text.c_str());
}

u32 ReadGuid(const std::string& text, Value* out) {
  GUID guid{};
  ZN_RETURN_IF_FAILED(ParseGuidText(text, &guid));
  *out = Value::Guid(guid);
  return ZN_OK;
}

u32 ReadObjectId(const std::string& text, Value* out) {
  ObjectId id{};
  if (!text.empty() && ZN_FAILED(ObStringToId(text.c_str(), &id))) {
    ZN_REFUSE_TEXT("XML: error in getObjIdValue %s ", text.c_str());
  }
  *out = Value::Id(id);
  return ZN_OK;
}

u32 ReadI18n(const std::string& text, Value* out) {
  I18nText parts;
  ZN_RETURN_IF_FAILED(ReadI18nText(text, &parts));
  PropertySet set;
  set.Put("Catalog", Value::Guid(parts.catalog));
  set.Put("Message", Value::UInt32(parts.message));
  set.Put("Name", Value::Text(std::string_view(parts.name)));
  *out = Value::Set(ZN_TYPE_I18N, std::move(set));
  return ZN_OK;
}

struct TypeRow {
  std::string_view word;
  u32 tag;
  u32 (*read)(const std::string& text, Value* out);  // null: not a text
};

constexpr TypeRow kTypes[] = {
    {"mira_bool", ZN_TYPE_BOOLEAN, &ReadBool},
    {"mira_int32", ZN_TYPE_INT32, &ReadInt32},
    {"mira_uint32", ZN_TYPE_UINT32, &ReadUInt32},
    {"mira_int64", ZN_TYPE_INT64, &ReadInt64},
    {"mira_time", ZN_TYPE_TIME, &ReadTime},
    {"mira_uint64", ZN_TYPE_UINT64, &ReadUInt64},
    {"mira_string", ZN_TYPE_STRING, &ReadText},
    {"mira_wstring", ZN_TYPE_WIDESTRING, &ReadWideText},
    {"mira_binary", ZN_TYPE_BINARY, &ReadBinary},
    {"mira_guid", ZN_TYPE_GUID, &ReadGuid},
    {"mira_objid", ZN_TYPE_OBJECT_ID, &ReadObjectId},
    {"mira_i18n", ZN_TYPE_I18N, &ReadI18n},
    {"mira_propset", ZN_TYPE_PROPSET, nullptr},
};

// Null for a type that has no text.
const TypeRow* RowOf(u32 tag) noexcept {
  for (const TypeRow& row : kTypes) {
    if (row.tag == tag && row.read != nullptr) return &row;
  }
  return nullptr;
}

u32 ReadTrimmed(const TypeRow* row, std::string_view text, Value* out) {
  return row == nullptr ? ZNE_INVALID_ARGUMENTS : row->read(std::string(TrimXmlText(text)), out);
}

}  // namespace

u32 TagOfTypeWord(std::string_view word) noexcept {
  for (const TypeRow& row : kTypes) {
    if (row.word == word) return row.tag;
  }
  return 0;
}

u32 ReadScalarText(u32 tag, std::string_view text, Value* out) {
  const u32 status = ReadTrimmed(RowOf(tag), text, out);
  if (ZN_FAILED(status)) ZN_TRACE(6, "XML : Error in getGetNonPropsetProperty");
  return status;
}

u32 ReadArrayText(u32 elementTag, std::string_view text, Value* out) {
  const TypeRow* row = RowOf(elementTag);
  if (row == nullptr) return ZNE_INVALID_ARGUMENTS;  // also where no element shows it
  std::vector<Value> elements;
  for (const std::string& token : XmlTokens(text, ',', '"')) {
    Value element;
    const u32 status = ReadTrimmed(row, token, &element);
    if (ZN_FAILED(status)) {
      ZN_TRACE(6, "XML : Error in getGetNonPropsetArrayProperty%s",
               elementTag == ZN_TYPE_I18N ? " of type i18n" : "");
      return status;
    }
    elements.push_back(std::move(element));
  }
  *out = Value::Array(elementTag, std::move(elements));
  return ZN_OK;
}

u32 ReadI18nText(std::string_view text, I18nText* out) {
  *out = {};
  const std::vector<std::string> parts = XmlTokens(text, ';', '\'');
  constexpr size_t kParts = 3;
  if (parts.size() != kParts) return ZN_OK;  // Contract: the empty record, and no word about it
  I18nText read;
  ZN_RETURN_IF_FAILED(ParseGuidText(parts[0], &read.catalog));
  ZN_RETURN_IF_FAILED(ParseUInt32(parts[1], &read.message));
  read.name = parts[2];
  *out = std::move(read);
  return ZN_OK;
}

}  // namespace zn
