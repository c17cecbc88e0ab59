// The switches of the two traces that are off unless asked for: the dispatch of requests and the
// sending of notifications. They lie in the table that the host of the server gave to its start:
// row 0 for the former, row 1 for the latter. The host may set them again while the server runs.
#pragma once

#include <atomic>

#include "zn/types.h"

namespace zn {

class TraceFlags {
 public:
  // The table lives as long as the server; null: both are off. A row with an empty name ends it.
  void Use(TraceFlagRow* table) noexcept {
    rows_ = table;
    count_ = 0;
    while (table != nullptr && count_ < 2 && table[count_].name[0] != 0) ++count_;
  }
  [[nodiscard]] TraceFlagRow* Table() const noexcept { return rows_; }
  [[nodiscard]] bool Dispatch() const noexcept { return IsSet(0); }
  [[nodiscard]] bool Notifications() const noexcept { return IsSet(1); }

 private:
  [[nodiscard]] bool IsSet(u32 row) const noexcept {
    return row < count_ &&
           std::atomic_ref<u8>(rows_[row].flag).load(std::memory_order_relaxed) != 0;
  }

  TraceFlagRow* rows_ = nullptr;
  u32 count_ = 0;
};

}  // namespace zn
