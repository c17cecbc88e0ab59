// The edge between code that may throw and a caller that takes a status: whatever is thrown becomes
// one. Takes no lock and traces nothing.
#pragma once

#include <new>

#include "zn/status.h"
#include "zn/types.h"

namespace zn {

template <typename Body>
[[nodiscard]] u32 GuardMemory(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ZNE_OUT_OF_MEMORY;
  } catch (...) {
    return ZNE_UNEXPECTED;
  }
}

}  // namespace zn
