// The dispatcher fed with whatever peers may send. The first byte says what the peer is: a
// stranger, one that is logged on, or one that has a cipher and a challenge and tries a logon; the
// rest is one buffer, or several behind each other's lengths. Every answer must be a marshalled
// property set with a result, a stranger must stay one, and nothing may be sent to anybody but in
// answer.
#include <cstdlib>
#include <memory>
#include <string>

#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/znprov/systemprovider.h"
#include "service/common/server.h"
#include "support/common/fastlock.h"
#include "zn/memory.h"

namespace {

using namespace zn;

void Require(bool condition) {
  if (!condition) std::abort();
}

class NoTransport final : public Transport {
 public:
  void Disconnect(u32, u32) override { ++disconnects; }
  void MarkLoggedOn(u32, u32) override { Require(false); }
  void SendRound(const std::vector<UclBuffer>&, std::vector<UclTarget>*) override {}
  u32 disconnects = 0;
};

// Nobody has a password here.
class NoHost final : public LogonHost {
 public:
  [[nodiscard]] bool LogOn(const LogonAttempt&) override { return false; }
  [[nodiscard]] bool IsMember(GroupKind, std::u16string_view, std::u16string_view,
                              std::u16string_view) override {
    return false;
  }
  [[nodiscard]] bool MayLoadDrivers(std::u16string_view, std::u16string_view) override {
    return false;
  }
  void EndDelays() override {}
};

struct World {
  World() {
    Require(StartFramework(0));
    const BusLock lock;
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle) {};
    auto database = std::make_unique<Database>(DB_KEYED, callbacks);
    SetSystemDatabase(database.get());
    DatabaseList().push_back(std::move(database));
    Require(CreateSystemProvider(*ZnGetSystemDatabase(), kSystemProviderName) == ZN_OK);
    server.isReady = true;
    server.allLoaded.Open();
    server.sendsNothing = true;
  }
  NoTransport transport;
  NoHost host;
  ServerObject server{transport, host};
};

// One life for the whole run.
World& TheWorld() {
  static World& world = *new World;
  return world;
}

constexpr u32 kAddress = 1;
constexpr u32 kConnection = 1;

void Send(World& world, const u8* data, size_t size) {
  u32 length = 0;
  void* block = nullptr;
  const u32 status = ZnSendReceive(world.server, static_cast<u32>(size), data, &length, &block,
                                   kAddress, kConnection);
  if (block == nullptr) return;
  PropertySet answer;
  BinaryReader reader(block, length);
  Require(!ZN_FAILED(answer.Unmarshal(reader)) && reader.Left() == 0);
  const Value* result = answer.FindValue("Result", ZN_TYPE_UINT32);
  Require(result != nullptr && result->AsUInt32() == status);
  ZnFree(block);
}

void Prepare(ClientEntry& client, u8 kind) {
  if (kind % 3 == 1) client.state = kClientLoggedOn | kClientAwaitsCache;
  if (kind % 3 != 2) return;
  client.session.encryption = 2;
  client.challenge.assign(512, u8{'c'});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
  if (size < 2) return 0;
  World& world = TheWorld();
  Require(ClientConnected(world.server, "peer", "peer", kAddress, kConnection) == ZN_OK);
  const ClientPtr client = world.server.clients.Find(kAddress, kConnection);
  const u8 kind = data[0];
  Prepare(*client, kind);
  for (size_t at = 1; at + 2 < size;) {
    const size_t wanted = static_cast<size_t>(data[at]) << 8 | data[at + 1];
    at += 2;
    const size_t length = std::min(wanted, size - at);
    Send(world, data + at, length);
    at += length;
  }
  if (kind % 3 != 1) Require(!client->IsLoggedOn());
  ClientDisconnected(world.server, kAddress, kConnection);
  Require(world.server.clients.Count() == 0);
  Require(world.server.connectedClients.Count() == 0);
  return 0;
}
