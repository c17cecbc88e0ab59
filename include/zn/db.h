/* db */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 DbCreateGroupNode(ZnHandle hDb, u32 typeCount, const char** types, u32 flags,
                             const ZnWChar* name, ObjectId* out);
ZN_API u32 DbDeleteGroupNode(ZnHandle hDb, const ZnWChar* name);
ZN_API u32 DbUpdateSequenceStart(ZnHandle hDb, u32 reserved);
ZN_API u32 DbUpdateSequenceFinish(ZnHandle hDb, u32 reserved);
ZN_API u32 DbGetObjects(ZnHandle hDb, const char* type, u32* count, ObjectId** out);
ZN_API u32 DbGetObjectsWithInterface(ZnHandle hDb, const char* type, const GUID* interfaceId,
                                     u32* count, ObjectId** out);
ZN_API u32 DbCreatePrivateDatabase(ZnHandle* out);
ZN_API u32 DbDeletePrivateDatabase(ZnHandle hDb);
ZN_API void DbLockDatabase(ZnHandle hDb);
ZN_API void DbUnlockDatabase(ZnHandle hDb);

ZN_EXTERN_C_END
