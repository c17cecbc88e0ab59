// The shared memory through which a local client proves that it runs as who the service runs as:
// 32 slots of one GUID each, readable for that user alone. A slot is prepared when a session is
// negotiated, the client reads its GUID from the memory and sends it back as its user name.
#pragma once

#include <array>
#include <functional>
#include <string>

#include "support/common/sync.h"
#include "zn/types.h"

namespace zn {

class AuthSlots {
 public:
  using Clock = std::function<u32()>;  // seconds, of any origin above 0

  AuthSlots();
  explicit AuthSlots(Clock clock) : clock_(std::move(clock)) {}
  ~AuthSlots() { Release(); }
  AuthSlots(const AuthSlots&) = delete;
  AuthSlots& operator=(const AuthSlots&) = delete;

  // Makes the area. False, traced, when there is none; every logon then needs a password.
  [[nodiscard]] bool Create(const std::string& name);
  void Release() noexcept;
  [[nodiscard]] bool Exists();

  // The authentication type for an offer: shared memory where both sides have it, else password.
  // A type that a host of ours cannot grant counts as not offered.
  [[nodiscard]] u32 Choose(u32 offer);

  // Prepares a slot for a session of that type, which waits for a free one as long as all are
  // taken: a slot is taken for ten seconds, or until its GUID is used. `guid` and `slot` may be
  // null. The wait has no end of its own; `patience` is for a peer that is dropped after so many
  // seconds, for whom nobody should wait on (0: no bound). Nothing to do for a password.
  // ZNW_AUTH_TYPE_UNSUPPORTED without shared memory, ZNE_INVALID_ARGUMENTS (traced) for a token
  // without a place for it, ZNE_TIMED_OUT after the patience, ZNE_SHUTDOWN_STARTED once the waits
  // were ended, the failure of the GUID's making.
  [[nodiscard]] u32 PrepForLogon(u32 type, GUID* guid, u32* slot, u32 patience = 0);
  // Looks for the GUID among the slots, whoever it was prepared for, and frees its slot.
  // Contract: the GUID stays where it is and matches again until the slot is used anew; that the
  // ten seconds are over does not matter. The GUID of all zeros, which slots hold that were never
  // used, matches none.
  // ZNE_TIMED_OUT when there is none, and (traced) for null; ZNW_AUTH_TYPE_UNSUPPORTED.
  [[nodiscard]] u32 LogonUsingAuthTokens(const ZnWChar* guidText);

  // The service stops: no slot is waited for any longer.
  void EndWaits();
  // For the tests: waiters look at the clock again.
  void Wake();

 private:
  static constexpr u32 kSlots = 32;
  static constexpr u32 kSecondsTaken = 10;

  // The highest free slot, or kSlots.
  [[nodiscard]] u32 FindFree(u32 now) const ZN_REQUIRES(mutex_);
  void WaitForFree(u32 now, u32 mostSeconds) ZN_REQUIRES(mutex_);

  Clock clock_;
  Mutex mutex_;
  Condition slotFreed_;
  bool ended_ ZN_GUARDED_BY(mutex_) = false;
  u8* memory_ ZN_GUARDED_BY(mutex_) = nullptr;  // the GUIDs, as they lie in memory
  ZnHandle area_ ZN_GUARDED_BY(mutex_) = nullptr;
  std::array<u32, kSlots> expiry_ ZN_GUARDED_BY(mutex_){};  // 0: free
};

}  // namespace zn
