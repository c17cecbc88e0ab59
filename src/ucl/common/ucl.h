// The communication layer: opaque byte buffers between a client and a server over one TCP
// connection per session, each buffer one frame (frame.h). The layers above see handles, two
// callbacks and buffers; this header is all they include, with datagram.h for discovery and
// credentials.h for the logon block.
//
// Handles are tickets from a counter, never addresses; 0 names nothing. A connection is named by
// (address, connectionId): the peer's IPv4 address in network byte order and a number that is
// unique in the process. Every operation may be called from any thread, from inside a callback too
// where nothing else is said.
//
// Threads. There is no thread per connection. A few workers, shared by all endpoints of the
// process, take what arrives; on a client the very thread that waits in UCLSendRcv reads the socket
// while it waits, and handles what comes before its answer. Whoever reads runs the callbacks, so:
// - the frames of one connection are handed over one at a time, in the order of arrival, and a
//   frame that came before a response is handled before that response is given to its waiter;
// - a callback may block as long as it likes: it holds up its own connection and nothing else (on
//   a client that includes the caller that happens to read);
// - callbacks run with no lock of this layer held, and a caller of UCLSendRcv should hold none that
//   its own data callback takes.
// Sending never waits for a peer: what the socket does not take at once is queued for that
// connection and sent by the workers as the peer reads.
#pragma once

#include <memory>

#include "zn/status.h"
#include "zn/types.h"

