// Status helpers for code inside the library; the codes stand in zn/status.h, their texts in
// status_table.def.
#pragma once

#include "zn/status.h"

namespace zn {

// Passes a failure up unchanged. Warnings of the object bus (0x81......) are no failures to this
// test: a caller that must stop on one compares for it.
#define ZN_RETURN_IF_FAILED(expression)       \
  do {                                        \
    const u32 znStatus = (expression);        \
    if (ZN_FAILED(znStatus)) return znStatus; \
  } while (false)

}  // namespace zn
