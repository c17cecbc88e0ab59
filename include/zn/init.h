/* init */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 ShutdownServer(void);
ZN_API u32 ZnRegisterAsProvider(ZnHandle hDb, const ZnWChar* name,
                                const ProviderCallbacks* callbacks, ZnHandle* outProvider);
ZN_API u32 ZnInitialize(u32 flags, ZnChangeCallback change, ZnEventCallback event,
                        ZnHandle* database);
ZN_API u32 ZnGetServerFlags(void);
ZN_API u32 ZnSetServerFlags(u32 flags);

ZN_EXTERN_C_END
