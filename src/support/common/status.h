// Status helpers for code inside the library; the codes stand in zn/status.h, their texts in
// status_table.def.
#pragma once

#include "zn/status.h"

namespace zn {

// One message: what a consumer that keeps whole rows (the alerts of start and stop) receives.
struct StatusRow {
  GUID messageClass;  // the same in every row
  u32 code;
  const char* text;  // constant storage
};

inline constexpr u32 kStatusRowCount = 124;
inline constexpr u32 kUnknownStatus = 0xFFFFFFFEu;

// The row of a code, compared in all 32 bits, or the row "Unknown" (kUnknownStatus). Never null.
[[nodiscard]] const StatusRow* ZnLookupStatusRow(u32 code) noexcept;
// All rows in table order, kStatusRowCount of them; the row "Unknown" is not among them.
[[nodiscard]] const StatusRow* StatusRows() noexcept;

// Passes a failure up unchanged. Warnings of the object bus (0x81......) are no failures to this
// test: a caller that must stop on one compares for it.
#define ZN_RETURN_IF_FAILED(expression)       \
  do {                                        \
    const u32 znStatus = (expression);        \
    if (ZN_FAILED(znStatus)) return znStatus; \
  } while (false)

}  // namespace zn
