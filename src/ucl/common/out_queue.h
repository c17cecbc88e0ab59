// What a connection still has to send when its socket took no more: pieces of frames in the order
// of the wire. Used under the connection's send lock; exists only while there is something in it.
#pragma once

#include <memory>
#include <vector>

#include "ucl/common/sockets.h"

namespace zn {

struct OutPiece {
  const u8* data = nullptr;
  size_t length = 0;
  std::shared_ptr<const void> keep;  // owns the bytes; empty for constants and for the caller's own
  bool isOneWay = false;             // counts for the bound of the queue
  bool endsAnswer = false;
  bool* sent = nullptr;  // set when the piece has left; the caller whose bytes it borrows
};

class OutQueue {
 public:
  void Append(OutPiece piece);
  [[nodiscard]] bool IsEmpty() const noexcept { return first_ == pieces_.size(); }
  // The first pieces, at most kMostParts; their count.
  [[nodiscard]] size_t Parts(BytePart (&parts)[kMostParts], size_t* bytes) const noexcept;
  // So many bytes have left.
  void Consume(size_t bytes) noexcept;
  [[nodiscard]] u64 OneWayBytes() const noexcept { return oneWayBytes_; }
  [[nodiscard]] u32 Answers() const noexcept { return answers_; }
  // The piece that borrows its caller's bytes gets a copy of its own. False when memory is short.
  [[nodiscard]] bool OwnBorrowed(const bool* sent);

 private:
  std::vector<OutPiece> pieces_;
  size_t first_ = 0;
  u64 oneWayBytes_ = 0;
  u32 answers_ = 0;
};

// A block of ZnAlloc, owned.
[[nodiscard]] std::shared_ptr<const void> KeepBlock(void* block);
// A copy of bytes, owned. Empty when memory is short.
[[nodiscard]] std::shared_ptr<const void> KeepCopy(const void* data, size_t length);

}  // namespace zn
