// The last failure of a platform call, per thread.
#include <cstdio>
#include <cstring>

#include "support/common/platform.h"
#include "zn/platform.h"

namespace zn {

namespace {

struct LastFailure {
  u32 code = 0;
  char text[512] = "";
};
thread_local LastFailure lastFailure;

}  // namespace

void SetLastFailure(u32 code, std::string_view text) noexcept {
  LastFailure& last = lastFailure;
  last.code = code;
  const size_t count = text.copy(last.text, sizeof(last.text) - 1);
  last.text[count] = '\0';
}

void SetLastFailure(u32 code) noexcept {
  char buffer[128] = "";
  SetLastFailure(code, strerror_r(static_cast<int>(code), buffer, sizeof(buffer)));
}

const char* LastFailureText() noexcept {
  return lastFailure.text;
}

}  // namespace zn

u32 ZnGetLastError(void) {
  return zn::lastFailure.code;
}
