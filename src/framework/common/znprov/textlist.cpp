// Text lists: see the header.
#include "framework/common/znprov/textlist.h"

namespace zn {

std::u16string WithoutEntry(std::u16string_view list, std::u16string_view name) {
  size_t start = 0;
  while (start < list.size()) {
    const size_t comma = list.find(u',', start);
    if (comma == std::u16string_view::npos) break;  // no whole entry is left
    if (list.substr(start, comma - start) == name) {
      std::u16string rest(list.substr(0, start));
      rest.append(list.substr(comma + 1));
      return rest;
    }
    start = comma + 1;
  }
  return std::u16string(list);
}

std::u16string WithEntry(std::u16string_view list, std::u16string_view name) {
  std::u16string longer(list);
  longer.append(name);
  longer.push_back(u',');
  return longer;
}

}  // namespace zn
