// The table of status names against the header and the library's own texts.
#include "status_names.h"

#include <set>

#include <gtest/gtest.h>

#include "zn/status.h"
#include "zn/text.h"

namespace zn::ctl {
namespace {

TEST(ZnctlStatus, NamesEveryCodeThatTheLibraryHasATextFor) {
  const std::string unknown = ZnSysGetErrorString(0, 0xC1FFFFFFu) == nullptr
                                  ? std::string()
                                  : ZnSysGetErrorString(0, 0xC1FFFFFFu);
  // The ranges in which codes are given out: severity, facility, number.
  size_t withText = 0;
  for (const u32 high : {0x4100u, 0x8100u, 0xC100u, 0x4120u, 0x8120u, 0xC120u, 0x4121u, 0x8121u,
                         0xC121u, 0x4122u, 0x8122u, 0xC122u, 0x8000u, 0x8007u}) {
    for (u32 low = 0; low <= 0x4FFFu; ++low) {
      const u32 code = (high << 16) | low;
      const char* text = ZnSysGetErrorString(0, code);
      if (text == nullptr || text == unknown || *text == '\0') continue;
      ++withText;
      EXPECT_NE(NameOfStatus(code), nullptr) << std::hex << code << " " << text;
    }
  }
  EXPECT_GT(withText, 100u);
}

TEST(ZnctlStatus, HasATextForEveryName) {
  std::set<u32> codes;
  for (const StatusName& row : StatusNames()) {
    if (row.code == ZN_OK) continue;
    const char* text = ZnSysGetErrorString(0, row.code);
    ASSERT_NE(text, nullptr) << row.name;
    EXPECT_STRNE(text, "") << row.name;
    EXPECT_TRUE(codes.insert(row.code).second) << row.name << " doubles a code";
  }
}

TEST(ZnctlStatus, IsToldWithCodeNameAndText) {
  EXPECT_EQ(DescribeStatus(ZNE_OBJECT_NOT_FOUND),
            "0xc1000010 ZNE_OBJECT_NOT_FOUND: Object not found.");
  EXPECT_EQ(NameOfStatus(0xC1FFFFFFu), nullptr);
  EXPECT_EQ(DescribeStatus(0xC1FFFFFFu).substr(0, 10), "0xc1ffffff");
}

}  // namespace
}  // namespace zn::ctl
