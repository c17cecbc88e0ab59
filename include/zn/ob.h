/* Objects: creation and deletion, ids, flags, lookup keys, properties, relations, interfaces, and
 * the creation of types.
 *
 * An object belongs to one database and is named by its id, 16 bytes by value, which means
 * something only together with that database. It has a type, flags, a property set, any number of
 * parents and children, an optional lookup key, and the interfaces that providers serve on it.
 *
 * All functions here may be called from any thread, and from every slot of a provider; none of them
 * waits for anything but the lock of the library. A handle of another kind, a bad pointer or a text
 * beyond its limit is refused with ZNE_INVALID_ARGUMENTS, and after ShutdownServer so is every
 * handle. Functions that take a database also answer ZNE_INVALID_ARGUMENTS for a null handle in a
 * process without a system database, and ZNW_SHMEM_LOGIN_FAILED on a client copy that has not
 * logged on; those that take the id of an object answer ZNE_OBJECT_NOT_FOUND for an unknown one;
 * every function that allocates may answer ZNE_OUT_OF_MEMORY. These are not repeated below. Results
 * are written on success only, unless a description says otherwise.
 *
 * Type names have at most 8192 bytes, property names 4096. A list of results is one block that the
 * caller frees with ZnFree; an empty list is ZN_OK with count 0 and a null array.
 *
 * A change to an object that is not hidden is told to the listeners of this process and to clients,
 * see zn/ev.h and DbUpdateSequenceStart.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Makes an object of the type, with the properties that the type and its ancestors declare and
 * their default values, and a child of every group that contains the type.
 *
 *   hDb        the database; null for the system database.
 *   hProvider  the creator. The library's own provider "system" is refused.
 *   type       the name of the type; the empty name is KELD_Object.
 *   out        receives the id.
 *
 * Returns ZN_OK, ZNE_INVALID_ARGUMENTS or ZNE_TYPE_NOT_FOUND. */
ZN_API u32 ObCreateObject(ZnHandle hDb, ZnHandle hProvider, const char* type, ObjectId* out);

/* The same with flags: OBJECT_HIDDEN, or else OBJECT_NODISPLAY, or 0; with both the object is
 * hidden. Other bits without one of the two are refused. The flags of the type come on top.
 * `reserved` is ignored. Here the provider "system" is accepted.
 *
 * Returns ZN_OK, ZNE_INVALID_ARGUMENTS or ZNE_TYPE_NOT_FOUND. */
ZN_API u32 ObCreateObjectEx(ZnHandle hDb, ZnHandle hProvider, const char* type, u32 flags,
                            u32 reserved, ObjectId* out);

/* Makes a type. Types stay as they are from then on, save for their interfaces, and live as long as
 * their database.
 *
 *   type        the name: letters, digits, ":" and "_", the first a letter or "_"; not empty; new
 *               in this database.
 *   supertypes  names of existing types, ended by a null pointer, or null. When none of them
 *               derives from KELD_Object, that is added as the last.
 *   hPropset    the properties that instances have, with their default values and flags; copied.
 *               ZN_PROPERTY_INDEXED makes objects findable by the value at once; it is allowed for
 *               boolean, int32, uint32, int64, uint64, time, string, widestring, guid, object id.
 *   out         receives the type's id; zeroed first, also when the call fails.
 *
 * A property that a supertype declares may be declared again with the same tag. Two supertypes may
 * share a property only when both have it from one declaring type.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a bad name, an unknown supertype or one named
 * twice; ZNE_TYPE_EXISTS; ZNE_PROPERTY_NOT_INDEXABLE; ZNE_INHERITANCE_INVALID. */
ZN_API u32 ObCreateTypeObject(ZnHandle hDb, const char* type, const char** supertypes,
                              ZnHandle hPropset, ObjectId* out);

/* The same with flags, which every instance gets: OBJECT_HIDDEN or else OBJECT_NODISPLAY; one of
 * the two must be set. `reserved` is ignored. Returns what ObCreateTypeObject returns. */
ZN_API u32 ObCreateTypeObjectEx(ZnHandle hDb, const char* type, const char** supertypes,
                                ZnHandle hPropset, u32 flags, u32 reserved, ObjectId* out);

/* Makes a task object (KELD_Task) by hand, for a provider that has no asynchronous call to hang it
 * on.
 *
 *   hProvider   the provider that does the work.
 *   object      the object worked on; may be the zero id. Stored as "ObjectId".
 *   majorCode, minorCode, interfaceId  what is done, stored under those names.
 *   hInPropset, hOutPropset  stored as copies, "InData" and "OutData"; both stay the caller's.
 *   out         receives the id of the task.
 *
 * Returns ZN_OK, ZNE_INVALID_ARGUMENTS or ZNE_TYPE_NOT_FOUND. */
