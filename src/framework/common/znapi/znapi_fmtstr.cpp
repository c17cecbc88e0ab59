// Messages as records: their making, their insertions, and the formatted-string property.
#include <cstdarg>
#include <string>
#include <vector>

#include "framework/common/fmtstr/formatstring.h"
#include "framework/common/znapi/apiframe.h"
#include "framework/common/znguid/znguid.h"
#include "framework/common/znpropset/i18nvalue.h"
#include "framework/common/znpropset/property2.h"
#include "support/common/block.h"
#include "support/common/text.h"
#include "zn/i18n.h"
#include "zn/ps.h"

namespace zn {

namespace {

[[nodiscard]] bool IsMessageName(const char* name) noexcept {
  return IsGoodString(name, kMaxMessageName);
}

// The further arguments of a call, each a readable wide text.
[[nodiscard]] bool TakeTexts(u32 count, va_list* arguments, std::vector<std::u16string_view>* out) {
  for (u32 i = 0; i < count; ++i) {
    const ZnWChar* text = va_arg(*arguments, const ZnWChar*);
    if (!IsGoodPointer(text)) return false;
    out->emplace_back(text);
  }
  return true;
}

[[nodiscard]] u32 CopyInsertions(ZnHandle from, ZnHandle* out) {
  if (from == nullptr) {
    *out = nullptr;
    return ZN_OK;
  }
  *out = WrapPropertySet(PropertySet(*HandleThing<PropertySet>(from)));
  return *out == nullptr ? ZNE_OUT_OF_MEMORY : ZN_OK;
}

// A block made of what an insertion holds, by its tag.
[[nodiscard]] u32 InsertionToBlock(const Value& value, void** out) {
  void* block = nullptr;
  switch (value.Tag()) {
    case ZN_TYPE_STRING:
      block = TextToBlock(value.AsText());
      break;
    case ZN_TYPE_WIDESTRING:
      block = TextToBlock(value.AsWideText());
      break;
    case ZN_TYPE_I18N: {
      const I18nParts parts = PartsOfI18n(value.AsSet());
      block = I18nRecordOf(parts.catalog, parts.message, parts.name);
      break;
    }
    default:
      return ZNE_UNEXPECTED;
  }
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = block;
  return ZN_OK;
}

// All three additions are traced under one name of their own.
[[nodiscard]] u32 AddInsertionOf(const char* function, I18nFormatString* fmt, u32 index, u32 tag,
                                 const void* value) {
  return ApiCall(function, [&](ApiFrame&) -> u32 { return AddInsertion(fmt, index, tag, value); });
}

// What PsAddI18nString and its kin do with the record that they have made.
[[nodiscard]] u32 AddAndFree(ZnHandle set, Property2* property) {
  const u32 status = PsAddProperty(set, property);
  static_cast<void>(PsFreeProperty(property));
  return status;
}

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 ZnMakeI18nStr(GUID catalog, u32 message, const char* name, I18nString** out) {
  return ApiCall("ZnMakeI18nStr", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(out)));
    *out = nullptr;
    ZN_RETURN_IF_FAILED(frame.Check(IsMessageName(name)));
    *out = I18nRecordOf(catalog, message, name);
    return *out == nullptr ? ZNE_OUT_OF_MEMORY : ZN_OK;
  });
}

u32 ZnMakeFormattedString(Property2** out, const char* propertyName, GUID catalog, u32 message,
                          const char* name, u32 count, ...) {
  va_list arguments;
  va_start(arguments, count);
  const u32 status = ApiCall("ZnMakeFormattedString", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(
        frame.Check(IsGoodPointer(out) && !IsZeroGuid(catalog) && IsMessageName(name)));
    std::vector<std::u16string_view> texts;
    ZN_RETURN_IF_FAILED(frame.Check(TakeTexts(count, &arguments, &texts)));
    const I18nString record{catalog, message, const_cast<char*>(name)};
    return MakeFormattedProperty(propertyName, record, texts, out);
  });
  va_end(arguments);
  return status;
}

u32 ZnDecodeFormattedString(const Property2* in, I18nString** message, InsertList* inserts) {
  return ApiCall("ZnDecodeFormattedString", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(
        frame.Check(IsGoodPointer(in) && IsGoodPointer(inserts) && IsGoodPointer(message)));
    *message = nullptr;
    *inserts = {};
    return DecodeFormattedProperty(*in, message, inserts);
  });
}

// Without the lock: the blocks are the caller's alone.
u32 ZnFreeStringList(u32 count, void** list) {
  FreeBlockList(count, list);
  return ZN_OK;
}

