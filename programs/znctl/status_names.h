// The name of a status as zn/status.h spells it. The table is made from that header when the build
// is configured, so a new code needs no line here.
#pragma once

#include <string>
#include <vector>

#include "zn/types.h"

namespace zn::ctl {

struct StatusName {
  u32 code;
  const char* name;
};

const std::vector<StatusName>& StatusNames();

// Null for a code that has no name.
const char* NameOfStatus(u32 code);

// "0xc1000010 ZNE_OBJECT_NOT_FOUND: Object not found."
std::string DescribeStatus(u32 code);

}  // namespace zn::ctl
