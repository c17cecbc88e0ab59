// Waiting for many sockets at once: a set of sockets with keys, one timer and one wake. One half
// per host implements it (posix/). All calls from any thread once Open has returned.
#pragma once

#include "zn/types.h"

namespace zn {

inline constexpr u32 kPollIn = 1;
inline constexpr u32 kPollOut = 2;
inline constexpr u32 kPollGone = 4;  // event only: the peer has closed, or the socket has failed
// Interest: tell once for each time that bytes or room arrive, not as long as they are there.
inline constexpr u32 kPollEdge = 8;
// Interest: tell once, then nothing until Change.
inline constexpr u32 kPollOnce = 16;

inline constexpr u64 kTimerKey = u64{1} << 62;

struct PollEvent {
  u64 key;
  u32 events;
};

class Poller {
 public:
  Poller() = default;
  ~Poller() { Close(); }
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  [[nodiscard]] bool Open();
  void Close();

  [[nodiscard]] bool Add(u32 socket, u64 key, u32 interest);
  // Tells again at once what is there already. Interest 0: nothing but kPollGone by failure.
  void Change(u32 socket, u64 key, u32 interest);
  void Remove(u32 socket);

  enum class WaitResult { kEvent, kTimeout, kWoken };
  inline static constexpr u32 kForever = 0xFFFFFFFFu;
  [[nodiscard]] WaitResult Wait(PollEvent* event, u32 timeoutMs);
  // One event kTimerKey after so long; replaces an earlier wish.
  void SetTimer(u32 ms);
  // Ends every wait, the present and the later ones.
  void WakeAll();

 private:
  int set_ = -1;
  int timer_ = -1;
  int wake_ = -1;
};

}  // namespace zn
