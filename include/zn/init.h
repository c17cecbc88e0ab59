/* Start and stop of the process that hosts the system database, and programs that become
 * providers.
 *
 * One process has one server life: InitializeServer once (ZnInitialize alone for a bus without a
 * network), ShutdownServer once, in this order and not at the same time. What ShutdownServer ended
 * cannot be started again in the same process.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* Creates the system database, with the provider "system", the groups, the files offered to clients
 * (KELD_Extension objects), the two alerts of the server itself and the providers of the settings,
 * and starts the event threads unless they run. Providers load here, on the calling
 * thread; each has its Initialize called with no lock of the library held.
 *
 *   flags     1: this process hosts the system database. 0: nothing is created; `database` receives
 *             the handle of the system database that stands, or null. Any other value is refused.
 *   change    receives each change of the database, on the change thread; must not be null with
 *             flags 1. The set it is given is valid during the call only.
 *   event     receives each raised event behind the local receivers, on the raise thread; may be
 *             null.
 *   database  receives the handle of the system database, also when a later step fails; may be
 *             null. The handle belongs to the library and is never freed.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS for a bad flag or pointer; ZNE_SHUTDOWN_STARTED after
 * ShutdownServer; ZNE_UNEXPECTED when the event threads or the built-in types cannot be made (the
 * latter at a second call with flags 1) or the setting "InstallDir" is missing;
 * ZNE_OUT_OF_MEMORY; ZNE_PROVIDER_GROUP_REG_MISSING and ZNE_PROVIDER_REG_UNREADABLE without the
 * settings keys "ProviderGroup" and "Providers"; ZNE_PROVIDER_GROUP_REG_DAMAGED when the groups
 * cannot be listed (a name of more than 127 characters, say); ZNE_PROVIDER_REG_CIRCULAR for groups
 * that depend on each other in a circle; ZNE_ALERT_REREGISTER when something has published an alert
 * of the server already. A provider that fails is none of these: its name stands in
 * the property FAILED_PROVIDERS of the provider "system". A failed start leaves what it made; the
 * process is expected to call ShutdownServer and end.
 *
 * Changes raise events from the end of a good start on; what the start itself creates raises none.
 */
ZN_API u32 ZnInitialize(u32 flags, ZnChangeCallback change, ZnEventCallback event,
                        ZnHandle* database);

/* Starts a server: the framework, the trace file, the port for clients, the system database with
 * its providers (ZnInitialize), the threads that tell clients of changes and answer datagrams.
 * Providers load on the calling thread. Who connects before they have loaded is answered when they
 * have.
 *
 *   settings     trace switches, null for none: the flag of row 0 traces the dispatch of requests,
 *                that of row 1 the sending of notifications. A row with an empty name ends the
 *                table. Each flag is set when the settings key "Tracing/znmira" has a value of the
 *                row's name, whatever it is. Kept, and looked at, until ShutdownServer; the caller
 *                may change the flags, or read them anew with ZnTraceRefresh.
 *   port         of the service, TCP for sessions and UDP for discovery and pings; 0 for 2148.
 *   noTokenDcom  not 0: logons by a token of component activation are never granted; no host of
 *                this library grants them.
 *   logonBypass  not 0: any user and any password are accepted. For tests, and for hosts that check
 *                their users before they reach the port.
 *
 * For the settings see docs/settings.md. Returns ZN_OK; what ZnInitialize answers; the failure of
 * the start alert; ZNE_UNEXPECTED when the event threads cannot be started, and for a second start;
 * ZNE_OUT_OF_MEMORY. A port that is taken is none of these: it is traced ("BIND FAILED!!!"), and
 * the service runs without clients. Nor are a thread and the shared memory of local logons that
 * cannot be had. A failed start leaves what it made: call ShutdownServer and end. */
ZN_API u32 InitializeServer(TraceFlagRow* settings, u32 port, u8 noTokenDcom, u8 logonBypass);

/* Stops the server: refuses further provider calls and waits without limit for those that run,
 * raises the alert "event.alert.keld.server.shutdown" and waits up to 30 seconds until it has been
 * delivered with all that was raised before it, ends the sending to clients and closes their
 * connections, ends the event threads (what is queued after that is dropped), calls Shutdown of
 * every provider in the reverse of their load order and unloads their libraries, deletes the
 * databases, ends tracing. From then on every handle is refused with ZNE_INVALID_ARGUMENTS; private
 * databases and property sets of the caller are not freed.
 *
 * Not from a provider's slot, a task callback, an event or a change callback: it would wait for
 * itself. Without a system database it ends tracing alone. Always returns ZN_OK.
 */
ZN_API u32 ShutdownServer(void);

/* Logon tokens by component activation, which this host does not have: both do nothing. The start
 * of a server calls the former. */
ZN_API void InitDCOM(void);
ZN_API void UninitDCOM(void);

/* Makes the running program a provider of the database without an entry in the settings.
 *
 *   hDb        the database; null for the system database.
 *   name       name of the provider, zero-terminated, at most 4096 characters.
 *   callbacks  the slots, copied. Event must be filled. Initialize is called if it is filled, on
 *              this thread with no lock held; its failure undoes the registration and is returned.
 *              The functions must stay callable while the database lives.
 *   outProvider  receives the provider's handle, which belongs to the library. Not written when a
 *              provider of that name exists: that is no error, and the result is ZN_OK.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS for a bad handle or pointer, an empty Event slot, or a null
 * `hDb` in a process without a system database; ZNW_SHMEM_LOGIN_FAILED on a client copy that has
 * not logged on; ZNE_TYPE_NOT_FOUND where the database has no type KELD_Provider;
 * ZNE_PROVIDER_ACCESS_VIOLATED when Initialize throws, or its status; ZNE_UNEXPECTED when
 * Initialize deleted the database; ZNE_OUT_OF_MEMORY. Any thread.
 */
ZN_API u32 ZnRegisterAsProvider(ZnHandle hDb, const ZnWChar* name,
                                const ProviderCallbacks* callbacks, ZnHandle* outProvider);

/* The server's flags, published to clients that look for servers. ZnInitialize reads them from the
 * setting "Flags", 0 when it is missing. Any thread. */
ZN_API u32 ZnGetServerFlags(void);
/* Stores new flags and returns the old ones. Any thread. */
ZN_API u32 ZnSetServerFlags(u32 flags);

ZN_EXTERN_C_END
