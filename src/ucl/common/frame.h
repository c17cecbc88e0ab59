// The frame: how one buffer travels. All integers are u32, most significant byte first.
//
//   offset      size    field
//   0           21      head marker "\r\n--#UCL_DATA_HEAD#--"
//   21          1       0
//   22          4       reserved: 0 when sent, ignored when received
//   26          4       length of the payload
//   30          4       type: 1 response, 2 request, 3 one-way
//   34          4       id: chosen by the requester, repeated in the response
//   38          4       status: of the callback in a response, else 0
//   42          length  payload, of which this layer knows nothing
//   42+length   21      end marker "\r\n--#UCL_DATA__END#--"
//   63+length   1       0
//
// Never cut, never joined, no versions. Pure code: no socket, no thread, no lock.
#pragma once

#include <cstddef>

#include "zn/types.h"

namespace zn {

inline constexpr u32 kFrameHeaderSize = 42;
inline constexpr u32 kFrameTrailerSize = 22;

inline constexpr u32 kFrameResponse = 1;
inline constexpr u32 kFrameRequest = 2;
inline constexpr u32 kFrameOneWay = 3;

struct FrameHeader {
  u32 length = 0;
  u32 type = 0;
  u32 id = 0;
  u32 status = 0;
};

void EncodeFrameHeader(const FrameHeader& header, u8* out) noexcept;  // kFrameHeaderSize bytes
// False when the head marker is not there.
[[nodiscard]] bool DecodeFrameHeader(const u8* in, FrameHeader* header) noexcept;
extern const u8 kFrameTrailer[kFrameTrailerSize];

// A whole frame as it came. `data` points to the payload, null when there is none; when `block` is
// set, it is that payload in a block of ZnAlloc, which the receiver of the frame frees or keeps.
struct ReceivedFrame {
  FrameHeader header;
  const u8* data = nullptr;
  void* block = nullptr;
};

// Makes frames of a stream of bytes that comes in pieces of any size. A frame that lies in one
// piece is handed out where it lies; any other is collected in a block of its own that grows as its
// bytes arrive, whatever length its header claims. One user at a time.
class FrameReader {
 public:
  FrameReader() = default;
  ~FrameReader();
  FrameReader(const FrameReader&) = delete;
  FrameReader& operator=(const FrameReader&) = delete;

  enum class Step {
    kFrame,      // *frame is set
    kMore,       // everything is consumed
    kBadMarker,  // not a frame: the stream is of no more use, nor is the reader
    kTooLong,    // the same: a payload beyond `limit` (LastHeader tells)
    kNoMemory,   // the same
  };
  // Consumes bytes from *at on, at most up to `end`, until a frame is complete. A frame with a
  // damaged end marker is dropped without a word. `limit` 0 means none.
  [[nodiscard]] Step Next(const u8** at, const u8* end, u32 limit, ReceivedFrame* frame);

  // Room in the block of an unfinished payload, to be received into directly; 0 when there is no
  // such payload or when it wants fewer bytes than are worth it. *isLast: it takes all that is
  // missing of the payload.
  [[nodiscard]] size_t DirectRoom(u8** room, bool* isLast);
  void DirectReceived(size_t count) noexcept { received_ += static_cast<u32>(count); }

  // A header was read and its frame is not complete.
  [[nodiscard]] bool IsInsideFrame() const noexcept { return hasHeader_; }
  [[nodiscard]] const FrameHeader& LastHeader() const noexcept { return header_; }

 private:
  [[nodiscard]] Step ReadHeader(const u8** at, const u8* end, u32 limit);
  [[nodiscard]] bool TakeWhole(const u8** at, const u8* end, ReceivedFrame* frame) noexcept;
  [[nodiscard]] bool Collect(const u8** at, const u8* end);
  [[nodiscard]] bool Grow();
  void Reset() noexcept;

  FrameHeader header_;
  bool hasHeader_ = false;
  u8 small_[kFrameHeaderSize] = {};  // of the header, then of the trailer
  u32 smallCount_ = 0;
  u8* block_ = nullptr;
  u32 capacity_ = 0;
  u32 received_ = 0;
};

}  // namespace zn
