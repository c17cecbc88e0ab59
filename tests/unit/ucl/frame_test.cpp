#include "ucl/common/frame.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/ucl/frame_bytes.h"
#include "zn/memory.h"

namespace zn {
namespace {

using test::FrameBytes;
using test::HeaderBytes;
using test::kEnd;
using test::kHead;
using test::Word;
using Step = FrameReader::Step;

struct Seen {
  FrameHeader header;
  std::string payload;
  bool hadData;
};

// Feeds the bytes in pieces of the given size and keeps what comes out; the step that ended it.
class Feeder {
 public:
  explicit Feeder(u32 limit = 0) : limit_(limit) {}

  Step Feed(const std::string& bytes) {
    const auto* at = reinterpret_cast<const u8*>(bytes.data());
    const u8* const end = at + bytes.size();
    for (;;) {
      ReceivedFrame frame;
      const Step step = reader.Next(&at, end, limit_, &frame);
      if (step == Step::kMore) {
        EXPECT_EQ(at, end);
      }
      if (step != Step::kFrame) return step;
      seen.push_back({frame.header,
                      std::string(reinterpret_cast<const char*>(frame.data), frame.header.length),
                      frame.data != nullptr});
      ZnFree(frame.block);
    }
  }
  Step FeedInPieces(const std::string& bytes, size_t size) {
    for (size_t at = 0; at < bytes.size(); at += size) {
      const Step step = Feed(bytes.substr(at, size));
      if (step != Step::kMore) return step;
    }
    return Step::kMore;
  }

  FrameReader reader;
  std::vector<Seen> seen;

 private:
  u32 limit_;
};

TEST(Frame, HasTheLayoutOfTheWire) {
  u8 header[kFrameHeaderSize];
  EncodeFrameHeader({0x01020304, 2, 0x0A0B0C0D, 0xC1000001}, header);
  const std::string expected =
      kHead + std::string("\0\0\0\0\1\2\3\4\0\0\0\2\x0A\x0B\x0C\x0D\xC1\0\0\1", 20);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(header), sizeof(header)), expected);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(kFrameTrailer), kFrameTrailerSize), kEnd);
  EXPECT_EQ(kHead.size(), 22u);
  EXPECT_EQ(HeaderBytes(0, 1, 2).size(), 42u);
}

TEST(Frame, OfLengthZeroIs64BytesAndHasNoData) {
  const std::string bytes = FrameBytes(2, 7, "");
  EXPECT_EQ(bytes.size(), 64u);
  for (const size_t piece : {size_t{64}, size_t{1}}) {
    Feeder feeder;
    EXPECT_EQ(feeder.FeedInPieces(bytes, piece), Step::kMore);
    ASSERT_EQ(feeder.seen.size(), 1u);
    EXPECT_FALSE(feeder.seen[0].hadData);
    EXPECT_EQ(feeder.seen[0].header.length, 0u);
    EXPECT_EQ(feeder.seen[0].header.id, 7u);
  }
}

TEST(Frame, IsTheSameInPiecesOfAnySize) {
  const std::string bytes = FrameBytes(2, 1, "first") + FrameBytes(1, 2, "", 0xC1000010) +
                            FrameBytes(3, 0xFFFFFFFF, std::string(200, 'x'));
  for (size_t piece = 1; piece <= bytes.size(); ++piece) {
    SCOPED_TRACE(piece);
    Feeder feeder;
    EXPECT_EQ(feeder.FeedInPieces(bytes, piece), Step::kMore);
    ASSERT_EQ(feeder.seen.size(), 3u);
    EXPECT_EQ(feeder.seen[0].payload, "first");
    EXPECT_EQ(feeder.seen[0].header.type, 2u);
    EXPECT_EQ(feeder.seen[1].header.status, 0xC1000010u);
    EXPECT_EQ(feeder.seen[1].header.type, 1u);
    EXPECT_EQ(feeder.seen[2].payload, std::string(200, 'x'));
    EXPECT_EQ(feeder.seen[2].header.id, 0xFFFFFFFFu);
    EXPECT_FALSE(feeder.reader.IsInsideFrame());
  }
}

TEST(Frame, EveryCutLeavesTheReaderAtTheSamePlace) {
  const std::string bytes = FrameBytes(2, 1, "payload");
  for (size_t cut = 0; cut < bytes.size(); ++cut) {
    SCOPED_TRACE(cut);
    Feeder feeder;
    EXPECT_EQ(feeder.Feed(bytes.substr(0, cut)), Step::kMore);
    EXPECT_TRUE(feeder.seen.empty());
    EXPECT_EQ(feeder.reader.IsInsideFrame(), cut >= 42);
    EXPECT_EQ(feeder.Feed(bytes.substr(cut)), Step::kMore);
    EXPECT_EQ(feeder.seen.size(), 1u);
  }
}

TEST(Frame, HeadMarkerThatDiffersInOneCharacterEndsTheStream) {
  for (size_t i = 0; i < 22; ++i) {
    SCOPED_TRACE(i);
    std::string bytes = FrameBytes(2, 1, "x");
    bytes[i] = static_cast<char>(bytes[i] ^ 0x20);
    for (const size_t piece : {bytes.size(), size_t{1}}) {
      Feeder feeder;
      EXPECT_EQ(feeder.FeedInPieces(bytes, piece), Step::kBadMarker);
      EXPECT_TRUE(feeder.seen.empty());
    }
  }
}

