// Start and stop of a server. The start opens the port before the providers load: who connects
// meanwhile waits in the challenge. The stop follows the flow of data: first no more calls, then
// the alert that everybody can still hear, then the threads that tell clients of changes, then the
// connections, then the providers and the databases.
#include <new>

#include "framework/common/znalert/alert.h"
#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/changerecord.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znprov/provider.h"
#include "service/common/broadcast.h"
#include "service/common/server.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/helpers.h"
#include "support/common/shared_memory.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/alert.h"
#include "zn/init.h"
#include "zn/platform.h"
#include "zn/pr.h"
#include "zn/settings.h"
#include "zn/trace.h"

namespace zn {
namespace {

constexpr const ZnWChar* kTraceComponent = u"znmira";
constexpr u32 kTraceSize = 4096;
constexpr u32 kStopPatienceMs = 30000;

// The server of this process, from its start to its stop.
struct RunningServer {
  UclTransport transport;
  ServerObject server{transport, ThisLogonHost()};
  BroadcastListener broadcast{server};
  u32 port = 0;
};

// Made by the first start; never destroyed, since callbacks of the system database may look at it
// until the process ends. Start and stop run one after the other, on threads of the host.
RunningServer* running = nullptr;

// --- Callbacks ---------------------------------------------------------------------------------

u32 OnData(u32 oneWay, u32* address, u32* connectionId, u32 length, void* data, void** outData,
           u32* outLength, void* context) {
  if (oneWay != 0) return ZNE_NOT_IMPLEMENTED;
  return ZnSendReceive(static_cast<RunningServer*>(context)->server, length, data, outLength,
                       outData, *address, *connectionId);
}

u32 OnConnection(char* host, char* hostAgain, u32* address, u32* connectionId, u32 connected,
                 void* context) {
  ServerObject& server = static_cast<RunningServer*>(context)->server;
  if (connected != 0) return ClientConnected(server, host, hostAgain, *address, *connectionId);
  ClientDisconnected(server, *address, *connectionId);
  return ZN_OK;
}

// The round goes out with the last change that is queued just now.
void OnChange(ZnHandle change) {
  if (!IsValidHandle(change, HANDLE_PROPSET)) return;
  NotificationSender& sender = running->server.sender;
  const bool isMarker = sender.ChangeNotify(*HandleThing<PropertySet>(change), true);
  if (isMarker || ChangesUnderWay() <= 1) sender.RunRound();
}

bool OnEvent(const EventRecord* event, u32) {
  return event != nullptr && running->server.sender.EventNotify(*event);
}

bool AnyConnectedClient() {
  return running->server.connectedClients.Count() != 0;
}

// --- Start -------------------------------------------------------------------------------------

[[nodiscard]] u32 StartFrameworkAndLayer() {
  ZN_TRACE(1, "ZnSvc: Initializing framework");
  if (!StartFramework(0)) {
    ZN_TRACE(6, "ZnSvc: Framework initialization failed.");
    return ZNE_UNEXPECTED;
  }
  // Contract: without the communication layer the service runs without a port.
  static_cast<void>(UCLStartup());
  ZN_TRACE(1, "ZnSvc: Framework initialized");
  return ZN_OK;
}

void OpenPort(RunningServer& self) {
  const UclServerOptions options = ToUclOptions(self.server.options);
  u32 handle = 0;
  if (UCLCreateServer(&handle, &self, OnData, OnConnection, self.port, &options) != ZN_OK) {
    ZN_TRACE(6, "BIND FAILED!!!");
    return;
  }
  self.transport.SetServer(handle);
}

void ReadKeepAlive(ServerObject& server) {
  u32 disabled = 0;
  ReadDwordSetting(HkeyMiraRoot(), nullptr, u"DisableKeepAlive", 0, &disabled);
  server.isKeepAliveDisabled = disabled != 0;
  if (!server.isKeepAliveDisabled) server.pingToken.store(CreatePingToken());
}

// A thread that cannot be had makes the result a failure and does not end the start.
void StartThreads(RunningServer& self) {
  if (self.server.sender.Start()) {
    ZN_TRACE(1, "ZnSvc:Send thread created successfully");
  } else {
    ZN_TRACE(6, "ZnSvc:Failed to create send thread");
    self.server.sendsNothing.store(true);
    self.server.serviceIds.EndWaits();
  }
  if (self.broadcast.Start(self.server.options.bindAddress, self.port)) {
    ZN_TRACE(1, "ZnSvc:Broadcast listener thread created successfully");
  } else {
    ZN_TRACE(6, "ZnSvc:Failed to create broadcast listener thread");
  }
}

[[nodiscard]] u32 RaiseServerAlert(const char* topic) noexcept {
  ZnHandle system = nullptr;
  ZN_RETURN_IF_FAILED(PrGetProviderByName(nullptr, kSystemProviderName.data(), &system));
  return ObRaiseAlert(nullptr, system, topic, nullptr, nullptr);
}

[[nodiscard]] u32 StartServer(TraceFlagRow* settings, u32 port, bool noTokenDcom,
                              bool logonBypass) {
  RunningServer& self = *running;
  ServerObject& server = self.server;
  server.noTokenLogon = noTokenDcom;
  server.logonBypass = logonBypass;
  self.port = port == 0 ? kStandardPort : port;
  ZN_RETURN_IF_FAILED(StartFrameworkAndLayer());
  server.traces.Use(settings);
  static_cast<void>(ZnTraceInit(kTraceComponent, kTraceSize, settings));
  ZN_TRACE(1, "ZnSvc:Tracing Initialized successfully");
  server.options = ReadServerOptions();
  static_cast<void>(server.slots.Create(AuthSharedMemoryName(self.port)));
  InitDCOM();
  OpenPort(self);
  SetClientsPresentTest(AnyConnectedClient);
  if (const u32 status = ZnInitialize(1, OnChange, OnEvent, nullptr); ZN_FAILED(status)) {
    ZN_TRACE(6, "ZnSvc:Failed to create System database");
    return status;
  }
  ZN_TRACE(1, "ZnSvc:System database created");
  server.isReady.store(true, std::memory_order_release);
  server.access.Read();
  ReadKeepAlive(server);
  StartThreads(self);
  server.allLoaded.Open();
  // Contract: the alert's result is the start's, whatever became of the threads.
  const u32 status = RaiseServerAlert(kServerStartAlert);
  if (status != ZN_OK) ZN_TRACE(6, "ZnSvc:Failed to raise alert");
  return status;
}

// --- Stop --------------------------------------------------------------------------------------

// Who waits for something that a running server would bring waits for it no longer.
void EndWaits(ServerObject& server) {
  server.serviceIds.EndWaits();
  server.slots.EndWaits();
  server.allLoaded.End();
  server.host.EndDelays();
}

void EndCalls() noexcept {
  const BusLock lock;
  SetShuttingDown(true);
  if (running != nullptr) EndWaits(running->server);
  WaitForCallsToEnd();
}

[[nodiscard]] bool HasSystemDatabase() noexcept {
  const BusLock lock;
  return ZnGetSystemDatabase() != nullptr;
}

// The alert is worth nothing if the threads end before it is heard; a receiver that hangs holds the
// stop up no longer than any other thread does.
void AnnounceShutdown() noexcept {
  if (RaiseServerAlert(kServerShutdownAlert) != ZN_OK) {
    ZN_TRACE(6, "ZnSvc:Failed to raise alert");
    return;
  }
  static_cast<void>(WaitForDelivery(kStopPatienceMs));
}

void StopListening(RunningServer& self) {
  self.server.sender.Stop();
  if (!self.broadcast.Stop(kStopPatienceMs)) {
    ZN_TRACE(6, "Broadcast Thread shutdown timed out");
  }
  if (UCLStopAccepting(self.transport.Server(), kStopPatienceMs) == ZNE_TIMED_OUT) {
    ZN_TRACE(6, "Server Thread shutdown timed out");
  }
}

// The clients that are still there are not told one by one.
void CloseConnections(RunningServer& self) {
  self.server.slots.Release();
  static_cast<void>(UCLCloseServer(self.transport.Server()));
  self.server.clients.Clear();
}

// The access lists go last: until the connections are closed a logon may be reading them.
void StopServer(RunningServer& self) {
  StopListening(self);
  CloseConnections(self);
  self.server.access.Clear();
}

}  // namespace
}  // namespace zn

extern "C" {

u32 InitializeServer(TraceFlagRow* settings, u32 port, u8 noTokenDcom, u8 logonBypass) {
  using namespace zn;
  try {
    if (running != nullptr) return ZNE_UNEXPECTED;
    running = new RunningServer;
    return StartServer(settings, port, noTokenDcom != 0, logonBypass != 0);
  } catch (const std::bad_alloc&) {
    return ZNE_OUT_OF_MEMORY;
  }
}

u32 ShutdownServer(void) {
  using namespace zn;
  EndCalls();
  const bool hasDatabase = HasSystemDatabase();
  if (hasDatabase) AnnounceShutdown();
  if (running != nullptr) StopServer(*running);
  if (hasDatabase) StopFramework(LibraryLife::kEnds);
  if (running != nullptr) static_cast<void>(UCLCleanup());
  SetClientsPresentTest(nullptr);
  ZnTraceClose();
  return ZN_OK;
}

}  // extern "C"
