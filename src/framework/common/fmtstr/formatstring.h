// The forms of a message that carry insertions. A format string names each insertion "i<number>" in
// a set behind a handle. A formatted property is a Property2 whose bytes are a marshalled set:
//
//   TEMPLATE_I18N           i18n     the message
//   NUMBER_OF_INSERTS_UL    uint32   n
//   INSERT_<0..n-1>_VALUE   wide string
//
// The two count from 1 and from 0 and are never converted into each other. Under FAST_LOCK where a
// set is touched.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/znpropset/i18nvalue.h"
#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

// Bytes of a default text.
inline constexpr size_t kMaxMessageName = 0x20000;

// A record with its text behind it in one block; null when memory is short.
[[nodiscard]] I18nString* I18nRecordOf(const GUID& catalog, u32 message,
                                       std::string_view name) noexcept;

// "i<index>".
[[nodiscard]] std::string InsertionName(u32 index);
// The value is a text, a wide text or an I18nString, by its tag; another tag is ZNE_UNEXPECTED. A
// record or handle that is not good, and a value that is null, are ZNE_INVALID_ARGUMENTS; all three
// are traced. ZNE_DUPLICATE_LOOKUP_KEY.
[[nodiscard]] u32 AddInsertion(I18nFormatString* fmt, u32 index, u32 tag, const void* value);
// The property itself, valid until the set changes. ZNE_INVALID_ARGUMENTS for a bad handle,
// ZNE_PROPERTY_NOT_FOUND; both traced.
[[nodiscard]] u32 FindInsertion(const I18nFormatString& fmt, u32 index, const Property** out);

// The text of a message, whichever way a caller comes by it.
using MessageLookUp = std::function<u32(const I18nParts&, std::u16string*)>;
// Appends the text of an insertion: its own, or that of the message it is. `ofOtherType` is the
// answer for a value that is neither. `lookUp` may give up the lock: the set is not read behind it.
[[nodiscard]] u32 AppendInsertion(const I18nFormatString& fmt, u32 index, u32 ofOtherType,
                                  const MessageLookUp& lookUp, std::u16string* out);

// A formatted property as one block that PsFreeProperty frees; the name is kept as a pointer. The
// caller has checked the catalog.
[[nodiscard]] u32 MakeFormattedProperty(const char* propertyName, const I18nString& message,
                                        const std::vector<std::u16string_view>& insertions,
                                        Property2** out);
// `*message` is a block, `*inserts` a list for ZnFreeStringList.
[[nodiscard]] u32 DecodeFormattedProperty(const Property2& in, I18nString** message,
                                          InsertList* inserts);

void FreeBlockList(u32 count, void** list) noexcept;

}  // namespace zn
