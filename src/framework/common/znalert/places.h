// Insertion places in the narrow texts of an alert: "%1" or "%{1}", 1 to 64, "%%" for a percent
// sign; nothing else may follow a "%". The places of a text are 1 to N, each once, in any order.
// Any thread.
#pragma once

#include <string_view>

#include "zn/types.h"

namespace zn {

inline constexpr u32 kMaxPlaces = 64;

enum class PlaceToken { kEnd, kPercent, kNumber, kOpen, kClose, kText };

// Takes the tokens of a text one by one.
class PlaceParser {
 public:
  // ZNE_INSERTION_FORMAT_INVALID at the first token that cannot stand there. `number` counts for
  // kNumber alone.
  [[nodiscard]] u32 Take(PlaceToken token, u32 number = 0) noexcept;
  // N, after kEnd. ZNE_INSERTION_FORMAT_INVALID when the numbers leave a gap.
  [[nodiscard]] u32 Count(u32* out) const noexcept;

 private:
  enum class State { kOutside, kBehindPercent, kBehindOpen, kBehindNumber };
  [[nodiscard]] u32 TakeBehindPercent(PlaceToken token, u32 number) noexcept;
  [[nodiscard]] u32 TakePlace(u32 number, State next) noexcept;

  State state_ = State::kOutside;
  u64 places_ = 0;  // bit n - 1 for the place n
};

// The number of places in a text, or ZNE_INSERTION_FORMAT_INVALID.
[[nodiscard]] u32 CountPlaces(std::string_view text, u32* out) noexcept;

}  // namespace zn
