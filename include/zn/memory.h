/* memory */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API void* _ZnAlloc(u32 size, const char* file, u32 line);
ZN_API void* _ZnRealloc(void* block, u32 size, const char* file, u32 line);
ZN_API void _ZnFree(void* block, const char* file, u32 line);
ZN_API void CheckMemory(void);
ZN_API void _ZnDumpAllocations(void);
ZN_API void* ZnAlloc(u32 size);
ZN_API void* ZnRealloc(void* block, u32 size);
ZN_API void ZnFree(void* block);

ZN_EXTERN_C_END
