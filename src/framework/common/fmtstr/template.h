// Templates of messages: wide text with specifiers "%1" or "%{1}" (decimal, from 1) and "%%" for a
// percent sign. Anything else behind a "%" is malformed. Free of databases; any thread.
#pragma once

#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn {

// Where a specifier stands in a text: [begin, end), and the number it names.
struct Specifier {
  size_t begin = 0;
  size_t end = 0;
  u32 index = 0;
};

enum class SpecifierScan { kNone, kFound, kMalformed };
// The first specifier at or behind `from`; "%%" is passed over.
[[nodiscard]] SpecifierScan FindSpecifier(std::u16string_view text, size_t from,
                                          Specifier* out) noexcept;

// Supplies the texts that the specifiers name.
class InsertionSource {
 public:
  virtual ~InsertionSource() = default;
  // Appends the text of that number; a failure ends the expansion with its status.
  [[nodiscard]] virtual u32 Append(u32 index, std::u16string* out) = 0;
};

// A longer result is refused with ZNE_OUT_OF_MEMORY: a template of a few bytes could ask for the
// same large insertion again and again.
inline constexpr size_t kMaxExpandedUnits = 1u << 24;

// The text with its insertions, in the order of the template. A malformed specifier ends it there,
// with a success.
[[nodiscard]] u32 ExpandTemplate(std::u16string_view text, InsertionSource& insertions,
                                 std::u16string* out);

}  // namespace zn
