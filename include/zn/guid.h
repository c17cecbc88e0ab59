/* guid */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 ZnGenerateGUID(GUID* out);
ZN_API u32 ZnGUIDToString(const GUID* in, char** out);
ZN_API u32 ZnStringToGUID(const char* text, GUID* out);
ZN_API bool ZnCompareGuid(const GUID* a, const GUID* b);

ZN_EXTERN_C_END
