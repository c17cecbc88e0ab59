// Bare sockets and processes: see the header.
#include "bench/net_bare.h"

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
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <thread>

namespace zn::bench {

double seconds = 2;
double lastCost = 0;
std::vector<int> cores;
std::vector<pid_t> others;

void Fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

bool TakeOption(int argc, char** argv, int* at) {
  const bool isSeconds = std::strcmp(argv[*at], "--seconds") == 0;
  if (!isSeconds && std::strcmp(argv[*at], "--cores") != 0) return false;
  if (++*at == argc) Fail("an option without its value");
  if (isSeconds) {
    seconds = std::atof(argv[*at]);
    return true;
  }
  for (const char* number = argv[*at]; *number != 0; ++number) {
    if (*number >= '0' && *number <= '9') cores.push_back(*number - '0');
  }
  return true;
}

void Pin(size_t which) {
  if (cores.empty()) return;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<size_t>(cores[which % cores.size()]), &set);
  if (sched_setaffinity(0, sizeof(set), &set) != 0) Fail("sched_setaffinity");
}

double ProcessorSeconds() {
  double all = 0;
  const auto add = [&all](clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    all += static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  };
  add(CLOCK_PROCESS_CPUTIME_ID);
  for (const pid_t id : others) {
    clockid_t clock{};
    if (clock_getcpuclockid(id, &clock) == 0) add(clock);
  }
  return all;
}

Child::Child(const std::function<void(int)>& run) {
  int ends[2];
  if (pipe(ends) != 0) Fail("pipe");
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(ends[0]);
    Pin(0);
    run(ends[1]);
    _exit(0);
  }
  others.push_back(pid_);
  close(ends[1]);
  tell_ = ends[0];
  Pin(1);
}

Child::~Child() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  close(tell_);
  std::erase(others, pid_);
}

void Child::ReadBytes(void* to, size_t size) const {
  if (read(tell_, to, size) != static_cast<ssize_t>(size)) Fail("child");
}

void TellBytes(int to, const void* bytes, size_t size) {
  if (write(to, bytes, size) != static_cast<ssize_t>(size)) std::exit(1);
}

void NoDelay(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

int Listen(u32* port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
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
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  name.sin_port = htons(static_cast<u16>(port));
  if (connect(fd, reinterpret_cast<sockaddr*>(&name), sizeof(name)) != 0) Fail("connect");
  NoDelay(fd);
  return fd;
}

u64 ResidentKiB(pid_t id) {
  std::FILE* file = std::fopen(("/proc/" + std::to_string(id) + "/statm").c_str(), "r");
  unsigned long size = 0;
  unsigned long resident = 0;
  if (file == nullptr || std::fscanf(file, "%lu %lu", &size, &resident) != 2) Fail("statm");
  std::fclose(file);
  return resident * static_cast<u64>(sysconf(_SC_PAGESIZE)) / 1024;
}

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

double Median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  return samples[samples.size() / 2];
}

double MedianRatio(int pairs, const std::function<double()>& one,
                   const std::function<double()>& other) {
  std::vector<double> ratios;
  for (int i = 0; i < pairs; ++i) {
    const double first = one();
    ratios.push_back(first / other());
  }
  return Median(std::move(ratios));
}

// --- Ping-pong ---------------------------------------------------------------------------------

namespace {

constexpr size_t kMessage = 96;  // a small request as a frame: 64 bytes around 32

void SendMessage(int fd, const char* bytes) {
  if (send(fd, bytes, kMessage, MSG_NOSIGNAL) != static_cast<ssize_t>(kMessage)) Fail("send");
}
void ReceiveMessage(int fd, char* bytes) {
  if (recv(fd, bytes, kMessage, MSG_WAITALL) != static_cast<ssize_t>(kMessage)) Fail("recv");
}

// One thread per connection, blocking.
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

// One thread for all connections.
void Serve(int set, const std::function<bool(int)>& answer) {
  for (;;) {
    epoll_event events[64];
    const int ready = epoll_wait(set, events, 64, -1);
    for (int i = 0; i < ready; ++i) {
      if (!answer(events[i].data.fd)) return;
    }
  }
}

void Watch(int set, int fd) {
  NoDelay(fd);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  epoll_ctl(set, EPOLL_CTL_ADD, fd, &event);
}

void EventEcho(int tell, u32 connections) {
  u32 port = 0;
  const int listener = Listen(&port);
  Tell(tell, port);
  const int set = epoll_create1(0);
  for (u32 i = 0; i < connections; ++i) Watch(set, accept(listener, nullptr, nullptr));
  char bytes[kMessage];
  Serve(set, [&bytes](int fd) {
    if (recv(fd, bytes, sizeof bytes, MSG_WAITALL) <= 0) return false;
    return send(fd, bytes, sizeof bytes, MSG_NOSIGNAL) > 0;
  });
}

// One thread waits until another lets it go on.
class Gate {
 public:
  void Open() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      isOpen_ = true;
    }
    opened_.notify_one();
  }
  void Pass() {
    std::unique_lock<std::mutex> lock(mutex_);
    opened_.wait(lock, [this] { return isOpen_; });
    isOpen_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool isOpen_ = false;
};