TEST(Frame, HeadMarkerIsJudgedWhenTheWholeHeaderIsThere) {
  Feeder feeder;
  EXPECT_EQ(feeder.Feed(std::string(41, 'x')), Step::kMore);
  EXPECT_EQ(feeder.Feed("x"), Step::kBadMarker);
}

TEST(Frame, ReservedWordIsIgnored) {
  std::string bytes = FrameBytes(2, 1, "x");
  bytes.replace(22, 4, Word(0xDEADBEEF));
  Feeder feeder;
  EXPECT_EQ(feeder.Feed(bytes), Step::kMore);
  ASSERT_EQ(feeder.seen.size(), 1u);
  EXPECT_EQ(feeder.seen[0].payload, "x");
}

TEST(Frame, DamagedEndMarkerDropsItsFrameAndTheNextStartsBehindIt) {
  for (size_t i = 0; i < 22; ++i) {
    SCOPED_TRACE(i);
    std::string bytes = FrameBytes(2, 1, "dropped");
    bytes[42 + 7 + i] = static_cast<char>(bytes[42 + 7 + i] ^ 1);
    bytes += FrameBytes(2, 2, "kept");
    for (const size_t piece : {bytes.size(), size_t{1}, size_t{50}}) {
      Feeder feeder;
      EXPECT_EQ(feeder.FeedInPieces(bytes, piece), Step::kMore);
      ASSERT_EQ(feeder.seen.size(), 1u);
      EXPECT_EQ(feeder.seen[0].payload, "kept");
    }
  }
}

TEST(Frame, PayloadMayHoldTheMarkers) {
  const std::string payload = kEnd + kHead + kEnd;
  for (const size_t piece : {size_t{1000}, size_t{1}}) {
    Feeder feeder;
    EXPECT_EQ(feeder.FeedInPieces(FrameBytes(3, 1, payload), piece), Step::kMore);
    ASSERT_EQ(feeder.seen.size(), 1u);
    EXPECT_EQ(feeder.seen[0].payload, payload);
  }
}

TEST(Frame, UnknownTypesAreHandedOn) {
  Feeder feeder;
  EXPECT_EQ(feeder.Feed(FrameBytes(0, 1, "a") + FrameBytes(4, 2, "b")), Step::kMore);
  EXPECT_EQ(feeder.seen.size(), 2u);
}

TEST(Frame, BlockGrowsAsBytesArriveWhateverTheLengthClaims) {
  Feeder feeder;
  EXPECT_EQ(feeder.Feed(HeaderBytes(0xFFFFFFFF, 2, 1)), Step::kMore);
  u8* room = nullptr;
  bool isLast = true;
  size_t received = 0;
  for (int i = 0; i < 6; ++i) {
    const size_t size = feeder.reader.DirectRoom(&room, &isLast);
    EXPECT_GT(size, 0u);
    EXPECT_LE(received + size, std::max<size_t>(64 << 10, received * 2));
    EXPECT_FALSE(isLast);
    feeder.reader.DirectReceived(size);
    received += size;
  }
  EXPECT_EQ(feeder.Feed("slowly"), Step::kMore);
  EXPECT_TRUE(feeder.seen.empty());
}

TEST(Frame, LargestLengthDoesNotOverflow) {
  Feeder feeder;
  const std::string behind(64, 'x');  // length + 22 would be 21 in 32 bits
  EXPECT_EQ(feeder.Feed(HeaderBytes(0xFFFFFFFF, 2, 1) + behind), Step::kMore);
  EXPECT_TRUE(feeder.seen.empty());
  EXPECT_TRUE(feeder.reader.IsInsideFrame());
}

TEST(Frame, LargePayloadIsReceivedStraightIntoItsBlock) {
  std::string payload(300'000, 'a');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>('a' + i % 23);
  const std::string bytes = FrameBytes(2, 9, payload);
  FrameReader reader;
  const auto* at = reinterpret_cast<const u8*>(bytes.data());
  const u8* const end = at + bytes.size();
  const u8* const begun = at + 42 + 1000;
  ReceivedFrame frame;
  ASSERT_EQ(reader.Next(&at, begun, 0, &frame), Step::kMore);
  u8* room = nullptr;
  bool isLast = false;
  size_t direct = 0;
  while (const size_t size = reader.DirectRoom(&room, &isLast)) {
    std::memcpy(room, at, size);
    at += size;
    direct += size;
    reader.DirectReceived(size);
  }
  EXPECT_GT(direct, 250'000u);
  ASSERT_EQ(reader.Next(&at, end, 0, &frame), Step::kFrame);
  ASSERT_NE(frame.block, nullptr);
  EXPECT_EQ(std::string(static_cast<const char*>(frame.block), frame.header.length), payload);
  ZnFree(frame.block);
}

TEST(Frame, LimitIsOnThePayload) {
  Feeder feeder(5);
  EXPECT_EQ(feeder.Feed(FrameBytes(2, 1, "12345")), Step::kMore);
  EXPECT_EQ(feeder.seen.size(), 1u);
  EXPECT_EQ(feeder.Feed(FrameBytes(2, 1, "123456")), Step::kTooLong);
  EXPECT_EQ(feeder.reader.LastHeader().length, 6u);
}

}  // namespace
}  // namespace zn
