// Disks and partitions out of /sys folders and udev's database.
#include "block_devices.h"

#include <gtest/gtest.h>

#include "temporary_folder.h"

namespace hostinv {
namespace {

std::string NoProperty(const char* /*key*/) {
  return {};
}

TEST(BlockDevices, ReadsTheDatabaseOfUdev) {
  const UdevProperty property = PropertiesOfDatabase(
      "S:disk/by-id/x\nI:123\nE:ID_MODEL=a=b\nE:ID_SERIAL_SHORT=\nE:broken\nG:systemd\n");
  EXPECT_EQ(property("ID_MODEL"), "a=b");
  EXPECT_EQ(property("ID_SERIAL_SHORT"), "");
  EXPECT_EQ(property("ID_FS_UUID"), "");
}

TEST(BlockDevices, PrefersTheDevicesOwnModelAndUdevsSerial) {
  const TemporaryFolder folder;
  folder.Write("sda/device/model", "My Disk   \n");
  folder.Write("sda/device/serial", "from-sys\n");
  const BlockState both =
      ReadBlockDevice(folder.Path() + "/sda", "",
                      PropertiesOfDatabase("E:ID_MODEL=My_Disk\nE:ID_SERIAL_SHORT=from-udev\n"));
  EXPECT_EQ(both.model, "My Disk");
  EXPECT_EQ(both.serial, "from-udev");
  const BlockState alone = ReadBlockDevice(folder.Path() + "/sda", "", NoProperty);
  EXPECT_EQ(alone.serial, "from-sys");
}

TEST(BlockDevices, FindsTheSerialOfAVirtualDisk) {
  const TemporaryFolder folder;
  folder.Write("vda/serial", "vd-1\n");
  EXPECT_EQ(ReadBlockDevice(folder.Path() + "/vda", "", NoProperty).serial, "vd-1");
}

TEST(BlockDevices, PrefersTheLabelOfTheFileSystem) {
  const TemporaryFolder folder;
  const auto labelOf = [&](const std::string& database) {
    return ReadBlockDevice(folder.Path() + "/x", "", PropertiesOfDatabase(database)).label;
  };
  EXPECT_EQ(labelOf("E:ID_FS_LABEL=cut\nE:ID_FS_LABEL_ENC=full\\x20name\n"), "full name");
  EXPECT_EQ(labelOf("E:ID_FS_LABEL=plain\nE:ID_PART_ENTRY_NAME=part\n"), "plain");
  EXPECT_EQ(labelOf("E:ID_PART_ENTRY_NAME=EFI\\x20System\n"), "EFI System");
}

TEST(BlockDevices, CountsInSectorsOf512Bytes) {
  const TemporaryFolder folder;
  folder.Write("sda1/size", "8\n");
  folder.Write("sda1/start", "2048\n");
  folder.Write("sda1/partition", "1\n");
  const BlockState part = ReadBlockDevice(folder.Path() + "/sda1", "sda", NoProperty);
  EXPECT_EQ(part.size, 4096U);
  EXPECT_EQ(part.startByte, 1048576U);
  EXPECT_EQ(part.partitionNumber, 1U);
  EXPECT_EQ(part.disk, "sda");
}

TEST(BlockDevices, PutsTheSlashBackIntoNames) {
  const TemporaryFolder folder;
  EXPECT_EQ(ReadBlockDevice(folder.Path() + "/cciss!c0d0", "", NoProperty).name, "cciss/c0d0");
}

TEST(BlockDevices, NamesTheDevicesOfAComposedDisk) {
  const TemporaryFolder folder;
  folder.Write("dm-0/slaves/sdb2", "");
  folder.Write("dm-0/slaves/sda3", "");
  folder.Write("dm-0/dm/name", "vg-root\n");
  const BlockState disk = ReadBlockDevice(folder.Path() + "/dm-0", "", NoProperty);
  EXPECT_EQ(disk.parts, (std::vector<std::string>{"sda3", "sdb2"}));
  EXPECT_EQ(disk.mapName, "vg-root");
}

TEST(BlockDevices, OfSizeZeroAreInUseOnlyIfRemovable) {
  BlockState block;
  EXPECT_FALSE(IsInUse(block));
  block.removable = true;
  EXPECT_TRUE(IsInUse(block));
  block.removable = false;
  block.size = 512;
  EXPECT_TRUE(IsInUse(block));
}

}  // namespace
}  // namespace hostinv
