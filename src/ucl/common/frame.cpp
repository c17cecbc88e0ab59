#include "ucl/common/frame.h"

#include <algorithm>
#include <cstring>

#include "zn/memory.h"

namespace zn {

namespace {

// The markers with the zero that ends them on the wire. The third is reserved and never sent: a
// response is a frame of its type with the head marker.
constexpr u32 kMarkerSize = 22;
constexpr char kHeadMarker[] = "\r\n--#UCL_DATA_HEAD#--";
constexpr char kEndMarker[] = "\r\n--#UCL_DATA__END#--";
[[maybe_unused]] constexpr char kResponseMarker[] = "\r\n--#UCL_DATA_RESP#--";
static_assert(sizeof(kHeadMarker) == kMarkerSize && sizeof(kEndMarker) == kMarkerSize);
static_assert(kFrameHeaderSize == kMarkerSize + 5 * 4 && kFrameTrailerSize == kMarkerSize);

constexpr u32 kFirstBlock = 64 << 10;
// Fewer bytes than these are received with what follows them and copied.
constexpr u32 kLeastDirect = 16 << 10;

void PutU32(u8* out, u32 value) noexcept {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<u8>(value >> (24 - 8 * i));
}

u32 GetU32(const u8* in) noexcept {
  return u32{in[0]} << 24 | u32{in[1]} << 16 | u32{in[2]} << 8 | u32{in[3]};
}

}  // namespace

const u8 kFrameTrailer[kFrameTrailerSize] = {'\r', '\n', '-', '-', '#', 'U', 'C', 'L',
                                             '_',  'D',  'A', 'T', 'A', '_', '_', 'E',
                                             'N',  'D',  '#', '-', '-', 0};

void EncodeFrameHeader(const FrameHeader& header, u8* out) noexcept {
  std::memcpy(out, kHeadMarker, kMarkerSize);
  PutU32(out + 22, 0);
  PutU32(out + 26, header.length);
  PutU32(out + 30, header.type);
  PutU32(out + 34, header.id);
  PutU32(out + 38, header.status);
}

bool DecodeFrameHeader(const u8* in, FrameHeader* header) noexcept {
  if (std::memcmp(in, kHeadMarker, kMarkerSize) != 0) return false;
  *header = {GetU32(in + 26), GetU32(in + 30), GetU32(in + 34), GetU32(in + 38)};
  return true;
}

FrameReader::~FrameReader() {
  ZnFree(block_);
}

void FrameReader::Reset() noexcept {
  hasHeader_ = false;
  smallCount_ = 0;
  block_ = nullptr;
  capacity_ = 0;
  received_ = 0;
}

FrameReader::Step FrameReader::ReadHeader(const u8** at, const u8* end, u32 limit) {
  const u8* from = *at;
  if (smallCount_ == 0 && static_cast<size_t>(end - from) >= kFrameHeaderSize) {
    *at += kFrameHeaderSize;
  } else {
    const size_t count =
        std::min<size_t>(kFrameHeaderSize - smallCount_, static_cast<size_t>(end - from));
    if (count != 0) std::memcpy(small_ + smallCount_, from, count);
    smallCount_ += static_cast<u32>(count);
    *at += count;
    if (smallCount_ < kFrameHeaderSize) return Step::kMore;
    from = small_;
  }
  if (!DecodeFrameHeader(from, &header_)) return Step::kBadMarker;
  if (limit != 0 && header_.length > limit) return Step::kTooLong;
  hasHeader_ = true;
  smallCount_ = 0;
  return Step::kFrame;
}

// The rest of the frame when all of it lies in the piece.
bool FrameReader::TakeWhole(const u8** at, const u8* end, ReceivedFrame* frame) noexcept {
  const u64 whole = u64{header_.length} + kFrameTrailerSize;
  if (received_ != 0 || smallCount_ != 0 || static_cast<u64>(end - *at) < whole) return false;
  *frame = {header_, header_.length == 0 ? nullptr : *at, nullptr};
  std::memcpy(small_, *at + header_.length, kFrameTrailerSize);
  smallCount_ = kFrameTrailerSize;
  *at += static_cast<size_t>(whole);
  return true;
}

bool FrameReader::Grow() {
  const u64 wanted = std::max<u64>(kFirstBlock, u64{capacity_} * 2);
  const u32 capacity = static_cast<u32>(std::min<u64>(wanted, header_.length));
  void* block = ZnRealloc(block_, capacity);
  if (block == nullptr) return false;
  block_ = static_cast<u8*>(block);
  capacity_ = capacity;
  return true;
}

bool FrameReader::Collect(const u8** at, const u8* end) {
  while (received_ < header_.length && *at != end) {
    if (received_ == capacity_ && !Grow()) return false;
    const size_t count = std::min<size_t>(capacity_ - received_, static_cast<size_t>(end - *at));
    std::memcpy(block_ + received_, *at, count);
    received_ += static_cast<u32>(count);
    *at += count;
  }
  if (received_ < header_.length) return true;
  const size_t count =
      std::min<size_t>(kFrameTrailerSize - smallCount_, static_cast<size_t>(end - *at));
  if (count != 0) std::memcpy(small_ + smallCount_, *at, count);
  smallCount_ += static_cast<u32>(count);
  *at += count;
  return true;
}

FrameReader::Step FrameReader::Next(const u8** at, const u8* end, u32 limit, ReceivedFrame* frame) {
  for (;;) {
    if (!hasHeader_) {
      const Step step = ReadHeader(at, end, limit);
      if (step != Step::kFrame) return step;
    }
    if (!TakeWhole(at, end, frame)) {
      if (!Collect(at, end)) return Step::kNoMemory;
      if (received_ < header_.length || smallCount_ < kFrameTrailerSize) return Step::kMore;
      *frame = {header_, block_, block_};
    }
    const bool isWhole = std::memcmp(small_, kFrameTrailer, kFrameTrailerSize) == 0;
    Reset();
    if (isWhole) return Step::kFrame;
    // Contract: a damaged end marker drops its frame silently; reading goes on behind it.
    ZnFree(frame->block);
    *frame = {};
  }
}

size_t FrameReader::DirectRoom(u8** room, bool* isLast) {
  if (!hasHeader_ || received_ == header_.length) return 0;
  if (header_.length - received_ < kLeastDirect) return 0;
  if (received_ == capacity_ && !Grow()) return 0;
  *room = block_ + received_;
  *isLast = capacity_ == header_.length;
  return capacity_ - received_;
}

}  // namespace zn
