/* Clients: reaching a server, logging on, finding servers, fetching their files.
 *
 * ClStartup comes first and ClShutdown last; they count. ClCreateDatabaseEx connects, logs on and
 * hands out a client copy of the server's database: a database handle for the Ob*, Db*, Type*, Pr*
 * and Ev* calls, which fills itself on demand and follows the server's changes. What is written to
 * a copy stays in the copy; a server is changed through PrCallDispatch alone. While a call waits
 * for its server, other threads may go on.
 *
 * A session is over when its connection is lost. What would ask the server then answers
 * ZNE_INVALID_ARGUMENTS, and ZNE_OBJECT_NOT_FOUND for an object that is not in the copy; what the
 * copy holds can still be read; the application deletes the session and makes another. Nothing
 * connects anew by itself. Who registered (ClRegisterClient) hears of the loss by the Shutdown
 * slot.
 *
 * All functions may be called from any thread. None of them may be called from a provider's
 * Shutdown slot on the session that is ending. A bad pointer and a handle that is none are refused
 * with ZNE_INVALID_ARGUMENTS; every function may answer ZNE_OUT_OF_MEMORY. Results are written on
 * success only, unless a description says otherwise. Records and texts that are handed in are
 * borrowed for the call. Where a result may be a warning (0x81......), ZN_FAILED is false for it:
 * test a logon with `!= ZN_OK`.
 */
#pragma once

#include "zn/types.h"

ZN_EXTERN_C_BEGIN

/* What the application holds of a session: to be read, not written. It belongs to the library until
 * ClDeleteDatabase, which frees it; after ClDisconnect the application frees it with ZnFree. */
#define ZN_CLIENT_MAGIC 0x200000u
#define ZN_CLIENT_CREATED 1u
#define ZN_CLIENT_CONNECTED 2u
#define ZN_CLIENT_LOGGED_ON 3u
#define ZN_CLIENT_CLOSED 4u
typedef struct ClientHandle {
  u32 magic; /* ZN_CLIENT_MAGIC */
  u32 state; /* ZN_CLIENT_... */
  void* session;
} ClientHandle;

/* Flags of ClConnectInfo. */
#define ZN_CONNECT_PING 1u       /* watch the server by pings, once ClRegisterClient was called */
#define ZN_CONNECT_LOCAL_PORT 2u /* with a null host: the service of this machine on `port` */

/* Where to connect. A null record, and one with a null host, mean the service of this machine on
 * the standard port, with a logon through shared memory. */
typedef struct ClConnectInfo {
  u32 reserved;
  u32 port;         /* TCP; 0: 2148 */
  const char* host; /* name or dotted IPv4 address, UTF-8, at most 4096 bytes */
  u32 flags;        /* ZN_CONNECT_... */
  u32 reserved1;
  u32 reserved2;
} ClConnectInfo;

/* Who logs on. All four texts are needed; they may be empty; each has at most 8192 units. An empty
 * domain is the server's own. `system` goes to the server and means nothing to it. */
typedef struct ClLogonInfo {
  const ZnWChar* user;
  const ZnWChar* password;
  const ZnWChar* domain;
  const ZnWChar* system;
  u32 type; /* ZN_LOGON_...; not looked at, the type is what was agreed on */
} ClLogonInfo;
#define ZN_LOGON_PASSWORD 1u
#define ZN_LOGON_SHARED_MEMORY 2u

/* A provider of the client's own on its copy; see ZnRegisterAsProvider. */
typedef struct ClRegisterInfo {
  const ZnWChar* name;
  ProviderCallbacks callbacks;
} ClRegisterInfo;

/* A server that answered. Texts are UTF-8 as the server sent them, cut to fit. */
#define ZN_HOST_NAME_BYTES 256
#define ZN_HOST_ADDRESSES 100
#define ZN_HOST_PROTOCOLS 20
typedef struct ClHostProtocol {
  u32 version;
  char name[20]; /* terminated */
} ClHostProtocol;
typedef struct ClHostInfo {
  ObjectId databaseId;
  char hostname[ZN_HOST_NAME_BYTES]; /* terminated */
  u32 addressCount;
  u32 addresses[ZN_HOST_ADDRESSES]; /* IPv4 in host order */
  u32 miraVersion;                  /* major * 10 + minor / 10 */
  u32 miraType;
  u32 protocolCount; /* of `protocols` */
  u32 serverFlags;   /* as the server's application set them */
  ClHostProtocol protocols[ZN_HOST_PROTOCOLS];
} ClHostInfo;

/* Makes the client side ready. The first of as many calls does the work: the threads that deliver
 * events, and the communication layer. ZNE_UNEXPECTED when the system refuses. */
ZN_API u32 ClStartup(void);

/* The last of as many ends it: pinging, discovery, the connections that are still there and, where
 * the process has no system database, all databases. The handles of such sessions can still be
 * deleted. A call without its ClStartup makes the count wrap and does nothing. Always 0. */
ZN_API u32 ClShutdown(void);

/* Connects, negotiates and logs on.
 *
 *   connect   where to, or null (see ClConnectInfo).
 *   logon     who, or null: without `connect` the logon goes through shared memory, which a server
 *             shares with processes of its own user.
 *   handle    receives the session.
 *   database  receives the client copy.
 *   reserved  0.
 *
 * Returns ZN_OK; ZNE_INVALID_ARGUMENTS, also when a server asks for a password and there is no
 * `logon`; 0xFFFFFFFF for a host that cannot be found; UCLE_SOCKET_ERROR when nobody answers there;
 * UCLW_SOCKET_DISCONNECTED when the server goes, or takes longer than a minute for one answer;
 * ZNE_ACCESS_DENIED for a refused password and for shared memory that cannot be read; the status
 * of the server's refusal; the status of the first requests for types and tasks. */
