// The slots of the shared memory: see the header.
#include "service/common/authslots.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "framework/common/znguid/guidtext.h"
#include "framework/common/znguid/znguid.h"
#include "framework/common/znwire/messages.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "zn/guid.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr size_t kGuidBytes = sizeof(GUID);
static_assert(wire::kSharedMemoryBytes == wire::kSharedMemorySlots * kGuidBytes);

// Of this process, so that a change of the host's time frees no slot early.
u32 MonotonicSeconds() {
  using std::chrono::duration_cast;
  using std::chrono::seconds;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<u32>(duration_cast<seconds>(now).count()) + 1;
}

}  // namespace

AuthSlots::AuthSlots() : AuthSlots(Clock(MonotonicSeconds)) {}

bool AuthSlots::Create(const std::string& name) {
  ZnHandle area = nullptr;
  void* memory = ZnCreateShMem(name.c_str(), wire::kSharedMemoryBytes, &area);
  if (memory == nullptr) {
    ZN_TRACE(5, "GUID based authentication is not supported");
    return false;
  }
  std::memset(memory, 0, wire::kSharedMemoryBytes);
  const MutexLock lock(mutex_);
  memory_ = static_cast<u8*>(memory);
  area_ = area;
  expiry_.fill(0);
  return true;
}

void AuthSlots::Release() noexcept {
  const MutexLock lock(mutex_);
  if (memory_ == nullptr) return;
  // The GUIDs are of no use any more; who has the memory open is not to keep them.
  std::memset(memory_, 0, wire::kSharedMemoryBytes);
  static_cast<void>(ZnDeleteShMem(memory_, area_));
  memory_ = nullptr;
  area_ = nullptr;
}

bool AuthSlots::Exists() {
  const MutexLock lock(mutex_);
  return memory_ != nullptr;
}

u32 AuthSlots::Choose(u32 offer) {
  if ((offer & wire::kAuthenticationSharedMemory) == 0) return wire::kAuthenticationPassword;
  return Exists() ? wire::kAuthenticationSharedMemory : wire::kAuthenticationPassword;
}

u32 AuthSlots::FindFree(u32 now) const {
  for (u32 slot = kSlots; slot-- > 0;) {
    if (expiry_[slot] == 0 || expiry_[slot] <= now) return slot;
  }
  return kSlots;
}

// Until a slot is given back or the first one's time is over.
void AuthSlots::WaitForFree(u32 now, u32 mostSeconds) {
  u32 seconds = std::min(kSecondsTaken, mostSeconds);
  for (const u32 expiry : expiry_) {
    if (expiry > now && expiry - now < seconds) seconds = expiry - now;
  }
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  static_cast<void>(slotFreed_.WaitUntil(mutex_, until));
}

u32 AuthSlots::PrepForLogon(u32 type, GUID* guid, u32* slot, u32 patience) {
  if (type == wire::kAuthenticationPassword) return ZN_OK;
  if (!Exists()) return ZNW_AUTH_TYPE_UNSUPPORTED;
  if (type == wire::kAuthenticationToken && !IsGoodPointer(guid)) {
    ZN_TRACE(6, "ZnSvc:PrepForLogon() Invalid parameter");
    return ZNE_INVALID_ARGUMENTS;
  }
  GUID fresh{};
  ZN_RETURN_IF_FAILED(ZnGenerateGUID(&fresh));
  const MutexLock lock(mutex_);
  u32 now = clock_();
  const u32 begin = now;
  u32 found = FindFree(now);
  while (found == kSlots && !ended_) {
    const u32 waited = now - begin;
    if (patience != 0 && waited >= patience) return ZNE_TIMED_OUT;
    WaitForFree(now, patience == 0 ? kSecondsTaken : patience - waited);
    now = clock_();
    found = FindFree(now);
  }
  if (found == kSlots || memory_ == nullptr) return ZNE_SHUTDOWN_STARTED;
  expiry_[found] = now + kSecondsTaken;
  std::memcpy(memory_ + found * kGuidBytes, &fresh, kGuidBytes);
  if (slot != nullptr) *slot = found;
  if (guid != nullptr) *guid = fresh;
  return ZN_OK;
}

u32 AuthSlots::LogonUsingAuthTokens(const ZnWChar* guidText) {
  if (!IsGoodPointer(guidText)) {
    ZN_TRACE(5, "ZnSvc:Illegal parameter in LogonUsingAuthTokens");
    return ZNE_TIMED_OUT;
  }
  GUID wanted{};
  const bool isGuid = ParseGuid(ToNarrow(guidText), &wanted) && !IsZeroGuid(wanted);
  const MutexLock lock(mutex_);
  if (memory_ == nullptr) return ZNW_AUTH_TYPE_UNSUPPORTED;
  if (!isGuid) return ZNE_TIMED_OUT;
  for (u32 slot = kSlots; slot-- > 0;) {
    if (std::memcmp(memory_ + slot * kGuidBytes, &wanted, kGuidBytes) != 0) continue;
    expiry_[slot] = 0;
    slotFreed_.NotifyAll();
    return ZN_OK;
  }
  return ZNE_TIMED_OUT;
}

void AuthSlots::EndWaits() {
  const MutexLock lock(mutex_);
  ended_ = true;
  slotFreed_.NotifyAll();
}

void AuthSlots::Wake() {
  const MutexLock lock(mutex_);
  slotFreed_.NotifyAll();
}

}  // namespace zn
