// The communication layer between two processes over loopback, beside what bare sockets do in the
// same run and the same placement. A program of its own: it forks, and it looks below the exports.
// Usage: znbench_net [--seconds N] [--cores LIST] [row...]
//   --cores   the cores of the child (the server side but for pushes) and of the parent, "0" or
//             "0,1"; without it the system places both
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "ucl/common/frame.h"
#include "ucl/common/ucl.h"
#include "zn/memory.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds = 2;
pid_t currentChild = 0;
// Processor time of both processes for each operation of the last row, in microseconds; it says
// more than the rate on a machine that others use too. 0: not measured.
double lastCost = 0;
std::vector<int> cores;

[[noreturn]] void Fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void Pin(size_t which) {
  if (cores.empty()) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<size_t>(cores[which % cores.size()]), &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) Fail("sched_setaffinity");
}

// A child process that tells its port through a pipe and ends with its parent.
class Child {
 public:
  explicit Child(const std::function<void(int)>& run) {
    int ends[2];
    if (pipe(ends) != 0) Fail("pipe");
    pid_ = fork();
    currentChild = pid_;
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(ends[0]);
      Pin(0);
      run(ends[1]);
      _exit(0);
    }
    close(ends[1]);
    tell_ = ends[0];
    Pin(1);
  }
  ~Child() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(tell_);
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  template <typename T>
  T Read() const {
    T value{};
    if (read(tell_, &value, sizeof(value)) != sizeof(value)) Fail("child");
    return value;
  }
  [[nodiscard]] pid_t Id() const { return pid_; }

 private:
  pid_t pid_;
  int tell_;
};

template <typename T>
void Tell(int to, T value) {
  if (write(to, &value, sizeof(value)) != sizeof(value)) std::exit(1);
}

void NoDelay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

int Listen(u32* port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(name);
  if (bind(fd, reinterpret_cast<sockaddr*>(&name), size) != 0 || listen(fd, 1000) != 0) {
    Fail("listen");
  }
  getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size);
  *port = ntohs(name.sin_port);
  return fd;
}

int Connect(u32 port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  name.sin_port = htons(static_cast<u16>(port));
  if (connect(fd, reinterpret_cast<sockaddr*>(&name), sizeof(name)) != 0) Fail("connect");
  NoDelay(fd);
  return fd;
}

double ProcessorSeconds() {
  double all = 0;
  clockid_t childClock{};
  if (clock_getcpuclockid(currentChild, &childClock) != 0) Fail("clock_getcpuclockid");
  for (const clockid_t clock : {childClock, clockid_t{CLOCK_PROCESS_CPUTIME_ID}}) {
    timespec time{};
    clock_gettime(clock, &time);
    all += static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }
  return all;
}

// So many threads call until the time is over; calls per second.
double CallsPerSecond(u32 threads,
                      const std::function<void(u32, const std::atomic<bool>&, u64*)>& run) {
  std::atomic<bool> stop{false};
  std::vector<u64> counts(threads * 8);  // a cache line for each
  std::vector<std::thread> running;
  const auto begin = Clock::now();
  const double spent = ProcessorSeconds();
  for (u32 i = 0; i < threads; ++i) {
    running.emplace_back([&, i] { run(i, stop, &counts[i * 8]); });
  }
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  stop = true;
  u64 all = 0;
  for (u32 i = 0; i < threads; ++i) {
    running[i].join();
    all += counts[i * 8];
  }
  lastCost = 1e6 * (ProcessorSeconds() - spent) / static_cast<double>(all);
  return static_cast<double>(all) / std::chrono::duration<double>(Clock::now() - begin).count();
}

constexpr size_t kMessage = 96;  // an empty request as a frame: 64 bytes around 32

// A bare server: one thread per connection, blocking; the floor of a ping-pong.
void BareEcho(int tell) {
  u32 port = 0;
  const int listener = Listen(&port);
  Tell(tell, port);
  for (;;) {
    const int fd = accept(listener, nullptr, nullptr);
    NoDelay(fd);
    std::thread([fd] {
      char bytes[kMessage];
      for (;;) {
        const ssize_t got = recv(fd, bytes, sizeof(bytes), 0);
        if (got <= 0 || send(fd, bytes, static_cast<size_t>(got), MSG_NOSIGNAL) != got) return;
      }
    }).detach();
  }
}

