// Interned property names: one entry per text and process, never removed, so that equality is a
// pointer compare and a name costs eight bytes wherever it is used. Look-ups take no lock: readers
// see an immutable generation of the table, and a writer publishes the next one.
#pragma once

#include <cstring>
#include <string_view>

#include "zn/types.h"

namespace zn {

struct NameEntry {
  u32 hash;
  u32 length;  // without the terminator
  // Terminated, and filled with zeros to whole words, so that two names are compared by words.
  char text[8];
};

inline constexpr NameEntry kEmptyName{0, 0, {}};

class PropertyName {
 public:
  // The empty name.
  PropertyName() noexcept : entry_(&kEmptyName) {}
  // The entry of that text, made when it is new. Throws std::bad_alloc. Any thread.
  [[nodiscard]] static PropertyName Intern(std::string_view text);
  // The same for a name that was read from bytes, which may be anybody's: false when it is new and
  // kMaxNamesRead names came that way already, since a name stays for the life of the process.
  static constexpr u32 kMaxNamesRead = 1u << 20;
  [[nodiscard]] static bool InternRead(std::string_view text, PropertyName* out);
  // The entry of that text; false when no such name was ever interned. Any thread.
  [[nodiscard]] static bool Find(std::string_view text, PropertyName* out) noexcept;

  [[nodiscard]] std::string_view Text() const noexcept { return {entry_->text, entry_->length}; }
  [[nodiscard]] const char* CStr() const noexcept { return entry_->text; }
  [[nodiscard]] u32 Length() const noexcept { return entry_->length; }

  friend bool operator==(PropertyName a, PropertyName b) noexcept { return a.entry_ == b.entry_; }
  // strcmp order of the texts.
  friend bool operator<(PropertyName a, PropertyName b) noexcept {
    return a.entry_ != b.entry_ && IsBefore(*a.entry_, *b.entry_);
  }

 private:
  [[nodiscard]] static bool IsBefore(const NameEntry& a, const NameEntry& b) noexcept {
    const u32 shorter = a.length < b.length ? a.length : b.length;
    const char* textOfA = a.text;  // goes on behind the declared array
    const char* textOfB = b.text;
    for (u32 i = 0; i < shorter; i += 8) {
      u64 wordOfA = 0;
      u64 wordOfB = 0;
      std::memcpy(&wordOfA, textOfA + i, 8);
      std::memcpy(&wordOfB, textOfB + i, 8);
      // The first byte weighs most.
      if (wordOfA != wordOfB) return __builtin_bswap64(wordOfA) < __builtin_bswap64(wordOfB);
    }
    return a.length < b.length;
  }

  explicit PropertyName(const NameEntry* entry) noexcept : entry_(entry) {}
  const NameEntry* entry_;
};

}  // namespace zn
