// Disks and partitions; see the header.
#include "block_devices.h"

#include <dirent.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <memory>

#include "text.h"

namespace hostinv {
namespace {

// /sys counts sizes and starts in sectors of this size whatever the device's own is.
constexpr std::uint64_t kSectorSize = 512;

std::string FirstOf(std::initializer_list<std::string> candidates) {
  for (const std::string& text : candidates) {
    if (!Trim(text).empty()) return std::string(Trim(text));
  }
  return {};
}

std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(path.c_str()), closedir);
  if (!folder) return names;
  while (const dirent* entry = readdir(folder.get())) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void ReadDisk(const std::string& folder, const UdevProperty& property, BlockState* block) {
  // udev writes blanks of a model as underscores, so the device's own text comes first.
  block->model = FirstOf({ReadValue(folder + "/device/model"), ReadValue(folder + "/device/name"),
                          property("ID_MODEL")});
  block->serial = FirstOf({property("ID_SERIAL_SHORT"), ReadValue(folder + "/device/serial"),
                           ReadValue(folder + "/serial")});
  block->rotational = ReadNumber(folder + "/queue/rotational") != 0;
  block->removable = ReadNumber(folder + "/removable") != 0;
  block->mapName = ReadValue(folder + "/dm/name");
  block->parts = ListFolder(folder + "/slaves");
}

void ReadPartition(const std::string& folder, const std::string& disk, BlockState* block) {
  block->disk = disk;
  block->partitionNumber = static_cast<std::uint32_t>(ReadNumber(folder + "/partition"));
  block->startByte = ReadNumber(folder + "/start") * kSectorSize;
}

}  // namespace

BlockState ReadBlockDevice(const std::string& folder, const std::string& disk,
                           const UdevProperty& property) {
  BlockState block;
  block.name = folder.substr(folder.rfind('/') + 1);
  // A slash in a device's name stands as '!' in /sys ("cciss!c0d0").
  std::replace(block.name.begin(), block.name.end(), '!', '/');
  block.number = ReadValue(folder + "/dev");
  block.size = ReadNumber(folder + "/size") * kSectorSize;
  block.readOnly = ReadNumber(folder + "/ro") != 0;
  block.label = FirstOf({DecodeHexEscapes(property("ID_FS_LABEL_ENC")), property("ID_FS_LABEL"),
                         DecodeHexEscapes(property("ID_PART_ENTRY_NAME"))});
  block.uuid = FirstOf({property("ID_FS_UUID"), property("ID_PART_ENTRY_UUID")});
  if (disk.empty()) {
    ReadDisk(folder, property, &block);
  } else {
    ReadPartition(folder, disk, &block);
  }
  return block;
}

bool IsInUse(const BlockState& block) {
  return block.size != 0 || block.removable;
}

UdevProperty PropertiesOfDatabase(const std::string& text) {
  std::map<std::string, std::string, std::less<>> values;
  for (std::string_view line : SplitLines(text)) {
    std::string_view key;
    std::string_view value;
    if (line.substr(0, 2) != "E:") continue;
    line.remove_prefix(2);
    if (SplitPair(line, '=', &key, &value)) values.emplace(key, value);
  }
  return [values = std::move(values)](const char* key) {
    const auto found = values.find(std::string_view(key));
    return found == values.end() ? std::string() : found->second;
  };
}

}  // namespace hostinv
