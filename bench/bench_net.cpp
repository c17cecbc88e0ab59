// The communication layer between two processes over loopback, beside what bare sockets do in the
// same run and the same placement. A program of its own: it forks, and it looks below the exports.
// Usage: znbench_net [--seconds N] [--cores LIST] [row...]
//   --cores   the cores of the child (the server side but for pushes) and of the parent, "0" or
//             "0,1"; without it the system places both
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bench/net_bare.h"
#include "ucl/common/frame.h"
#include "ucl/common/ucl.h"
#include "zn/memory.h"

namespace zn::bench {
namespace {

u32 Echo(u32, u32*, u32*, u32 length, void* data, void** out, u32* outLength, void*) {
  *out = ZnAlloc(length);
  std::memcpy(*out, data, length);
  *outLength = length;
  return 0;
}
u32 Accept(char*, char*, u32*, u32*, u32, void*) {
  return 0;
}
u32 Ignore(u32, u32*, u32*, u32, void*, void**, u32*, void*) {
  return 0;
}

u32 StartServer(u32* handle, u32* port) {
  if (UCLStartup() != 0) Fail("UCLStartup");
  UclServerOptions options;
  options.bindAddress = "127.0.0.1";
  options.freePort = true;
  options.logonTimeoutMs = 0;
  const u32 status = UCLCreateServer(handle, nullptr, Echo, Accept, 0, &options);
  if (status != 0) Fail("UCLCreateServer");
  return UCLGetServerPort(*handle, port);
}

void UclEcho(int tell) {
  u32 server = 0;
  u32 port = 0;
  if (StartServer(&server, &port) != 0) Fail("server");
  Tell(tell, port);
  pause();
}

struct Peer {
  u32 client = 0;
  u32 address = 0;
  u32 id = 0;