u32 PsAddI18nString(ZnHandle set, GUID catalog, u32 message, const char* name,
                    const char* propertyName) {
  return ApiCall("PsAddI18nString", [&](ApiFrame&) -> u32 {
    Property2* property = nullptr;
    ZN_RETURN_IF_FAILED(ZnMakeFormattedString(&property, propertyName, catalog, message, name, 0));
    return AddAndFree(set, property);
  });
}

u32 PsAddI18nStringWithIndex(ZnHandle set, GUID catalog, u32 message, const char* name, i32 index,
                             const char* propertyName) {
  return ApiCall("PsAddI18nStringWithIndex", [&](ApiFrame&) -> u32 {
    const std::u16string text = ToWide(std::to_string(index));
    Property2* property = nullptr;
    ZN_RETURN_IF_FAILED(
        ZnMakeFormattedString(&property, propertyName, catalog, message, name, 1, text.c_str()));
    return AddAndFree(set, property);
  });
}

u32 I18nAddFormatSpec(I18nFormatString* fmt, GUID catalog, u32 message, const char* name) {
  return ApiCall("I18nAddFormatSpec", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(fmt) && IsMessageName(name)));
    char* copy = TextToBlock(std::string_view(name));
    if (copy == nullptr) return ZNE_OUT_OF_MEMORY;
    fmt->catalog = catalog;
    fmt->message = message;
    fmt->name = copy;
    return ZN_OK;
  });
}

u32 I18nAddInsertionString(I18nFormatString* fmt, u32 index, const char* value) {
  return AddInsertionOf("I18nAddInsertionString", fmt, index, ZN_TYPE_STRING, value);
}

u32 I18nAddInsertionWideString(I18nFormatString* fmt, u32 index, const ZnWChar* value) {
  return AddInsertionOf("I18nAddInsertionWideString", fmt, index, ZN_TYPE_WIDESTRING, value);
}

u32 I18nAddInsertionI18n(I18nFormatString* fmt, u32 index, const I18nString* value) {
  return AddInsertionOf("I18nAddInsertionI18n", fmt, index, ZN_TYPE_I18N, value);
}

u32 I18nGetInsertion(const I18nFormatString* fmt, u32 index, u32* type, void** value) {
  return ApiCall("I18nGetInsertion", [&](ApiFrame& frame) -> u32 {
    if (!IsGoodPointer(fmt) || !IsGoodPointer(value)) return frame.Refuse("Invalid handle");
    const Property* insertion = nullptr;
    ZN_RETURN_IF_FAILED(FindInsertion(*fmt, index, &insertion));
    ZN_RETURN_IF_FAILED(InsertionToBlock(insertion->GetValue(), value));
    if (IsGoodPointer(type)) *type = insertion->TypeTag();
    return ZN_OK;
  });
}

u32 I18nCopyFormatString(const I18nFormatString* fmt, I18nFormatString** out) {
  return ApiCall("I18nCopyFormatString", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(fmt) && IsGoodPointer(out) &&
                                    IsValidHandleOrNull(fmt->insertions, HANDLE_PROPSET)));
    I18nFormatString copy{fmt->catalog, fmt->message, nullptr, nullptr};
    ZN_RETURN_IF_FAILED(CopyInsertions(fmt->insertions, &copy.insertions));
    copy.name = TextToBlock(std::string_view(IsGoodPointer(fmt->name) ? fmt->name : ""));
    void* block = CopyToBlock(&copy, sizeof(copy));
    if (copy.name == nullptr || block == nullptr) {
      ZnFree(block);
      ZnFree(copy.name);
      static_cast<void>(DestroyPropertySet(copy.insertions));
      return ZNE_OUT_OF_MEMORY;
    }
    *out = static_cast<I18nFormatString*>(block);
    return ZN_OK;
  });
}

u32 I18nDeleteFormatString(I18nFormatString* fmt) {
  return ApiCall("I18nDeleteFormatString", [&](ApiFrame& frame) -> u32 {
    if (!IsGoodPointer(fmt)) {
      // Contract: the words of the additions serve the deletion too.
      ZN_TRACE(3, "ZnAPI:I18nAddInsertion: Invalid handle");
      return ZNE_INVALID_ARGUMENTS;
    }
    ZnFree(fmt->name);
    fmt->name = nullptr;  // a second deletion frees nothing
    if (fmt->insertions == nullptr || DestroyPropertySet(fmt->insertions)) return ZN_OK;
    return frame.Refuse("Error destroying propset");
  });
}

}  // extern "C"
