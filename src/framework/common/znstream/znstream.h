// Streams of the marshalled form. All integers are big-endian, nothing is aligned, nothing precedes
// the first byte: the receiver has only the length that the transport gave it.
//
//   property set   count i32, then each property in strcmp order of the names
//   property       tag u32, name (string), flags i32, value by tag
//   string         length u32, bytes, no terminator
//   wide string    count of units u32, units, no terminator
//   binary         length u32, bytes
//   guid           Data1 u32, Data2 u16, Data3 u16, Data4 8 bytes as they stand
//   array          count u32, elements without tag, name or flags
//
// BinaryWriter appends to a StreamBuffer it owns; BinaryReader reads bytes it borrows and bounds
// what hostile bytes can cost: a length or count beyond the bytes left fails before anything is
// allocated, room for counted things grows as they are read, and sets nest kMaxNesting deep at
// most. XmlTextStream writes the text dress of the same data, for logs; it is never read back.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

#include "framework/common/widestring/widestring.h"
#include "framework/common/znguid/znguid.h"
#include "framework/common/znstring/znstring.h"
#include "support/common/status.h"
#include "zn/types.h"

namespace zn {

// A growing byte buffer: below 1,024,000 bytes it doubles, above it grows by an eighth,
// or to what is needed, in whole 8192 bytes, so that a very large set does not double its
// footprint.
class StreamBuffer {
 public:
  StreamBuffer() = default;
  ~StreamBuffer();
  StreamBuffer(const StreamBuffer&) = delete;
  StreamBuffer& operator=(const StreamBuffer&) = delete;

  // Room for `count` more bytes at the returned place, counted as written. Throws std::bad_alloc.
  [[nodiscard]] u8* Extend(size_t count) {
    if (capacity_ - size_ < count) Grow(count);
    u8* place = data_ + size_;
    size_ += static_cast<u32>(count);
    return place;
  }
  [[nodiscard]] u32 Size() const noexcept { return size_; }
  [[nodiscard]] u32 Capacity() const noexcept { return capacity_; }
  [[nodiscard]] const u8* Data() const noexcept { return data_; }
  // Drops what was written behind the first `size` bytes.
  void CutTo(u32 size) noexcept { size_ = size; }
  // A place that was written before; dead with the next Extend.
  [[nodiscard]] u8* At(u32 offset) noexcept { return data_ + offset; }
  // Hands the block over; it is freed with ZnFree. Null when nothing was written.
  [[nodiscard]] void* Take(u32* length) noexcept;

 private:
  void Grow(size_t count);

  u8* data_ = nullptr;
  u32 capacity_ = 0;
  u32 size_ = 0;
};

// Byte order lives in these and nowhere else.
inline void StoreU16(u8* at, u16 v) noexcept {
  v = __builtin_bswap16(v);
  std::memcpy(at, &v, 2);
}
inline void StoreU32(u8* at, u32 v) noexcept {
  v = __builtin_bswap32(v);
  std::memcpy(at, &v, 4);
}
inline void StoreU64(u8* at, u64 v) noexcept {
  v = __builtin_bswap64(v);
  std::memcpy(at, &v, 8);
}
[[nodiscard]] inline u16 LoadU16(const u8* at) noexcept {
  u16 v = 0;
  std::memcpy(&v, at, 2);
  return __builtin_bswap16(v);
}
[[nodiscard]] inline u32 LoadU32(const u8* at) noexcept {
  u32 v = 0;
  std::memcpy(&v, at, 4);
  return __builtin_bswap32(v);
}
[[nodiscard]] inline u64 LoadU64(const u8* at) noexcept {
  u64 v = 0;
  std::memcpy(&v, at, 8);
  return __builtin_bswap64(v);
}

// Writing throws std::bad_alloc and fails in no other way.
class BinaryWriter {
 public:
  void WriteRaw(const void* data, size_t count) {
    if (count != 0) std::memcpy(buffer_.Extend(count), data, count);
  }
  void WriteUInt8(u8 v) { *buffer_.Extend(1) = v; }
  void WriteUInt32(u32 v) { StoreU32(buffer_.Extend(4), v); }
  void WriteInt32(i32 v) { WriteUInt32(static_cast<u32>(v)); }
  void WriteUInt64(u64 v) { StoreU64(buffer_.Extend(8), v); }
  void WriteInt64(i64 v) { WriteUInt64(static_cast<u64>(v)); }
  void WriteString(std::string_view text) {
    u8* at = buffer_.Extend(4 + text.size());
    StoreU32(at, static_cast<u32>(text.size()));
    std::memcpy(at + 4, text.data(), text.size());
  }
  void WriteBinary(const void* data, u32 length) {
    WriteUInt32(length);
    WriteRaw(data, length);
  }
  void WriteWideString(std::u16string_view text);
  void WriteGuid(const GUID& guid);
  // For a codec that lays out a whole record at once.
  [[nodiscard]] u8* Extend(size_t count) { return buffer_.Extend(count); }
  [[nodiscard]] StreamBuffer& Buffer() noexcept { return buffer_; }

