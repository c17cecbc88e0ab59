// Records of one name: found in one pass, told as comparing every pair in order would tell them.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

namespace zn {

// The first record whose name a later one has too; null when all differ.
template <typename Info, typename NameOf>
[[nodiscard]] const Info* FirstRepeated(const std::vector<Info*>& infos, NameOf&& nameOf) {
  std::unordered_map<std::string_view, size_t> firsts;
  size_t found = infos.size();
  for (size_t i = 0; i < infos.size(); ++i) {
    const auto [place, isNew] = firsts.try_emplace(nameOf(*infos[i]), i);
    if (!isNew && place->second < found) found = place->second;
  }
  return found == infos.size() ? nullptr : infos[found];
}

}  // namespace zn
