// The operations of the interface: each finds its object and its connection, and leaves the rest to
// them.
#include "ucl/common/ucl.h"

#include <atomic>

#include "support/common/memory_guard.h"
#include "support/common/pointers.h"
#include "support/common/trace.h"
#include "ucl/common/manager.h"
#include "zn/platform.h"

namespace zn {

namespace {

std::atomic<u32> lastStatus{0};

// The manager, or null with the refusal traced.
UclManager* OpenManager(const char* refusal = "ULC is not initialed\n") {
  UclManager& manager = UclManager::Get();
  if (manager.IsOpen()) return &manager;
  ZN_TRACE(6, refusal);
  lastStatus = UCLE_NOT_INITIALIZED;
  return nullptr;
}

std::shared_ptr<CommObject> FindObject(UclManager& manager, u32 handle, bool isServer) {
  if (isServer) return manager.FindServer(handle);
  return manager.FindClient(handle);
}

// The connection of an object that is known under that name.
std::shared_ptr<Connection> FindConnection(UclManager& manager, u32 handle, bool isServer,
                                           u32 address, u32 connectionId) {
  std::shared_ptr<Connection> connection = manager.FindConnection(connectionId);
  if (connection == nullptr || connection->Address() != address) return nullptr;
  const CommObject& owner = connection->Owner();
  return owner.Handle() == handle && owner.IsServer() == isServer ? connection : nullptr;
}

// A send finds no connection. One that the object does not have is told as lost.
u32 MissingConnection(UclManager& manager, u32 handle, bool isServer, u32 address,
                      u32 connectionId) {
  const std::shared_ptr<CommObject> object = FindObject(manager, handle, isServer);
  if (object == nullptr) {
    ZN_TRACE(6, "UCLSendRcv Cannot find the connection object\n");
    return UCLE_CONNECTION_NOT_FOUND;
  }
  ZN_TRACE(6, "Server::SendReceive Cannot find the connection object. \n");
  object->CallConnect("", address, connectionId, false);
  return UCLE_CONNECTION_NOT_FOUND;
}

u32 EndConnection(u32 handle, bool isServer, u32 address, u32 connectionId, StopCause cause) {
  UclManager* manager = OpenManager();
  if (manager == nullptr) return UCLE_NOT_INITIALIZED;
  if (FindObject(*manager, handle, isServer) == nullptr) return UCLE_OBJECT_NOT_FOUND;
  const auto connection = FindConnection(*manager, handle, isServer, address, connectionId);
  if (connection == nullptr) return UCLE_DISCONNECT_FAILED;
  connection->End(cause);
  return ZN_OK;
}

}  // namespace

u32 UCLStartup() {
  UclManager::Get().Open();
  return ZN_OK;
}

u32 UCLCleanup() {
  UclManager::Get().Close();
  return ZN_OK;
}

u32 UCLGetLastError() {
  return lastStatus;
}

u32 UCLCreateServer(u32* handle, void* context, DataCallback dataCallback,
                    ConnectCallback connectCallback, u32 port, const UclServerOptions* options) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    if (!IsGoodPointer(handle)) return ZNE_INVALID_ARGUMENTS;
    if (manager->FindServer(*handle) != nullptr) return ZN_OK;
    if (dataCallback == nullptr) {
      ZN_TRACE(6, "Server::Create(), no notification callback function.\n");
      return UCLE_INVALID_ADDRESS;
    }
    if (connectCallback == nullptr) {
      ZN_TRACE(6, "Server::Create(), no connection callback function.\n");
      return UCLE_INVALID_ADDRESS;
    }
    const UclServerOptions chosen = options != nullptr ? *options : UclServerOptions{};
    const auto server = std::make_shared<Server>(*manager, manager->NextHandle(), context,
                                                 dataCallback, connectCallback, port, chosen);
    manager->AddServer(server);  // before the first connection can arrive
    const u32 status = server->Create(chosen.bindAddress);
    if (status != ZN_OK) {
      manager->RemoveServer(server->Handle());
      return status;
    }
    *handle = server->Handle();
    return ZN_OK;
  });
}

u32 UCLGetServerPort(u32 server, u32* port) {
  UclManager* manager = OpenManager();
  if (manager == nullptr) return UCLE_NOT_INITIALIZED;
  const auto found = manager->FindServer(server);
  if (found == nullptr) return UCLE_OBJECT_NOT_FOUND;
  if (!IsGoodPointer(port)) return ZNE_INVALID_ARGUMENTS;
  *port = found->BoundPort();
  return ZN_OK;
}

u32 UCLStopAccepting(u32 server, u32 timeoutMs) {
  UclManager* manager = OpenManager();
  if (manager == nullptr) return UCLE_NOT_INITIALIZED;
  const auto found = manager->FindServer(server);
  return found == nullptr ? UCLE_OBJECT_NOT_FOUND : found->StopAccepting(timeoutMs);
}

u32 UCLCloseServer(u32 server) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    const auto found = manager->FindServer(server);
    if (found == nullptr) return UCLE_OBJECT_NOT_FOUND;
    found->StopAccepting(0xFFFFFFFFu);
    manager->EndConnections(*found, StopCause::kOwner);
    return ZN_OK;
  });
}

u32 UCLDisconnectPeer(u32 server, u32 address, u32 connectionId) {
  return EndConnection(server, true, address, connectionId, StopCause::kPeerCall);
}

