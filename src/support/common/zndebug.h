// The trace file: one per process, opened by ZnTraceInit, shared by all threads.
#pragma once

#include <string>

#include "zn/types.h"

namespace zn {

// What ZnTraceInit was given and read.
struct TraceOptions {
  int level;
  u32 size;        // carried, without effect: the file has no size limit
  bool overwrite;  // carried, without effect: the file starts empty with every opening
};

// Replaces the open trace file, if any, by a new, empty one that takes lines from a level on. A
// file that cannot be opened leaves tracing silent.
void OpenTrace(const std::string& path, const TraceOptions& options);

}  // namespace zn
