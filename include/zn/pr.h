/* Providers: creating and finding them, their properties, and the calls that they answer.
 *
 * A provider handle names a provider object of one database. It lives as long as the provider, it
 * belongs to the library, and a caller never frees it. The id of a provider object is another
 * thing: PrGetProviderId and PrGetProviderHandle translate.
 *
 * All functions here may be called from any thread, and from every slot of a provider. A handle of
 * another kind, a bad pointer or a text beyond its limit is refused with ZNE_INVALID_ARGUMENTS, and
 * after ShutdownServer so is every handle. Functions that take a database also answer
 * ZNE_INVALID_ARGUMENTS for a null handle in a process without a system database, and
 * ZNW_SHMEM_LOGIN_FAILED on a client copy that has not logged on; both are not repeated below.
 * Results are written on success only, unless a description says otherwise.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Makes a provider of this process, without a library, and calls its Initialize on this thread with
 * no lock of the library held.
 *
 *   hDb        the database; null for the system database.
 *   name       zero-terminated, at most 4096 characters; names are compared exactly.
 *   callbacks  the slots, copied; Call, Initialize and Event must be filled. The functions must
 *              stay callable while the database lives.
 *   outProvider  receives the handle once Initialize has succeeded.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS; ZNE_PROVIDER_NAME_EXISTS; ZNE_TYPE_NOT_FOUND where the
 * database has no type KELD_Provider; what Initialize answers, or ZNE_PROVIDER_ACCESS_VIOLATED when
 * it throws: the provider and the objects it made are gone again then; ZNE_UNEXPECTED when
 * Initialize deleted the database; ZNE_OUT_OF_MEMORY. */
ZN_API u32 PrCreateProvider(ZnHandle hDb, const ZnWChar* name, const ProviderCallbacks* callbacks,
                            ZnHandle* outProvider);

/* Calls a provider. The call runs on this thread, with no lock of the library held; an exception
 * that the provider lets out is caught. What it changes is told to clients as one batch.
 *
 *   hProvider    the provider.
 *   id           the object addressed; may be the zero id. It is passed on unchecked.
 *   interfaceId  the interface; must not be null. Major and minor code select the operation; each
 *                interface defines its own.
 *   hIn, hOut    property sets of the caller, valid until the call returns; the provider reads the
 *                one and fills the other. Neither may be destroyed meanwhile.
 *   flags        bit 0 (ZN_CALL_ASYNCHRONOUS) makes the call a task; the other bits, and
 *                `reserved`, are carried to the provider.
 *   context, callback  for an asynchronous call: progress is reported to `callback` (may be null)
 *                with `context` in the report, on threads of the provider and with no lock held,
 *                possibly before this function returns, never after the report with
 *                TASK_STATE_FINISHED. Its answer goes to the provider: false asks it to stop. For
 *                other calls both are handed to the provider as they are.
 *   providerId   receives the id of the provider that answered, which may be another one than was
 *                called; the zero id after a failure.
 *   taskId       used by an asynchronous call alone, where it may be null. In: the parent task or
 *                the zero id. Out: the id of the KELD_Task object that stands for the call, the
 *                zero id after a failure. A finished task is deleted, and its deletion event tells
 *                of its end: by the time this function returns the id may already name nothing.
 *
 * A synchronous call has its results in `hOut`; the output of a task is the property OutData of its
 * object.
 *
 * Returns what the provider returns; ZNE_INVALID_ARGUMENTS, also for a parent task that does not
 * exist and for a provider of a server in a client process; ZNE_NOT_IMPLEMENTED for a provider
 * without Call; ZNE_SHUTDOWN_STARTED once ShutdownServer has begun; ZNE_PROVIDER_ACCESS_VIOLATED
 * when the provider throws; the status of a task object that could not be made;
 * ZNE_OUT_OF_MEMORY. */
ZN_API u32 PrCallProvider(ZnHandle hProvider, ObjectId id, const GUID* interfaceId, u32 majorCode,
                          u32 minorCode, ZnHandle hIn, ZnHandle hOut, u32 flags, u32 reserved,
                          void* context, TaskCallback callback, ObjectId* providerId,
                          ObjectId* taskId);

