#include "ucl/common/comm_object.h"

#include <chrono>
#include <new>

#include "support/common/trace.h"
#include "ucl/common/connection.h"
#include "ucl/common/manager.h"
#include "zn/platform.h"

namespace zn {

namespace {

// Connections accepted in one turn, so that a flood of them leaves the worker to others too.
constexpr int kAcceptsPerTurn = 64;
constexpr u32 kExhaustedPauseMs = 200;

// The server whose connect callback runs on this thread.
thread_local const Server* admittingServer = nullptr;

}  // namespace

u32 CommObject::CallData(bool oneWay, u32 address, u32 connectionId, u32 length, void* data,
                         void** outData, u32* outLength) {
  const Workers::CallbackScope scope(manager_.Threads());
  try {
    return dataCallback_(oneWay ? 1 : 0, &address, &connectionId, length, data, outData, outLength,
                         context_);
  } catch (...) {
    return ZNE_UNEXPECTED;
  }
}

u32 CommObject::CallConnect(const char* host, u32 address, u32 connectionId, bool connected) {
  if (connectCallback_ == nullptr) return ZN_OK;
  const Workers::CallbackScope scope(manager_.Threads());
  try {
    std::string text = host;
    return connectCallback_(text.data(), text.data(), &address, &connectionId, connected ? 1 : 0,
                            context_);
  } catch (...) {
    return ZNE_UNEXPECTED;
  }
}

Client::Client(UclManager& manager, u32 handle, void* context, DataCallback data,
               ConnectCallback connect, u32 port, const UclClientOptions& options)
    : CommObject(manager, Kind::kClient, handle, context, data, connect,
                 port == 0 ? kUclStandardPort : port,
                 {options.tcpNoDelay, options.maxFrameLength, 0, 0, options.maxQueuedBytes,
                  options.sendStallMs}),
      connectTimeoutMs_(options.connectTimeoutMs) {}

u32 Client::Connect(const char* host, u32* address, u32* connectionId) {
  std::string dotted;
  u32 peer = 0;
  if (ResolveHost(host, &dotted, &peer) != 0) return 0xFFFFFFFFu;  // Contract: as it stands
  const u32 socket = OpenStream();
  if (socket == kInvalidSocket) return UCLE_SOCKET_ERROR;
  if (ConnectWithTimeout(socket, peer, Port(), connectTimeoutMs_) != 0) {
    ZN_TRACE(6, "Socket error when connecting server. err code = %x\n", ZnGetLastError());
    return UCLE_SOCKET_ERROR;
  }
  const auto connection =
      std::make_shared<Connection>(shared_from_this(), socket, peer, std::move(dotted));
  if (!Manager().StartThreads()) {
    ZN_TRACE(6, "Error to clreate client recv data thread, err code = %x\n", ZnGetLastError());
    return UCLE_RECEIVE_THREAD_FAILED;
  }
  Manager().AddConnection(connection);
  if (!connection->Start()) {
    ZN_TRACE(6, "Error to create client notification thread. err code = %x\n", ZnGetLastError());
    return UCLE_NOTIFY_THREAD_FAILED;
  }
  *address = peer;
  *connectionId = connection->Id();
  return ZN_OK;
}

Server::Server(UclManager& manager, u32 handle, void* context, DataCallback data,
               ConnectCallback connect, u32 port, const UclServerOptions& options)
    : CommObject(manager, Kind::kServer, handle, context, data, connect,
                 port == 0 && !options.freePort ? kUclStandardPort : port,
                 {options.tcpNoDelay, options.maxFrameLength, options.maxLogonFrameLength,
                  options.logonTimeoutMs, options.maxQueuedBytes, options.sendStallMs}),
      maxClients_(options.maxClients) {}

Server::~Server() {
  const MutexLock lock(lock_);
  CloseListener();
}

u32 Server::Create(const char* bindAddress) {
  const auto fails = [](const char* trace, u32 socket) {
    ZN_TRACE(6, trace, ZnGetLastError());
    CloseSocket(socket);
    return UCLE_SOCKET_ERROR;
  };
  const u32 socket = OpenStream();
  if (socket == kInvalidSocket) {
    return fails("Server::Create(), socket error in create. err code = %x\n", socket);
  }
  std::string dotted;
  u32 address = 0;
  const bool isResolved =
      bindAddress == nullptr || ResolveHost(bindAddress, &dotted, &address) == 0;
  if (!isResolved || BindAny(socket, address, Port()) != 0) {
    return fails("Server::Create(), socket error in binding. err code = %x\n", socket);
  }
  if (ListenOn(socket) != 0) {
    return fails("Server::Create(), socket error in listening. err code = %x\n", socket);
  }
  boundPort_ = zn::BoundPort(socket);
  const MutexLock lock(lock_);
  listener_ = socket;
  if (!Manager().StartThreads()) return UCLE_NOTIFY_THREAD_FAILED;
  const bool isWatched =
      Manager().Threads().Set().Add(socket, UclManager::ListenerKey(Handle()), kPollIn | kPollOnce);
  return isWatched ? ZN_OK : UCLE_NOTIFY_THREAD_FAILED;
}

void Server::CloseListener() {
  if (listener_ == kInvalidSocket) return;
  Manager().Threads().Set().Remove(listener_);
  CloseSocket(listener_);
  listener_ = kInvalidSocket;
}

void Server::OnReadable() {
  {
    const MutexLock lock(lock_);
    if (stopping_ || accepting_) return;
    accepting_ = true;
  }
  const AcceptResult result = AcceptAll();
  const MutexLock lock(lock_);
  accepting_ = false;
  settled_.NotifyAll();
  if (stopping_) {
    CloseListener();
    return;
  }
  if (result == AcceptResult::kExhausted) {
    ZN_TRACE(4, "Connections wait: the host is out of descriptors. err code = %x\n",
             ZnGetLastError());
    isPaused_ = true;
    Manager().RequestTimer(kExhaustedPauseMs);
    return;
  }
  Manager().Threads().Set().Change(listener_, UclManager::ListenerKey(Handle()),
                                   kPollIn | kPollOnce);
}

void Server::OnTimer() {
  if (!isPaused_.exchange(false)) return;
  const MutexLock lock(lock_);
  if (stopping_) return;
  Manager().Threads().Set().Change(listener_, UclManager::ListenerKey(Handle()),
                                   kPollIn | kPollOnce);
}

AcceptResult Server::AcceptAll() {
  u32 listener = kInvalidSocket;
  {
    const MutexLock lock(lock_);
    listener = listener_;  // closed by nobody else while accepting_ is set
  }
  for (int i = 0; i < kAcceptsPerTurn && !stopping_; ++i) {
    u32 socket = kInvalidSocket;
    u32 address = 0;
    const AcceptResult result = AcceptNonBlocking(listener, &socket, &address);
    if (result != AcceptResult::kAccepted) return result;
    Admit(socket, address);
  }
  return AcceptResult::kNone;
}

// Null, with the socket closed, when memory is short.
std::shared_ptr<Connection> Server::MakeConnection(u32 socket, u32 address) try {
  return std::make_shared<Connection>(shared_from_this(), socket, address, AddressText(address));
} catch (const std::bad_alloc&) {
  CloseSocket(socket);
  return nullptr;
}

// Whatever fails here costs the one connection: accepting goes on.
void Server::Admit(u32 socket, u32 address) {
  const std::shared_ptr<Connection> connection = MakeConnection(socket, address);
  if (connection == nullptr) return;
  if (maxClients_ != 0 && ConnectionCount() >= maxClients_) {
    ZN_TRACE(4, "Connection of %s refused: %u clients are connected\n", connection->Host().c_str(),
             maxClients_);
    return;
  }
  admittingServer = this;
  const u32 refusal = CallConnect(connection->Host().c_str(), address, connection->Id(), true);
  admittingServer = nullptr;
  if (refusal != ZN_OK) return;
  try {
    Manager().AddConnection(connection);
    if (!stopping_) {
      static_cast<void>(connection->Start());
      return;
    }
  } catch (const std::bad_alloc&) {  // it is told as lost, as it was told as there
  }
  connection->End(StopCause::kDropped);
}

u32 Server::StopAccepting(u32 timeoutMs) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  const MutexLock lock(lock_);
  stopping_ = true;
  if (admittingServer == this) return ZN_OK;
  while (accepting_) {
    if (!settled_.WaitUntil(lock_, end) && accepting_) return ZNE_TIMED_OUT;
  }
  CloseListener();
  return ZN_OK;
}

}  // namespace zn
