// The machine as objects: agreement with the schema, relations, and what a comparison tells.
#include "inventory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "expected_types.h"

namespace hostinv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

struct TagOf {
  u32 operator()(bool) const { return ZN_TYPE_BOOLEAN; }
  u32 operator()(std::uint32_t) const { return ZN_TYPE_UINT32; }
  u32 operator()(std::uint64_t) const { return ZN_TYPE_UINT64; }
  u32 operator()(Time) const { return ZN_TYPE_TIME; }
  u32 operator()(const std::string&) const { return ZN_TYPE_STRING; }
  u32 operator()(const std::u16string&) const { return ZN_TYPE_WIDESTRING; }
  u32 operator()(const std::vector<std::string>&) const { return ZN_TYPE_STRING | ZN_TYPE_ARRAY; }
};

// Tags by property name that the schema declares for a type, inherited ones included.
std::map<std::string, u32> DeclaredTags(const std::string& type) {
  std::map<std::string, u32> tags = {{"Name", ZN_TYPE_WIDESTRING}};
  for (const TypeSchema& schema : Types()) {
    if (schema.name != type) continue;
    if (schema.supertype != nullptr) tags = DeclaredTags(schema.supertype);
    for (const PropertySchema& property : schema.properties) tags[property.name] = property.tag;
  }
  return tags;
}

// One of everything.
MachineState SmallMachine() {
  MachineState state;
  state.host.name = "small";
  state.processors.resize(1);
  state.blocks.resize(2);
  state.blocks[0].name = "sda";
  state.blocks[0].number = "8:0";
  state.blocks[1].name = "sda1";
  state.blocks[1].number = "8:1";
  state.blocks[1].disk = "sda";
  state.fileSystems.resize(1);
  state.fileSystems[0].number = "8:1";
  state.fileSystems[0].source = "/dev/sda1";
  state.fileSystems[0].mountPoint = "/";
  state.interfaces.resize(1);
  state.interfaces[0].name = "eth0";
  return state;
}

TEST(Inventory, HasExactlyTheDeclaredProperties) {
  const Inventory inventory = Describe(SmallMachine());
  EXPECT_EQ(inventory.size(), 7U);
  for (const auto& [key, item] : inventory) {
    std::map<std::string, u32> tags;
    for (const auto& [name, value] : item.properties) tags[name] = std::visit(TagOf(), value);
    EXPECT_EQ(tags, DeclaredTags(item.type)) << key;
  }
}

TEST(Inventory, DeclaresSupertypesFirst) {
  std::set<std::string> known;
  for (const TypeSchema& type : Types()) {
    if (type.supertype != nullptr) {
      EXPECT_TRUE(known.contains(type.supertype)) << type.name;
    }
    EXPECT_TRUE(known.insert(type.name).second) << type.name;
  }
}

TEST(Inventory, IndexesWhatOneSearchesFor) {
  std::set<std::string> indexed;
  for (const TypeSchema& type : Types()) {
    for (const PropertySchema& property : type.properties) {
      if ((property.flags & ZN_PROPERTY_INDEXED) != 0) {
        indexed.insert(std::string(type.name) + "." + property.name);
      }
    }
  }
  EXPECT_THAT(indexed, ElementsAre("HostInv_BlockDevice.Device", "HostInv_FileSystem.Device",
                                   "HostInv_FileSystem.MountPoint", "HostInv_Interface.Device",
                                   "HostInv_Interface.Mac"));
}

TEST(Inventory, RelatesDiskPartitionAndFileSystem) {
  const Inventory inventory = Describe(SmallMachine());
  EXPECT_THAT(inventory.at("host").parents, IsEmpty());
  EXPECT_THAT(inventory.at("block:sda").parents, ElementsAre("host"));
  EXPECT_THAT(inventory.at("block:sda1").parents, ElementsAre("block:sda", "host"));
  EXPECT_THAT(inventory.at("fs:/").parents, ElementsAre("block:sda1", "host"));
  EXPECT_THAT(inventory.at("net:eth0").parents, ElementsAre("host"));
}

TEST(Inventory, FindsTheDeviceByItsNameWhereNumbersDiffer) {
  MachineState state = SmallMachine();
  state.fileSystems[0].number = "0:45";
  EXPECT_TRUE(Describe(state).at("fs:/").parents.contains("block:sda1"));
  state.blocks[1].mapName = "vg-root";
  state.fileSystems[0].source = "/dev/mapper/vg-root";
  EXPECT_TRUE(Describe(state).at("fs:/").parents.contains("block:sda1"));
  state.fileSystems[0].source = "/dev/sda11";
  EXPECT_THAT(Describe(state).at("fs:/").parents, ElementsAre("host"));
}

