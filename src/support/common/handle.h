// Handle records. All of them lie in one arena of type-stable memory that is never given back: a
// freed record reads as tag 0 and is reused last-freed-last, and not before a thousand others were
// freed, so the check of any handle, stale or foreign, is an address-range test and one compare,
// without touching freed memory.
#pragma once

#include <atomic>

#include "zn/types.h"

struct ZnHandleRecord {
  std::atomic<u32> tag;
  std::atomic<u32> state;    // of a client session's record; unused in others
  std::atomic<void*> thing;  // atomic because a call with a stale handle may read it at any time
};

namespace zn {

// Bounds of the arena; base 0 until the first handle is made.
struct HandleArenaBounds {
  std::atomic<std::uintptr_t> base;
  std::atomic<size_t> bytes;
};
extern HandleArenaBounds handleArena;

// Bit 0 is set while the library is alive. Only the server's shutdown clears it, for good: every
// handle check fails from then on.
extern std::atomic<u32> libraryAlive;

// A new record, or null when memory is short. Any thread.
[[nodiscard]] ZnHandle AllocateHandle(u32 tag, void* thing) noexcept;
// Frees a live record of that tag; false when it is none. Of two concurrent frees one answers true.
// The second form hands over what the record stood for.
[[nodiscard]] bool FreeHandle(ZnHandle handle, u32 tag) noexcept;
[[nodiscard]] bool FreeHandle(ZnHandle handle, u32 tag, void** thing) noexcept;
// Frees a live record of whatever tag.
[[nodiscard]] bool FreeAnyHandle(ZnHandle handle) noexcept;

// Whether the address is that of a record of the arena, live or not.
[[nodiscard]] inline bool IsHandleAddress(const void* address) noexcept {
  // The acquire: who sees the size sees the base too.
  const size_t bytes = handleArena.bytes.load(std::memory_order_acquire);
  const auto offset =
      reinterpret_cast<std::uintptr_t>(address) - handleArena.base.load(std::memory_order_relaxed);
  return offset < bytes && offset % sizeof(ZnHandleRecord) == 0;
}

// The tag of a record, 0 for a freed one and for whatever is no handle.
[[nodiscard]] inline u32 HandleTag(ZnHandle handle) noexcept {
  return IsHandleAddress(handle) ? handle->tag.load(std::memory_order_acquire) : 0;
}

[[nodiscard]] inline bool IsValidHandle(ZnHandle handle, u32 tag) noexcept {
  return (libraryAlive.load(std::memory_order_relaxed) & 1u) != 0 && HandleTag(handle) == tag;
}
[[nodiscard]] inline bool IsValidHandleOrNull(ZnHandle handle, u32 tag) noexcept {
  return handle == nullptr ? (libraryAlive.load(std::memory_order_relaxed) & 1u) != 0
                           : IsValidHandle(handle, tag);
}

// What the record stands for. The handle has been checked.
template <typename T>
[[nodiscard]] T* HandleThing(ZnHandle handle) noexcept {
  return static_cast<T*>(handle->thing.load(std::memory_order_relaxed));
}

// The same for a handle that another thread may free at this moment: null unless the record had the
// tag both before and after the look. What it stands for may be gone by the time the caller uses
// it, so this is for things that are never given back to the heap.
template <typename T>
[[nodiscard]] T* LiveHandleThing(ZnHandle handle, u32 tag) noexcept {
  if (HandleTag(handle) != tag) return nullptr;
  // The acquire keeps the second look at the tag behind the look at the thing.
  T* thing = static_cast<T*>(handle->thing.load(std::memory_order_acquire));
  return handle->tag.load(std::memory_order_relaxed) == tag ? thing : nullptr;
}

// An owned record that goes with its owner.
class OwnedHandle {
 public:
  OwnedHandle() = default;
  OwnedHandle(u32 tag, void* thing) noexcept : handle_(AllocateHandle(tag, thing)), tag_(tag) {}
  ~OwnedHandle() { Reset(); }
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  [[nodiscard]] ZnHandle Get() const noexcept { return handle_; }
  void Reset() noexcept {
    if (handle_ != nullptr) static_cast<void>(FreeHandle(handle_, tag_));
    handle_ = nullptr;
  }

 private:
  ZnHandle handle_ = nullptr;
  u32 tag_ = 0;
};

}  // namespace zn
