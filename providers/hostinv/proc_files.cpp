// Readers of /proc; see the header.
#include "proc_files.h"

#include <sys/utsname.h>

#include <algorithm>

#include "text.h"

namespace hostinv {
namespace {

// /proc/diskstats counts in sectors of this size whatever the device's own is.
constexpr std::uint64_t kSectorSize = 512;

std::string ReadOr(const std::string& path) {
  return ReadFile(path).value_or(std::string());
}

// The number in the wanted column, 0 where the line is shorter.
std::uint64_t Column(const std::vector<std::string_view>& fields, std::size_t index) {
  return index < fields.size() ? ParseNumber(fields[index]) : 0;
}

void SetCpuField(std::string_view key, std::string_view value, ProcessorState* processor) {
  if (key == "vendor_id" || key == "CPU implementer") processor->vendor = value;
  if (key == "model name" || key == "cpu model") processor->model = value;
  if (key == "cpu cores") processor->cores = static_cast<std::uint32_t>(ParseNumber(value));
  if (key == "cpu MHz") processor->frequencyMHz = static_cast<std::uint32_t>(ParseNumber(value));
}

// Architectures whose cpuinfo has no frequency tell it (in kHz) through cpufreq.
void FillFrequency(const std::string& root, ProcessorState* processor) {
  if (processor->frequencyMHz != 0) return;
  const std::string folder =
      root + "/sys/devices/system/cpu/cpu" + std::to_string(processor->index) + "/cpufreq/";
  const std::uint64_t kiloHertz = ReadNumber(folder + "scaling_cur_freq");
  processor->frequencyMHz = static_cast<std::uint32_t>(kiloHertz / 1000);
}

}  // namespace

std::vector<ProcessorState> ParseCpuInfo(std::string_view text) {
  std::vector<ProcessorState> processors;
  for (const std::string_view line : SplitLines(text)) {
    std::string_view key;
    std::string_view value;
    if (!SplitPair(line, ':', &key, &value)) continue;
    if (key == "processor") {
      processors.emplace_back().index = static_cast<std::uint32_t>(ParseNumber(value));
    } else if (!processors.empty()) {
      SetCpuField(key, value, &processors.back());
    }
  }
  return processors;
}

std::map<std::uint32_t, ProcessorTicks> ParseProcessorTicks(std::string_view text) {
  constexpr std::size_t kIdle = 4;
  constexpr std::size_t kIoWait = 5;
  constexpr std::size_t kSteal = 8;  // guest time behind it is already part of user time
  std::map<std::uint32_t, ProcessorTicks> ticks;
  for (const std::string_view line : SplitLines(text)) {
    const auto fields = SplitFields(line);
    // "cpu" alone is the sum of all.
    if (fields.empty() || fields[0].size() < 4 || fields[0].substr(0, 3) != "cpu") continue;
    ProcessorTicks& entry = ticks[static_cast<std::uint32_t>(ParseNumber(fields[0].substr(3)))];
    for (std::size_t i = 1; i <= kSteal; ++i) entry.total += Column(fields, i);
    entry.busy = entry.total - Column(fields, kIdle) - Column(fields, kIoWait);
  }
  return ticks;
}

std::uint32_t UsePercent(const ProcessorState& before, const ProcessorTicks& now) {
  // The idle columns may step back a little; such a reading says nothing.
  if (now.total <= before.totalTicks || now.busy < before.busyTicks) return before.usePercent;
  const std::uint64_t busy = now.busy - before.busyTicks;
  const std::uint64_t total = now.total - before.totalTicks;
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(100, busy * 100 / total));
}

MemoryState ParseMemInfo(std::string_view text) {
  std::map<std::string_view, std::uint64_t> bytes;
  for (const std::string_view line : SplitLines(text)) {
    std::string_view key;
    std::string_view value;
    if (SplitPair(line, ':', &key, &value)) bytes[key] = ParseNumber(value) * 1024;
  }
  MemoryState memory;
  memory.total = bytes["MemTotal"];
  memory.available = bytes.contains("MemAvailable")
                         ? bytes["MemAvailable"]
                         : bytes["MemFree"] + bytes["Buffers"] + bytes["Cached"];
  memory.swapTotal = bytes["SwapTotal"];
  memory.swapFree = bytes["SwapFree"];
  return memory;
}

std::uint32_t ParseHundredths(std::string_view text) {
  const std::size_t point = text.find('.');
  std::uint64_t value = ParseNumber(text) * 100;
  if (point != std::string_view::npos && point + 2 < text.size()) {
    value += ParseNumber(text.substr(point + 1, 2));
  }
  return static_cast<std::uint32_t>(value);
}

