#include "ucl/common/round.h"

#include "ucl/common/comm_object.h"
#include "ucl/common/frame.h"
#include "ucl/common/tap.h"
#include "zn/memory.h"

namespace zn {

namespace {

// A payload up to this size is copied into the chunk, once for all targets; that is cheaper than a
// piece of its own for each.
constexpr u32 kMostCopied = 16 << 10;
constexpr size_t kChunkSize = size_t{256} << 10;

class RoundMaker {
 public:
  explicit RoundMaker(SendingRound& round) : round_(round) {}

  void Add(const FrameHeader& header, const UclBuffer& buffer) {
    if (chunk_.size() >= kChunkSize) Flush();
    u8 head[kFrameHeaderSize];
    EncodeFrameHeader(header, head);
    chunk_.insert(chunk_.end(), head, head + sizeof(head));
    const u8* payload = buffer != nullptr ? static_cast<const u8*>(buffer->Data()) : nullptr;
    if (header.length <= kMostCopied) {
      if (header.length > 0) chunk_.insert(chunk_.end(), payload, payload + header.length);
    } else {
      Flush();
      AddPiece(payload, header.length, buffer);
    }
    chunk_.insert(chunk_.end(), kFrameTrailer, kFrameTrailer + kFrameTrailerSize);
  }

  void Flush() {
    if (chunk_.empty()) return;
    const auto chunk = std::make_shared<const std::vector<u8>>(std::move(chunk_));
    chunk_.clear();
    AddPiece(chunk->data(), chunk->size(), chunk);
  }

 private:
  void AddPiece(const u8* data, size_t length, std::shared_ptr<const void> keep) {
    OutPiece piece;
    piece.data = data;
    piece.length = length;
    piece.keep = std::move(keep);
    piece.isOneWay = true;
    round_.pieces.push_back(std::move(piece));
    round_.bytes += length;
  }

  SendingRound& round_;
  std::vector<u8> chunk_;
};

}  // namespace

UclBuffer UCLMakeBuffer(void* block, u32 length) {
  try {
    return std::make_shared<const UclPayload>(KeepBlock(block), length);
  } catch (const std::bad_alloc&) {  // the block is freed where its owner could not be made
    return nullptr;
  }
}

SendingRound MakeRound(CommObject& owner, const UclBuffer* buffers, u32 count) {
  SendingRound round;
  RoundMaker maker(round);
  for (u32 i = 0; i < count; ++i) {
    const u32 length = buffers[i] != nullptr ? buffers[i]->Length() : 0;
    const FrameHeader header{length, kFrameOneWay, owner.NextSendId(), 0};
    maker.Add(header, buffers[i]);
    if (!IsTapped()) continue;
    const void* payload = buffers[i] != nullptr ? buffers[i]->Data() : nullptr;
    round.frames.push_back(
        {true, owner.IsServer(), 0, kFrameOneWay, header.id, 0, length, payload});
  }
  maker.Flush();
  return round;
}

}  // namespace zn
