/* Types: names, relatives, properties and interfaces. A type is made by ObCreateTypeObject (ob.h).
 *
 * A database has its own table of types. All functions here may be called from any thread, and from
 * every slot of a provider. A handle of another kind, a bad pointer, or a type name that is empty
 * or has more than 8192 bytes is refused with ZNE_INVALID_ARGUMENTS. So is a null database handle
 * in a process without a system database; a client copy that has not logged on answers
 * ZNW_SHMEM_LOGIN_FAILED, and every function but TypeIsA may answer ZNE_OUT_OF_MEMORY. These are
 * not repeated below. Results are written on success only.
 *
 * A list of names is one block, the pointers first and the texts behind them, which the caller
 * frees with one ZnFree; an empty list is ZN_OK with count 0 and a null pointer.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Names of all types of the database in the order of their bytes, without the eight of the base
 * schema: KELD_Database, KELD_Provider, KELD_Object, KELD_GenericGroup, KELD_SystemGroup,
 * KELD_Group, KELD_Type, KELD_Extension. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 TypeGetObjects(ZnHandle hDb, u32* count, char*** names);

/* Names of the direct supertypes, in the order of declaration. Returns ZN_OK, ZNE_INVALID_ARGUMENTS
 * or ZNE_TYPE_NOT_FOUND. */
ZN_API u32 TypeGetSuperTypeObjects(ZnHandle hDb, const char* type, u32* count, char*** names);

/* Names of the types that have this one as a direct supertype, in the order of creation. Returns
 * ZN_OK, ZNE_INVALID_ARGUMENTS or ZNE_TYPE_NOT_FOUND. */
ZN_API u32 TypeGetDerivedTypeObjects(ZnHandle hDb, const char* type, u32* count, char*** names);

/* The properties that instances have, with their default values: those that the type itself
 * declares, or with bit 0 of `flags` the inherited ones too, where the nearest declaration of a
 * name counts. A new set, which the caller destroys with PsDestroyPropset. Returns ZN_OK,
 * ZNE_INVALID_ARGUMENTS or ZNE_TYPE_NOT_FOUND. */
ZN_API u32 TypeGetTypeProperties(ZnHandle hDb, const char* type, u32 flags, ZnHandle* properties);

/* Ids of the interfaces registered on the type, or with bit 0 of `flags` on its ancestors too, each
 * once: a block that the caller frees with ZnFree. Returns ZN_OK, ZNE_INVALID_ARGUMENTS or
 * ZNE_TYPE_NOT_FOUND. */
ZN_API u32 TypeQueryTypeInterfaces(ZnHandle hDb, const char* type, u32 flags, u32* count,
                                   GUID** ids);

/* Whether `type` is `baseType` or derives from it. False on every failure, an unknown type among
 * them. */
ZN_API bool TypeIsA(ZnHandle hDb, const char* type, const char* baseType);

ZN_EXTERN_C_END
