// Opening a file on one file system, and its digest.
#include "checksum.h"

#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "temporary_folder.h"
#include "zn/status.h"

namespace hostinv {
namespace {

constexpr char kAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kEmpty[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
// A million times "a", from the standard's own examples.
constexpr char kMillion[] = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

class ChecksumTest : public testing::Test {
 protected:
  u32 Open(const std::string& path) {
    return OpenOnFileSystem(folder_.Path(), "/mnt/a b", path, &file_);
  }
  Checksum Compute() {
    Checksum checksum;
    EXPECT_EQ(ComputeChecksum(
                  file_, [](u32) { return true; }, &checksum),
              0U);
    return checksum;
  }

  TemporaryFolder folder_;
  Descriptor file_;
};

TEST_F(ChecksumTest, KnowsTheDigestsOfTheStandard) {
  folder_.Write("mnt/a b/abc", "abc");
  folder_.Write("mnt/a b/empty", "");
  folder_.Write("mnt/a b/million", std::string(1'000'000, 'a'));
  ASSERT_EQ(Open("abc"), 0U);
  EXPECT_EQ(Compute().digest, kAbc);
  ASSERT_EQ(Open("empty"), 0U);
  EXPECT_EQ(Compute().digest, kEmpty);
  ASSERT_EQ(Open("million"), 0U);
  const Checksum million = Compute();
  EXPECT_EQ(million.digest, kMillion);
  EXPECT_EQ(million.bytes, 1'000'000U);
}

TEST_F(ChecksumTest, ReportsGrowingPercentages) {
  folder_.Write("mnt/a b/file", std::string(1'000'000, 'a'));
  ASSERT_EQ(Open("file"), 0U);
  std::vector<u32> heard;
  Checksum checksum;
  ASSERT_EQ(ComputeChecksum(
                file_, [&](u32 percent) { return heard.push_back(percent), true; }, &checksum),
            0U);
  EXPECT_EQ(heard, (std::vector<u32>{0, 26, 52, 78, 100}));
}

TEST_F(ChecksumTest, StopsWhenToldAndWritesNothing) {
  folder_.Write("mnt/a b/file", std::string(1'000'000, 'a'));
  ASSERT_EQ(Open("file"), 0U);
  Checksum checksum;
  int calls = 0;
  EXPECT_EQ(ComputeChecksum(
                file_, [&](u32) { return ++calls < 3; }, &checksum),
            ZNE_TASK_STOPPED);
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(checksum.digest, "");
}

TEST_F(ChecksumTest, OpensRelativeAndAbsolutePaths) {
  folder_.Write("mnt/a b/sub/é 1", "abc");
  EXPECT_EQ(Open("sub/é 1"), 0U);
  EXPECT_EQ(Open("./sub/../sub/é 1"), 0U);
  EXPECT_EQ(Open("/mnt/a b/sub/é 1"), 0U);
  EXPECT_EQ(Open("/mnt/a b//sub/é 1"), 0U);
}

TEST_F(ChecksumTest, RefusesPathsThatLeaveTheFileSystem) {
  folder_.Write("mnt/a b/in", "abc");
  folder_.Write("mnt/out", "abc");
  std::filesystem::create_symlink("../out", folder_.Path() + "/mnt/a b/link");
  std::filesystem::create_symlink("/etc/passwd", folder_.Path() + "/mnt/a b/absolute");
  std::filesystem::create_symlink("in", folder_.Path() + "/mnt/a b/inside");
  EXPECT_EQ(Open("../out"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("/mnt/out"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("/mnt/a b/../out"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("/mnt/a bc"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("link"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("absolute"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("inside"), 0U);
}

TEST_F(ChecksumTest, RefusesWhatIsNoRegularFile) {
  folder_.Write("mnt/a b/sub/file", "abc");
  ASSERT_EQ(mkfifo((folder_.Path() + "/mnt/a b/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Open("sub"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("pipe"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open(""), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open("/mnt/a b/"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Open(std::string("sub/file\0x", 10)), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ChecksumTest, TellsWhatIsNotThere) {
  folder_.Write("mnt/a b/file", "abc");
  EXPECT_EQ(Open("missing"), ZNE_THING_NOT_FOUND);
  EXPECT_EQ(Open("file/below"), ZNE_THING_NOT_FOUND);
  EXPECT_EQ(OpenOnFileSystem(folder_.Path(), "/gone", "file", &file_), ZNE_THING_NOT_FOUND);
}

TEST_F(ChecksumTest, DoesNotCrossIntoAnotherMount) {
  // /proc is another file system wherever this runs.
  EXPECT_EQ(OpenOnFileSystem("", "/", "proc/version", &file_), ZNE_INVALID_ARGUMENTS);
}

TEST_F(ChecksumTest, FollowsAbsoluteLinksOnTheRoot) {
  folder_.Write("file", "abc");
  std::filesystem::create_symlink("/file", folder_.Path() + "/link");
  EXPECT_EQ(OpenOnFileSystem(folder_.Path(), "/", "link", &file_), 0U);
}

}  // namespace
}  // namespace hostinv
