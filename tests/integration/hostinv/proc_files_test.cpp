// Readers of /proc: each file's odd forms, and files that are missing.
#include "proc_files.h"

#include <gtest/gtest.h>

#include "temporary_folder.h"

namespace hostinv {
namespace {

TEST(ProcFiles, ReadsCpuInfoOfX86) {
  const auto list = ParseCpuInfo(
      "processor\t: 0\nvendor_id\t: GenuineIntel\nmodel name\t: Xeon: fast\n"
      "cpu MHz\t\t: 2100.983\ncpu cores\t: 8\n\nprocessor\t: 3\nmodel name\t: Xeon: fast\n");
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].vendor, "GenuineIntel");
  EXPECT_EQ(list[0].model, "Xeon: fast");
  EXPECT_EQ(list[0].cores, 8U);
  EXPECT_EQ(list[0].frequencyMHz, 2100U);
  EXPECT_EQ(list[1].index, 3U);
}

TEST(ProcFiles, ReadsCpuInfoOfArm) {
  const auto list = ParseCpuInfo(
      "processor\t: 0\nBogoMIPS\t: 108.00\nCPU implementer\t: 0x41\n\nHardware\t: BCM2711\n");
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].vendor, "0x41");
  EXPECT_EQ(list[0].model, "");
  EXPECT_EQ(list[0].frequencyMHz, 0U);
}

TEST(ProcFiles, TakesTheFrequencyFromSysWhereCpuInfoHasNone) {
  const TemporaryFolder folder;
  folder.Write("proc/cpuinfo", "processor\t: 0\n");
  folder.Write("sys/devices/system/cpu/cpu0/cpufreq/scaling_cur_freq", "1500000\n");
  auto list = ReadProcessors(folder.Path());
  SampleProcessors(folder.Path(), &list);
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].frequencyMHz, 1500U);
  EXPECT_EQ(list[0].cores, 1U);
}

TEST(ProcFiles, CountsWaitingForADiskAsIdle) {
  const auto ticks = ParseProcessorTicks(
      "cpu  9 9 9 9 9 9 9 9 9 9\n"
      "cpu0 10 20 30 400 500 1 2 3 1000 1000\n"
      "cpu12 1 0 0 1\n"
      "intr 5\n");
  ASSERT_EQ(ticks.size(), 2U);
  EXPECT_EQ(ticks.at(0).busy, 66U);
  EXPECT_EQ(ticks.at(0).total, 966U);
  EXPECT_EQ(ticks.at(12).busy, 1U);
  EXPECT_EQ(ticks.at(12).total, 2U);
}

TEST(ProcFiles, MeasuresUseBetweenTwoReadings) {
  ProcessorState before;
  before.busyTicks = 100;
  before.totalTicks = 1000;
  before.usePercent = 77;
  EXPECT_EQ(UsePercent(before, {150, 1200}), 25U);
  EXPECT_EQ(UsePercent(before, {300, 1200}), 100U);
  EXPECT_EQ(UsePercent(before, {100, 1000}), 77U) << "no time has passed";
  EXPECT_EQ(UsePercent(before, {90, 1100}), 77U) << "the kernel's count stepped back";
}

TEST(ProcFiles, EstimatesAvailableMemoryOnOldKernels) {
  const MemoryState fresh = ParseMemInfo("MemTotal: 100 kB\nMemFree: 10 kB\nMemAvailable: 60 kB\n");
  EXPECT_EQ(fresh.total, 102400U);
  EXPECT_EQ(fresh.available, 61440U);
  EXPECT_EQ(fresh.swapTotal, 0U);
  const MemoryState old =
      ParseMemInfo("MemTotal: 100 kB\nMemFree: 10 kB\nBuffers: 5 kB\nCached: 7 kB\n");
  EXPECT_EQ(old.available, 22U * 1024);
}

TEST(ProcFiles, ReadsHundredths) {
  EXPECT_EQ(ParseHundredths("0.42"), 42U);
  EXPECT_EQ(ParseHundredths("12.05"), 1205U);
  EXPECT_EQ(ParseHundredths("3"), 300U);
  EXPECT_EQ(ParseHundredths(""), 0U);
}

TEST(ProcFiles, ReadsDiskStatsOfAnyKernel) {
  const auto counters = ParseDiskStats(
      "   8       0 sda 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n"
      "   8       1 sda1 1 2 3 4\n"
      "broken line\n\n");
  ASSERT_EQ(counters.size(), 2U);
  const IoCounters& disk = counters.at("sda");
  EXPECT_EQ(disk.reads, 1U);
  EXPECT_EQ(disk.readBytes, 3U * 512);
  EXPECT_EQ(disk.writes, 5U);
  EXPECT_EQ(disk.writtenBytes, 7U * 512);
  EXPECT_EQ(disk.ioTimeMs, 10U);
  EXPECT_EQ(counters.at("sda1").writes, 0U);
}

TEST(ProcFiles, UnquotesTheNameOfTheSystem) {
  EXPECT_EQ(ParseOsName("ID=x\nPRETTY_NAME=\"A \\ B\"\n"), "A \\ B");
  EXPECT_EQ(ParseOsName("PRETTY_NAME='A B'"), "A B");
  EXPECT_EQ(ParseOsName("PRETTY_NAME=Plain\n"), "Plain");
  EXPECT_EQ(ParseOsName("PRETTY_NAME=\"\n"), "\"");
  EXPECT_EQ(ParseOsName("NAME=x\n"), "");
}

TEST(ProcFiles, FallsBackToTheSystemsOwnOsRelease) {
  const TemporaryFolder folder;
  folder.Write("usr/lib/os-release", "PRETTY_NAME=Second\n");
  HostState host;
  ReadHost(folder.Path(), &host);
  EXPECT_EQ(host.operatingSystem, "Second");
}

TEST(ProcFiles, FindsTheBootTime) {
  EXPECT_EQ(ParseBootTime("cpu 1\nbtime 1700000000\n"), 1700000000);
  EXPECT_EQ(ParseBootTime("cpu 1\n"), 0);
}

TEST(ProcFiles, MakesDoWithMissingFiles) {
  const TemporaryFolder folder;
  HostState host;
  ReadHost(folder.Path(), &host);
  SampleHost(folder.Path(), &host);
  EXPECT_EQ(host.name, "");
  EXPECT_EQ(host.architecture, "");
  EXPECT_EQ(host.load1Percent, 0U);
  EXPECT_TRUE(ReadProcessors(folder.Path()).empty());
  MemoryState memory;
  SampleMemory(folder.Path(), &memory);
  EXPECT_EQ(memory.total, 0U);
}

}  // namespace
}  // namespace hostinv
