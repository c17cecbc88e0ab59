// A TCP proxy between clients and a server that does to their bytes what a bad network does: it
// cuts them into pieces, holds the pieces back and lets them go together, ends connections in the
// middle of a piece, flips bits. One thread of its own serves all connections; what it does follows
// from the seed and the order in which bytes arrive.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <list>
#include <random>
#include <string>
#include <thread>

#include "zn/types.h"

namespace zn::test {

struct Faults {
  u32 longestDelayUs = 0;     // of a piece, uniform from 0
  u32 longestPiece = 0;       // bytes; 0: nothing is cut up
  u32 cutsPerMillion = 0;     // pieces that end their connection
  u32 damagesPerMillion = 0;  // pieces with a flipped bit
  u32 damagedLifeMs = 0;      // a connection ends so long after its first damage; 0: it does not
};

class FaultProxy {
 public:
  struct Counts {
    std::atomic<u64> connections{0};
    std::atomic<u64> bytes{0};
    std::atomic<u64> pieces{0};
    std::atomic<u64> cuts{0};
    std::atomic<u64> damages{0};
  };

  // Listens on a free port of the loopback address.
  FaultProxy(unsigned serverPort, const Faults& faults, u64 seed);
  ~FaultProxy();
  FaultProxy(const FaultProxy&) = delete;
  FaultProxy& operator=(const FaultProxy&) = delete;

  [[nodiscard]] unsigned Port() const { return port_; }
  [[nodiscard]] const Counts& Done() const { return counts_; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Piece {
    Clock::time_point due;
    std::string bytes;
    bool cutsHere = false;
  };
  // One direction of a connection.
  struct Lane {
    int from = -1;
    int to = -1;
    std::deque<Piece> queue;
    size_t queued = 0;
    Clock::time_point lastDue;
    bool hasEnded = false;  // nothing more comes
    bool isFull = false;    // the last send did not take all
  };
  struct Link {
    Lane up;
    Lane down;
    Clock::time_point endsAt = Clock::time_point::max();
    bool isOver = false;
  };

  void Run();
  void Accept();
  [[nodiscard]] Clock::time_point NextDue() const;
  void Receive(Link& link, Lane& lane);
  void CutUp(Link& link, Lane& lane, std::string_view bytes);
  void SendDue(Link& link, Lane& lane);
  void End(Link& link, bool rudely);
  [[nodiscard]] u32 Below(u32 bound) { return static_cast<u32>(random_() % bound); }
  [[nodiscard]] bool Happens(u32 perMillion) {
    return perMillion != 0 && Below(1'000'000) < perMillion;
  }

  const unsigned serverPort_;
  const Faults faults_;
  std::mt19937_64 random_;
  Counts counts_;
  int listener_ = -1;
  int stop_[2] = {-1, -1};
  unsigned port_ = 0;
  std::list<Link> links_;
  std::thread thread_;
};

}  // namespace zn::test
