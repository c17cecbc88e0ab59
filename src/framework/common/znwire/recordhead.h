// Property sets written straight to a stream, without a set in memory: the count, then for each
// property its head (tag, name, flags 0) and its value, in strcmp order of the names. The bytes are
// those of PropertySet::Marshal. The bytes of a head are made at compile time, so that a property
// of a record costs one copy.
#pragma once

#include <cstring>

#include "framework/common/znstream/znstream.h"
#include "zn/types.h"

namespace zn::wire {

template <size_t kNameSize>  // the name's terminator counted
struct PropertyHead {
  u8 bytes[kNameSize + 11];
};

template <size_t kNameSize>
[[nodiscard]] consteval PropertyHead<kNameSize> HeadOf(u32 tag, const char (&name)[kNameSize]) {
  PropertyHead<kNameSize> head{};
  u8* at = head.bytes;
  for (const u32 word : {tag, static_cast<u32>(kNameSize - 1)}) {
    for (u32 shift = 32; shift != 0; shift -= 8) *at++ = static_cast<u8>(word >> (shift - 8));
  }
  for (size_t i = 0; i + 1 < kNameSize; ++i) *at++ = static_cast<u8>(name[i]);
  return head;
}

template <size_t kNameSize>
void WriteHead(BinaryWriter& stream, const PropertyHead<kNameSize>& head) {
  stream.WriteRaw(head.bytes, sizeof(head.bytes));
}

// A count that is known only once its elements are written.
class CountPlace {
 public:
  explicit CountPlace(BinaryWriter& stream) : stream_(stream), offset_(stream.Buffer().Size()) {
    stream.WriteUInt32(0);
  }
  void Set(u32 count) noexcept { StoreU32(stream_.Buffer().At(offset_), count); }

 private:
  BinaryWriter& stream_;
  u32 offset_;
};

}  // namespace zn::wire
