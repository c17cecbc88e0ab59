/* ev */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API bool EvMatch(ZnHandle hDb, const char* topic, const char* pattern);
ZN_API u32 EvTokens(const char* topic, char*** tokens, u32* count);
ZN_API u32 EvRegisterEvent(ZnHandle hDb, ZnHandle hProvider, const char* topic,
                           ZnHandle* registration);
ZN_API u32 EvUnregisterEvent(ZnHandle hDb, ZnHandle registration);
ZN_API u32 EvCreateWaitEvent(ZnHandle hDb, bool (*predicate)(const EventRecord*, void*),
                             void* context, ZnHandle* waitHandle);
ZN_API u32 EvWaitForEvent(ZnHandle hDb, ZnHandle waitHandle, u32 timeoutMs);
ZN_API u32 EvRaiseEvent(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle hPropset);

ZN_EXTERN_C_END