double FloorPingPong(u32 connections) {
  const Child child(BareEcho);
  const auto port = child.Read<u32>();
  std::vector<int> sockets(connections);
  for (int& fd : sockets) fd = Connect(port);
  return CallsPerSecond(connections, [&](u32 i, const std::atomic<bool>& stop, u64* count) {
    char bytes[kMessage] = {};
    while (!stop) {
      if (send(sockets[i], bytes, sizeof(bytes), MSG_NOSIGNAL) != sizeof(bytes)) Fail("send");
      if (recv(sockets[i], bytes, sizeof(bytes), MSG_WAITALL) != sizeof(bytes)) Fail("recv");
      ++*count;
    }
  });
}

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
  if (zn::UCLStartup() != 0) Fail("UCLStartup");
  zn::UclServerOptions options;
  options.bindAddress = "127.0.0.1";
  options.freePort = true;
  options.logonTimeoutMs = 0;
  const u32 status = zn::UCLCreateServer(handle, nullptr, Echo, Accept, 0, &options);
  if (status != 0) Fail("UCLCreateServer");
  return zn::UCLGetServerPort(*handle, port);
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
    if (zn::UCLCreateClient(&client, nullptr, Ignore, nullptr, port) != 0 ||
        zn::UCLConnect(client, "127.0.0.1", &address, &id) != 0) {
      Fail("UCLConnect");
    }
  }
  void Call() const {
    char bytes[32] = {};
    void* out = nullptr;
    u32 length = 0;
    if (zn::UCLSendRcv(client, 0, address, id, sizeof(bytes), bytes, &length, &out) != 0 ||
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
  if (zn::UCLStartup() != 0) Fail("UCLStartup");
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
  zn::UCLCleanup();
  return rate;
}

u64 ResidentKiB(pid_t id) {
  std::FILE* file = std::fopen(("/proc/" + std::to_string(id) + "/statm").c_str(), "r");
  unsigned long size = 0;
  unsigned long resident = 0;
  if (file == nullptr || std::fscanf(file, "%lu %lu", &size, &resident) != 2) Fail("statm");
  std::fclose(file);
  return resident * static_cast<u64>(sysconf(_SC_PAGESIZE)) / 1024;
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

constexpr u32 kReaders = 50;
constexpr u32 kPushPayload = 100;
constexpr size_t kPushFrame = kPushPayload + 64;

// The child: bare readers that count bytes; it tells the count of each quarter of a second.
void ReadPushes(int tell, u32 port) {
  const int set = epoll_create1(0);
  for (u32 i = 0; i < kReaders; ++i) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = Connect(port);
    epoll_ctl(set, EPOLL_CTL_ADD, event.data.fd, &event);
  }
  std::vector<char> bytes(256 << 10);
  u64 count = 0;
  auto next = Clock::now() + std::chrono::milliseconds(250);
  for (;;) {
    epoll_event events[kReaders];
    const int ready = epoll_wait(set, events, kReaders, 100);
    for (int i = 0; i < ready; ++i) {
      const ssize_t got = recv(events[i].data.fd, bytes.data(), bytes.size(), 0);
      if (got > 0) count += static_cast<u64>(got);
    }
    if (Clock::now() < next) continue;
    next += std::chrono::milliseconds(250);
    Tell(tell, count);
  }
}

// Bytes per second that arrive at the readers while `send` runs again and again.
double BytesPerSecond(const Child& child, const std::function<void()>& send) {
  std::atomic<bool> stop{false};
  std::thread sender([&] {
    while (!stop) send();
  });
  static_cast<void>(child.Read<u64>());
  const u64 first = child.Read<u64>();
  const auto begin = Clock::now();
  const double spent = ProcessorSeconds();
  u64 last = first;
  double taken = 0;
  while (taken < seconds) {
    last = child.Read<u64>();
    taken = std::chrono::duration<double>(Clock::now() - begin).count();
  }
  lastCost = 1e6 * (ProcessorSeconds() - spent) / static_cast<double>(last - first) *
             static_cast<double>(kPushFrame);
  stop = true;
  sender.join();
  return static_cast<double>(last - first) / taken;
}

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
  if (zn::UCLStartup() != 0) Fail("UCLStartup");
  accepted.clear();
  acceptedCount = 0;
  zn::UclServerOptions options;
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
  if (zn::UCLCreateServer(&server, nullptr, Ignore, NoteAccept, 0, &options) != 0 ||
      zn::UCLGetServerPort(server, &port) != 0) {
    Fail("server");
  }
  Tell(ends[1], port);
  while (acceptedCount < kReaders) usleep(1000);
  usleep(100'000);
  std::vector<zn::UclTarget> targets;
  for (const u32 id : accepted) targets.push_back({htonl(INADDR_LOOPBACK), id, 0});
  std::vector<zn::UclBuffer> buffers;
  for (u32 i = 0; i < framesPerRound; ++i) {
    buffers.push_back(zn::UCLMakeBuffer(ZnAlloc(kPushPayload), kPushPayload));
  }
  const double bytes = BytesPerSecond(child, [&] {
    zn::UCLSendRound(server, buffers.data(), framesPerRound, targets.data(), kReaders);
    for (const zn::UclTarget& target : targets) {
      if (target.status == 0) continue;
      std::fprintf(stderr, "a reader was dropped\n");
      std::exit(1);
    }
  });
  zn::UCLCleanup();
  return bytes / static_cast<double>(kPushFrame);
}

// The same bytes by one blocking send to each of the readers: what the sockets carry.
double FloorPushes(u32 framesPerRound) {
  u32 port = 0;
  const int listener = Listen(&port);
  const Child child([&](int tell) { ReadPushes(tell, port); });
  std::vector<int> sockets(kReaders);
  for (int& fd : sockets) {
    fd = accept(listener, nullptr, nullptr);
    NoDelay(fd);
  }
  const std::vector<char> bytes(kPushFrame * framesPerRound);
  const double rate = BytesPerSecond(child, [&] {
    for (const int fd : sockets) {
      if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) Fail("send");
    }
  });
  for (const int fd : sockets) close(fd);
  close(listener);
  return rate / static_cast<double>(kPushFrame);
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
    {"FloorPushes64", "bare frames/s to 50 readers, 64 per send", [] { return FloorPushes(64); },
     nullptr},
    {"Pushes64", "frames/s to 50 readers, 64 per round", [] { return Pushes(64); },
     "FloorPushes64"},
    {"FloorPushes1", "bare frames/s to 50 readers, one per send", [] { return FloorPushes(1); },
     nullptr},
    {"Pushes1", "frames/s to 50 readers, one per round", [] { return Pushes(1); }, "FloorPushes1"},
    {"IdleBytes", "bytes resident per idle connection", [] { return IdleBytes(0); }, nullptr},
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> chosen;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--seconds" && i + 1 < argc) {
      seconds = std::atof(argv[++i]);
    } else if (argument == "--cores" && i + 1 < argc) {
      for (const char* at = argv[++i]; *at != 0; ++at) {
        if (*at >= '0' && *at <= '9') cores.push_back(*at - '0');
      }
    } else {
      chosen.push_back(argument);
    }
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
