// Fuzzes the reader of frames against a model that knows the whole stream. The first byte of the
// input chooses how it is cut into pieces, the second the limit; "\r\n-" marks in the rest stand
// for whole markers, so that mutations find frames quickly.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ucl/common/frame.h"
#include "zn/memory.h"

namespace {

using zn::FrameReader;
using Step = FrameReader::Step;

const std::string kHead("\r\n--#UCL_DATA_HEAD#--\0", 22);
const std::string kEnd("\r\n--#UCL_DATA__END#--\0", 22);

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

// "\r\n-H" becomes the head marker, "\r\n-E" the end marker.
std::string Expand(const std::string& input) {
  std::string out;
  for (size_t i = 0; i < input.size(); ++i) {
    const bool isMark = input.compare(i, 3, "\r\n-") == 0 && i + 3 < input.size();
    if (isMark && (input[i + 3] == 'H' || input[i + 3] == 'E')) {
      out += input[i + 3] == 'H' ? kHead : kEnd;
      i += 3;
    } else {
      out += input[i];
    }
  }
  return out;
}

u32 WordAt(const std::string& bytes, size_t at) {
  u32 value = 0;
  for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<u8>(bytes[at + i]);
  return value;
}

struct Outcome {
  std::vector<std::string> frames;  // 16 bytes of header, then the payload
  Step end = Step::kMore;
  bool isInside = false;
  bool operator==(const Outcome&) const = default;
};

// What the stream means, read as a whole.
Outcome Model(const std::string& bytes, u32 limit) {
  Outcome outcome;
  size_t at = 0;
  while (bytes.size() - at >= zn::kFrameHeaderSize) {
    if (bytes.compare(at, 22, kHead) != 0) {
      outcome.end = Step::kBadMarker;
      return outcome;
    }
    const u64 length = WordAt(bytes, at + 26);
    if (limit != 0 && length > limit) {
      outcome.end = Step::kTooLong;
      return outcome;
    }
    if (bytes.size() - at < zn::kFrameHeaderSize + length + zn::kFrameTrailerSize) {
      outcome.isInside = true;
      return outcome;
    }
    const size_t payload = at + zn::kFrameHeaderSize;
    if (bytes.compare(payload + length, 22, kEnd) == 0) {
      outcome.frames.push_back(bytes.substr(at + 26, 16) + bytes.substr(payload, length));
    }
    at = payload + length + zn::kFrameTrailerSize;
  }
  return outcome;
}

std::string Described(const zn::ReceivedFrame& frame) {
  u8 header[zn::kFrameHeaderSize];
  zn::EncodeFrameHeader(frame.header, header);
  std::string text(reinterpret_cast<const char*>(header) + 26, 16);
  Require((frame.data == nullptr) == (frame.header.length == 0), "data of an empty frame");
  if (frame.data != nullptr) {
    text.append(reinterpret_cast<const char*>(frame.data), frame.header.length);
  }
  return text;
}

// The bytes in pieces; every other one is received straight into the block where there is room.
Outcome Read(const std::string& bytes, u32 limit, size_t pieceSize) {
  FrameReader reader;
  Outcome outcome;
  const auto* at = reinterpret_cast<const u8*>(bytes.data());
  const u8* const end = at + bytes.size();
  bool isDirect = false;
  while (at != end && outcome.end == Step::kMore) {
    u8* room = nullptr;
    bool isLast = false;
    const size_t direct = isDirect ? reader.DirectRoom(&room, &isLast) : 0;
    isDirect = !isDirect;
    if (direct > 0) {
      const size_t count = std::min<size_t>(direct, static_cast<size_t>(end - at));
      std::memcpy(room, at, count);
      reader.DirectReceived(count);
      at += count;
      continue;
    }
    const u8* const piece = at + std::min<size_t>(pieceSize, static_cast<size_t>(end - at));
    zn::ReceivedFrame frame;
    Step step = Step::kFrame;
    while ((step = reader.Next(&at, piece, limit, &frame)) == Step::kFrame) {
      outcome.frames.push_back(Described(frame));
      ZnFree(frame.block);
    }
    Require(step != Step::kNoMemory, "memory");
    Require(step != Step::kMore || at == piece, "a piece consumed");
    outcome.end = step;
  }
  outcome.isInside = outcome.end == Step::kMore && reader.IsInsideFrame();
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t pieceSize = size_t{data[0]} + 1;
  const u32 limit = data[1] == 0 ? 0 : u32{data[1]} * 8;
  const std::string bytes = Expand(std::string(reinterpret_cast<const char*>(data) + 2, size - 2));
  const Outcome expected = Model(bytes, limit);
  Require(Read(bytes, limit, pieceSize) == expected, "the same in pieces");
  Require(Read(bytes, limit, bytes.size() + 1) == expected, "the same at once");
  return 0;
}
