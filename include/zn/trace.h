/* trace */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 ZnTrace(int level, const char* format, ...);
ZN_API u32 ZnTraceInit(const ZnWChar* component, u32 size, TraceFlagRow* table);
ZN_API u32 ZnTraceRefresh(const ZnWChar* component, TraceFlagRow* table);
ZN_API void ZnTraceClose(void);

ZN_EXTERN_C_END
