// The frame of every exported function: entry trace, FAST_LOCK, the body with its checks in
// argument order, FAST_UNLOCK, exit trace. No exception leaves it. Where an export departs from the
// frame (no exit trace, a check before the lock, another text) that is a visible argument or line
// there.
#pragma once

#include <new>
#include <utility>

#include "framework/common/zncore/database.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/types.h"

namespace zn {

// Passes every result but 0 up: for checks whose refusal may be a warning (0x81000054).
#define ZN_RETURN_UNLESS_OK(expression)     \
  do {                                      \
    const u32 znStatus = (expression);      \
    if (znStatus != ZN_OK) return znStatus; \
  } while (false)

struct FrameTraces {
  bool entry = true;
  bool exit = true;
};

class ApiFrame {
 public:
  explicit ApiFrame(const char* name, FrameTraces traces = {}) noexcept
      : name_(name), traces_(traces) {
    if (traces_.entry) ZN_TRACE(1, "ZnAPI:Entering %s", name_);
    FAST_LOCK();
  }
  ApiFrame(const ApiFrame&) = delete;
  ApiFrame& operator=(const ApiFrame&) = delete;

  [[nodiscard]] u32 Leave(u32 status) noexcept {
    FAST_UNLOCK();
    if (traces_.exit) ZN_TRACE(1, "ZnAPI:Exiting %s: 0x%x, %u", name_, status, status);
    return status;
  }

  // ZNE_INVALID_ARGUMENTS with its trace unless the check passed.
  [[nodiscard]] u32 Check(bool passed) const noexcept {
    if (passed) [[likely]] {
      return ZN_OK;
    }
    return Refuse("Invalid arguments");
  }
  // Traces "ZnAPI:<name>: <why>"; answers ZNE_INVALID_ARGUMENTS.
  [[nodiscard]] u32 Refuse(const char* why) const noexcept;
  // The database that a checked handle names, authorised. ZNE_INVALID_ARGUMENTS or
  // ZNW_SHMEM_LOGIN_FAILED, traced: use ZN_RETURN_UNLESS_OK.
  [[nodiscard]] u32 OpenDatabase(ZnHandle handle, Database** out) const noexcept;
  // The same, and the object: ZNE_OBJECT_NOT_FOUND, untraced.
  [[nodiscard]] u32 OpenObject(ZnHandle handle, const ObjectId& id, Database** database,
                               DBNode** out) const noexcept;

 private:
  const char* name_;
  FrameTraces traces_;
};

template <typename Body>
[[nodiscard]] u32 ApiCall(const char* name, FrameTraces traces, Body&& body) noexcept {
  ApiFrame frame(name, traces);
  try {
    return frame.Leave(body(frame));
  } catch (const std::bad_alloc&) {
    return frame.Leave(ZNE_OUT_OF_MEMORY);
  } catch (...) {
    return frame.Leave(ZNE_UNEXPECTED);
  }
}
template <typename Body>
[[nodiscard]] u32 ApiCall(const char* name, Body&& body) noexcept {
  return ApiCall(name, FrameTraces{}, std::forward<Body>(body));
}

// Argument checks that several families share.
[[nodiscard]] inline bool IsDatabaseHandle(ZnHandle handle) noexcept {
  return IsValidHandleOrNull(handle, HANDLE_DATABASE);
}
[[nodiscard]] inline bool IsProviderHandle(ZnHandle handle) noexcept {
  return IsValidHandle(handle, HANDLE_PROVIDER);
}
[[nodiscard]] inline bool IsPropsetHandle(ZnHandle handle) noexcept {
  return IsValidHandle(handle, HANDLE_PROPSET);
}

}  // namespace zn
