/* ob */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

ZN_API u32 ObCreateObject(ZnHandle hDb, ZnHandle hProvider, const char* type, ObjectId* out);
ZN_API u32 ObCreateObjectEx(ZnHandle hDb, ZnHandle hProvider, const char* type, u32 flags,
                            u32 reserved, ObjectId* out);
ZN_API u32 ObCreateTypeObject(ZnHandle hDb, const char* type, const char** supertypes,
                              ZnHandle hPropset, ObjectId* out);
ZN_API u32 ObCreateTypeObjectEx(ZnHandle hDb, const char* type, const char** supertypes,
                                ZnHandle hPropset, u32 flags, u32 reserved, ObjectId* out);
ZN_API u32 ObCreateTaskObject(ZnHandle hDb, ZnHandle hProvider, ObjectId object, u32 majorCode,
                              u32 minorCode, const GUID* interfaceId, ZnHandle hInPropset,
                              ZnHandle hOutPropset, ObjectId* out);
ZN_API u32 ObDeleteObject(ZnHandle hDb, ObjectId id);
ZN_API bool ObCompareId(ObjectId a, ObjectId b);
ZN_API u32 ObCopyId(ObjectId* dst, ObjectId src);
ZN_API ObjectId* ObIdZero(ObjectId* dst);
ZN_API u32 ObIdToString(ObjectId id, char** out);
ZN_API u32 ObStringToId(const char* text, ObjectId* out);
ZN_API u32 ObGetObjectType(ZnHandle hDb, ObjectId id, char** outType);
ZN_API u32 ObGetObjectFlags(ZnHandle hDb, ObjectId id, u32* out);
ZN_API bool ObExists(ZnHandle hDb, ObjectId id);
ZN_API bool ObHasChildren(ZnHandle hDb, ObjectId id, u32 mask);
ZN_API u32 ObSetKey(ZnHandle hDb, ObjectId id, const void* key, u32 length);
ZN_API u32 ObGetKey(ZnHandle hDb, ObjectId id, void** outKey, u32* outLength);
ZN_API u32 ObSetFlags(ZnHandle hDb, ObjectId id, u32 flags);
ZN_API u32 ObGetObjectIdByKey(ZnHandle hDb, ZnHandle hProvider, const void* key, u32 length,
                              ObjectId* out);
ZN_API u32 ObGetProperty(ZnHandle hDb, ObjectId id, const char* name, Property2** out);
ZN_API u32 ObSetProperty(ZnHandle hDb, ObjectId id, const Property2* property);
ZN_API u32 ObGetProperties(ZnHandle hDb, ObjectId id, ZnHandle* outPropset);
ZN_API u32 ObSetProperties(ZnHandle hDb, ObjectId id, ZnHandle hPropset);
ZN_API u32 ObGetChildObjects(ZnHandle hDb, ObjectId id, const char* type, u32* count,
                             ObjectId** out);
ZN_API u32 ObGetParentObjects(ZnHandle hDb, ObjectId id, const char* type, u32* count,
                              ObjectId** out);
ZN_API u32 ObAddChildObject(ZnHandle hDb, ObjectId parent, ObjectId child);
ZN_API u32 ObRemoveChildObject(ZnHandle hDb, ObjectId parent, ObjectId child);
ZN_API u32 ObGetProviderForObject(ZnHandle hDb, ObjectId id, ZnHandle* outProvider);
ZN_API u32 ObGetObjectProviders(ZnHandle hDb, ObjectId id, u32* count, ZnHandle** out);
ZN_API u32 ObGetInterfaceProvider(ZnHandle hDb, ObjectId id, const GUID* interfaceId,
                                  ZnHandle* outProvider);
ZN_API u32 ObRegisterInterface(ZnHandle hDb, ObjectId id, ZnHandle hProvider,
                               const GUID* interfaceId);
ZN_API u32 ObDeregisterInterface(ZnHandle hDb, ObjectId id, const GUID* interfaceId);
ZN_API u32 ObQueryInterfaces(ZnHandle hDb, ObjectId id, u32* count, GUID** out);
ZN_API u32 ObRegisterInterfaceOnType(ZnHandle hDb, const char* type, ZnHandle hProvider,
                                     const GUID* interfaceId);
ZN_API u32 ObUnregisterInterfaceOnType(ZnHandle hDb, const char* type, ZnHandle hProvider,
                                       const GUID* interfaceId);
ZN_API bool ObIsA(ZnHandle hDb, ObjectId id, const char* type);

ZN_EXTERN_C_END
