// The table of status texts and its look-up. Rows are constant, so any thread may read them.
#include "support/common/status.h"

#include <array>

#include "zn/text.h"

namespace zn {

namespace {

// {8bcc2df0-62cf-11d4-80c5-00c04fbcefdd}: marks a row as a message of this library.
constexpr GUID kMessageClass = {
    0x8bcc2df0, 0x62cf, 0x11d4, {0x80, 0xc5, 0x00, 0xc0, 0x4f, 0xbc, 0xef, 0xdd}};

constexpr auto kRows = std::to_array<StatusRow>({
#define ZN_STATUS(name, text) {kMessageClass, name, text},
#include "support/common/status_table.def"
#undef ZN_STATUS
});
static_assert(kRows.size() == kStatusRowCount);

constexpr StatusRow kUnknownRow = {kMessageClass, kUnknownStatus, "Unknown"};

}  // namespace

const StatusRow* ZnLookupStatusRow(u32 code) noexcept {
  for (const StatusRow& row : kRows) {
    if (row.code == code) return &row;
  }
  return &kUnknownRow;
}

const StatusRow* StatusRows() noexcept {
  return kRows.data();
}

}  // namespace zn

const char* ZnSysGetErrorString(u32, u32 code) {
  return zn::ZnLookupStatusRow(code)->text;
}