std::map<std::string, IoCounters, std::less<>> ParseDiskStats(std::string_view text) {
  std::map<std::string, IoCounters, std::less<>> counters;
  for (const std::string_view line : SplitLines(text)) {
    const auto fields = SplitFields(line);
    if (fields.size() < 3) continue;
    IoCounters& entry = counters[std::string(fields[2])];
    entry.reads = Column(fields, 3);
    entry.readBytes = Column(fields, 5) * kSectorSize;
    entry.writes = Column(fields, 7);
    entry.writtenBytes = Column(fields, 9) * kSectorSize;
    entry.ioTimeMs = Column(fields, 12);
  }
  return counters;
}

std::string ParseOsName(std::string_view text) {
  for (const std::string_view line : SplitLines(text)) {
    std::string_view key;
    std::string_view value;
    if (!SplitPair(line, '=', &key, &value) || key != "PRETTY_NAME") continue;
    const bool quoted = value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                        value.back() == value.front();
    return std::string(quoted ? value.substr(1, value.size() - 2) : value);
  }
  return {};
}

std::int64_t ParseBootTime(std::string_view text) {
  for (const std::string_view line : SplitLines(text)) {
    const auto fields = SplitFields(line);
    if (fields.size() == 2 && fields[0] == "btime") {
      return static_cast<std::int64_t>(ParseNumber(fields[1]));
    }
  }
  return 0;
}

void ReadHost(const std::string& root, HostState* host) {
  host->kernel = ReadValue(root + "/proc/sys/kernel/osrelease");
  host->architecture = ReadValue(root + "/proc/sys/kernel/arch");
  // Kernels before 6.1 have no such file.
  utsname names{};
  if (host->architecture.empty() && root.empty() && uname(&names) == 0) {
    host->architecture = names.machine;
  }
  host->bootTime = ParseBootTime(ReadOr(root + "/proc/stat"));
  // The first place may be edited by the owner; the second is where the system keeps its own.
  host->operatingSystem = ParseOsName(ReadOr(root + "/etc/os-release"));
  if (host->operatingSystem.empty()) {
    host->operatingSystem = ParseOsName(ReadOr(root + "/usr/lib/os-release"));
  }
}

void SampleHost(const std::string& root, HostState* host) {
  host->name = ReadValue(root + "/proc/sys/kernel/hostname");
  host->uptimeSeconds = ReadNumber(root + "/proc/uptime");
  const std::string loads = ReadValue(root + "/proc/loadavg");
  const auto fields = SplitFields(loads);
  if (fields.size() < 3) return;
  host->load1Percent = ParseHundredths(fields[0]);
  host->load5Percent = ParseHundredths(fields[1]);
  host->load15Percent = ParseHundredths(fields[2]);
}

std::vector<ProcessorState> ReadProcessors(const std::string& root) {
  auto processors = ParseCpuInfo(ReadOr(root + "/proc/cpuinfo"));
  for (ProcessorState& processor : processors) processor.cores = std::max(processor.cores, 1U);
  return processors;
}

void SampleProcessors(const std::string& root, std::vector<ProcessorState>* processors) {
  std::map<std::uint32_t, std::uint32_t> frequencies;
  for (const ProcessorState& fresh : ParseCpuInfo(ReadOr(root + "/proc/cpuinfo"))) {
    frequencies[fresh.index] = fresh.frequencyMHz;
  }
  const auto ticks = ParseProcessorTicks(ReadOr(root + "/proc/stat"));
  for (ProcessorState& processor : *processors) {
    processor.frequencyMHz = frequencies[processor.index];
    FillFrequency(root, &processor);
    const auto found = ticks.find(processor.index);
    if (found == ticks.end()) continue;
    processor.usePercent = UsePercent(processor, found->second);
    processor.busyTicks = found->second.busy;
    processor.totalTicks = found->second.total;
  }
}

void SampleMemory(const std::string& root, MemoryState* memory) {
  *memory = ParseMemInfo(ReadOr(root + "/proc/meminfo"));
}

void SampleBlocks(const std::string& root, std::vector<BlockState>* blocks) {
  const auto counters = ParseDiskStats(ReadOr(root + "/proc/diskstats"));
  for (BlockState& block : *blocks) {
    const auto found = counters.find(block.name);
    if (found != counters.end()) block.io = found->second;
  }
}

}  // namespace hostinv
