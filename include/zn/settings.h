/* settings */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Types of values. */
#define ZN_REG_SZ 1u        /* zero-terminated UTF-16 */
#define ZN_REG_EXPAND_SZ 2u /* the same; stored and read back as ZN_REG_SZ */
#define ZN_REG_BINARY 3u
#define ZN_REG_DWORD 4u    /* four bytes */
#define ZN_REG_MULTI_SZ 7u /* terminated texts one after the other, then an empty one */

ZN_API u32 ZnRegOpenKeyEx(ZnHandle key, const ZnWChar* subKey, u32 options, u32 access,
                          ZnHandle* result);
ZN_API u32 ZnRegCreateKey(ZnHandle key, const ZnWChar* subKey, ZnHandle* result);
ZN_API u32 ZnRegCloseKey(ZnHandle key);
ZN_API u32 ZnRegDeleteKey(ZnHandle key, const ZnWChar* subKey);
ZN_API u32 ZnRegDeleteValue(ZnHandle key, const ZnWChar* name);
ZN_API u32 ZnRegEnumKeyEx(ZnHandle key, u32 index, ZnWChar* name, u32* nameLen, u32* reserved,
                          ZnWChar* cls, u32* clsLen, void* lastWrite);
ZN_API u32 ZnRegEnumValue(ZnHandle key, u32 index, ZnWChar* name, u32* nameLen, u32* reserved,
                          u32* type, u8* data, u32* dataLen);
ZN_API u32 ZnRegQueryValueEx(ZnHandle key, const ZnWChar* name, u32* reserved, u32* type, u8* data,
                             u32* dataLen);
ZN_API u32 ZnRegSetValueEx(ZnHandle key, const ZnWChar* name, u32 reserved, u32 type,
                           const u8* data, u32 dataLen);
ZN_API ZnHandle HkeyMiraRoot(void);

ZN_EXTERN_C_END
