// The two clocks of the boundary: a line of text and a number.
#include <chrono>

#include "support/common/platform.h"
#include "zn/platform.h"

extern "C" {

char* ZnGetTime(void) {
  // One buffer per thread: what the pointer shows lasts until this thread asks again.
  static thread_local char text[zn::kTimeTextSize];
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  zn::FormatTime(std::chrono::duration_cast<std::chrono::seconds>(now).count(), text);
  return text;
}

i64 ZnGetMiraTime(void) {
  using std::chrono::duration_cast;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const i64 milliseconds = duration_cast<std::chrono::milliseconds>(now).count();
  return ((milliseconds / 1000) << 32) | ((milliseconds % 1000) * 1000);
}

}  // extern "C"