// Reader, worker and writer of one connection are three threads.
void HandOverEcho(int tell) {
  u32 port = 0;
  const int listener = Listen(&port);
  Tell(tell, port);
  const int fd = accept(listener, nullptr, nullptr);
  NoDelay(fd);
  static Gate work;
  static Gate write;
  static char bytes[kMessage];
  std::thread([] {
    for (;;) {
      work.Pass();
      write.Open();
    }
  }).detach();
  std::thread([fd] {
    for (;;) {
      write.Pass();
      if (send(fd, bytes, sizeof(bytes), MSG_NOSIGNAL) <= 0) return;
    }
  }).detach();
  while (recv(fd, bytes, sizeof(bytes), MSG_WAITALL) > 0) work.Open();
}

}  // namespace

double FloorPingPong(u32 connections) {
  const Child child(BareEcho);
  const auto port = child.Read<u32>();
  std::vector<int> sockets(connections);
  for (int& fd : sockets) fd = Connect(port);
  const double rate =
      CallsPerSecond(connections, [&](u32 i, const std::atomic<bool>& stop, u64* count) {
        char bytes[kMessage] = {};
        while (!stop) {
          SendMessage(sockets[i], bytes);
          ReceiveMessage(sockets[i], bytes);
          ++*count;
        }
      });
  for (const int fd : sockets) close(fd);
  return rate;
}

double FloorEvents(u32 connections) {
  const Child child([connections](int tell) { EventEcho(tell, connections); });
  const auto port = child.Read<u32>();
  const int set = epoll_create1(0);
  std::vector<int> sockets(connections);
  for (int& fd : sockets) Watch(set, fd = Connect(port));
  const double rate = CallsPerSecond(1, [&](u32, const std::atomic<bool>& stop, u64* count) {
    char bytes[kMessage] = {};
    for (const int fd : sockets) SendMessage(fd, bytes);
    Serve(set, [&](int fd) {
      ReceiveMessage(fd, bytes);
      ++*count;
      SendMessage(fd, bytes);
      return !stop;
    });
  });
  for (const int fd : sockets) close(fd);
  close(set);
  return rate;
}

double FloorLone(std::chrono::microseconds rest) {
  const Child child(BareEcho);
  const int fd = Connect(child.Read<u32>());
  std::vector<double> samples;
  char bytes[kMessage] = {};
  for (int i = 0; i < kLoneSamples; ++i) {
    if (rest.count() != 0) std::this_thread::sleep_for(rest);
    const auto begin = Clock::now();
    SendMessage(fd, bytes);
    ReceiveMessage(fd, bytes);
    samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
  }
  close(fd);
  return Median(std::move(samples));
}

double FloorHandOvers() {
  const Child child(HandOverEcho);
  const int fd = Connect(child.Read<u32>());
  Gate write;
  Gate answered;
  std::atomic<bool> ends{false};
  std::thread writer([&] {
    const char bytes[kMessage] = {};
    for (write.Pass(); !ends; write.Pass()) SendMessage(fd, bytes);
  });
  std::thread reader([&] {
    char bytes[kMessage];
    while (recv(fd, bytes, sizeof(bytes), MSG_WAITALL) > 0) answered.Open();
  });
  const double rate = CallsPerSecond(1, [&](u32, const std::atomic<bool>& stop, u64* count) {
    while (!stop) {
      write.Open();
      answered.Pass();
      ++*count;
    }
  });
  ends = true;
  write.Open();
  writer.join();
  shutdown(fd, SHUT_RDWR);
  reader.join();
  close(fd);
  return rate;
}

// --- Pushes ------------------------------------------------------------------------------------

// It tells the count of bytes of each quarter of a second.
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

double BytesPerSecond(const Child& child, size_t frameSize, const std::function<void()>& send) {
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
             static_cast<double>(frameSize);
  stop = true;
  sender.join();
  return static_cast<double>(last - first) / taken;
}

double FloorPushes(u32 framesPerSend, size_t frameSize) {
  u32 port = 0;
  const int listener = Listen(&port);
  const Child child([&](int tell) { ReadPushes(tell, port); });
  std::vector<int> sockets(kReaders);
  for (int& fd : sockets) {
    fd = accept(listener, nullptr, nullptr);
    NoDelay(fd);
  }
  const std::vector<char> bytes(frameSize * framesPerSend);
  const double rate = BytesPerSecond(child, frameSize, [&] {
    for (const int fd : sockets) {
      if (send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) Fail("send");
    }
  });
  for (const int fd : sockets) close(fd);
  close(listener);
  return rate / static_cast<double>(frameSize);
}

}  // namespace zn::bench
