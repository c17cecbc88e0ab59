// The server's process: the bus with a provider of its own, started on a port, and what it is told
// to do through its standard input.
#include "bench/bus_net.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace zn::bench {

namespace {

ZnHandle provider;
std::vector<ObjectId> things;

u32 SetCount(const ObjectId& id, u32 count) {
  const Property2 property = UInt32Property("Count", &count);
  return ObSetProperty(nullptr, id, &property);
}

u32 OnCall(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle, ZnHandle, u32, u32, void*,
           TaskCallback, const GUID*, const ObjectId*, ZnHandle*) {
  return majorCode == kSetCount ? SetCount(id, minorCode) : ZN_OK;
}
u32 OnInitialize(ZnHandle, ZnHandle, u32, u32) {
  return ZN_OK;
}
u32 OnEvent(const EventRecord*) {
  return ZN_OK;
}

void MakeType(const char* name, const std::vector<Property2>& properties) {
  ZnHandle set = nullptr;
  ZN_MUST(PsCreatePropset(&set));
  for (const Property2& property : properties) ZN_MUST(PsAddProperty(set, &property));
  ObjectId id;
  ZN_MUST(ObCreateTypeObject(nullptr, name, nullptr, set, &id));
  ZN_MUST(PsDestroyPropset(set));
}

void StartServer(u32 port) {
  const std::filesystem::path folder = "/tmp/znbench-" + std::to_string(getpid());
  std::filesystem::create_directory(folder);
  const std::string settings = folder / "settings.toml";
  std::ofstream(settings) << "InstallDir = \"" << folder.string()
                          << "\"\nBindAddress = \"127.0.0.1\"\n[Providers]\n[ProviderGroup]\n";
  setenv("ZN_SETTINGS", settings.c_str(), 1);
  ZN_MUST(InitializeServer(nullptr, port, 0, 1));
  const ProviderCallbacks callbacks{OnCall, OnInitialize, nullptr, nullptr, OnEvent, nullptr};
  ZN_MUST(PrCreateProvider(nullptr, u"bench", &callbacks, &provider));
  u32 count = 0;
  i64 total = 0;
  char label[] = "";
  const Property2 countProperty = UInt32Property("Count", &count);
  MakeType(kThingType, {countProperty});
  MakeType(kFiveType, {countProperty,
                       {const_cast<char*>("Total"), ZN_TYPE_INT64, 0, 8, &total},
                       {const_cast<char*>("Label"), ZN_TYPE_STRING, 0, 1, label}});
  ZN_MUST(ObRegisterInterfaceOnType(nullptr, kThingType, provider, &kInterface));
  things.resize(kThings);
  for (ObjectId& id : things) ZN_MUST(ObCreateObject(nullptr, provider, kThingType, &id));
  std::filesystem::remove_all(folder);
}

u64 MakeObjects(u32 number) {
  ObjectId id;
  for (u32 i = 0; i < number; ++i) ZN_MUST(ObCreateObject(nullptr, provider, kFiveType, &id));
  return 0;
}

// A thread that changes one thing after the other; the count of each change is its number.
class Stream {
 public:
  Stream() : thread_([this] { Run(); }) {}
  ~Stream() {
    stop_ = true;
    thread_.join();
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

 private:
  void Run() {
    Counters& shared = Shared();
    u64 made = 0;
    while (!stop_) {
      if (made >= shared.slowest.load() + kWindow) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        continue;
      }
      ++made;
      ZN_MUST(SetCount(things[made % kThings], static_cast<u32>(made)));
      shared.made = made;
    }
  }
  std::atomic<bool> stop_{false};
  std::thread thread_;
};
std::unique_ptr<Stream> stream;

u64 LoneChanges(std::chrono::microseconds rest) {
  for (u32 i = 0; i < kLoneChanges; ++i) {
    if (rest.count() != 0) std::this_thread::sleep_for(rest);
    Shared().stamp = Nanoseconds();
    ZN_MUST(SetCount(things[0], i + 1));
    if (sem_wait(&Shared().heard) != 0) Fail("sem_wait");
  }
  return 0;
}

u64 ReadsPerSecond() {
  const double rate = CallsPerSecond(1, [](u32, const std::atomic<bool>& stop, u64* count) {
    while (!stop) {
      Property2* property = nullptr;
      ZN_MUST(ObGetProperty(nullptr, things[0], "Count", &property));
      PsFreeProperty(property);
      ++*count;
    }
  });
  return static_cast<u64>(rate);
}

u64 PeakKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoull(line.substr(6));
  }
  return 0;
}

u64 ResetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
  return ResidentKiB(getpid());
}

u64 Shutdown() {
  const u64 begin = Nanoseconds();
  ZN_MUST(ShutdownServer());
  return (Nanoseconds() - begin) / 1000;
}

u64 DoTask(const Command& command) {
  switch (command.task) {
    case Task::kMakeObjects:
      return MakeObjects(command.number);
    case Task::kStartStream:
      stream = std::make_unique<Stream>();
      return 0;
    case Task::kStopStream:
      stream.reset();
      return 0;
    case Task::kLoneChanges:
      return LoneChanges(std::chrono::microseconds(command.number));
    case Task::kReads:
      return ReadsPerSecond();
    case Task::kResetPeak:
      return ResetPeak();
    case Task::kPeak:
      return PeakKiB();
    case Task::kResident:
      return ResidentKiB(getpid());
    case Task::kShutdown:
      return Shutdown();
  }
  return 0;
}

}  // namespace

int ServeBench(u32 port) {
  StartServer(port);
  Tell<u64>(STDOUT_FILENO, 0);
  Command command{};
  while (read(STDIN_FILENO, &command, sizeof command) == sizeof command) {
    Tell(STDOUT_FILENO, DoTask(command));
    if (command.task == Task::kShutdown) break;
  }
  _exit(0);
}

}  // namespace zn::bench
