#include "ucl/common/out_queue.h"

#include <cstdlib>
#include <cstring>

#include "zn/memory.h"

namespace zn {

std::shared_ptr<const void> KeepBlock(void* block) {
  return {block, [](const void* p) { ZnFree(const_cast<void*>(p)); }};
}

std::shared_ptr<const void> KeepCopy(const void* data, size_t length) {
  void* copy = std::malloc(length);
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, data, length);
  return {copy, [](const void* p) { std::free(const_cast<void*>(p)); }};
}

void OutQueue::Append(OutPiece piece) {
  if (piece.isOneWay) oneWayBytes_ += piece.length;
  if (piece.endsAnswer) ++answers_;
  pieces_.push_back(std::move(piece));
}

size_t OutQueue::Parts(BytePart (&parts)[kMostParts], size_t* bytes) const noexcept {
  size_t count = 0;
  *bytes = 0;
  for (size_t i = first_; i < pieces_.size() && count < kMostParts; ++i) {
    parts[count++] = {pieces_[i].data, pieces_[i].length};
    *bytes += pieces_[i].length;
  }
  return count;
}

void OutQueue::Consume(size_t bytes) noexcept {
  while (bytes > 0) {
    OutPiece& piece = pieces_[first_];
    const size_t taken = bytes < piece.length ? bytes : piece.length;
    piece.data += taken;
    piece.length -= taken;
    bytes -= taken;
    if (piece.isOneWay) oneWayBytes_ -= taken;
    if (piece.length > 0) return;
    if (piece.endsAnswer) --answers_;
    if (piece.sent != nullptr) *piece.sent = true;
    piece = {};
    ++first_;
  }
  // What has left is given back in large steps.
  if (first_ > 1024 && first_ * 2 > pieces_.size()) {
    pieces_.erase(pieces_.begin(), pieces_.begin() + static_cast<std::ptrdiff_t>(first_));
    first_ = 0;
  }
}

bool OutQueue::OwnBorrowed(const bool* sent) {
  for (size_t i = first_; i < pieces_.size(); ++i) {
    OutPiece& piece = pieces_[i];
    if (piece.sent != sent) continue;
    piece.sent = nullptr;
    piece.keep = KeepCopy(piece.data, piece.length);
    piece.data = static_cast<const u8*>(piece.keep.get());
    return piece.data != nullptr;
  }
  return true;
}

}  // namespace zn
