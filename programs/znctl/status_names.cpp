// Names and texts of statuses.
#include "status_names.h"

#include <fmt/format.h>

#include <algorithm>

#include "zn/status.h"
#include "zn/text.h"

namespace zn::ctl {

const std::vector<StatusName>& StatusNames() {
  static const std::vector<StatusName> names = {
#define ZN_STATUS_NAME(name) {name, #name},
#include "status_names.inc"
#undef ZN_STATUS_NAME
  };
  return names;
}

const char* NameOfStatus(u32 code) {
  const std::vector<StatusName>& names = StatusNames();
  const auto hit = std::find_if(names.begin(), names.end(),
                                [&](const StatusName& row) { return row.code == code; });
  return hit == names.end() ? nullptr : hit->name;
}

std::string DescribeStatus(u32 code) {
  const char* name = NameOfStatus(code);
  const char* text = ZnSysGetErrorString(0, code);
  std::string out = fmt::format("{:#010x}", code);
  if (name != nullptr) out += std::string(" ") + name;
  if (text != nullptr && *text != '\0') out += std::string(": ") + text;
  return out;
}

}  // namespace zn::ctl
