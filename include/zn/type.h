/* type */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 TypeGetObjects(ZnHandle hDb, u32* count, char*** names);
ZN_API u32 TypeGetSuperTypeObjects(ZnHandle hDb, const char* type, u32* count, char*** names);
ZN_API u32 TypeGetDerivedTypeObjects(ZnHandle hDb, const char* type, u32* count, char*** names);
ZN_API u32 TypeGetTypeProperties(ZnHandle hDb, const char* type, u32 flags, ZnHandle* properties);
ZN_API u32 TypeQueryTypeInterfaces(ZnHandle hDb, const char* type, u32 flags, u32* count,
                                   GUID** ids);
ZN_API bool TypeIsA(ZnHandle hDb, const char* type, const char* baseType);

ZN_EXTERN_C_END
