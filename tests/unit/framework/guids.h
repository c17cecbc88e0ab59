// For EXPECT_EQ of ids.
#pragma once

#include "framework/common/znguid/znguid.h"
#include "zn/types.h"

[[nodiscard]] inline bool operator==(const GUID& a, const GUID& b) {
  return zn::SameGuid(a, b);
}
