// What the provider tells an operator at once, on states of machines made by hand.
#include "alerts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hostinv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

FileSystemState FileSystem(const std::string& mountPoint, std::uint64_t used, std::uint64_t free,
                           const std::string& number = "8:1") {
  FileSystemState state;
  state.mountPoint = mountPoint;
  state.number = number;
  state.size = used + free;
  state.used = used;
  state.free = free;
  return state;
}

InterfaceState Interface(const std::string& name, const std::string& linkState) {
  InterfaceState state;
  state.name = name;
  state.linkState = linkState;
  return state;
}

BlockState Disk(const std::string& name, const std::string& serial = "S1") {
  BlockState state;
  state.name = name;
  state.model = "Model";
  state.serial = serial;
  return state;
}

// An occurrence as a line: kind, key, insertions.
std::vector<std::string> Lines(const std::vector<Occurrence>& occurrences) {
  constexpr const char* kKinds[] = {"full", "normal", "lost", "back", "gone"};
  std::vector<std::string> lines;
  for (const Occurrence& occurrence : occurrences) {
    std::string line = kKinds[static_cast<int>(occurrence.kind)];
    line += " " + occurrence.key;
    for (const std::string& insertion : occurrence.insertions) line += "|" + insertion;
    lines.push_back(line);
  }
  return lines;
}

class AlertsTest : public testing::Test {
 protected:
  std::vector<std::string> LookAt(std::uint64_t usedPercent) {
    state_.fileSystems = {FileSystem("/", usedPercent, 100 - usedPercent)};
    return Lines(alerts_.Look(state_));
  }
  std::vector<std::string> LookAtLink(const char* linkState) {
    state_.interfaces = {Interface("eth0", linkState)};
    return Lines(alerts_.Look(state_));
  }

  Alerts alerts_{AlertLimits{}};
  MachineState state_;
};

TEST_F(AlertsTest, AFileSystemThatFillsUpIsToldOnce) {
  EXPECT_THAT(LookAt(89), IsEmpty());
  EXPECT_THAT(LookAt(90), ElementsAre("full fs:/|/|90|90"));
  EXPECT_THAT(LookAt(90), IsEmpty());
  EXPECT_THAT(LookAt(97), IsEmpty());
}

TEST_F(AlertsTest, AValueThatDancesOnTheLimitIsToldOnce) {
  EXPECT_THAT(LookAt(90), ElementsAre("full fs:/|/|90|90"));
  for (const std::uint64_t percent : {89U, 90U, 88U, 91U, 86U, 95U}) {
    EXPECT_THAT(LookAt(percent), IsEmpty()) << percent;
  }
  EXPECT_THAT(LookAt(85), ElementsAre("normal fs:/|/|85"));
  EXPECT_THAT(LookAt(89), IsEmpty());
  EXPECT_THAT(LookAt(90), ElementsAre("full fs:/|/|90|90"));
}

TEST_F(AlertsTest, OneThatIsFullAtTheStartIsToldThen) {
  EXPECT_THAT(LookAt(99), ElementsAre("full fs:/|/|99|90"));
}

TEST_F(AlertsTest, LimitsAreThoseOfTheSettings) {
  alerts_ = Alerts({.fullPercent = 50, .hysteresis = 0});
  EXPECT_THAT(LookAt(49), IsEmpty());
  EXPECT_THAT(LookAt(50), ElementsAre("full fs:/|/|50|50"));
  EXPECT_THAT(LookAt(50), IsEmpty());
  EXPECT_THAT(LookAt(49), ElementsAre("normal fs:/|/|49"));
  alerts_ = Alerts({.fullPercent = 5, .hysteresis = 90});
  EXPECT_THAT(LookAt(5), ElementsAre("full fs:/|/|5|5"));
  EXPECT_THAT(LookAt(1), IsEmpty());
  EXPECT_THAT(LookAt(0), ElementsAre("normal fs:/|/|0"));
}

TEST_F(AlertsTest, ALimitOfNothingIsNoLimit) {
  alerts_ = Alerts({.fullPercent = 0, .links = false, .disks = false});
  state_.blocks = {Disk("sda")};
  EXPECT_THAT(LookAt(100), IsEmpty());
  EXPECT_THAT(LookAtLink("up"), IsEmpty());
  state_.blocks.clear();
  EXPECT_THAT(LookAtLink("down"), IsEmpty());
}

TEST_F(AlertsTest, WhatCannotBeCleanedUpIsLeftOut) {
  FileSystemState image = FileSystem("/snap", 100, 0);
  image.readOnly = true;
  FileSystemState network = FileSystem("/net", 100, 0, "0:50");
  network.sampled = false;
  state_.fileSystems = {image, network, FileSystem("/empty", 0, 0, "0:7")};
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
}

