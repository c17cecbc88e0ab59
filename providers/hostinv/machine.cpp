// The order in which any machine is read: structure first, then figures, so that a thing that has
// just been found never shows empty counters.
#include "machine.h"

#include <algorithm>

#include "mounts.h"
#include "proc_files.h"

namespace hostinv {
namespace {

// The last ticks go over to the fresh list, or a rescan would turn the use of the last period into
// the use since boot.
void KeepTicks(const std::vector<ProcessorState>& old, std::vector<ProcessorState>* fresh) {
  for (ProcessorState& processor : *fresh) {
    const auto same = [&](const ProcessorState& p) { return p.index == processor.index; };
    const auto before = std::find_if(old.begin(), old.end(), same);
    if (before == old.end()) continue;
    processor.usePercent = before->usePercent;
    processor.busyTicks = before->busyTicks;
    processor.totalTicks = before->totalTicks;
  }
}

}  // namespace

void Machine::Scan(Parts parts, MachineState* state) {
  if ((parts & kPartProcessors) != 0) {
    ReadHost(root_, &state->host);
    auto processors = ReadProcessors(root_);
    KeepTicks(state->processors, &processors);
    state->processors = std::move(processors);
  }
  if ((parts & kPartBlocks) != 0) state->blocks = ReadBlocks();
  if ((parts & kPartFileSystems) != 0) state->fileSystems = ReadMounts(root_);
  if ((parts & kPartInterfaces) != 0) state->interfaces = ReadInterfaces();
  Sample(state);
}

void Machine::Sample(MachineState* state) {
  SampleHost(root_, &state->host);
  SampleProcessors(root_, &state->processors);
  SampleMemory(root_, &state->memory);
  SampleBlocks(root_, &state->blocks);
  SampleFileSystems(&state->fileSystems);
  SampleInterfaces(&state->interfaces);
}

}  // namespace hostinv