ZN_API u32 ObCreateTaskObject(ZnHandle hDb, ZnHandle hProvider, ObjectId object, u32 majorCode,
                              u32 minorCode, const GUID* interfaceId, ZnHandle hInPropset,
                              ZnHandle hOutPropset, ObjectId* out);

/* Deletes the object with its relations, key and interfaces. Its children stay. Returns ZN_OK or
 * ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObDeleteObject(ZnHandle hDb, ObjectId id);

/* Whether all 16 bytes agree. Takes no lock. */
ZN_API bool ObCompareId(ObjectId a, ObjectId b);

/* Copies an id. Takes no lock. Returns ZN_OK, or ZNE_INVALID_ARGUMENTS for a bad `dst`. */
ZN_API u32 ObCopyId(ObjectId* dst, ObjectId src);

/* Stores the zero id and returns `dst`; a bad `dst` is returned as it is. Takes no lock. */
ZN_API ObjectId* ObIdZero(ObjectId* dst);

/* The text "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}" in lower case, 38 characters and a terminator,
 * as a block that the caller frees with ZnFree. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObIdToString(ObjectId id, char** out);

/* Reads that text, upper case too; letters beyond "f" count as digit 0. Returns ZN_OK, or
 * ZNE_INVALID_ARGUMENTS for another shape. */
ZN_API u32 ObStringToId(const char* text, ObjectId* out);

/* The name of the object's type as a block that the caller frees with ZnFree. `*outType` is null
 * after every failure. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObGetObjectType(ZnHandle hDb, ObjectId id, char** outType);

/* The low 16 bits of the object's flags: OBJECT_HIDDEN and OBJECT_NODISPLAY. Returns ZN_OK or
 * ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObGetObjectFlags(ZnHandle hDb, ObjectId id, u32* out);

/* Whether the database holds the object. On a client copy only what is there already counts: the
 * server is not asked. False for a bad handle too. */
ZN_API bool ObExists(ZnHandle hDb, ObjectId id);

/* Whether the object has a child that can be found and has every bit of `mask` in its flags. False
 * on every failure. */
ZN_API bool ObHasChildren(ZnHandle hDb, ObjectId id, u32 mask);

/* Gives the object a key, so that its provider finds it again by a name of its own; it replaces the
 * present one. Keys of objects of different creators do not meet.
 *
 *   key, length  the bytes, copied. A null key takes the present key away.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS; ZNE_DUPLICATE_LOOKUP_KEY when an object of the same creator
 * has that key, also when it is this one. */
ZN_API u32 ObSetKey(ZnHandle hDb, ObjectId id, const void* key, u32 length);

/* The key as a block that the caller frees with ZnFree. Both outputs are zeroed first, also when
 * the call fails. Returns ZN_OK, ZNE_INVALID_ARGUMENTS, or ZNE_THING_NOT_FOUND for an object
 * without a key. */
ZN_API u32 ObGetKey(ZnHandle hDb, ObjectId id, void** outKey, u32* outLength);

/* Hides the object (OBJECT_HIDDEN set), or else takes it out of display (OBJECT_NODISPLAY set), or
 * shows it; other bits are ignored. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObSetFlags(ZnHandle hDb, ObjectId id, u32 flags);

/* The object that the provider created and gave that key. `key` must not be null. Constant time on
 * the system database; elsewhere every object is looked at. Returns ZN_OK, ZNE_INVALID_ARGUMENTS or
 * ZNE_OBJECT_NOT_FOUND. */
ZN_API u32 ObGetObjectIdByKey(ZnHandle hDb, ZnHandle hProvider, const void* key, u32 length,
                              ObjectId* out);

/* One property as a new record, which the caller frees with PsFreeProperty. Returns ZN_OK;
 * ZNE_INVALID_ARGUMENTS, also for a value that has no flat form; ZNE_PROPERTY_NOT_FOUND. */
ZN_API u32 ObGetProperty(ZnHandle hDb, ObjectId id, const char* name, Property2** out);

/* Sets a property, or adds it. A present one keeps its flags. The present value set again changes
 * and tells nothing. The record stays the caller's.
 *
 * Returns ZN_OK, or ZNE_INVALID_ARGUMENTS, also for another type than the present value has. */
ZN_API u32 ObSetProperty(ZnHandle hDb, ObjectId id, const Property2* property);

