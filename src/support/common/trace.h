// The cheap side of tracing: a suppressed line costs one load and one compare, and its arguments
// are not evaluated. The file behind it: zndebug.cpp.
#pragma once

#include <atomic>

#include "zn/trace.h"

namespace zn {

// The level from which lines are written; above every level while tracing is off.
inline constexpr int kTraceOff = 0x7FFFFFFF;
extern std::atomic<int> traceThreshold;

[[nodiscard]] inline bool TraceEnabled(int level) noexcept {
  return level >= traceThreshold.load(std::memory_order_relaxed);
}

#define ZN_TRACE(level, ...)                                                         \
  do {                                                                               \
    if (::zn::TraceEnabled(level)) static_cast<void>(::ZnTrace(level, __VA_ARGS__)); \
  } while (false)

}  // namespace zn
