// The whole bus between processes: the server that the benchmark starts, the sessions that it opens
// on it, and the processes that only read.
#pragma once

#include <semaphore.h>
#include <sys/types.h>

#include <atomic>
#include <string>
#include <vector>

#include "bench/bench_bus.h"
#include "bench/net_bare.h"
#include "framework/common/znpropset/propertyset.h"
#include "zn/znmira.h"

namespace zn::bench {

// Objects with one property of their own, "Count", of which a server has so many. Of kFiveType it
// makes as many as it is told.
inline constexpr const char* kThingType = "Bench_Thing";
inline constexpr u32 kThings = 64;
inline constexpr GUID kInterface = {0x51A3C0DE, 0x71F2, 0x4B11, {0x9C, 0x44, 1, 2, 3, 4, 5, 6}};
inline constexpr u32 kNothing = 1;   // major code: a call that changes nothing
inline constexpr u32 kSetCount = 2;  // the minor code becomes the object's "Count"

// What the processes of one run share.
struct Counters {
  std::atomic<u64> slowest{0};  // messages that every reader has got
  std::atomic<u64> frames{0};   // that all readers have got together
  std::atomic<u64> frameSize{0};
  std::atomic<u64> made{0};   // changes of the stream
  std::atomic<u64> stamp{0};  // when the last single change was made, in nanoseconds
  sem_t heard;                // posted by who has heard of it
};
// Made by the first process, found by the others through the environment.
Counters& Shared();
[[nodiscard]] u64 Nanoseconds();

// What a server does for the benchmark, and what it answers.
enum class Task : u32 {
  kMakeObjects,  // of kFiveType; 0
  kStartStream,  // changes of things, no more than the window ahead of the slowest reader; 0
  kStopStream,   // 0
  kLoneChanges,  // with the stamp, each when the last was heard of and so many microseconds more; 0
  kReads,        // reads of a property in the server's process, in a second
  kResetPeak,    // of the resident memory; the resident KiB
  kPeak,         // KiB
  kResident,     // KiB
  kShutdown,     // ends; how long ShutdownServer took, in microseconds
};
struct Command {
  Task task;
  u32 number;
};
inline constexpr u32 kLoneChanges = 1000;
inline constexpr u32 kWindow = 512;  // changes of a stream that are under way

// The main functions of the other processes. They read commands and tell results through the
// standard input and output.
int ServeBench(u32 port);
int ReadBench(u32 port, u32 sessions, u32 stopped);

// Another process of this program.
class Process {
 public:
  // Waits until it tells that it is ready.
  explicit Process(std::vector<std::string> arguments);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  [[nodiscard]] pid_t Id() const { return pid_; }
  u64 Do(Task task, u32 number = 0) const;

 private:
  [[nodiscard]] u64 Read() const;
  pid_t pid_ = 0;
  int ask_ = -1;
  int tell_ = -1;
};

class ServerProcess : public Process {
 public:
  explicit ServerProcess(u32 port = FreePort())
      : Process({"--serve", std::to_string(port)}), port_(port) {}
  [[nodiscard]] u32 Port() const { return port_; }

 private:
  static u32 FreePort();
  u32 port_;
};

// A process of bare sessions; the first `stopped` of them never read.
class Readers : public Process {
 public:
  Readers(const ServerProcess& server, u32 sessions, u32 stopped)
      : Process({"--read", std::to_string(server.Port()), std::to_string(sessions),
                 std::to_string(stopped)}) {}
};

// A session that is a socket and nothing else: logged on, and told of changes.
class BareSession {
 public:
  explicit BareSession(u32 port);
  ~BareSession();
  BareSession(const BareSession&) = delete;
  BareSession& operator=(const BareSession&) = delete;
  [[nodiscard]] int Socket() const { return fd_; }
  // Sends a message and waits for its answer, which is returned; its bytes are counted.
  PropertySet Ask(const PropertySet& message, u64* bytes = nullptr) const;
  [[nodiscard]] static PropertySet ObjectsOf(const char* type);

 private:
  void LogOn();
  int fd_;
};

// A session of the library, logged on.
class Session {
 public:
  explicit Session(const ServerProcess& server);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  [[nodiscard]] ZnHandle Database() const { return database_; }
  [[nodiscard]] ClientHandle* Handle() const { return handle_; }
  std::vector<ObjectId> Objects(const char* type) const;
  // "Count" of an object as the copy has it.
  [[nodiscard]] u32 CountOf(const ObjectId& id) const;
  void Call(const ObjectId& id, u32 majorCode, u32 minorCode) const;

 private:
  ClientHandle* handle_ = nullptr;
  ZnHandle database_ = nullptr;
  ZnHandle in_ = nullptr;
  ZnHandle out_ = nullptr;
};

}  // namespace zn::bench
