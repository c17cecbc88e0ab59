/* platform */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API ZnHandle ZnCreateEvent(u8 autoReset, u8 initial);
ZN_API bool ZnSetEvent(ZnHandle event);
ZN_API bool ZnResetEvent(ZnHandle event);
ZN_API bool ZnCloseEvent(ZnHandle event);
ZN_API u32 ZnWaitForEvent(ZnHandle event, u32 timeoutMs);
ZN_API void ZnInitializeCriticalSection(void** section);
ZN_API void ZnDeleteCriticalSection(void** section);
ZN_API void ZnEnterCriticalSection(void** section);
ZN_API void ZnLeaveCriticalSection(void** section);
ZN_API ZnHandle ZnCreateThread(void* attributes, u32 stackSize, u32 (*start)(void*), void* argument,
                               u32 flags, u32* threadId);
ZN_API void ZnExitThread(u32 code);
ZN_API bool ZnTerminateThread(ZnHandle thread, u32 code);
ZN_API u32 ZnCloseHandle(ZnHandle handle);
ZN_API void ZnSleep(u32 ms);
ZN_API void* ZnLoadLibraryA(const char* path);
ZN_API void* ZnLoadLibraryW(const ZnWChar* path);
ZN_API void* ZnGetProcAddress(void* library, const char* name);
ZN_API bool ZnFreeLibrary(void* library);
ZN_API int ZnIsBadReadPtr(const void* p, size_t n);
ZN_API int ZnIsBadWritePtr(void* p, size_t n);
ZN_API int ZnIsBadCodePtr(const void* p);
ZN_API int ZnIsBadStringPtrA(const char* p, size_t max);
ZN_API int ZnIsBadStringPtrW(const ZnWChar* p, size_t max);
ZN_API char* ZnGetTime(void);
ZN_API i64 ZnGetMiraTime(void);
ZN_API ZnWChar* ZnGetComputerName(void);
ZN_API u32 ZnGetPassword(char** out);
ZN_API u32 ZnGetLastError(void);
ZN_API u32 ZnGetMiraVersion(u32* major, u32* minor);
ZN_API u32 ZnGetLibVersion(u32* a, u32* b, u32* c, u32* d);
ZN_API u32 ZnGetVersionString(ZnWChar** out);
ZN_API void* ZnCreateShMem(const char* name, u32 size, ZnHandle* handle);
ZN_API void* ZnOpenShMem(const char* name);
ZN_API u32 ZnCloseShMem(void* view);
ZN_API u32 ZnDeleteShMem(void* view, ZnHandle handle);
ZN_API void ZnSetLocale(void);

ZN_EXTERN_C_END
