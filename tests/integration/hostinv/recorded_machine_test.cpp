// The recorded tree of a larger machine, read and described as a whole.
#include <filesystem>

#include <gtest/gtest.h>

#include "dump.h"
#include "machine.h"
#include "temporary_folder.h"

namespace hostinv {
namespace {

TEST(RecordedMachine, ShowsTheWholeMachine) {
  const auto machine = MakeRecordedMachine(HOSTINV_TESTS "/tree");
  ASSERT_TRUE(machine);
  MachineState state;
  machine->Scan(kAllParts, &state);
  EXPECT_EQ(Dump(Describe(state)), ExpectedObjects());
}

TEST(RecordedMachine, DoesNotMoveByItself) {
  const auto machine = MakeRecordedMachine(HOSTINV_TESTS "/tree");
  ASSERT_TRUE(machine);
  EXPECT_TRUE(machine->Watches().empty());
  MachineState state;
  machine->Scan(kAllParts, &state);
  const Inventory before = Describe(state);
  machine->Sample(&state);
  EXPECT_TRUE(Compare(before, Describe(state)).IsEmpty());
}

TEST(RecordedMachine, SamplesFiguresAndScansParts) {
  const TemporaryFolder folder;
  folder.Write("sys/class/net/eth0/mtu", "1500\n");
  folder.Write("sys/class/net/eth0/statistics/rx_bytes", "10\n");
  const auto machine = MakeRecordedMachine(folder.Path());
  ASSERT_TRUE(machine);
  MachineState state;
  machine->Scan(kAllParts, &state);
  folder.Write("sys/class/net/eth0/mtu", "9000\n");
  folder.Write("sys/class/net/eth0/statistics/rx_bytes", "20\n");
  folder.Write("sys/class/net/eth1/mtu", "1500\n");
  machine->Sample(&state);
  ASSERT_EQ(state.interfaces.size(), 1U);
  EXPECT_EQ(state.interfaces[0].traffic.receivedBytes, 20U);
  EXPECT_EQ(state.interfaces[0].mtu, 1500U) << "a sample brings figures only";
  machine->Scan(kPartBlocks, &state);
  EXPECT_EQ(state.interfaces.size(), 1U) << "another part was asked for";
  machine->Scan(kPartInterfaces, &state);
  ASSERT_EQ(state.interfaces.size(), 2U);
  EXPECT_EQ(state.interfaces[0].mtu, 9000U);
}

TEST(RecordedMachine, MeasuresUseFromTheLastSampleAcrossARescan) {
  const TemporaryFolder folder;
  folder.Write("proc/cpuinfo", "processor\t: 0\n");
  folder.Write("proc/stat", "cpu0 100 0 0 100\n");
  const auto machine = MakeRecordedMachine(folder.Path());
  ASSERT_TRUE(machine);
  MachineState state;
  machine->Scan(kAllParts, &state);
  ASSERT_EQ(state.processors.size(), 1U);
  EXPECT_EQ(state.processors[0].usePercent, 50U) << "since boot";
  folder.Write("proc/stat", "cpu0 190 0 0 110\n");
  machine->Scan(kAllParts, &state);
  EXPECT_EQ(state.processors[0].usePercent, 90U) << "since the last sample";
}

TEST(RecordedMachine, IsAMachineEvenWhenEmpty) {
  const TemporaryFolder folder;
  const auto machine = MakeRecordedMachine(folder.Path());
  ASSERT_TRUE(machine);
  MachineState state;
  machine->Scan(kAllParts, &state);
  EXPECT_EQ(Describe(state).size(), 2U) << "the host and its memory";
}

TEST(RecordedMachine, NeedsItsFolder) {
  EXPECT_EQ(MakeRecordedMachine("/nonexistent"), nullptr);
  EXPECT_EQ(MakeRecordedMachine(HOSTINV_TESTS "/expected_objects.txt"), nullptr);
}

}  // namespace
}  // namespace hostinv
