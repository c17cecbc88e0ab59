// Mounted file systems: which are shown, and how odd lines of mountinfo are read.
#include "mounts.h"

#include <map>

#include <gtest/gtest.h>

#include "temporary_folder.h"

namespace hostinv {
namespace {

std::map<std::string, FileSystemState> Read(const std::string& mountInfo) {
  const TemporaryFolder folder;
  folder.Write("proc/self/mountinfo", mountInfo);
  std::map<std::string, FileSystemState> byPoint;
  for (const FileSystemState& state : ReadMounts(folder.Path())) byPoint[state.mountPoint] = state;
  return byPoint;
}

struct ShownCase {
  const char* why;
  const char* line;
  bool isShown;
};

constexpr ShownCase kShownCases[] = {
    {"a device", "36 28 8:1 / /a rw - ext4 /dev/sda1 rw\n", true},
    {"a network file system", "36 28 0:50 / /a rw - nfs4 host:/x rw\n", true},
    {"a layered one", "36 28 0:50 / /a rw - overlay overlay rw,lowerdir=/l\n", true},
    {"one shared by the host of a guest", "36 28 0:50 / /a rw - virtiofs tag rw\n", true},
    {"one without a device of its own", "36 28 0:50 / /a rw - btrfs /dev/sda1 rw\n", true},
    {"the root of a container", "36 1 0:50 / / rw - overlay overlay rw,lowerdir=/l\n", true},
    {"a root in memory", "36 1 0:50 / / rw - tmpfs tmpfs rw\n", true},
    {"the kernel's own root", "1 1 0:1 / / rw - rootfs rootfs rw\n", false},
    {"memory", "36 28 0:50 / /a rw - tmpfs tmpfs rw\n", false},
    {"processes", "36 28 0:50 / /a rw - proc proc rw\n", false},
    {"control groups", "36 28 0:50 / /a rw - cgroup2 cgroup2 rw\n", false},
    {"devices", "36 28 0:50 / /a rw - devtmpfs udev rw\n", false},
    {"an automounter", "36 28 0:50 / /a rw - autofs systemd-1 rw\n", false},
};

TEST(Mounts, ShowsWhatHoldsFiles) {
  for (const ShownCase& c : kShownCases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(Read(c.line).size(), c.isShown ? 1U : 0U);
  }
}

TEST(Mounts, DecodesOctalEscapes) {
  const auto mounts = Read("36 28 8:1 / /a\\040b\\011c\\134d\\012e rw - ext4 /dev/sda1 rw\n");
  ASSERT_EQ(mounts.size(), 1U);
  EXPECT_EQ(mounts.begin()->first, "/a b\tc\\d\ne");
}

TEST(Mounts, KeepsBytesThatAreNoText) {
  const auto mounts = Read("36 28 8:1 / /\xFF rw - ext4 /dev/sda1 rw\n");
  EXPECT_TRUE(mounts.contains("/\xFF"));
}

TEST(Mounts, ReadsTheFields) {
  const auto mounts = Read("36 28 259:12 /sub /a rw,relatime shared:1 - ext4 /dev/x\\040y rw\n");
  ASSERT_TRUE(mounts.contains("/a"));
  const FileSystemState& state = mounts.at("/a");
  EXPECT_EQ(state.source, "/dev/x y");
  EXPECT_EQ(state.number, "259:12");
  EXPECT_EQ(state.type, "ext4");
  EXPECT_FALSE(state.readOnly);
  EXPECT_TRUE(state.sampled);
}

TEST(Mounts, IsReadOnlyByMountOrByFileSystem) {
  EXPECT_TRUE(Read("36 28 8:1 / /a ro,nosuid - ext4 /dev/sda1 rw\n").at("/a").readOnly);
  EXPECT_TRUE(Read("36 28 8:1 / /a rw - ext4 /dev/sda1 ro\n").at("/a").readOnly);
  EXPECT_FALSE(Read("36 28 8:1 / /a rw - ext4 /dev/sda1 rw,errors=remount-ro\n").at("/a").readOnly);
}

TEST(Mounts, ShowsTheUppermostOfSeveralAtOnePoint) {
  const auto mounts = Read(
      "36 28 8:1 / /a rw - ext4 /dev/sda1 rw\n"
      "37 36 8:2 / /a rw - xfs /dev/sda2 rw\n");
  ASSERT_EQ(mounts.size(), 1U);
  EXPECT_EQ(mounts.at("/a").source, "/dev/sda2");
}

TEST(Mounts, AsksNoNetworkFileSystemForItsSize) {
  EXPECT_FALSE(Read("36 28 0:50 / /a rw - nfs4 host:/x rw\n").at("/a").sampled);
  EXPECT_FALSE(Read("36 28 0:50 / /a rw - cifs //host/x rw\n").at("/a").sampled);
  EXPECT_TRUE(Read("36 1 0:50 / / rw - nfs4 host:/x rw\n").at("/").sampled);
}

TEST(Mounts, AreNoneWithoutTheFile) {
  const TemporaryFolder folder;
  EXPECT_TRUE(ReadMounts(folder.Path()).empty());
}

}  // namespace
}  // namespace hostinv
