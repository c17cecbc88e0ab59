// The machine as objects; see the header.
#include "inventory.h"

#include <string_view>

#include "schema.h"
#include "text.h"

namespace hostinv {
namespace {

std::string BlockKey(const std::string& name) {
  return "block:" + name;
}
std::string InterfaceKey(const std::string& name) {
  return "net:" + name;
}

Item MakeItem(const char* type, std::string_view name) {
  Item item;
  item.type = type;
  item.properties["Name"] = ToUtf16(name);
  item.parents.insert(kHostKey);
  return item;
}

Item DescribeHost(const HostState& host) {
  Item item = MakeItem(kHostType, host.name);
  item.parents.clear();
  item.properties["OperatingSystem"] = CleanUtf8(host.operatingSystem);
  item.properties["Kernel"] = CleanUtf8(host.kernel);
  item.properties["Architecture"] = CleanUtf8(host.architecture);
  item.properties["BootTime"] = Time{host.bootTime};
  item.properties["Uptime"] = host.uptimeSeconds;
  item.properties["Load1Percent"] = host.load1Percent;
  item.properties["Load5Percent"] = host.load5Percent;
  item.properties["Load15Percent"] = host.load15Percent;
  return item;
}

Item DescribeProcessor(const ProcessorState& processor) {
  Item item = MakeItem(kProcessorType, "CPU " + std::to_string(processor.index));
  item.properties["Number"] = processor.index;
  item.properties["Vendor"] = CleanUtf8(processor.vendor);
  item.properties["Model"] = CleanUtf8(processor.model);
  item.properties["Cores"] = processor.cores;
  item.properties["FrequencyMHz"] = processor.frequencyMHz;
  item.properties["UsePercent"] = processor.usePercent;
  return item;
}

Item DescribeMemory(const MemoryState& memory) {
  Item item = MakeItem(kMemoryType, "Memory");
  item.properties["Total"] = memory.total;
  item.properties["Available"] = memory.available;
  item.properties["SwapTotal"] = memory.swapTotal;
  item.properties["SwapFree"] = memory.swapFree;
  return item;
}

void AddBlockProperties(const BlockState& block, Properties* properties) {
  Properties& p = *properties;
  p["Device"] = CleanUtf8("/dev/" + block.name);
  p["Size"] = block.size;
  p["ReadOnly"] = block.readOnly;
  p["Label"] = CleanUtf8(block.label);
  p["Uuid"] = CleanUtf8(block.uuid);
  p["Reads"] = block.io.reads;
  p["ReadBytes"] = block.io.readBytes;
  p["Writes"] = block.io.writes;
  p["WrittenBytes"] = block.io.writtenBytes;
  p["IoTimeMs"] = block.io.ioTimeMs;
}

Item DescribeDisk(const BlockState& block) {
  Item item = MakeItem(kDiskType, block.mapName.empty() ? block.name : block.mapName);
  AddBlockProperties(block, &item.properties);
  item.properties["Model"] = CleanUtf8(block.model);
  item.properties["Serial"] = CleanUtf8(block.serial);
  item.properties["Rotational"] = block.rotational;
  item.properties["Removable"] = block.removable;
  for (const std::string& part : block.parts) item.parents.insert(BlockKey(part));
  return item;
}

Item DescribePartition(const BlockState& block) {
  Item item = MakeItem(kPartitionType, block.name);
  AddBlockProperties(block, &item.properties);
  item.properties["Number"] = block.partitionNumber;
  item.properties["Start"] = block.startByte;
  item.parents.insert(BlockKey(block.disk));
  return item;
}

bool IsBackedBy(const FileSystemState& fileSystem, const BlockState& block) {
  if (fileSystem.number == block.number) return true;
  // File systems that span devices (btrfs) carry a number of their own; their source tells one.
  return fileSystem.source == "/dev/" + block.name ||
         (!block.mapName.empty() && fileSystem.source == "/dev/mapper/" + block.mapName);
}

Item DescribeFileSystem(const FileSystemState& fileSystem, const std::vector<BlockState>& blocks) {
  Item item = MakeItem(kFileSystemType, fileSystem.mountPoint);
  std::string device = fileSystem.source;
  for (const BlockState& block : blocks) {
    if (!IsBackedBy(fileSystem, block)) continue;
    item.parents.insert(BlockKey(block.name));
    // What a kernel without an initial ram disk calls its root names no device.
    if (device == "/dev/root") device = "/dev/" + block.name;
  }
  item.properties["Device"] = CleanUtf8(device);
  item.properties["MountPoint"] = CleanUtf8(fileSystem.mountPoint);
  item.properties["FileSystemType"] = CleanUtf8(fileSystem.type);
  item.properties["Size"] = fileSystem.size;
  item.properties["Used"] = fileSystem.used;
  item.properties["Free"] = fileSystem.free;
  item.properties["ReadOnly"] = fileSystem.readOnly;
  return item;
}

Item DescribeInterface(const InterfaceState& state) {
  Item item = MakeItem(kInterfaceType, state.name);
  Properties& p = item.properties;
  p["Device"] = CleanUtf8(state.name);
  p["Mac"] = CleanUtf8(state.mac);
  p["Addresses"] = state.addresses;
  p["Mtu"] = state.mtu;
  p["SpeedMbit"] = state.speedMbit;
  p["LinkState"] = CleanUtf8(state.linkState);
  p["Master"] = CleanUtf8(state.master);
  p["ReceivedBytes"] = state.traffic.receivedBytes;
  p["ReceivedPackets"] = state.traffic.receivedPackets;
  p["ReceiveErrors"] = state.traffic.receiveErrors;
  p["ReceiveDropped"] = state.traffic.receiveDropped;
  p["SentBytes"] = state.traffic.sentBytes;
  p["SentPackets"] = state.traffic.sentPackets;
  p["SendErrors"] = state.traffic.sendErrors;
  p["SendDropped"] = state.traffic.sendDropped;
  if (!state.master.empty()) item.parents.insert(InterfaceKey(state.master));
  return item;
}

// A parent that is not in the inventory (a disk that vanished between two readings) is no parent.
void DropMissingParents(Inventory* inventory) {
  for (auto& entry : *inventory) {
    std::erase_if(entry.second.parents, [&](const std::string& parent) {
      return parent == entry.first || !inventory->contains(parent);
    });
  }
}

Properties Difference(const Properties& before, const Properties& after) {
  Properties changed;
  for (const auto& [name, value] : after) {
    const auto old = before.find(name);
    if (old == before.end() || old->second != value) changed.emplace(name, value);
  }
  return changed;
}

bool IsKept(const Inventory& other, const std::string& key, const Item& item) {
  const auto found = other.find(key);
  return found != other.end() && std::string_view(found->second.type) == item.type;
}

void CompareParents(const std::string& key, const Item& before, const Item& after,
                    const Inventory& all, Changes* changes) {
  for (const std::string& parent : before.parents) {
    if (!after.parents.contains(parent) && all.contains(parent)) {
      changes->unlinked.emplace_back(parent, key);
    }
  }
  for (const std::string& parent : after.parents) {
    if (!before.parents.contains(parent)) changes->linked.emplace_back(parent, key);
  }
}

}  // namespace

Inventory Describe(const MachineState& state) {
  Inventory inventory;
  inventory[kHostKey] = DescribeHost(state.host);
  inventory["memory"] = DescribeMemory(state.memory);
  for (const ProcessorState& processor : state.processors) {
    inventory["cpu:" + std::to_string(processor.index)] = DescribeProcessor(processor);
  }
  for (const BlockState& block : state.blocks) {
    inventory[BlockKey(block.name)] =
        block.disk.empty() ? DescribeDisk(block) : DescribePartition(block);
  }
  for (const FileSystemState& fileSystem : state.fileSystems) {
    inventory[kFileSystemPrefix + fileSystem.mountPoint] =
        DescribeFileSystem(fileSystem, state.blocks);
  }
  for (const InterfaceState& entry : state.interfaces) {
    inventory[InterfaceKey(entry.name)] = DescribeInterface(entry);
  }
  DropMissingParents(&inventory);
  return inventory;
}

Changes Compare(const Inventory& before, const Inventory& after) {
  Changes changes;
  for (const auto& [key, item] : before) {
    if (IsKept(after, key, item)) continue;
    changes.removed.push_back(key);
  }
  for (const auto& [key, item] : after) {
    if (IsKept(before, key, item)) continue;
    changes.added.push_back(key);
  }
  const std::set<std::string> fresh(changes.added.begin(), changes.added.end());
  for (const auto& [key, item] : after) {
    Item old;
    if (!fresh.contains(key)) {
      old = before.find(key)->second;
      Properties changed = Difference(old.properties, item.properties);
      if (!changed.empty()) changes.changed.emplace(key, std::move(changed));
      // A parent that was made anew lost its children with the old one.
      std::erase_if(old.parents, [&](const std::string& parent) { return fresh.contains(parent); });
    }
    CompareParents(key, old, item, after, &changes);
  }
  return changes;
}

}  // namespace hostinv
