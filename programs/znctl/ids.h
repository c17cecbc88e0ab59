// An object id as a value: ordered, hashable, readable. The text form is the library's own, 38
// characters with braces, lower case; on input braces may be left out.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn::ctl {

struct Id {
  GUID guid{};

  friend bool operator==(const Id& a, const Id& b);
  friend bool operator<(const Id& a, const Id& b);
  bool IsZero() const { return *this == Id{}; }
};

struct IdHash {
  size_t operator()(const Id& id) const noexcept;
};

std::string IdText(const Id& id);                  // {01234567-89ab-cdef-0123-456789abcdef}
std::string IdDigits(const Id& id);                // the same without braces
std::optional<Id> ParseId(std::string_view text);  // whole ids only
bool LooksLikeIdPrefix(std::string_view text);     // "{", hex digits and dashes in their places
bool HasIdPrefix(const Id& id, std::string_view prefix);

}  // namespace zn::ctl