u32 UCLMarkLoggedOn(u32 server, u32 address, u32 connectionId) {
  UclManager* manager = OpenManager();
  if (manager == nullptr) return UCLE_NOT_INITIALIZED;
  if (manager->FindServer(server) == nullptr) return UCLE_OBJECT_NOT_FOUND;
  const auto connection = FindConnection(*manager, server, true, address, connectionId);
  if (connection == nullptr) return UCLE_CONNECTION_NOT_FOUND;
  connection->MarkLoggedOn();
  return ZN_OK;
}

u32 UCLCreateClient(u32* handle, void* context, DataCallback dataCallback,
                    ConnectCallback connectCallback, u32 port, const UclClientOptions* options) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager("UCL is not initialized\n");
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    if (dataCallback == nullptr) {
      ZN_TRACE(6, "Invalid server address. \n");
      return UCLE_INVALID_ADDRESS;
    }
    if (!IsGoodPointer(handle)) return ZNE_INVALID_ARGUMENTS;
    const UclClientOptions chosen = options != nullptr ? *options : UclClientOptions{};
    const auto client = std::make_shared<Client>(*manager, manager->NextHandle(), context,
                                                 dataCallback, connectCallback, port, chosen);
    manager->AddClient(client);
    *handle = client->Handle();
    return ZN_OK;
  });
}

u32 UCLDeleteClient(u32 client) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    const auto found = manager->FindClient(client);
    if (found == nullptr) return UCLE_OBJECT_NOT_FOUND;
    manager->RemoveClient(client);
    if (found->ConnectionCount() > 0) manager->EndConnections(*found, StopCause::kOwner);
    return ZN_OK;
  });
}

u32 UCLConnect(u32 client, const char* host, u32* address, u32* connectionId) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    const auto found = manager->FindClient(client);
    if (found == nullptr) return UCLE_OBJECT_NOT_FOUND;
    if (!IsGoodPointer(address) || !IsGoodPointer(connectionId)) return ZNE_INVALID_ARGUMENTS;
    return found->Connect(host, address, connectionId);
  });
}

u32 UCLEnableDisconnectCallback(u32 client, u32 address, u32 connectionId) {
  UclManager* manager = OpenManager();
  if (manager == nullptr) return UCLE_NOT_INITIALIZED;
  if (manager->FindClient(client) == nullptr) return UCLE_OBJECT_NOT_FOUND;
  const auto connection = FindConnection(*manager, client, false, address, connectionId);
  if (connection != nullptr) connection->TellLossToOwner();
  return ZN_OK;
}

u32 UCLDisconnect(u32 client, u32 address, u32 connectionId) {
  return EndConnection(client, false, address, connectionId, StopCause::kOwner);
}

u32 UCLStopConnection(u32 object, u32 address, u32 connectionId) {
  UclManager* manager = OpenManager();
  if (manager == nullptr) return UCLE_NOT_INITIALIZED;
  const bool isServer = manager->FindServer(object) != nullptr;
  if (!isServer && manager->FindClient(object) == nullptr) return UCLE_OBJECT_NOT_FOUND;
  const auto connection = FindConnection(*manager, object, isServer, address, connectionId);
  if (connection == nullptr) return UCLE_DISCONNECT_FAILED;
  connection->Stop(StopCause::kStopCall);
  return ZN_OK;
}

u32 UCLSendRcv(u32 handle, u8 isServer, u32 address, u32 connectionId, u32 length, const void* data,
               u32* outLength, void** outData) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    const bool server = isServer != 0;
    const bool isWritable = IsGoodPointer(outData) && IsGoodPointer(outLength);
    const auto connection = FindConnection(*manager, handle, server, address, connectionId);
    if (connection == nullptr && FindObject(*manager, handle, server) == nullptr) {
      return MissingConnection(*manager, handle, server, address, connectionId);
    }
    if (!isWritable) {
      ZN_TRACE(6, "Invalid output data pointer\n");
      return ZNE_INVALID_ARGUMENTS;
    }
    if (connection == nullptr) {
      return MissingConnection(*manager, handle, server, address, connectionId);
    }
    return connection->SendAndWait(length, data, outLength, outData);
  });
}

u32 UCLSend(u32 handle, u8 isServer, u32 address, u32 connectionId, u32 length, const void* data) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    const auto connection = FindConnection(*manager, handle, isServer != 0, address, connectionId);
    if (connection == nullptr) {
      return MissingConnection(*manager, handle, isServer != 0, address, connectionId);
    }
    return connection->SendOneWay(length, data);
  });
}

u32 UCLSendRound(u32 server, const UclBuffer* buffers, u32 bufferCount, UclTarget* targets,
                 u32 targetCount) {
  return GuardMemory([&]() -> u32 {
    UclManager* manager = OpenManager();
    if (manager == nullptr) return UCLE_NOT_INITIALIZED;
    const auto owner = manager->FindServer(server);
    if (owner == nullptr) return MissingConnection(*manager, server, true, 0, 0);
    if (bufferCount == 0) return ZN_OK;
    const SendingRound round = MakeRound(*owner, buffers, bufferCount);
    for (u32 i = 0; i < targetCount; ++i) {
      UclTarget& target = targets[i];
      const auto connection =
          FindConnection(*manager, server, true, target.address, target.connectionId);
      target.status =
          connection != nullptr
              ? connection->SendRound(round)
              : MissingConnection(*manager, server, true, target.address, target.connectionId);
    }
    return ZN_OK;
  });
}

void UCLGetStatistics(UclStatistics* statistics) {
  UclManager& manager = UclManager::Get();
  *statistics = {manager.ConnectionCount(), manager.Threads().Count()};
}

}  // namespace zn
