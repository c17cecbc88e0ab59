// The byte buffer, the parts of the binary streams that are not inlined, and the text dress.
#include "framework/common/znstream/znstream.h"

#include <cstdio>
#include <cstdlib>
#include <new>

#include "support/common/block.h"

namespace zn {

namespace {

constexpr u32 kFirstCapacity = 0x400;
constexpr u32 kGrain = 0x2000;
constexpr u32 kDoublingLimit = 0xFA000;
constexpr u64 kLargestBuffer = 0xFFFFFFFFu;

u8* PutUnit(u8* at, ZnWChar unit) noexcept {
  StoreU16(at, static_cast<u16>(unit));
  return at + 2;
}

}  // namespace

StreamBuffer::~StreamBuffer() {
  std::free(data_);
}

void StreamBuffer::Grow(size_t count) {
  u64 wanted = kFirstCapacity;
  if (size_ + u64{count} > kFirstCapacity || data_ != nullptr) {
    const u64 needed = size_ + u64{count};
    wanted = (needed / kGrain + 1) * kGrain;
    if (wanted < u64{capacity_} * 2 && wanted < kDoublingLimit) wanted = u64{capacity_} * 2;
    // By an eighth at least: grain by grain, a copy of each step would cost the square of the size.
    const u64 stepped = u64{capacity_} + capacity_ / 8;
    if (wanted >= kDoublingLimit && wanted < stepped) wanted = (stepped / kGrain + 1) * kGrain;
  }
  if (wanted > kLargestBuffer) wanted = kLargestBuffer;
  if (wanted < size_ + u64{count}) throw std::bad_alloc();
  void* grown = std::realloc(data_, static_cast<size_t>(wanted));
  if (grown == nullptr) throw std::bad_alloc();
  data_ = static_cast<u8*>(grown);
  capacity_ = static_cast<u32>(wanted);
}

void* StreamBuffer::Take(u32* length) noexcept {
  *length = size_;
  if (size_ == 0) return nullptr;
  void* block = data_;
  data_ = nullptr;
  capacity_ = 0;
  size_ = 0;
  return block;
}

void BinaryWriter::WriteWideString(std::u16string_view text) {
  u8* at = buffer_.Extend(4 + text.size() * 2);
  StoreU32(at, static_cast<u32>(text.size()));
  at += 4;
  for (const ZnWChar unit : text) at = PutUnit(at, unit);
}

void BinaryWriter::WriteGuid(const GUID& guid) {
  u8* at = buffer_.Extend(16);
  StoreU32(at, guid.Data1);
  StoreU16(at + 4, guid.Data2);
  StoreU16(at + 6, guid.Data3);
  std::memcpy(at + 8, guid.Data4, 8);
}

u32 BinaryReader::ReadUInt8(u8* out) noexcept {
  const u8* at = Take(1);
  if (at == nullptr) return ZNE_UNEXPECTED;
  *out = *at;
  return ZN_OK;
}

u32 BinaryReader::ReadWideString(WideString* out) {
  const u8* at = nullptr;
  u32 count = 0;
  ZN_RETURN_IF_FAILED(ReadCounted(2, &at, &count));
  if (count == 0) {
    out->Clear();
    return ZN_OK;
  }
  WideString::Rep* rep = WideString::Allocate(count);
  for (u32 i = 0; i < count; ++i) rep->text[i] = static_cast<ZnWChar>(LoadU16(at + 2 * i));
  *out = WideString::Adopt(rep);
  return ZN_OK;
}

u32 BinaryReader::ReadGuid(GUID* out) noexcept {
  const u8* at = Take(16);
  if (at == nullptr) return ZNE_UNEXPECTED;
  out->Data1 = LoadU32(at);
  out->Data2 = LoadU16(at + 4);
  out->Data3 = LoadU16(at + 6);
  std::memcpy(out->Data4, at + 8, 8);
  return ZN_OK;
}

void XmlTextStream::BeginElement(std::string_view name) {
  text_.append("<").append(name).append(">");
}
void XmlTextStream::EndElement(std::string_view name) {
  text_.append("</").append(name).append(">\n");
}
void XmlTextStream::WriteRaw(const void* data, size_t count) {
  text_.append(static_cast<const char*>(data), count);
}
void XmlTextStream::WriteNumber(i64 v) {
  text_.append(std::to_string(v)).append(" ");
}
void XmlTextStream::WriteUnsigned(u64 v) {
  text_.append(std::to_string(v)).append(" ");
}

void XmlTextStream::WriteBinary() {
  constexpr char kText[] = "Unknown binary value";
  text_.append(kText, sizeof kText);  // with its NUL
}

void XmlTextStream::WriteGuid(const GUID& guid) {
  char text[kGuidTextLength];
  FormatGuid(guid, text);
  text_.append(text, kGuidTextLength);
}

void* XmlTextStream::Document(u32* length) const {
  const std::string document = "<XML>\n" + text_ + "</XML>";
  void* block = CopyToBlock(document.c_str(), document.size() + 1);
  if (block != nullptr) *length = static_cast<u32>(document.size() + 1);
  return block;
}

}  // namespace zn
