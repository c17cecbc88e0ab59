// The trace file: one per process, opened by ZnTraceInit, shared by all threads.
#pragma once

#include <string>

namespace zn {

// Replaces the open trace file, if any, by a new, empty one and sets the level from which lines are
// written. A file that cannot be opened leaves tracing silent.
void OpenTrace(const std::string& path, int level);

}  // namespace zn
