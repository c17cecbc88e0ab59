// Readers of /proc (and a little of /etc and /sys) below a root folder: the host, its processors,
// its memory and the counters of its disks. The parsers take text and are free of the system.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "machine.h"

namespace hostinv {

// Text of /proc/cpuinfo. Only the fields of the file are filled.
std::vector<ProcessorState> ParseCpuInfo(std::string_view text);

struct ProcessorTicks {
  std::uint64_t busy = 0;
  std::uint64_t total = 0;
};
// Text of /proc/stat: ticks per processor number. Waiting for a disk counts as idle.
std::map<std::uint32_t, ProcessorTicks> ParseProcessorTicks(std::string_view text);
// Percentage between two readings; `before` where no time passed.
std::uint32_t UsePercent(const ProcessorState& before, const ProcessorTicks& now);

MemoryState ParseMemInfo(std::string_view text);

// "0.42" of /proc/loadavg as 42.
std::uint32_t ParseHundredths(std::string_view text);

// Text of /proc/diskstats: counters per device name. Kernels of any age: missing columns are 0.
std::map<std::string, IoCounters, std::less<>> ParseDiskStats(std::string_view text);

// PRETTY_NAME of an os-release file, unquoted.
std::string ParseOsName(std::string_view text);

// Seconds since 1970 of the "btime" line of /proc/stat, 0 without one.
std::int64_t ParseBootTime(std::string_view text);

// What stays until the next boot, and what moves.
void ReadHost(const std::string& root, HostState* host);
void SampleHost(const std::string& root, HostState* host);
std::vector<ProcessorState> ReadProcessors(const std::string& root);
void SampleProcessors(const std::string& root, std::vector<ProcessorState>* processors);
void SampleMemory(const std::string& root, MemoryState* memory);
void SampleBlocks(const std::string& root, std::vector<BlockState>* blocks);

}  // namespace hostinv
