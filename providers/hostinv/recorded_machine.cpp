// A machine recorded below a root folder, for tests and for looking at a machine that is elsewhere.
// The tree holds what the live machine would ask for:
//   proc/, sys/, etc/os-release     as on the machine; sys/block/<disk>/<partition>/ are folders
//   run/udev/data/b<major>:<minor>  udev's database of the block devices
//   recorded/addresses              output of `ip -o address`
//   recorded/usage                  output of `findmnt -rbn -o SIZE,USED,AVAIL,TARGET`
// It does not move by itself: changed files are seen at the next sample or rescan.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "block_devices.h"
#include "machine.h"
#include "text.h"

namespace hostinv {
namespace {

namespace fs = std::filesystem;

// Folders of a folder, in the order of their names; links to folders count.
std::vector<fs::path> Folders(const fs::path& path) {
  std::vector<fs::path> list;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(path, error)) {
    if (entry.is_directory(error)) list.push_back(entry.path());
  }
  std::sort(list.begin(), list.end());
  return list;
}

class RecordedMachine final : public Machine {
 public:
  explicit RecordedMachine(const std::string& root) : Machine(root) {}

 protected:
  std::vector<BlockState> ReadBlocks() override {
    std::vector<BlockState> list;
    for (const fs::path& disk : Folders(Root() + "/sys/block")) {
      BlockState block = ReadOne(disk, "");
      if (!IsInUse(block)) continue;
      const std::string name = block.name;
      list.push_back(std::move(block));
      for (const fs::path& folder : Folders(disk)) {
        if (fs::exists(folder / "partition")) list.push_back(ReadOne(folder, name));
      }
    }
    return list;
  }

  std::vector<InterfaceState> ReadInterfaces() override {
    std::vector<InterfaceState> list;
    const auto addresses = ReadAddresses();
    for (const fs::path& folder : Folders(Root() + "/sys/class/net")) {
      InterfaceState entry = ReadInterface(folder.string());
      const auto found = addresses.find(entry.name);
      if (found != addresses.end()) entry.addresses = found->second;
      list.push_back(std::move(entry));
    }
    return list;
  }

  void SampleFileSystems(std::vector<FileSystemState>* fileSystems) override {
    const std::string text = ReadFile(Root() + "/recorded/usage").value_or(std::string());
    for (const std::string_view line : SplitLines(text)) {
      const auto fields = SplitFields(line);
      if (fields.size() < 4) continue;
      const std::string target = DecodeHexEscapes(fields[3]);
      for (FileSystemState& state : *fileSystems) {
        if (state.mountPoint != target || !state.sampled) continue;
        state.size = ParseNumber(fields[0]);
        state.used = ParseNumber(fields[1]);
        state.free = ParseNumber(fields[2]);
      }
    }
  }

  void SampleInterfaces(std::vector<InterfaceState>* interfaces) override {
    for (InterfaceState& entry : *interfaces) {
      const std::string folder = Root() + "/sys/class/net/" + entry.name + "/statistics/";
      TrafficCounters& traffic = entry.traffic;
      traffic.receivedBytes = ReadNumber(folder + "rx_bytes");
      traffic.receivedPackets = ReadNumber(folder + "rx_packets");
      traffic.receiveErrors = ReadNumber(folder + "rx_errors");
      traffic.receiveDropped = ReadNumber(folder + "rx_dropped");
      traffic.sentBytes = ReadNumber(folder + "tx_bytes");
      traffic.sentPackets = ReadNumber(folder + "tx_packets");
      traffic.sendErrors = ReadNumber(folder + "tx_errors");
      traffic.sendDropped = ReadNumber(folder + "tx_dropped");
    }
  }

 private:
  BlockState ReadOne(const fs::path& folder, const std::string& disk) const {
    const std::string number = ReadValue((folder / "dev").string());
    const std::string data = ReadFile(Root() + "/run/udev/data/b" + number).value_or("");
    return ReadBlockDevice(folder.string(), disk, PropertiesOfDatabase(data));
  }

  static InterfaceState ReadInterface(const std::string& folder) {
    InterfaceState entry;
    std::error_code error;
    entry.name = folder.substr(folder.rfind('/') + 1);
    entry.mac = ReadValue(folder + "/address");
    entry.linkState = ReadValue(folder + "/operstate");
    entry.index = static_cast<std::uint32_t>(ReadNumber(folder + "/ifindex"));
    entry.mtu = static_cast<std::uint32_t>(ReadNumber(folder + "/mtu"));
    entry.speedMbit = static_cast<std::uint32_t>(ReadNumber(folder + "/speed"));
    entry.master = fs::read_symlink(folder + "/master", error).filename().string();
    return entry;
  }

  // Lines "2: eth0    inet 192.0.2.10/24 brd ...", with "inet6" for the other family.
  std::map<std::string, std::vector<std::string>> ReadAddresses() const {
    std::map<std::string, std::vector<std::string>> addresses;
    const std::string text = ReadFile(Root() + "/recorded/addresses").value_or(std::string());
    for (const std::string_view line : SplitLines(text)) {
      const auto fields = SplitFields(line);
      if (fields.size() < 4 || fields[2].substr(0, 4) != "inet") continue;
      addresses[std::string(fields[1])].emplace_back(fields[3]);
    }
    for (auto& [name, list] : addresses) std::sort(list.begin(), list.end());
    return addresses;
  }
};

}  // namespace

std::unique_ptr<Machine> MakeRecordedMachine(const std::string& root) {
  struct stat info {};
  if (stat(root.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return nullptr;
  return std::make_unique<RecordedMachine>(root);
}

}  // namespace hostinv