TEST(Inventory, NamesTheDeviceBehindTheKernelsRoot) {
  MachineState state = SmallMachine();
  state.fileSystems[0].source = "/dev/root";
  EXPECT_EQ(Describe(state).at("fs:/").properties.at("Device"), Value(std::string("/dev/sda1")));
}

TEST(Inventory, LeavesOutParentsThatAreNotThere) {
  MachineState state = SmallMachine();
  state.blocks.erase(state.blocks.begin());  // the disk, not its partition
  state.interfaces[0].master = "bond9";
  const Inventory inventory = Describe(state);
  EXPECT_THAT(inventory.at("block:sda1").parents, ElementsAre("host"));
  EXPECT_THAT(inventory.at("net:eth0").parents, ElementsAre("host"));
}

TEST(Inventory, KeepsTheBytesOfAMountPointInItsKeyOnly) {
  MachineState state = SmallMachine();
  state.fileSystems[0].mountPoint = "/\xFF";
  const Inventory inventory = Describe(state);
  ASSERT_TRUE(inventory.contains("fs:/\xFF"));
  EXPECT_EQ(inventory.at("fs:/\xFF").properties.at("MountPoint"),
            Value(std::string("/\xEF\xBF\xBD")));
}

TEST(InventoryCompare, IsEmptyForEqualMachines) {
  const Inventory inventory = Describe(SmallMachine());
  EXPECT_TRUE(Compare(inventory, inventory).IsEmpty());
  EXPECT_TRUE(Compare({}, {}).IsEmpty());
}

TEST(InventoryCompare, TellsOnlyThePropertiesThatDiffer) {
  MachineState state = SmallMachine();
  const Inventory before = Describe(state);
  state.interfaces[0].mtu = 9000;
  state.interfaces[0].addresses = {"192.0.2.1/24"};
  const Changes changes = Compare(before, Describe(state));
  ASSERT_THAT(changes.changed, UnorderedElementsAre(Pair("net:eth0", testing::_)));
  EXPECT_THAT(
      changes.changed.at("net:eth0"),
      UnorderedElementsAre(Pair("Mtu", Value(std::uint32_t{9000})),
                           Pair("Addresses", Value(std::vector<std::string>{"192.0.2.1/24"}))));
  EXPECT_THAT(changes.added, IsEmpty());
  EXPECT_THAT(changes.removed, IsEmpty());
  EXPECT_THAT(changes.linked, IsEmpty());
}

TEST(InventoryCompare, TellsWhatCameWithItsRelations) {
  MachineState state = SmallMachine();
  MachineState less = state;
  less.blocks.pop_back();
  const Changes changes = Compare(Describe(less), Describe(state));
  EXPECT_THAT(changes.added, ElementsAre("block:sda1"));
  EXPECT_THAT(changes.linked,
              UnorderedElementsAre(Pair("host", "block:sda1"), Pair("block:sda", "block:sda1"),
                                   Pair("block:sda1", "fs:/")));
  EXPECT_THAT(changes.changed, IsEmpty());
}

TEST(InventoryCompare, LeavesRelationsOfTheRemovedToTheirDeletion) {
  MachineState state = SmallMachine();
  const Inventory before = Describe(state);
  state.blocks.pop_back();
  const Changes changes = Compare(before, Describe(state));
  EXPECT_THAT(changes.removed, ElementsAre("block:sda1"));
  EXPECT_THAT(changes.unlinked, IsEmpty());
  EXPECT_THAT(changes.linked, IsEmpty());
}

TEST(InventoryCompare, TellsAParentThatChanged) {
  MachineState state = SmallMachine();
  state.interfaces.resize(3);
  state.interfaces[0].master = "bond0";
  state.interfaces[1].name = "bond0";
  state.interfaces[2].name = "bond1";
  const Inventory before = Describe(state);
  state.interfaces[0].master = "bond1";
  const Changes changes = Compare(before, Describe(state));
  EXPECT_THAT(changes.unlinked, ElementsAre(Pair("net:bond0", "net:eth0")));
  EXPECT_THAT(changes.linked, ElementsAre(Pair("net:bond1", "net:eth0")));
}

TEST(InventoryCompare, MakesAThingOfAnotherTypeAnewWithItsRelations) {
  MachineState state = SmallMachine();
  const Inventory before = Describe(state);
  state.blocks[1].disk.clear();  // "sda1" is a disk now
  const Changes changes = Compare(before, Describe(state));
  EXPECT_THAT(changes.removed, ElementsAre("block:sda1"));
  EXPECT_THAT(changes.added, ElementsAre("block:sda1"));
  EXPECT_THAT(changes.linked,
              UnorderedElementsAre(Pair("host", "block:sda1"), Pair("block:sda1", "fs:/")));
}

}  // namespace
}  // namespace hostinv
