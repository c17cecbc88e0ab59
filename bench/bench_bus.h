// What the benchmarks share: a running bus with a provider of the program's own, and statuses that
// must be good.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "zn/znmira.h"

namespace zn::bench {

inline void Must(u32 status, const char* what) {
  if (!ZN_FAILED(status)) return;
  std::fprintf(stderr, "%s: 0x%x %s\n", what, status, ZnSysGetErrorString(0, status));
  std::exit(1);
}
#define ZN_MUST(expression) ::zn::bench::Must((expression), #expression)

// The system database, started at the first call with settings of its own.
struct Bus {
  ZnHandle database;
  ZnHandle provider;
};
const Bus& TheBus();

// Calls to the provider's event slot so far.
u64 EventsReceived() noexcept;
void WaitForEvents(u64 count) noexcept;

// A type with uint32 "Count", int64 "Total", string "Label" besides the two of every object: five
// default properties.
inline constexpr const char* kFiveType = "Bench_Five";

inline Property2 UInt32Property(const char* name, u32* value) {
  return {const_cast<char*>(name), ZN_TYPE_UINT32, 0, sizeof *value, value};
}

}  // namespace zn::bench
