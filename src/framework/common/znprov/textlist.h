// Text lists: names, each followed by a comma. The system provider keeps the names of the loaded
// and of the failed providers in two of them.
#pragma once

#include <string>
#include <string_view>

namespace zn {

// The list without its first entry of that name, which is compared with regard to case.
[[nodiscard]] std::u16string WithoutEntry(std::u16string_view list, std::u16string_view name);
// The list with the name at its end, whether it is there or not.
[[nodiscard]] std::u16string WithEntry(std::u16string_view list, std::u16string_view name);

}  // namespace zn
