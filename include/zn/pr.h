/* pr */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 PrCreateProvider(ZnHandle hDb, const ZnWChar* name, const ProviderCallbacks* callbacks,
                            ZnHandle* outProvider);
ZN_API u32 PrCallProvider(ZnHandle hProvider, ObjectId id, const GUID* interfaceId, u32 majorCode,
                          u32 minorCode, ZnHandle hIn, ZnHandle hOut, u32 flags, u32 reserved,
                          void* context, TaskCallback callback, ObjectId* providerId,
                          ObjectId* taskId);
ZN_API u32 PrCallDispatch(ZnHandle hDb, ObjectId id, const GUID* interfaceId, u32 majorCode,
                          u32 minorCode, ZnHandle hIn, ZnHandle hOut, u32 flags, u32 reserved,
                          void* context, TaskCallback callback, ObjectId* providerId,
                          ObjectId* taskId);
ZN_API u32 PrGetProperty(ZnHandle hProvider, const char* name, Property2** out);
ZN_API u32 PrGetProperties(ZnHandle hProvider, ZnHandle* outPropset);
ZN_API u32 PrSetProperty(ZnHandle hProvider, const Property2* property);
ZN_API u32 PrSetProperties(ZnHandle hProvider, ZnHandle hPropset);
ZN_API u32 PrGetProviderName(ZnHandle hProvider, ZnWChar** name);
ZN_API u32 PrGetProviderByName(ZnHandle hDb, const ZnWChar* name, ZnHandle* outProvider);
ZN_API u32 PrGetProviderHandle(ZnHandle hDb, ObjectId providerId, ZnHandle* outProvider);
ZN_API u32 PrGetProviderId(ZnHandle hProvider, ObjectId* out);

ZN_EXTERN_C_END
