// The id table, the text form of ids, and their generation.
#include "framework/common/znguid/znguid.h"

#include <new>

#include "support/common/block_pool.h"
#include "support/common/platform.h"
#include "support/common/status.h"
#include "support/common/sync.h"

namespace zn {

namespace {

struct IdTable {
  Mutex mutex;
  FlatTable<IdEntry> entries ZN_GUARDED_BY(mutex);
  BlockPool blocks ZN_GUARDED_BY(mutex){sizeof(IdEntry)};
};

// Made on first use and never destroyed: ids of static objects outlive every other static.
IdTable& Ids() {
  static IdTable& table = *new IdTable;
  return table;
}

constexpr char kHexDigits[] = "0123456789abcdef";

char* PutHex(char* out, u32 value, u32 digits) noexcept {
  for (u32 i = 0; i < digits; ++i) out[i] = kHexDigits[(value >> (4 * (digits - 1 - i))) & 0xF];
  return out + digits;
}

// Contract: letters beyond "f" are taken by the shape check and count as 0.
u32 HexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return static_cast<u32>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<u32>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<u32>(c - 'A') + 10;
  return 0;
}

u32 ReadHex(std::string_view text, size_t from, size_t digits) noexcept {
  u32 value = 0;
  for (size_t i = 0; i < digits; ++i) value = value << 4 | HexDigit(text[from + i]);
  return value;
}

}  // namespace

void FormatGuid(const GUID& id, char* out) noexcept {
  *out++ = '{';
  out = PutHex(out, id.Data1, 8);
  *out++ = '-';
  out = PutHex(out, id.Data2, 4);
  *out++ = '-';
  out = PutHex(out, id.Data3, 4);
  *out++ = '-';
  for (size_t i = 0; i < 8; ++i) {
    if (i == 2) *out++ = '-';
    out = PutHex(out, id.Data4[i], 2);
  }
  *out = '}';
}

bool ParseGuid(std::string_view text, GUID* out) noexcept {
  if (GuidShapeFault(text) != kNoShapeFault) return false;
  GUID id{};
  id.Data1 = ReadHex(text, 1, 8);
  id.Data2 = static_cast<u16>(ReadHex(text, 10, 4));
  id.Data3 = static_cast<u16>(ReadHex(text, 15, 4));
  constexpr size_t kPairs[8] = {20, 22, 25, 27, 29, 31, 33, 35};
  for (size_t i = 0; i < 8; ++i) id.Data4[i] = static_cast<u8>(ReadHex(text, kPairs[i], 2));
  *out = id;
  return true;
}

u32 GenerateRawGuid(GUID* out) noexcept {
  GUID id{};
  if (!RandomBytes(&id, sizeof id)) return ZNE_UNEXPECTED;
  id.Data3 = static_cast<u16>((id.Data3 & 0x0FFF) | 0x4000);   // version 4
  id.Data4[0] = static_cast<u8>((id.Data4[0] & 0x3F) | 0x80);  // variant 1
  *out = id;
  return ZN_OK;
}

constinit IdEntry InternedId::zero_{};

InternedId InternedId::Generate() {
  GUID id{};
  if (GenerateRawGuid(&id) != ZN_OK) return InternedId();
  return InternedId(id);
}

IdEntry* InternedId::Intern(const GUID& guid) {
  if (IsZeroGuid(guid)) return ZeroEntry();
  const u64 hash = GuidHash(guid);
  IdTable& table = Ids();
  const MutexLock lock(table.mutex);
  IdEntry* entry =
      table.entries.Find(hash, [&](const IdEntry& e) { return SameGuid(e.guid, guid); });
  if (entry != nullptr) return Retain(entry);
  entry = new (table.blocks.Allocate()) IdEntry{guid, 1};
  try {
    table.entries.Insert(hash, entry);
  } catch (...) {
    table.blocks.Free(entry);
    throw;
  }
  return entry;
}

void InternedId::Release(IdEntry* entry) noexcept {
  if (entry == ZeroEntry()) return;
  // The last reference goes under the lock, so that nobody finds an entry that is on its way out.
  u32 count = entry->references.load(std::memory_order_relaxed);
  while (count > 1) {
    if (entry->references.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) {
      return;
    }
  }
  IdTable& table = Ids();
  const MutexLock lock(table.mutex);
  if (entry->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  static_cast<void>(table.entries.Erase(GuidHash(entry->guid), entry));
  table.blocks.Free(entry);
}

bool InternedId::LessGuid(const GUID& a, const GUID& b) noexcept {
  if (a.Data1 != b.Data1) return a.Data1 < b.Data1;
  if (a.Data2 != b.Data2) return a.Data2 < b.Data2;
  if (a.Data3 != b.Data3) return a.Data3 < b.Data3;
  return std::memcmp(a.Data4, b.Data4, sizeof a.Data4) < 0;
}

}  // namespace zn
