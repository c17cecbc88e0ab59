// What the provider knows of a machine, and the seam behind which it is read. MachineState is plain
// data: one struct per kind of thing. A Machine fills it: the live one from libudev, libmount,
// libnl-route, /proc and /sys, the recorded one from files of a tree below a root folder. Both
// share the readers of /proc and /sys. A Machine belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace hostinv {

struct HostState {
  std::string name;
  std::string operatingSystem;
  std::string kernel;
  std::string architecture;
  std::int64_t bootTime = 0;  // seconds since 1970, as the C library counts
  std::uint64_t uptimeSeconds = 0;
  std::uint32_t load1Percent = 0;  // 100 is one processor's worth of runnable work
  std::uint32_t load5Percent = 0;
  std::uint32_t load15Percent = 0;
};

struct ProcessorState {
  std::uint32_t index = 0;
  std::string vendor;
  std::string model;
  std::uint32_t cores = 0;  // of the package this processor belongs to
  std::uint32_t frequencyMHz = 0;
  std::uint32_t usePercent = 0;  // between the last two samples; before that since boot
  std::uint64_t busyTicks = 0;
  std::uint64_t totalTicks = 0;
};

struct MemoryState {
  std::uint64_t total = 0;  // all in bytes
  std::uint64_t available = 0;
  std::uint64_t swapTotal = 0;
  std::uint64_t swapFree = 0;
};

// Counters of a disk or partition since boot.
struct IoCounters {
  std::uint64_t reads = 0;
  std::uint64_t readBytes = 0;
  std::uint64_t writes = 0;
  std::uint64_t writtenBytes = 0;
  std::uint64_t ioTimeMs = 0;
};

// A disk or a partition: partitions are those with a disk to belong to.
struct BlockState {
  std::string name;                // the kernel's: "sda1"
  std::string mapName;             // the device mapper's: "vg-root", else empty
  std::string number;              // "8:1", as mountinfo names devices
  std::string disk;                // name of the disk a partition belongs to, else empty
  std::vector<std::string> parts;  // names of the devices that a composed disk is made of
  std::string model;
  std::string serial;
  std::string label;
  std::string uuid;
  std::uint32_t partitionNumber = 0;
  std::uint64_t startByte = 0;
  std::uint64_t size = 0;
  bool rotational = false;
  bool removable = false;
  bool readOnly = false;
  IoCounters io;
};

struct FileSystemState {
  std::string source;      // as mounted: "/dev/sda1", "server:/export", "overlay"
  std::string number;      // "8:1"
  std::string mountPoint;  // the exact bytes
  std::string type;
  std::uint64_t size = 0;
  std::uint64_t used = 0;
  std::uint64_t free = 0;  // to users without privileges
  bool readOnly = false;
  bool sampled = true;  // false where asking for the size may block for ever
};

struct TrafficCounters {
  std::uint64_t receivedBytes = 0;
  std::uint64_t receivedPackets = 0;
  std::uint64_t receiveErrors = 0;
  std::uint64_t receiveDropped = 0;
  std::uint64_t sentBytes = 0;
  std::uint64_t sentPackets = 0;
  std::uint64_t sendErrors = 0;
  std::uint64_t sendDropped = 0;
};

struct InterfaceState {
  std::string name;
  std::string mac;
  std::vector<std::string> addresses;  // "192.0.2.1/24", sorted
  std::string linkState;               // the kernel's word: "up", "down", "unknown" ...
  std::string master;                  // bond or bridge it belongs to, else empty
  std::uint32_t index = 0;
  std::uint32_t mtu = 0;
  std::uint32_t speedMbit = 0;  // 0 where unknown
  TrafficCounters traffic;
};

struct MachineState {
  HostState host;
  std::vector<ProcessorState> processors;
  MemoryState memory;
  std::vector<BlockState> blocks;
  std::vector<FileSystemState> fileSystems;
  std::vector<InterfaceState> interfaces;
};

// Which things of a machine appeared, vanished or changed their nature: a set of bits.
using Parts = unsigned;
inline constexpr Parts kPartBlocks = 1;
inline constexpr Parts kPartFileSystems = 2;
inline constexpr Parts kPartInterfaces = 4;
inline constexpr Parts kPartProcessors = 8;
inline constexpr Parts kAllParts = 15;

// A descriptor that tells of changes, with the poll events that mean one.
struct Watch {
  int fd = -1;
  short events = 0;
};

class Machine {
 public:
  virtual ~Machine() = default;
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // Reads the named parts anew, then samples everything. Things that cannot be read are left out.
  void Scan(Parts parts, MachineState* state);
  // Brings figures up to date: loads, counters, sizes. Adds and removes nothing.
  void Sample(MachineState* state);

  // Descriptors to poll; none where the machine does not move. They stay open as long as this.
  virtual std::vector<Watch> Watches() const { return {}; }
  // Empties a descriptor that poll has reported and tells what to scan, 0 for nothing.
  virtual Parts Drain(int /*fd*/) { return 0; }

 protected:
  explicit Machine(std::string root) : root_(std::move(root)) {}

  const std::string& Root() const { return root_; }

  virtual std::vector<BlockState> ReadBlocks() = 0;
  virtual std::vector<InterfaceState> ReadInterfaces() = 0;
  virtual void SampleFileSystems(std::vector<FileSystemState>* fileSystems) = 0;
  virtual void SampleInterfaces(std::vector<InterfaceState>* interfaces) = 0;

 private:
  std::string root_;
};

// The machine this process runs on, or null where its netlink socket cannot be had.
std::unique_ptr<Machine> MakeLiveMachine();
// The machine recorded below `root`, which has no slash at its end; null where that is no folder.
std::unique_ptr<Machine> MakeRecordedMachine(const std::string& root);

}  // namespace hostinv
