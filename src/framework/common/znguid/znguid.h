// Ids in memory: one pointer to a counted entry of a process-wide table, so that two ids are equal
// when their pointers are. The table has a leaf lock of its own and is touched only to find or make
// an entry and to give up the last reference; copies change an atomic count.
//
// The text form is 38 characters, "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", lower case.
#pragma once

#include <atomic>
#include <cstring>
#include <string_view>
#include <utility>

#include "framework/common/znguid/guidtext.h"
#include "support/common/flat_table.h"
#include "zn/types.h"

namespace zn {

[[nodiscard]] inline u64 GuidHash(const GUID& id) noexcept {
  return HashBytes(&id, sizeof id);
}
[[nodiscard]] inline bool SameGuid(const GUID& a, const GUID& b) noexcept {
  return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
[[nodiscard]] inline bool IsZeroGuid(const GUID& id) noexcept {
  return SameGuid(id, GUID{});
}

// Writes the 38 characters, no terminator.
void FormatGuid(const GUID& id, char* out) noexcept;
// False when the shape is wrong. Letters beyond "f" pass the shape and count as digit 0.
[[nodiscard]] bool ParseGuid(std::string_view text, GUID* out) noexcept;
// A new version-4 id from the kernel's random bytes.
[[nodiscard]] u32 GenerateRawGuid(GUID* out) noexcept;

struct IdEntry {
  GUID guid;
  std::atomic<u32> references;
};

class InternedId {
 public:
  InternedId() noexcept : entry_(Retain(ZeroEntry())) {}
  explicit InternedId(const GUID& guid) : entry_(Intern(guid)) {}
  InternedId(const InternedId& other) noexcept : entry_(Retain(other.entry_)) {}
  InternedId(InternedId&& other) noexcept
      : entry_(std::exchange(other.entry_, Retain(ZeroEntry()))) {}
  ~InternedId() { Release(entry_); }
  InternedId& operator=(const InternedId& other) noexcept {
    Release(std::exchange(entry_, Retain(other.entry_)));
    return *this;
  }
  InternedId& operator=(InternedId&& other) noexcept {
    std::swap(entry_, other.entry_);
    return *this;
  }
  // A fresh id; the zero id when none can be generated.
  [[nodiscard]] static InternedId Generate();

  [[nodiscard]] const GUID& Value() const noexcept { return entry_->guid; }
  [[nodiscard]] bool IsZero() const noexcept { return entry_ == ZeroEntry(); }
  [[nodiscard]] u32 ReferenceCount() const noexcept {
    return entry_->references.load(std::memory_order_relaxed);
  }
  friend bool operator==(const InternedId& a, const InternedId& b) noexcept {
    return a.entry_ == b.entry_;
  }
  // The order of the id's bytes in its text form, so that sets of ids have a stable order.
  friend bool operator<(const InternedId& a, const InternedId& b) noexcept {
    return a.entry_ != b.entry_ && LessGuid(a.entry_->guid, b.entry_->guid);
  }

  // For holders that keep the bare entry (a value of a property): ownership of one count.
  [[nodiscard]] IdEntry* TakeEntry() noexcept { return std::exchange(entry_, Retain(ZeroEntry())); }
  [[nodiscard]] static InternedId Adopt(IdEntry* entry) noexcept {
    InternedId id;
    id.entry_ = entry;
    return id;
  }
  [[nodiscard]] static IdEntry* Retain(IdEntry* entry) noexcept {
    if (entry != ZeroEntry()) entry->references.fetch_add(1, std::memory_order_relaxed);
    return entry;
  }
  static void Release(IdEntry* entry) noexcept;
  [[nodiscard]] static IdEntry* Intern(const GUID& guid);
  // The entry of the zero id; it stays for the life of the process and its count is not kept.
  [[nodiscard]] static IdEntry* ZeroEntry() noexcept { return &zero_; }
  [[nodiscard]] static bool LessGuid(const GUID& a, const GUID& b) noexcept;

 private:
  static IdEntry zero_;
  IdEntry* entry_;
};

}  // namespace zn
