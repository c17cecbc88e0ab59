// Crossings between two states of the machine; see the header.
#include "alerts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <set>
#include <string_view>

#include "inventory.h"

namespace hostinv {
namespace {

// Images that are mounted read-only are always full, and nobody could clean them up.
bool CanFillUp(const FileSystemState& fileSystem) {
  return fileSystem.sampled && !fileSystem.readOnly && fileSystem.used + fileSystem.free != 0;
}

// A driver that does not tell (loopback, tunnels, dummies) says "unknown" while it is switched on.
bool HasLink(const InterfaceState& entry) {
  return entry.linkState == "up" || entry.linkState == "unknown";
}

// Disks that are part of the machine: not what may be pulled out, nor what software makes.
bool IsBuiltIn(const BlockState& block) {
  constexpr std::array<std::string_view, 5> kMade = {"loop", "zram", "ram", "dm-", "md"};
  if (!block.disk.empty() || block.removable || !block.parts.empty()) return false;
  return std::none_of(kMade.begin(), kMade.end(),
                      [&](std::string_view made) { return block.name.starts_with(made); });
}

std::string SizeText(std::uint64_t bytes) {
  constexpr double kGiB = 1024.0 * 1024.0 * 1024.0;
  char text[48];
  std::snprintf(text, sizeof(text), "%.1f GiB", static_cast<double>(bytes) / kGiB);
  return text;
}

// Model and serial number; the size of a disk that has neither.
std::string Describe(const BlockState& block) {
  std::string text = block.model;
  if (!block.serial.empty()) text += (text.empty() ? "" : ", ") + block.serial;
  return text.empty() ? SizeText(block.size) : text;
}

template <typename T>
void ForgetMissing(std::map<std::string, T>* known, const std::set<std::string>& seen) {
  std::erase_if(*known, [&](const auto& entry) { return !seen.contains(entry.first); });
}

}  // namespace

std::uint32_t UsedPercent(const FileSystemState& fileSystem) {
  const double used = static_cast<double>(fileSystem.used);
  const double whole = used + static_cast<double>(fileSystem.free);
  if (whole == 0) return 0;
  return static_cast<std::uint32_t>(std::ceil(100.0 * used / whole));
}

std::vector<Occurrence> Alerts::Look(const MachineState& state) {
  std::vector<Occurrence> occurrences;
  if (limits_.fullPercent != 0) LookAtFileSystems(state, &occurrences);
  if (limits_.links) LookAtLinks(state, &occurrences);
  if (limits_.disks) LookAtDisks(state, &occurrences);
  return occurrences;
}

// A file system that is mounted at several places is told of once, by the first of them.
void Alerts::LookAtFileSystems(const MachineState& state, std::vector<Occurrence>* out) {
  std::set<std::string> seen;
  const std::uint32_t normal =
      limits_.fullPercent - std::min(limits_.hysteresis, limits_.fullPercent);
  for (const FileSystemState& fileSystem : state.fileSystems) {
    if (!CanFillUp(fileSystem) || !seen.insert(fileSystem.number).second) continue;
    const std::uint32_t percent = UsedPercent(fileSystem);
    bool& isFull = fileSystems_[fileSystem.number];
    const std::string key = kFileSystemPrefix + fileSystem.mountPoint;
    const std::string used = std::to_string(percent);
    if (!isFull && percent >= limits_.fullPercent) {
      isFull = true;
      out->push_back({AlertKind::kFileSystemFull,
                      key,
                      {fileSystem.mountPoint, used, std::to_string(limits_.fullPercent)}});
    } else if (isFull && percent <= normal && percent < limits_.fullPercent) {
      isFull = false;
      out->push_back({AlertKind::kFileSystemNormal, key, {fileSystem.mountPoint, used}});
    }
  }
  ForgetMissing(&fileSystems_, seen);
}

void Alerts::LookAtLinks(const MachineState& state, std::vector<Occurrence>* out) {
  std::set<std::string> seen;
  for (const InterfaceState& entry : state.interfaces) {
    seen.insert(entry.name);
    const auto [known, isNew] = links_.try_emplace(entry.name, Link::kNeverUp);
    Link& link = known->second;
    const std::string key = "net:" + entry.name;
    if (HasLink(entry)) {
      if (link == Link::kLost) out->push_back({AlertKind::kLinkBack, key, {entry.name}});
      link = Link::kUp;
    } else if (link == Link::kUp) {
      out->push_back({AlertKind::kLinkLost, key, {entry.name}});
      link = Link::kLost;
    }
  }
  ForgetMissing(&links_, seen);
}

void Alerts::LookAtDisks(const MachineState& state, std::vector<Occurrence>* out) {
  std::map<std::string, std::string> disks;
  for (const BlockState& block : state.blocks) {
    if (IsBuiltIn(block)) disks[block.name] = Describe(block);
  }
  for (const auto& [name, description] : disks_) {
    const auto found = disks.find(name);
    // Another disk under the same name means that this one is gone as well.
    if (found != disks.end() && found->second == description) continue;
    out->push_back({AlertKind::kDiskGone, "block:" + name, {"/dev/" + name, description}});
  }
  disks_ = std::move(disks);
}

}  // namespace hostinv
