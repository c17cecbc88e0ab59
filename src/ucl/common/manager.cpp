#include "ucl/common/manager.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace zn {

namespace {

// Deadlines that lie close together are looked at together.
constexpr i64 kLeastTimerMs = 20;
// Until another look at them where there was no memory for one.
constexpr u32 kTimerRetryMs = 500;

}  // namespace

UclManager& UclManager::Get() {
  static UclManager& manager = *new UclManager;
  return manager;
}

void UclManager::Open() {
  opened_.fetch_add(1);
}

void UclManager::Close() {
  if (opened_ == 0 || opened_.fetch_sub(1) != 1) return;
  std::unordered_map<u32, std::shared_ptr<Client>> clients;
  std::unordered_map<u32, std::shared_ptr<Server>> servers;
  {
    const MutexLock lock(objectLock_);
    clients.swap(clients_);
    servers.swap(servers_);
  }
  for (const auto& [handle, client] : clients) EndConnections(*client, StopCause::kOwner);
  for (const auto& [handle, server] : servers) {
    server->StopAccepting(0xFFFFFFFFu);
    EndConnections(*server, StopCause::kOwner);
  }
  clients.clear();
  servers.clear();
  workers_.Stop();
  const MutexLock lock(timerLock_);
  timerAt_ = 0;
}

u32 UclManager::NextHandle() noexcept {
  u32 handle = 0;
  while (handle == 0) handle = lastHandle_.fetch_add(1) + 1;
  return handle;
}

void UclManager::AddClient(const std::shared_ptr<Client>& client) {
  const MutexLock lock(objectLock_);
  clients_[client->Handle()] = client;
}

void UclManager::AddServer(const std::shared_ptr<Server>& server) {
  const MutexLock lock(objectLock_);
  servers_[server->Handle()] = server;
}

std::shared_ptr<Client> UclManager::FindClient(u32 handle) {
  const MutexLock lock(objectLock_);
  const auto found = clients_.find(handle);
  return found == clients_.end() ? nullptr : found->second;
}

std::shared_ptr<Server> UclManager::FindServer(u32 handle) {
  const MutexLock lock(objectLock_);
  const auto found = servers_.find(handle);
  return found == servers_.end() ? nullptr : found->second;
}

void UclManager::RemoveClient(u32 handle) {
  const MutexLock lock(objectLock_);
  clients_.erase(handle);
}

void UclManager::RemoveServer(u32 handle) {
  const MutexLock lock(objectLock_);
  servers_.erase(handle);
}

u32 UclManager::NextConnectionId() noexcept {
  u32 id = 0;
  while (id == 0) id = lastConnectionId_.fetch_add(1) + 1;
  return id;
}

void UclManager::AddConnection(const std::shared_ptr<Connection>& connection) {
  const MutexLock lock(connectionLock_);
  connections_[connection->Id()] = connection;
  connection->Owner().ConnectionAdded();
}

void UclManager::RemoveConnection(u32 connectionId) {
  std::shared_ptr<Connection> last;  // destroyed outside the lock
  const MutexLock lock(connectionLock_);
  const auto found = connections_.find(connectionId);
  if (found == connections_.end()) return;
  last = std::move(found->second);
  last->Owner().ConnectionEnded();
  connections_.erase(found);
}

std::shared_ptr<Connection> UclManager::FindConnection(u32 connectionId) {
  const MutexLock lock(connectionLock_);
  const auto found = connections_.find(connectionId);
  return found == connections_.end() ? nullptr : found->second;
}

u32 UclManager::ConnectionCount() {
  const MutexLock lock(connectionLock_);
  return static_cast<u32>(connections_.size());
}

std::vector<std::shared_ptr<Connection>> UclManager::AllConnections() {
  std::vector<std::shared_ptr<Connection>> all;
  const MutexLock lock(connectionLock_);
  all.reserve(connections_.size());
  for (const auto& [id, connection] : connections_) all.push_back(connection);
  return all;
}

void UclManager::EndConnections(const CommObject& object, StopCause cause) {
  std::vector<std::shared_ptr<Connection>> all = AllConnections();
  std::erase_if(all, [&](const auto& connection) { return &connection->Owner() != &object; });
  for (const auto& connection : all) connection->Stop(cause);
  for (const auto& connection : all) connection->WaitUntilSettled();
}

bool UclManager::StartThreads() {
  return workers_.Start(OnEvent);
}

i64 UclManager::NowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void UclManager::RequestTimer(u32 delayMs) {
  const i64 delay = std::max<i64>(delayMs, kLeastTimerMs);
  const i64 at = NowMs() + delay;
  const MutexLock lock(timerLock_);
  if (timerAt_ != 0 && timerAt_ <= at) return;
  timerAt_ = at;
  workers_.Set().SetTimer(static_cast<u32>(delay));
}

void UclManager::OnTimer() {
  {
    const MutexLock lock(timerLock_);
    timerAt_ = 0;
  }
  std::vector<std::shared_ptr<Server>> servers;
  {
    const MutexLock lock(objectLock_);
    for (const auto& [handle, server] : servers_) servers.push_back(server);
  }
  for (const auto& server : servers) server->OnTimer();
  const i64 now = NowMs();
  i64 next = 0;
  for (const auto& connection : AllConnections()) {
    const i64 deadline = connection->CheckDeadlines(now);
    if (deadline != 0 && (next == 0 || deadline < next)) next = deadline;
  }
  if (next != 0) RequestTimer(static_cast<u32>(std::max<i64>(next - now, 0)));
}

void UclManager::OnEvent(const PollEvent& event) {
  UclManager& manager = Get();
  if (event.key == kTimerKey) {
    try {
      manager.OnTimer();
    } catch (const std::bad_alloc&) {  // no deadline is forgotten for it
      manager.RequestTimer(kTimerRetryMs);
    }
    return;
  }
  const u32 id = static_cast<u32>(event.key);
  if (event.key == ListenerKey(id)) {
    if (const auto server = manager.FindServer(id)) server->OnReadable();
    return;
  }
  if (const auto connection = manager.FindConnection(id)) connection->OnEvents(event.events);
}

}  // namespace zn
