// A round of one-way frames in the form in which it goes to every target: the same pieces, made
// once. Small frames lie one behind the other in shared chunks, large payloads stay where they are.
#pragma once

#include <memory>
#include <vector>

#include "ucl/common/out_queue.h"
#include "ucl/common/ucl.h"

namespace zn {

class CommObject;

class UclPayload {
 public:
  UclPayload(std::shared_ptr<const void> block, u32 length)
      : block_(std::move(block)), length_(length) {}
  [[nodiscard]] const void* Data() const noexcept { return block_.get(); }
  [[nodiscard]] u32 Length() const noexcept { return length_; }

 private:
  const std::shared_ptr<const void> block_;
  const u32 length_;
};

struct SendingRound {
  std::vector<OutPiece> pieces;
  u64 bytes = 0;
  std::vector<UclTapFrame> frames;  // what the tap is told; empty while there is none
};

// Each frame draws its id from the owner. The buffers must outlive nothing: what is kept is shared.
[[nodiscard]] SendingRound MakeRound(CommObject& owner, const UclBuffer* buffers, u32 count);

}  // namespace zn