TEST_F(AlertsTest, AFileSystemAtSeveralPlacesIsToldOnce) {
  state_.fileSystems = {FileSystem("/data", 95, 5), FileSystem("/mnt/again", 95, 5),
                        FileSystem("/other", 95, 5, "8:2")};
  EXPECT_THAT(Lines(alerts_.Look(state_)),
              ElementsAre("full fs:/data|/data|95|90", "full fs:/other|/other|95|90"));
}

TEST_F(AlertsTest, AFileSystemThatComesBackIsToldAgain) {
  EXPECT_THAT(LookAt(95), ElementsAre("full fs:/|/|95|90"));
  state_.fileSystems.clear();
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty()) << "an unmounted one is no alert";
  EXPECT_THAT(LookAt(95), ElementsAre("full fs:/|/|95|90"));
}

TEST(UsedPercent, IsWhatUsersMayFillRoundedUp) {
  EXPECT_EQ(UsedPercent(FileSystem("/", 0, 0)), 0U);
  EXPECT_EQ(UsedPercent(FileSystem("/", 0, 10)), 0U);
  EXPECT_EQ(UsedPercent(FileSystem("/", 1, 999)), 1U);
  EXPECT_EQ(UsedPercent(FileSystem("/", 899, 101)), 90U);
  EXPECT_EQ(UsedPercent(FileSystem("/", 10, 0)), 100U);
  EXPECT_EQ(UsedPercent(FileSystem("/", 1ULL << 62U, 1ULL << 62U)), 50U);
}

TEST_F(AlertsTest, ALinkThatIsLostAndComesBackIsToldOnceEach) {
  EXPECT_THAT(LookAtLink("up"), IsEmpty());
  EXPECT_THAT(LookAtLink("down"), ElementsAre("lost net:eth0|eth0"));
  EXPECT_THAT(LookAtLink("lowerlayerdown"), IsEmpty());
  EXPECT_THAT(LookAtLink("up"), ElementsAre("back net:eth0|eth0"));
  EXPECT_THAT(LookAtLink("up"), IsEmpty());
}

TEST_F(AlertsTest, ALinkThatNeverWasIsNotLost) {
  EXPECT_THAT(LookAtLink("down"), IsEmpty());
  EXPECT_THAT(LookAtLink("up"), IsEmpty());
  EXPECT_THAT(LookAtLink("dormant"), ElementsAre("lost net:eth0|eth0"));
}

TEST_F(AlertsTest, ADriverThatDoesNotTellHasItsLink) {
  EXPECT_THAT(LookAtLink("unknown"), IsEmpty());
  EXPECT_THAT(LookAtLink("up"), IsEmpty());
  EXPECT_THAT(LookAtLink("unknown"), IsEmpty());
  EXPECT_THAT(LookAtLink("down"), ElementsAre("lost net:eth0|eth0"));
}

TEST_F(AlertsTest, AnInterfaceThatGoesIsNoLostLink) {
  EXPECT_THAT(LookAtLink("up"), IsEmpty());
  state_.interfaces.clear();
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
  EXPECT_THAT(LookAtLink("down"), IsEmpty()) << "it is another one";
}

TEST_F(AlertsTest, ADiskThatGoesIsTold) {
  BlockState bare = Disk("vda", "");
  bare.model.clear();
  bare.size = 3ULL << 30U;
  state_.blocks = {Disk("sda"), Disk("sdb", ""), bare};
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
  state_.blocks.clear();
  EXPECT_THAT(Lines(alerts_.Look(state_)),
              ElementsAre("gone block:sda|/dev/sda|Model, S1", "gone block:sdb|/dev/sdb|Model",
                          "gone block:vda|/dev/vda|3.0 GiB"));
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
}

TEST_F(AlertsTest, AnotherDiskUnderTheNameMeansThatTheFirstIsGone) {
  state_.blocks = {Disk("sda", "S1")};
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
  state_.blocks = {Disk("sda", "S2")};
  EXPECT_THAT(Lines(alerts_.Look(state_)), ElementsAre("gone block:sda|/dev/sda|Model, S1"));
}

TEST_F(AlertsTest, WhatMayBePulledOutOrIsMadeBySoftwareMayGo) {
  BlockState stick = Disk("sdc");
  stick.removable = true;
  BlockState partition = Disk("sda1");
  partition.disk = "sda";
  BlockState raid = Disk("md0");
  raid.parts = {"sda", "sdb"};
  state_.blocks = {stick, partition, raid, Disk("loop3"), Disk("zram0"), Disk("dm-1")};
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
  state_.blocks.clear();
  EXPECT_THAT(Lines(alerts_.Look(state_)), IsEmpty());
}

}  // namespace
}  // namespace hostinv