/* A copy of all properties in a new set, which the caller destroys with PsDestroyPropset. Returns
 * ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObGetProperties(ZnHandle hDb, ObjectId id, ZnHandle* outPropset);

/* Sets or adds every property of the set, told as one change. The set stays the caller's. Returns
 * ZN_OK, or ZNE_INVALID_ARGUMENTS, also when a value has another type than the present one: what
 * stood before it in the order of names has been set then. */
ZN_API u32 ObSetProperties(ZnHandle hDb, ObjectId id, ZnHandle hPropset);

/* Ids of the children that are of the type or derive from it, in the order of their ids. A null
 * type, or "KELD_Object", gives all of them, hidden ones too. Returns ZN_OK, ZNE_INVALID_ARGUMENTS,
 * or ZNE_UNEXPECTED when a child is no longer there. */
ZN_API u32 ObGetChildObjects(ZnHandle hDb, ObjectId id, const char* type, u32* count,
                             ObjectId** out);

/* The same for the parents. */
ZN_API u32 ObGetParentObjects(ZnHandle hDb, ObjectId id, const char* type, u32* count,
                              ObjectId** out);

/* Makes `child` a child of `parent`. An object may have any number of parents, and cycles are
 * allowed. Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for two equal ids; ZNE_DUPLICATE_CHILD. */
ZN_API u32 ObAddChildObject(ZnHandle hDb, ObjectId parent, ObjectId child);

/* Takes the relation away; also succeeds when there is none. Both objects must exist. Returns ZN_OK
 * or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObRemoveChildObject(ZnHandle hDb, ObjectId parent, ObjectId child);

/* The handle of the provider that created the object; it belongs to the library. Returns ZN_OK,
 * ZNE_INVALID_ARGUMENTS, or ZNE_UNEXPECTED when that provider is gone. */
ZN_API u32 ObGetProviderForObject(ZnHandle hDb, ObjectId id, ZnHandle* outProvider);

/* Handles of the creator and, behind it, of the provider of each interface on the object, in the
 * order of registration, with repetitions. A provider that is gone is a null handle. The caller
 * frees the array; the handles belong to the library. Both outputs are zeroed first, also when the
 * call fails. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 ObGetObjectProviders(ZnHandle hDb, ObjectId id, u32* count, ZnHandle** out);

/* The handle of the provider that serves the interface on the object or, where none does, on its
 * type; it belongs to the library. Returns ZN_OK, or ZNE_INVALID_ARGUMENTS, also when nobody serves
 * it. */
ZN_API u32 ObGetInterfaceProvider(ZnHandle hDb, ObjectId id, const GUID* interfaceId,
                                  ZnHandle* outProvider);

/* Says that the provider serves the interface on the object. Returns ZN_OK, ZNE_INVALID_ARGUMENTS
 * or ZNE_INTERFACE_EXISTS. */
ZN_API u32 ObRegisterInterface(ZnHandle hDb, ObjectId id, ZnHandle hProvider,
                               const GUID* interfaceId);

/* Takes that back. Returns ZN_OK, ZNE_INVALID_ARGUMENTS or ZNE_INTERFACE_NOT_FOUND. */
ZN_API u32 ObDeregisterInterface(ZnHandle hDb, ObjectId id, const GUID* interfaceId);

/* Ids of the interfaces on the object and on its type with its ancestors, each once. Both outputs
 * are zeroed first, also when the call fails. Returns ZN_OK, ZNE_INVALID_ARGUMENTS, or
 * ZNE_UNEXPECTED when the type of the object is not known. */
ZN_API u32 ObQueryInterfaces(ZnHandle hDb, ObjectId id, u32* count, GUID** out);

/* Says that the provider serves the interface on every object of the type and of derived types. The
 * name must not be empty; the provider "system" is refused. Returns ZN_OK, ZNE_INVALID_ARGUMENTS,
 * ZNE_TYPE_NOT_FOUND or ZNE_INTERFACE_EXISTS. */
ZN_API u32 ObRegisterInterfaceOnType(ZnHandle hDb, const char* type, ZnHandle hProvider,
                                     const GUID* interfaceId);

/* Takes that back, for the provider that registered it. Returns ZN_OK, ZNE_INVALID_ARGUMENTS,
 * ZNE_TYPE_NOT_FOUND or ZNE_INTERFACE_NOT_FOUND. */
ZN_API u32 ObUnregisterInterfaceOnType(ZnHandle hDb, const char* type, ZnHandle hProvider,
                                       const GUID* interfaceId);

/* Whether the object is of the type or of one that derives from it. The name must not be empty.
 * False on every failure. */
ZN_API bool ObIsA(ZnHandle hDb, ObjectId id, const char* type);

ZN_EXTERN_C_END
