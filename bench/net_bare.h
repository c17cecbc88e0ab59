// Bare sockets and bare processes: what the benchmarks of the network are held against, and the
// pieces that they share. Nothing here knows of the library.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

#include "zn/types.h"

namespace zn::bench {

using Clock = std::chrono::steady_clock;

// How long a rate is measured.
extern double seconds;
// Processor time of all processes of the last rate for each operation, in microseconds; it says
// more than the rate on a machine that others use too. 0: not measured.
extern double lastCost;
// The core of each process by its number, the first again behind the last; empty: the system
// places all.
extern std::vector<int> cores;
// The processes whose time counts besides this one's.
extern std::vector<pid_t> others;

[[noreturn]] void Fail(const char* what);
// Reads `--seconds N` or `--cores LIST` at argv[*at], which is then the last word of it.
bool TakeOption(int argc, char** argv, int* at);
void Pin(size_t which);
[[nodiscard]] double ProcessorSeconds();

// A child process, forked, that tells values through a pipe and ends with its parent.
class Child {
 public:
  explicit Child(const std::function<void(int)>& run);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  template <typename T>
  T Read() const {
    T value{};
    ReadBytes(&value, sizeof value);
    return value;
  }
  [[nodiscard]] pid_t Id() const { return pid_; }

 private:
  void ReadBytes(void* to, size_t size) const;
  pid_t pid_;
  int tell_;
};

void TellBytes(int to, const void* bytes, size_t size);
template <typename T>
void Tell(int to, T value) {
  TellBytes(to, &value, sizeof value);
}

void NoDelay(int fd);
int Listen(u32* port);
int Connect(u32 port);
[[nodiscard]] u64 ResidentKiB(pid_t id);

// So many threads do something again and again until the time is over; how often in a second.
double CallsPerSecond(u32 threads,
                      const std::function<void(u32, const std::atomic<bool>&, u64*)>& run);
// Half of the samples are below it.
[[nodiscard]] double Median(std::vector<double> samples);
// Of so many pairs of runs, one after the other: the machine that others use is as slow for both.
[[nodiscard]] double MedianRatio(int pairs, const std::function<double()>& one,
                                 const std::function<double()>& other);

// Exchanges in a second of small messages, one send each, a thread for each end of each connection.
double FloorPingPong(u32 connections);
// The same, but one thread at each end serves all that are ready: the most a bare program can do.
double FloorEvents(u32 connections);
// How long a single exchange takes, in microseconds, when both ends have rested so long before it.
constexpr int kLoneSamples = 1000;
double FloorLone(std::chrono::microseconds rest);
// The same over one connection, each message handed from thread to thread twice on each side.
double FloorHandOvers();
// Frames in a second to 50 readers in another process, so many of that size in each send.
constexpr u32 kReaders = 50;
double FloorPushes(u32 framesPerSend, size_t frameSize);
// Bytes in a second that arrive at the readers while `send` runs again and again.
double BytesPerSecond(const Child& child, size_t frameSize, const std::function<void()>& send);
// The readers' process.
void ReadPushes(int tell, u32 port);

}  // namespace zn::bench