namespace zn {

inline constexpr u32 kUclStandardPort = 2148;

// A request (`oneWay` 0) or a one-way frame (`oneWay` 1). `data` is valid during the call only, has
// no particular alignment and is null when `length` is 0. For an answer, `*outData` is set to a
// block of ZnAlloc and `*outLength` to its size: the layer takes the block over. The result
// travels as the answer's status. For a one-way frame the result and the answer are dropped. A
// callback must not wait for another frame of its own connection: UCLSendRcv on it answers
// UCLE_CALLBACK_THREAD_SENDRECV at once. It may disconnect its own connection; the call then
// returns before the connection has ended. An exception counts as ZNE_UNEXPECTED.
using DataCallback = u32 (*)(u32 oneWay, u32* address, u32* connectionId, u32 length, void* data,
                             void** outData, u32* outLength, void* context);

// `connected` 1: a server accepted a connection; a result other than 0 refuses it, and then nothing
// more is told of it. No data callback of the connection runs before this one has returned. The
// accepted connections of one server are told one at a time. `connected` 0: the connection is lost
// or dropped. It is told once per connection at most, and
// - on a server exactly once for each connection that was not refused, but for those that
//   UCLCloseServer or UCLCleanup ends;
// - on a client only after UCLEnableDisconnectCallback, or when a send or a wait of a caller fails
//   on the connection, whether or not it was asked for; UCLDisconnect by itself tells nothing.
// A send to a connection that does not exist (any more) is told too, each time, with an empty host.
// `host` is the peer's address as text, passed twice; valid during the call only.
using ConnectCallback = u32 (*)(char* host, char* hostAgain, u32* address, u32* connectionId,
                                u32 connected, void* context);

struct UclServerOptions {
  const char* bindAddress = nullptr;  // dotted IPv4 text; null: every address of the machine
  bool freePort = false;              // with port 0: a free port instead of the standard one
  bool tcpNoDelay = true;
  u32 maxFrameLength = 0;             // payload bytes; a longer frame drops its peer; 0: no limit
  u32 maxLogonFrameLength = 1 << 20;  // the same, until UCLMarkLoggedOn; 0: no limit of its own
  u32 logonTimeoutMs = 60000;         // a peer not marked as logged on by then is dropped; 0: never
  u32 maxClients = 0;                 // further connections are closed at once, untold; 0: no limit
  // One-way frames that wait for a peer to read; more of them drop it. Answers do not count: the
  // next request of a peer is taken when its last answer has left. One frame of any size passes
  // when nothing waits before it. 0: no limit.
  u64 maxQueuedBytes = u64{64} << 20;
  u32 sendStallMs =
      60000;  // a peer that takes nothing for so long of what waits is dropped; 0: never
};

struct UclClientOptions {
  bool tcpNoDelay = true;
  u32 connectTimeoutMs = 4000;
  u32 maxFrameLength = 0;
  u64 maxQueuedBytes = u64{64} << 20;
  u32 sendStallMs = 60000;
};

// --- The process -------------------------------------------------------------------------------

// Makes the layer ready; counted, so that a process may be a server and a client. 0, or
// ZNE_UNEXPECTED when the host refuses. Every other operation before it (UCLCleanup and
// UCLGetLastError apart) traces "ULC is not initialed\n" (UCLCreateClient: "UCL is not
// initialized\n") and answers UCLE_NOT_INITIALIZED.
[[nodiscard]] u32 UCLStartup();
// The last of as many ends every client, then every server, and all threads of the layer. Not from
// a callback, and not while other threads are inside the layer. Always 0.
u32 UCLCleanup();
// UCLE_NOT_INITIALIZED once an operation was refused for that, else 0.
[[nodiscard]] u32 UCLGetLastError();

// --- Servers -----------------------------------------------------------------------------------

// Creates a listening server. When *handle names a server already: 0, and nothing happens. `port` 0
// means the standard port, or a free one with `freePort`; null options mean the defaults above.
// UCLE_INVALID_ADDRESS for a missing callback, UCLE_SOCKET_ERROR (socket, bind, listen),
// UCLE_NOTIFY_THREAD_FAILED when no worker can be started; then *handle stays as it was.
[[nodiscard]] u32 UCLCreateServer(u32* handle, void* context, DataCallback dataCallback,
                                  ConnectCallback connectCallback, u32 port,
                                  const UclServerOptions* options = nullptr);
// The port that the server listens on. UCLE_OBJECT_NOT_FOUND.
[[nodiscard]] u32 UCLGetServerPort(u32 server, u32* port);
// Accepts no more connections; returns when a connect callback that runs for a new one has ended.
// 0, ZNE_TIMED_OUT after `timeoutMs`, UCLE_OBJECT_NOT_FOUND. The connections stay.
u32 UCLStopAccepting(u32 server, u32 timeoutMs);
// Stops listening and disconnects every connection, untold, behind the answer of a request that is
// being served; returns when no callback of them runs any more (its caller's own apart). The handle
// stays valid until UCLCleanup. 0 or UCLE_OBJECT_NOT_FOUND.
u32 UCLCloseServer(u32 server);
// Ends one connection of a server and tells its loss. Returns when no callback of the connection
// runs any more; called from one, at once: the connection then ends when that callback returns.
// 0, UCLE_DISCONNECT_FAILED when there is no such connection, UCLE_OBJECT_NOT_FOUND.
u32 UCLDisconnectPeer(u32 server, u32 address, u32 connectionId);
// From now on maxFrameLength applies to the connection and the logon time-out does not.
// 0, UCLE_CONNECTION_NOT_FOUND, UCLE_OBJECT_NOT_FOUND.
u32 UCLMarkLoggedOn(u32 server, u32 address, u32 connectionId);

// --- Clients -----------------------------------------------------------------------------------

// `port` 0 means the standard port. A missing data callback: the trace "Invalid server address. \n"
// and UCLE_INVALID_ADDRESS. The connect callback may be null.
[[nodiscard]] u32 UCLCreateClient(u32* handle, void* context, DataCallback dataCallback,
                                  ConnectCallback connectCallback, u32 port,
                                  const UclClientOptions* options = nullptr);
// Disconnects what is still connected, then forgets the client. 0 or UCLE_OBJECT_NOT_FOUND.
u32 UCLDeleteClient(u32 client);
// Connects; 4 seconds are given by default. 0; 0xFFFFFFFF when the host is not to be resolved;
// UCLE_SOCKET_ERROR when it does not answer; UCLE_RECEIVE_THREAD_FAILED or
// UCLE_NOTIFY_THREAD_FAILED when the layer cannot watch the connection; UCLE_OBJECT_NOT_FOUND.
[[nodiscard]] u32 UCLConnect(u32 client, const char* host, u32* address, u32* connectionId);
// Has the loss of the connection told. 0 also when there is no such connection.
u32 UCLEnableDisconnectCallback(u32 client, u32 address, u32 connectionId);
// As UCLDisconnectPeer, for a connection of a client, and without telling the loss; callers that
// wait in UCLSendRcv end with UCLW_SOCKET_DISCONNECTED and tell it, before this returns.
u32 UCLDisconnect(u32 client, u32 address, u32 connectionId);
// Stops the connection and returns at once: callers that wait in UCLSendRcv end with
// UCLW_SOCKET_DISCONNECTED, and the connection goes. `object` is a client or a server.
// 0, UCLE_DISCONNECT_FAILED, UCLE_OBJECT_NOT_FOUND.
u32 UCLStopConnection(u32 object, u32 address, u32 connectionId);

// --- Sending -----------------------------------------------------------------------------------

// Sends a request and waits, without limit, for its response. `data` stays the caller's. With 0
// *outLength is set and, unless it is 0, *outData to a block for ZnFree; the response's status is
// not handed on. ZNE_INVALID_ARGUMENTS for an unwritable `outData` (trace "Invalid output data
// pointer\n"); UCLE_CONNECTION_NOT_FOUND (traces "UCLSendRcv Cannot find the connection object\n"
// for the handle, "Server::SendReceive Cannot find the connection object. \n" for the connection);
// UCLE_SOCKET_ERROR when the request could not be sent; UCLW_SOCKET_DISCONNECTED when the
// connection went while waiting. These two and a missing connection are told through the connect
// callback before they are returned.
[[nodiscard]] u32 UCLSendRcv(u32 handle, u8 isServer, u32 address, u32 connectionId, u32 length,
                             const void* data, u32* outLength, void** outData);
// Sends a one-way frame. `data` stays the caller's and may be reused at once. The same statuses but
// for the wait's; 0 means sent or queued.
[[nodiscard]] u32 UCLSend(u32 handle, u8 isServer, u32 address, u32 connectionId, u32 length,
                          const void* data);

// A payload that is sent to many connections and copied for none. Immutable, any thread.
class UclPayload;
using UclBuffer = std::shared_ptr<const UclPayload>;
// Takes over a block of ZnAlloc (null for length 0). Null when memory is short: the block is freed.
[[nodiscard]] UclBuffer UCLMakeBuffer(void* block, u32 length);

struct UclTarget {
  u32 address = 0;
  u32 connectionId = 0;
  u32 status = 0;  // out: as UCLSend answers
};
// One round of one-way frames: every buffer, in order, to every target, gathered so that a round
// costs one system call per target that reads. A target that fails costs the others nothing.
// 0, or UCLE_CONNECTION_NOT_FOUND with the trace of UCLSend for an unknown server (then no status
// of a target is set). Rounds of one caller keep their order at each target.
u32 UCLSendRound(u32 server, const UclBuffer* buffers, u32 bufferCount, UclTarget* targets,
                 u32 targetCount);

// --- Watching, for tests and captures ----------------------------------------------------------

struct UclTapFrame {
  bool sent;      // or received
  bool isServer;  // the end of the connection that saw it
  u32 connectionId;
  u32 type;
  u32 id;
  u32 status;
  u32 length;
  const void* payload;
};
using UclTap = void (*)(const UclTapFrame& frame, void* context);
// Every frame of the process from now on, sent ones in the order of the wire, received ones before
// they are handled; calls are serialized. Null ends it; after that the old tap is not running any
// more. The tap must not call this layer.
void UCLSetTap(UclTap tap, void* context);

struct UclStatistics {
  u32 connections;  // of all endpoints
  u32 workers;      // threads of the layer
};
void UCLGetStatistics(UclStatistics* statistics);

}  // namespace zn