ZN_API u32 ClCreateDatabaseEx(const ClConnectInfo* connect, const ClLogonInfo* logon,
                              ClientHandle** handle, ZnHandle* database, u32 reserved);

/* The older form. With `connect` it connects and negotiates, and ClLogon has to follow. Without, it
 * logs on through shared memory ("Logon failed" goes to the standard output when that fails); where
 * the server wants a password the result is the warning ZNW_SHMEM_LOGIN_FAILED, with a session that
 * waits for ClLogon, and any other result is a failure. `*handle` is null from the start of the
 * call and after a failure. Statuses otherwise as those of ClCreateDatabaseEx. */
ZN_API u32 ClCreateDatabase(const ClConnectInfo* connect, ClientHandle** handle,
                            ZnHandle* database);

/* Logs a session on: ZN_OK at once when it is. The calls on its copy answer
 * ZNW_SHMEM_LOGIN_FAILED before. Statuses as those of ClCreateDatabaseEx. After a refusal another
 * try is allowed. */
ZN_API u32 ClLogon(ClientHandle* handle, const ClLogonInfo* logon);

/* Ends a session and its copy. The handle reads as closed from then on, and is freed by the
 * application with ZnFree. ZNE_INVALID_ARGUMENTS for a session that is closed. */
ZN_API u32 ClDisconnect(ClientHandle* handle, u32 reserved1, u32 reserved2);

/* Ends a session, its copy and its handle, also after the connection was lost. `database` is not
 * looked at but must not be null. ZNE_INVALID_ARGUMENTS for a session that is closed. Waits for
 * calls of other threads that are waiting for this server, which end with UCLW_SOCKET_DISCONNECTED.
 */
ZN_API u32 ClDeleteDatabase(ClientHandle* handle, ZnHandle database);

/* Registers the application as a provider on its copy, as ZnRegisterAsProvider does, so that it can
 * register events; where pings were asked for, they begin now: one every 10 seconds, and a server
 * that says nothing for 30 to 60 seconds counts as lost. A name that is taken is no error and gives
 * no handle. ZNW_SHMEM_LOGIN_FAILED before the logon, and the statuses of ZnRegisterAsProvider. */
ZN_API u32 ClRegisterClient(ClientHandle* handle, u32 reserved, const ClRegisterInfo* info,
                            ZnHandle* provider);

/* Does nothing. Always 0. */
ZN_API u32 ClUnregisterClient(u32 a, u32 b, u32 c);

/* The servers of the last discovery that have one of the flags in `flagMask`, or, with 0, those
 * without flags. `*hosts` is a block for ZnFree, also for none. */
ZN_API u32 ClEnumHosts(u32 flagMask, u32* count, ClHostInfo** hosts);

/* Looks for servers by broadcast on UDP port 2148, six seconds after the last time, each time until
 * nothing was heard for `timeoutSeconds` (at most 3600), and no longer than twenty times that and a
 * second; with `immediately` a first time before it returns, which so takes at least
 * `timeoutSeconds`. The environment variable ZN_DISCOVERY names other places to ask: IPv4 addresses
 * with or without a port, with commas between them. Between ClStartup and ClShutdown only. Always
 * 0; nothing happens while it is enabled. */
ZN_API u32 ClEnableHostDiscovery(u32 timeoutSeconds, u8 immediately);

/* Stops looking; what was found stays. Always 0. */
ZN_API u32 ClDisableHostDiscovery(void);

/* Fetches a file that the server publishes (the "ImageFile" of an extension object, or one of its
 * logs) and writes it to `localPath`, over what is there. Both names have at most 8192 units. What
 * cannot be opened or written is not reported. ZNE_CLIENT_NOT_AUTHORIZED for a file that is not
 * published, or another status of the server; ZNE_PROPERTY_NOT_FOUND for an answer without bytes;
 * ZNE_INVALID_ARGUMENTS for a session that is lost. */
ZN_API u32 ClDownloadFile(ClientHandle* handle, const ZnWChar* name, const ZnWChar* localPath);

/* The text of a formatted string of the server, with its insertions, by the catalog of the server
 * for the string's messages in US English. The catalog is fetched once and kept below the user's
 * profile folder; without one the default texts serve. `*out` is a block for ZnFree, and is written
 * also when an insertion could not be used: the text lacks it then. ZNE_THING_NOT_FOUND when the
 * catalog has no such message; ZNE_PROPERTY_NOT_FOUND for an insertion that is missing,
 * ZNE_NOT_SUPPORTED_FOR_OBJECT for one that is neither text nor message; ZNE_UNEXPECTED without a
 * profile folder; ZNE_INVALID_ARGUMENTS for a session that is lost. */
ZN_API u32 ClMakeFormattedString(ClientHandle* handle, const I18nFormatString* formatted,
                                 ZnWChar** out);

ZN_STATIC_ASSERT(sizeof(ClHostInfo) == 1172, "ClHostInfo");
#if UINTPTR_MAX == UINT64_MAX
ZN_STATIC_ASSERT(sizeof(ClientHandle) == 16 && offsetof(ClientHandle, session) == 8,
                 "ClientHandle");
ZN_STATIC_ASSERT(sizeof(ClConnectInfo) == 32 && offsetof(ClConnectInfo, host) == 8 &&
                     offsetof(ClConnectInfo, flags) == 16,
                 "ClConnectInfo");
ZN_STATIC_ASSERT(sizeof(ClLogonInfo) == 40 && offsetof(ClLogonInfo, type) == 32, "ClLogonInfo");
ZN_STATIC_ASSERT(sizeof(ClRegisterInfo) == 56, "ClRegisterInfo");
#endif

ZN_EXTERN_C_END