  void Open(u32 port) {
    if (UCLCreateClient(&client, nullptr, Ignore, nullptr, port) != 0 ||
        UCLConnect(client, "127.0.0.1", &address, &id) != 0) {
      Fail("UCLConnect");
    }
  }
  void Call() const {
    char bytes[32] = {};
    void* out = nullptr;
    u32 length = 0;
    if (UCLSendRcv(client, 0, address, id, sizeof(bytes), bytes, &length, &out) != 0 ||
        length != sizeof(bytes)) {
      Fail("UCLSendRcv");
    }
    ZnFree(out);
  }
};

// Calls of `callers` while `idle` more connections only stand there; the layer of this process is
// started and ended around it.
double UclPingPong(u32 callers, u32 idle = 0) {
  const Child child(UclEcho);
  const auto port = child.Read<u32>();
  if (UCLStartup() != 0) Fail("UCLStartup");
  std::vector<Peer> peers(callers + idle);
  for (Peer& peer : peers) peer.Open(port);
  for (Peer& peer : peers) peer.Call();
  const double rate =
      CallsPerSecond(callers, [&](u32 i, const std::atomic<bool>& stop, u64* count) {
        while (!stop) {
          peers[i].Call();
          ++*count;
        }
      });
  UCLCleanup();
  return rate;
}

// Bytes resident in the server for each of 2,000 idle connections.
double IdleBytes(u32) {
  constexpr u32 kIdle = 2000;
  const Child child(UclEcho);
  const auto port = child.Read<u32>();
  std::vector<int> sockets;
  for (int i = 0; i < 50; ++i) sockets.push_back(Connect(port));
  usleep(200'000);
  const u64 before = ResidentKiB(child.Id());
  for (u32 i = 0; i < kIdle; ++i) sockets.push_back(Connect(port));
  usleep(500'000);
  const double bytes = static_cast<double>((ResidentKiB(child.Id()) - before) * 1024) / kIdle;
  for (const int fd : sockets) close(fd);
  return bytes;
}

constexpr u32 kPushPayload = 100;
constexpr size_t kPushFrame = kPushPayload + 64;

std::vector<u32> accepted;  // the ids of the readers, in the order of their connects
std::atomic<u32> acceptedCount{0};
u32 NoteAccept(char*, char*, u32*, u32* id, u32 connected, void*) {
  if (connected == 1) {
    accepted.push_back(*id);
    ++acceptedCount;
  }
  return 0;
}

// Frames of 100 bytes to 50 readers, so many in each round.
double Pushes(u32 framesPerRound) {
  if (UCLStartup() != 0) Fail("UCLStartup");
  accepted.clear();
  acceptedCount = 0;
  UclServerOptions options;
  options.bindAddress = "127.0.0.1";
  options.freePort = true;
  options.logonTimeoutMs = 0;
  u32 server = 0;
  u32 port = 0;
  // The child is forked before this process has threads; it waits for the port.
  int ends[2];
  if (pipe(ends) != 0) Fail("pipe");
  const Child child([&](int tell) {
    u32 itsPort = 0;
    if (read(ends[0], &itsPort, sizeof(itsPort)) != sizeof(itsPort)) std::exit(1);
    ReadPushes(tell, itsPort);
  });
  if (UCLCreateServer(&server, nullptr, Ignore, NoteAccept, 0, &options) != 0 ||
      UCLGetServerPort(server, &port) != 0) {
    Fail("server");
  }
  Tell(ends[1], port);
  while (acceptedCount < kReaders) usleep(1000);
  usleep(100'000);
  std::vector<UclTarget> targets;
  for (const u32 id : accepted) targets.push_back({htonl(INADDR_LOOPBACK), id, 0});
  std::vector<UclBuffer> buffers;
  for (u32 i = 0; i < framesPerRound; ++i) {
    buffers.push_back(UCLMakeBuffer(ZnAlloc(kPushPayload), kPushPayload));
  }
  const double bytes = BytesPerSecond(child, kPushFrame, [&] {
    UCLSendRound(server, buffers.data(), framesPerRound, targets.data(), kReaders);
    for (const UclTarget& target : targets) {
      if (target.status == 0) continue;
      std::fprintf(stderr, "a reader was dropped\n");
      std::exit(1);
    }
  });
  UCLCleanup();
  return bytes / static_cast<double>(kPushFrame);
}

struct Row {
  const char* name;
  const char* what;
  std::function<double()> run;
  const char* floor;
};

const Row kRows[] = {
    {"FloorPingPong", "bare exchanges/s, one connection", [] { return FloorPingPong(1); }, nullptr},
    {"PingPong", "calls/s, one caller", [] { return UclPingPong(1); }, "FloorPingPong"},
    {"PingPongIdle", "calls/s, one caller, 2,000 idle connections",
     [] { return UclPingPong(1, 2000); }, "PingPong"},
    {"FloorPingPong32", "bare exchanges/s, 32 connections, a thread for each end",
     [] { return FloorPingPong(32); }, nullptr},
    {"PingPong32", "calls/s, 32 callers on 32 connections", [] { return UclPingPong(32); },
     "FloorPingPong32"},
    {"FloorPushes64", "bare frames/s to 50 readers, 64 per send",
     [] { return FloorPushes(64, kPushFrame); }, nullptr},
    {"Pushes64", "frames/s to 50 readers, 64 per round", [] { return Pushes(64); },
     "FloorPushes64"},
    {"FloorPushes1", "bare frames/s to 50 readers, one per send",
     [] { return FloorPushes(1, kPushFrame); }, nullptr},
    {"Pushes1", "frames/s to 50 readers, one per round", [] { return Pushes(1); }, "FloorPushes1"},
    {"IdleBytes", "bytes resident per idle connection", [] { return IdleBytes(0); }, nullptr},
};

}  // namespace
}  // namespace zn::bench

int main(int argc, char** argv) {
  using namespace zn::bench;
  std::vector<std::string> chosen;
  for (int i = 1; i < argc; ++i) {
    if (!TakeOption(argc, argv, &i)) chosen.emplace_back(argv[i]);
  }
  std::map<std::string, double> results;
  std::map<std::string, double> costs;
  for (const Row& row : kRows) {
    if (!chosen.empty() && std::find(chosen.begin(), chosen.end(), row.name) == chosen.end()) {
      continue;
    }
    lastCost = 0;
    const double rate = row.run();
    results[row.name] = rate;
    costs[row.name] = lastCost;
    std::printf("%-16s %12.0f %9.3f us  %s", row.name, rate, lastCost, row.what);
    if (row.floor != nullptr && results.contains(row.floor)) {
      std::printf("; to %s: rate %.2f, cost %.2f", row.floor, results[row.floor] / rate,
                  lastCost / costs[row.floor]);
    }
    std::printf("\n");
    std::fflush(stdout);
  }
  return 0;
}
