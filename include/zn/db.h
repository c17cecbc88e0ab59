/* Databases: groups of objects, update sequences, lists of objects, private databases.
 *
 * A database handle lives as long as its database and belongs to the library; null names the system
 * database of the process.
 *
 * All functions here may be called from any thread, and from every slot of a provider. A handle of
 * another kind, a bad pointer or a text beyond its limit is refused with ZNE_INVALID_ARGUMENTS. So
 * is a null handle in a process without a system database; a client copy that has not logged on
 * answers ZNW_SHMEM_LOGIN_FAILED, and every function that allocates may answer ZNE_OUT_OF_MEMORY.
 * These are not repeated below. Results are written on success only, unless a description says
 * otherwise.
 *
 * A list of ids is one block that the caller frees with ZnFree; an empty list is ZN_OK with count 0
 * and a null array.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Makes a group: an object of type KELD_GenericGroup that has every object of the given types as a
 * child, those that exist and those that are made later, for as long as it lives.
 *
 *   typeCount, types  names of the types, at most 8192 bytes each; at least one. A type need not
 *                     exist yet.
 *   flags             OBJECT_HIDDEN, or else OBJECT_NODISPLAY, or 0; other bits without one of the
 *                     two are refused.
 *   name              zero-terminated; new among the groups of this database.
 *   out               receives the id of the group.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a name that is taken; ZNE_TYPE_NOT_FOUND where the
 * database has no type KELD_GenericGroup. */
ZN_API u32 DbCreateGroupNode(ZnHandle hDb, u32 typeCount, const char** types, u32 flags,
                             const ZnWChar* name, ObjectId* out);

/* Deletes the group of that name; its members stay. Returns ZN_OK, ZNE_INVALID_ARGUMENTS, or
 * ZNE_GROUP_NOT_USER_CREATED when there is no such group. */
ZN_API u32 DbDeleteGroupNode(ZnHandle hDb, const ZnWChar* name);

/* Opens an update sequence: until the next DbUpdateSequenceFinish changes are held back for clients
 * and merged, and then told as one. Listeners of this process hear every change at once all the
 * same. Sequences nest, but every Finish tells what is held.
 *
 * `reserved` must be 0. A call that is refused counts as a start for DbUpdateSequenceFinish.
 *
 * Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 DbUpdateSequenceStart(ZnHandle hDb, u32 reserved);

/* Tells what the database holds back and closes one sequence. When this process has more finishes
 * than starts, of whatever database, the call does nothing and succeeds, also for a bad handle.
 * `reserved` is ignored. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 DbUpdateSequenceFinish(ZnHandle hDb, u32 reserved);

/* Ids of all objects of the type and of derived types, type by type, each in the order of creation.
 * A null or empty name is KELD_Object; "KELD_Type" lists the types. Hidden objects are listed too.
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for an unknown type; ZNE_UNEXPECTED for "KELD_Type" in
 * a database that has no types. */
ZN_API u32 DbGetObjects(ZnHandle hDb, const char* type, u32* count, ObjectId** out);

/* Ids of the objects that have a value, found through an index where the property has one.
 *
 *   query  zero-terminated, at most 8192 units: SELECT FROM <type> WHERE <property> EQ <value>, the
 *          keywords in capitals and one blank between each two words. A word that holds blanks
 *          stands in double quotes, or has a backslash before each; a double quote cannot be part
 *          of a word. The objects are those of the type and of types derived from it, in no
 *          particular order, hidden ones among them. An empty type is KELD_Object.
 *
 * The type of the property says how the value is read:
 *
 *   boolean            TRUE or 1, FALSE or 0, in small letters too
 *   integers and time  a decimal number with nothing behind it. One that the type cannot hold is no
 *                      error: beyond 64 bits it becomes the largest of its sign, else it loses the
 *                      bits that have no room, and -1 of an unsigned type is its largest number.
 *   string, widestring as it stands
 *   guid               {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}
 *   object id          a decimal number of 64 bits: the first eight bytes of the id, the last eight
 *                      being zero
 *
 * A client copy sends the text to its server, and answers only with objects that it did not hold
 * before: the same query again finds nothing.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a text that is no query and a value that cannot be
 * read; ZNE_TYPE_NOT_FOUND; ZNE_PROPERTY_NOT_FOUND when the type does not declare the property;
 * ZNE_QUERY_TYPE_UNSUPPORTED for a property of a type not listed here. */
ZN_API u32 DbGetObjectsByQuery(ZnHandle hDb, const ZnWChar* query, u32* count, ObjectId** out);

/* Ids of the objects of the type and of derived types on which somebody serves the interface; what
 * is registered on types does not count. A null or empty name is KELD_Object. Both outputs are
 * zeroed once the arguments have passed. Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for an unknown
 * type. */
ZN_API u32 DbGetObjectsWithInterface(ZnHandle hDb, const char* type, const GUID* interfaceId,
                                     u32* count, ObjectId** out);

/* Makes an empty database of the caller's own: a store without notifications, that no client sees.
 * It has the types of the system database, with their ids; where the process has no system
 * database, the base types. DbDeletePrivateDatabase ends it. Returns ZN_OK, ZNE_INVALID_ARGUMENTS
 * or ZNE_OUT_OF_MEMORY. */
ZN_API u32 DbCreatePrivateDatabase(ZnHandle* out);

/* Shuts the providers of a private database down and deletes it with its objects; every handle that
 * belongs to it is dead afterwards. Not from a slot of one of its own providers. Returns ZN_OK;
 * ZNE_INVALID_ARGUMENTS, also for null and for every other kind of database. */
ZN_API u32 DbDeletePrivateDatabase(ZnHandle hDb);

/* One advisory lock for the whole process, for callers among themselves: the library never takes
 * it, and the handle is not looked at. The same thread may take it again; each lock needs an
 * unlock by that thread. An unlock without a lock does nothing. */
ZN_API void DbLockDatabase(ZnHandle hDb);
ZN_API void DbUnlockDatabase(ZnHandle hDb);

ZN_EXTERN_C_END