 private:
  StreamBuffer buffer_;
};

inline constexpr u32 kMaxNesting = 256;
// For so many properties or elements room is made ahead. Room for a whole count would be taken anew
// on every level of nesting, on the promise of the same bytes.
inline constexpr u32 kRoomAhead = 64;

// What becomes of properties with a name that this process has never met: kKnown leaves them out.
// Nobody could ask for them, and a peer that has not logged on could otherwise fill the table of
// names.
enum class NamesRead : u8 { kAll, kKnown };

// Every read answers 0 or ZNE_UNEXPECTED, and writes its result on success only.
class BinaryReader {
 public:
  BinaryReader(const void* data, size_t length, NamesRead names = NamesRead::kAll) noexcept
      : at_(static_cast<const u8*>(data)), end_(at_ + length), names_(names) {}
  [[nodiscard]] NamesRead Names() const noexcept { return names_; }

  [[nodiscard]] size_t Left() const noexcept { return static_cast<size_t>(end_ - at_); }
  // The next `count` bytes in place, or null when there are fewer.
  [[nodiscard]] const u8* Take(size_t count) noexcept {
    if (Left() < count) return nullptr;
    const u8* place = at_;
    at_ += count;
    return place;
  }
  [[nodiscard]] u32 ReadUInt8(u8* out) noexcept;
  [[nodiscard]] u32 ReadUInt32(u32* out) noexcept {
    const u8* at = Take(4);
    if (at == nullptr) return ZNE_UNEXPECTED;
    *out = LoadU32(at);
    return ZN_OK;
  }
  [[nodiscard]] u32 ReadUInt64(u64* out) noexcept {
    const u8* at = Take(8);
    if (at == nullptr) return ZNE_UNEXPECTED;
    *out = LoadU64(at);
    return ZN_OK;
  }
  // A length or count word, then that many units of `unit` bytes in place.
  [[nodiscard]] u32 ReadCounted(size_t unit, const u8** out, u32* count) noexcept {
    u32 units = 0;
    ZN_RETURN_IF_FAILED(ReadUInt32(&units));
    if (units > Left() / unit) return ZNE_UNEXPECTED;
    *out = Take(units * unit);
    *count = units;
    return ZN_OK;
  }
  [[nodiscard]] u32 ReadWideString(WideString* out);
  [[nodiscard]] u32 ReadGuid(GUID* out) noexcept;

  // Nesting of sets: Enter before a nested set, Leave behind it.
  [[nodiscard]] u32 Enter() noexcept { return ++depth_ > kMaxNesting ? ZNE_UNEXPECTED : ZN_OK; }
  void Leave() noexcept { --depth_; }

 private:
  const u8* at_;
  const u8* end_;
  u32 depth_ = 0;
  NamesRead names_;
};

// The text dress: elements around numbers and texts, nothing escaped, binary left out on purpose.
class XmlTextStream {
 public:
  void BeginElement(std::string_view name);
  void EndElement(std::string_view name);
  void WriteRaw(const void* data, size_t count);
  void WriteNumber(i64 v);    // "%lld "
  void WriteUnsigned(u64 v);  // "%llu "
  void WriteBinary();         // the constant text and its NUL
  void WriteString(std::string_view text) { text_.append(text); }
  void WriteGuid(const GUID& guid);
  // The whole document with its terminator as a ZnAlloc block; null when memory is short.
  [[nodiscard]] void* Document(u32* length) const;

 private:
  std::string text_;
};

}  // namespace zn
