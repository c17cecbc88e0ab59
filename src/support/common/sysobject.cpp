// Threads as handles, and the one call that closes a handle of the kinds that callers own.
#include "support/common/sysobject.h"

#include "support/common/handle.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "zn/platform.h"

namespace zn {

namespace {

// No call resumes a thread, so one that begins suspended could never run.
constexpr u32 kCreateSuspended = 4;

// Whether nothing stands behind the handle that closing it would have to release: an iterator's
// second word is a position, a wait event's the handle of an event that its database owns (or all
// ones after the wait), a thread's its number.
bool IsPlainKind(u32 tag) noexcept {
  return tag == HANDLE_PROPITER || tag == HANDLE_EVENT || tag == HANDLE_THREAD;
}

}  // namespace

}  // namespace zn

extern "C" {

ZnHandle ZnCreateThread(void*, u32 stackSize, u32 (*start)(void*), void* argument, u32 flags,
                        u32* threadId) {
  if (!zn::IsGoodPointer(reinterpret_cast<const void*>(start))) return nullptr;
  if ((flags & zn::kCreateSuspended) != 0) return nullptr;
  ZnHandle handle = zn::AllocateHandle(HANDLE_THREAD, nullptr);
  if (handle == nullptr) return nullptr;
  u32 id = 0;
  if (!zn::StartDetachedThread(start, argument, stackSize, &id)) {
    static_cast<void>(zn::FreeHandle(handle, HANDLE_THREAD));
    return nullptr;
  }
  handle->thing.store(reinterpret_cast<void*>(static_cast<std::uintptr_t>(id)),
                      std::memory_order_relaxed);
  if (threadId != nullptr) *threadId = id;
  return handle;
}

// Contract: ends nothing. A thread stopped from outside would keep the locks it holds for good.
bool ZnTerminateThread(ZnHandle, u32) {
  return true;
}

u32 ZnCloseHandle(ZnHandle handle) {
  const u32 tag = zn::HandleTag(handle);
  if (zn::IsPlainKind(tag)) {
    return zn::FreeHandle(handle, tag) ? ZN_OK : ZNE_INVALID_ARGUMENTS;
  }
  void* thing = nullptr;
  if (!zn::FreeHandle(handle, HANDLE_SYSOBJECT, &thing)) return ZNE_INVALID_ARGUMENTS;
  delete static_cast<zn::SystemObject*>(thing);
  return ZN_OK;
}

}  // extern "C"
