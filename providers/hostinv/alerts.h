// What of a machine an operator is told at once: a file system that fills up and has space again, a
// link that is lost and comes back, a disk that is gone. Alerts compares each state of the machine
// with the last one and answers what has happened in between: one occurrence per crossing, however
// often it is asked. Plain values, free of the bus; their publishing and raising: alert_bus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "machine.h"

namespace hostinv {

// The last one is none, it counts the others.
enum class AlertKind {
  kFileSystemFull,
  kFileSystemNormal,
  kLinkLost,
  kLinkBack,
  kDiskGone,
  kCount
};
inline constexpr std::size_t kAlertKinds = static_cast<std::size_t>(AlertKind::kCount);

struct Occurrence {
  AlertKind kind = AlertKind::kFileSystemFull;
  std::string key;                      // of the object, which may be gone
  std::vector<std::string> insertions;  // of the message, in order; the first names the thing
};

struct AlertLimits {
  std::uint32_t fullPercent = 90;  // of a file system, as df counts; 0 for no such alerts
  std::uint32_t hysteresis = 5;    // how far below that it has space again
  bool links = true;
  bool disks = true;
};

class Alerts {
 public:
  explicit Alerts(const AlertLimits& limits) : limits_(limits) {}

  // What has happened since the last call. At the first, only what is wrong now: file systems that
  // are full already.
  std::vector<Occurrence> Look(const MachineState& state);

 private:
  // A link that a thing had or has.
  enum class Link { kNeverUp, kUp, kLost };

  void LookAtFileSystems(const MachineState& state, std::vector<Occurrence>* out);
  void LookAtLinks(const MachineState& state, std::vector<Occurrence>* out);
  void LookAtDisks(const MachineState& state, std::vector<Occurrence>* out);

  AlertLimits limits_;
  std::map<std::string, bool> fileSystems_;   // by device number: whether it is full
  std::map<std::string, Link> links_;         // by name
  std::map<std::string, std::string> disks_;  // by name: what it is
};

// Of what users may fill, rounded up, as df shows it; 0 for a file system of no size.
std::uint32_t UsedPercent(const FileSystemState& fileSystem);

}  // namespace hostinv
