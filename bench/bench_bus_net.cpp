// The whole bus between two processes over loopback: calls, changes, first fills, pushes to many,
// idle sessions, connects, the stop; beside what bare sockets do in the same run and the same
// placement. bench/run_net.py runs it and holds the figures against their goals.
// Usage: znbench_bus [--seconds N] [--cores LIST] [row...]
//   --cores   the cores of the server's process and of the client's, "1" or "0,1"; without it the
//             system places both
// A line for each figure: its name, the figure, the processor time for each operation in
// microseconds (0: not measured), separated by tabs.

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/bus_net.h"

namespace zn::bench {
namespace {

void Report(const char* name, double figure, double cost = 0) {
  std::printf("%s\t%.3f\t%.3f\n", name, figure, cost);
  std::fflush(stdout);
}

void Pause(u32 ms) {
  std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

constexpr int kPairs = 5;

// --- Calls -------------------------------------------------------------------------------------

double CallRate(const std::vector<std::unique_ptr<Session>>& sessions) {
  std::vector<ObjectId> things;
  for (const auto& session : sessions) things = session->Objects(kThingType);
  return CallsPerSecond(static_cast<u32>(sessions.size()),
                        [&](u32 i, const std::atomic<bool>& stop, u64* count) {
                          while (!stop) {
                            sessions[i]->Call(things[i % kThings], kNothing, 0);
                            ++*count;
                          }
                        });
}

std::vector<std::unique_ptr<Session>> OpenSessions(const ServerProcess& server, u32 count) {
  std::vector<std::unique_ptr<Session>> sessions;
  for (u32 i = 0; i < count; ++i) sessions.push_back(std::make_unique<Session>(server));
  return sessions;
}

void Calls(u32 callers, const char* name) {
  const ServerProcess server;
  const double rate = CallRate(OpenSessions(server, callers));
  Report(name, rate, lastCost);
}

// The change must stand in the caller's copy when the call returns.
void ChangeCalls() {
  const ServerProcess server;
  const Session session(server);
  const ObjectId thing = session.Objects(kThingType).front();
  u32 number = 0;
  const double rate = CallsPerSecond(1, [&](u32, const std::atomic<bool>& stop, u64* count) {
    while (!stop) {
      session.Call(thing, kSetCount, ++number);
      if (session.CountOf(thing) != number) Fail("the change is not there");
      ++*count;
    }
  });
  Report("ChangeCall", rate, lastCost);
}

void Reads() {
  const ServerProcess server;
  const Session session(server);
  const ObjectId thing = session.Objects(kThingType).front();
  double copy = 0;
  double inProcess = 0;
  const auto readCopy = [&] {
    const double rate = CallsPerSecond(1, [&](u32, const std::atomic<bool>& stop, u64* count) {
      while (!stop) {
        static_cast<void>(session.CountOf(thing));
        ++*count;
      }
    });
    copy = std::max(copy, rate);
    return rate;
  };
  const auto readInProcess = [&] {
    const auto rate = static_cast<double>(server.Do(Task::kReads));
    inProcess = std::max(inProcess, rate);
    return rate;
  };
  const double ratio = MedianRatio(kPairs, readInProcess, readCopy);
  Report("ReadCopy", copy);
  Report("ReadInProcess", inProcess);
  Report("ReadRatio", ratio);
}

// --- First fill --------------------------------------------------------------------------------

constexpr u32 kFill = 100000;

void FirstFill() {
  const ServerProcess server;
  server.Do(Task::kMakeObjects, kFill);
  u64 reply = 0;
  {
    const BareSession session(server.Port());
    const u64 before = server.Do(Task::kResetPeak);
    session.Ask(BareSession::ObjectsOf(kFiveType), &reply);
    const u64 peak = (server.Do(Task::kPeak) - before) * 1024;
    const u64 beyond = peak > reply ? peak - reply : 0;
    Report("FillReplyBytes", static_cast<double>(reply));
    Report("FillMemory", static_cast<double>(beyond) / static_cast<double>(reply));
  }
  double best = 0;
  double cost = 0;
  for (int i = 0; i < 3; ++i) {
    const Session session(server);
    const auto begin = Clock::now();
    const double spent = ProcessorSeconds();
    if (session.Objects(kFiveType).size() != kFill) Fail("objects are missing");
    const double rate = kFill / std::chrono::duration<double>(Clock::now() - begin).count();
    if (rate < best) continue;
    best = rate;
    cost = 1e6 * (ProcessorSeconds() - spent) / kFill;
  }
  Report("FirstFill", best, cost);
}

// --- Pushes ------------------------------------------------------------------------------------

// Messages in a second, `arrived` tells how many came.
double StreamRate(const ServerProcess& server, const std::function<double()>& arrived) {
  Shared().slowest = 0;
  Shared().frames = 0;
  server.Do(Task::kStartStream);
  Pause(200);
  const double first = arrived();
  const auto begin = Clock::now();
  const double spent = ProcessorSeconds();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const double count = arrived() - first;
  const double taken = std::chrono::duration<double>(Clock::now() - begin).count();
  lastCost = 1e6 * (ProcessorSeconds() - spent) / count;
  server.Do(Task::kStopStream);
  return count / taken;
}

double BareRate(u32 stopped) {
  const ServerProcess server;
  const Readers readers(server, kReaders, stopped);
  return StreamRate(server, [] { return static_cast<double>(Shared().frames.load()); });
}

void PushesToBareReaders() {
  double best = 0;
  double cost = 0;
  const auto allRead = [&] {
    const double rate = BareRate(0);
    if (rate > best) cost = lastCost;
    best = std::max(best, rate);
    return rate / kReaders;
  };
  // Of those that read, in changes, so that the two compare.
  const auto oneStopped = [] { return BareRate(1) / (kReaders - 1); };
  const double ratio = MedianRatio(kPairs, allRead, oneStopped);
  Report("Notify50", best, cost);
  Report("NotifyFrameBytes", static_cast<double>(Shared().frameSize.load()));
  Report("StoppedRatio", ratio);
  const double floor = FloorPushes(64, Shared().frameSize.load());
  Report("FloorPushes", floor, lastCost);
}

// The changes of the stream carry their numbers, so a copy tells how far it is.
void PushesToCopies() {
  const ServerProcess server;
  const auto sessions = OpenSessions(server, kReaders);
  for (const auto& session : sessions) session->Objects(kThingType);
  const ObjectId thing = sessions.front()->Objects(kThingType).front();
  std::atomic<bool> stop{false};
  std::atomic<u64> applied{0};
  std::thread watch([&] {
    while (!stop) {
      u64 least = ~u64{0};
      u64 all = 0;
      for (const auto& session : sessions) {
        const u64 count = session->CountOf(thing);
        least = std::min(least, count);
        all += count;
      }
      Shared().slowest = least;
      applied = all;
      std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
  });
  const double rate = StreamRate(server, [&] { return static_cast<double>(applied.load()); });
  Report("NotifyCopies50", rate, lastCost);
  stop = true;
  watch.join();
}

// The end of a single change's way: notes how long it took, in microseconds.
std::vector<double> heardAfter;
void Hear() {
  heardAfter.push_back(static_cast<double>(Nanoseconds() - Shared().stamp.load()) / 1000);
  sem_post(&Shared().heard);
}

double MakeLoneChanges(const ServerProcess& server, u32 rest) {
  heardAfter.clear();
  server.Do(Task::kLoneChanges, rest);
  return Median(heardAfter);
}

// From the change in the server to the byte at an idle socket.
double ToSocket(u32 rest) {
  const ServerProcess server;
  const BareSession session(server.Port());
  std::thread reader([&] {
    std::vector<u8> bytes(64 << 10);
    while (recv(session.Socket(), bytes.data(), bytes.size(), 0) > 0) Hear();
  });
  const double median = MakeLoneChanges(server, rest);
  shutdown(session.Socket(), SHUT_RDWR);
  reader.join();
  return median;
}

u32 HearEvent(const EventRecord*) {
  Hear();
  return ZN_OK;
}

// To the listener of an idle client copy, behind the copy's own change.
double ToListener(u32 rest) {
  const ServerProcess server;
  const Session session(server);
  session.Objects(kThingType);
  ClRegisterInfo info{};
  info.name = u"listener";
  info.callbacks.Event = HearEvent;
  ZnHandle listener = nullptr;
  ZnHandle registration = nullptr;
  ZN_MUST(ClRegisterClient(session.Handle(), 0, &info, &listener));
  ZN_MUST(EvRegisterEvent(session.Database(), listener, "event.keld.dom.object.*.data.change",
                          &registration));
  return MakeLoneChanges(server, rest);
}

// A change right behind the last, as the exchanges of a ping-pong are; and one after a rest that
// lets processors and caches fall asleep, beside a bare exchange after the same rest.
constexpr u32 kRest = 300;
void Latency() {
  Report("FloorExchange", FloorLone(std::chrono::microseconds(0)));
  Report("ChangeToSocket", ToSocket(0));
  Report("ChangeToListener", ToListener(0));
  Report("FloorLone", FloorLone(std::chrono::microseconds(kRest)));
  Report("LoneToSocket", ToSocket(kRest));
  Report("LoneToListener", ToListener(kRest));
}

// --- Many sessions -----------------------------------------------------------------------------

constexpr u32 kIdle = 2000;
constexpr u32 kCopies = 200;

void IdleSessions() {
  const ServerProcess server;
  const auto caller = OpenSessions(server, 1);
  const double alone = CallRate(caller);
  const double before = static_cast<double>(server.Do(Task::kResident));
  const Readers idle(server, kIdle, kIdle);
  const double among = CallRate(caller);
  const double resident = static_cast<double>(server.Do(Task::kResident)) - before;
  Report("IdleBytes", resident * 1024 / kIdle);
  Report("IdleLatency", alone / among);
}

void CopyBytes() {
  const ServerProcess server;
  const auto first = OpenSessions(server, 10);
  const double before = static_cast<double>(ResidentKiB(getpid()));
  const auto sessions = OpenSessions(server, kCopies);
  const double resident = static_cast<double>(ResidentKiB(getpid())) - before;
  Report("CopyBytes", resident * 1024 / kCopies);
}

// Connect, logon, the first requests, and the end.
void Connects() {
  const ServerProcess server;
  const double rate = CallsPerSecond(1, [&](u32, const std::atomic<bool>& stop, u64* count) {
    while (!stop) {
      const Session session(server);
      ++*count;
    }
  });
  Report("Connects", rate, lastCost);
}

void Shutdown() {
  const ServerProcess server;
  const auto sessions = OpenSessions(server, 100);
  Report("Shutdown", static_cast<double>(server.Do(Task::kShutdown)) / 1e6);
}

// --- The rows ----------------------------------------------------------------------------------

void Floor(const char* name, const std::function<double()>& run) {
  const double rate = run();
  Report(name, rate, lastCost);
}

struct Row {
  const char* name;
  void (*run)();
};
constexpr Row kRows[] = {
    {"Copies", CopyBytes},  // while this process has given no memory back that it could use again
    {"FloorPingPong", [] { Floor("FloorPingPong", [] { return FloorPingPong(1); }); }},
    {"FloorHandOvers", [] { Floor("FloorHandOvers", FloorHandOvers); }},
    {"FloorPingPong32", [] { Floor("FloorPingPong32", [] { return FloorPingPong(32); }); }},
    {"FloorEvents32", [] { Floor("FloorEvents32", [] { return FloorEvents(32); }); }},
    {"Call", [] { Calls(1, "Call"); }},
    {"Call32", [] { Calls(32, "Call32"); }},
    {"ChangeCall", ChangeCalls},
    {"Read", Reads},
    {"Fill", FirstFill},
    {"Notify", PushesToBareReaders},
    {"NotifyCopies", PushesToCopies},
    {"Latency", Latency},
    {"Idle", IdleSessions},
    {"Connects", Connects},
    {"Shutdown", Shutdown},
};

void AllowManyFiles() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 16384);
  setrlimit(RLIMIT_NOFILE, &limit);
}

struct Arguments {
  std::vector<std::string> rows;
  std::vector<u32> numbers;  // of a process that another one started
  std::string role;
};

Arguments ReadArguments(int argc, char** argv) {
  Arguments result;
  for (int i = 1; i < argc; ++i) {
    if (TakeOption(argc, argv, &i)) continue;
    const std::string argument = argv[i];
    if (argument == "--serve" || argument == "--read") {
      result.role = argument;
    } else if (!result.role.empty()) {
      result.numbers.push_back(static_cast<u32>(std::stoul(argument)));
    } else {
      result.rows.push_back(argument);
    }
  }
  return result;
}

void RunRows(const std::vector<std::string>& chosen) {
  Pin(1);
  for (const Row& row : kRows) {
    const bool isChosen = std::find(chosen.begin(), chosen.end(), row.name) != chosen.end();
    if (!chosen.empty() && !isChosen) continue;
    ZN_MUST(ClStartup());
    row.run();
    ZN_MUST(ClShutdown());
  }
}

}  // namespace
}  // namespace zn::bench

int main(int argc, char** argv) {
  using namespace zn::bench;
  AllowManyFiles();
  const Arguments arguments = ReadArguments(argc, argv);
  if (arguments.role == "--serve") return ServeBench(arguments.numbers.at(0));
  if (arguments.role == "--read") {
    return ReadBench(arguments.numbers.at(0), arguments.numbers.at(1), arguments.numbers.at(2));
  }
  RunRows(arguments.rows);
  return 0;
}