/* Finds the provider that serves an interface on an object, or on the object's type, and calls it
 * as PrCallProvider does; on a client copy the call goes to the server. The arguments are those of
 * PrCallProvider, but that `taskId` must not be null for an asynchronous call.
 *
 * Returns what PrCallProvider returns; ZNE_OBJECT_NOT_FOUND; ZNE_INTERFACE_NOT_FOUND for an
 * interface that nobody serves on the object; ZNE_PROVIDER_REG_NO_PROVIDERS when the provider that
 * served it is gone; on a client copy the status of the connection. */
ZN_API u32 PrCallDispatch(ZnHandle hDb, ObjectId id, const GUID* interfaceId, u32 majorCode,
                          u32 minorCode, ZnHandle hIn, ZnHandle hOut, u32 flags, u32 reserved,
                          void* context, TaskCallback callback, ObjectId* providerId,
                          ObjectId* taskId);

/* One property of the provider object as a new record, which the caller frees with PsFreeProperty.
 * `name` has at most 4096 characters. Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also for a value that
 * has no flat form; ZNE_PROPERTY_NOT_FOUND; ZNE_OUT_OF_MEMORY. */
ZN_API u32 PrGetProperty(ZnHandle hProvider, const char* name, Property2** out);

/* A copy of all properties in a new set, which the caller destroys with PsDestroyPropset. Returns
 * ZN_OK, ZNE_INVALID_ARGUMENTS or ZNE_OUT_OF_MEMORY. */
ZN_API u32 PrGetProperties(ZnHandle hProvider, ZnHandle* outPropset);

/* Stores a copy of one property. No event tells of it. Returns ZN_OK; ZNI_PROPSET_UNCHANGED, a
 * success, for the value that is there already; ZNE_INVALID_ARGUMENTS, also when the present value
 * has another type; ZNE_OUT_OF_MEMORY. */
ZN_API u32 PrSetProperty(ZnHandle hProvider, const Property2* property);

/* Stores copies of all properties of a set, which stays the caller's. Returns as PrSetProperty; at
 * the first value of another type it ends, with what was stored so far. */
ZN_API u32 PrSetProperties(ZnHandle hProvider, ZnHandle hPropset);

/* The name in a new block, which the caller frees with ZnFree. Returns ZN_OK,
 * ZNE_INVALID_ARGUMENTS or ZNE_OUT_OF_MEMORY. */
ZN_API u32 PrGetProviderName(ZnHandle hProvider, ZnWChar** name);

/* The handle of the provider of that name, compared exactly; at most 4096 characters. Returns
 * ZN_OK, ZNE_INVALID_ARGUMENTS, or ZNE_PROVIDER_REG_NO_PROVIDERS when there is none. */
ZN_API u32 PrGetProviderByName(ZnHandle hDb, const ZnWChar* name, ZnHandle* outProvider);

/* The handle of the provider of that id. Unlike every other call it takes no null database handle.
 * Returns ZN_OK, ZNE_INVALID_ARGUMENTS, or ZNE_PROVIDER_REG_NO_PROVIDERS when there is none. */
ZN_API u32 PrGetProviderHandle(ZnHandle hDb, ObjectId providerId, ZnHandle* outProvider);

/* The id of the provider object. Returns ZN_OK or ZNE_INVALID_ARGUMENTS. */
ZN_API u32 PrGetProviderId(ZnHandle hProvider, ObjectId* out);

/* The ids under which the provider's files stand in the settings: its client extension and its
 * message catalog (zn/i18n.h). Return ZN_OK, or ZNE_INVALID_ARGUMENTS, also for a provider without
 * one. */
ZN_API u32 PrGetExtension(ZnHandle hProvider, GUID* result);
ZN_API u32 PrGetMessageCatalog(ZnHandle hProvider, GUID* result);

/* Makes the ids of two KELD_Extension objects of the provider's database these two; the zero id
 * leaves one as it is. Returns ZN_OK; ZNE_OBJECT_NOT_FOUND; ZNE_INVALID_ARGUMENTS, also for an
 * object of another type. Nothing is changed by a refused call. */
ZN_API u32 PrSetProviderExtensions(ZnHandle hProvider, ObjectId extension, ObjectId catalog);

ZN_EXTERN_C_END
