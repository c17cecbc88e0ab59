// Interned property names: one entry per text and process, never removed, so that equality is a
// pointer compare and a name costs eight bytes wherever it is used. Look-ups take no lock: readers
// see an immutable generation of the table, and a writer publishes the next one.
#pragma once

#include <string_view>

#include "zn/types.h"

namespace zn {

struct NameEntry {
  u32 hash;
  u32 length;  // without the terminator
  char text[1];
};

class PropertyName {
 public:
  // The empty name.
  PropertyName() noexcept;
  // The entry of that text, made when it is new. Throws std::bad_alloc. Any thread.
  [[nodiscard]] static PropertyName Intern(std::string_view text);
  // The entry of that text; false when no such name was ever interned. Any thread.
  [[nodiscard]] static bool Find(std::string_view text, PropertyName* out) noexcept;

  [[nodiscard]] std::string_view Text() const noexcept { return {entry_->text, entry_->length}; }
  [[nodiscard]] const char* CStr() const noexcept { return entry_->text; }
  [[nodiscard]] u32 Length() const noexcept { return entry_->length; }

  friend bool operator==(PropertyName a, PropertyName b) noexcept { return a.entry_ == b.entry_; }
  // strcmp order of the texts.
  friend bool operator<(PropertyName a, PropertyName b) noexcept {
    return a.entry_ != b.entry_ && a.Text() < b.Text();
  }

 private:
  explicit PropertyName(const NameEntry* entry) noexcept : entry_(entry) {}
  const NameEntry* entry_;
};

}  // namespace zn
