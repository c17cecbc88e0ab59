// Local time as text, and the folder for temporary files.
#include <time.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "support/common/platform.h"

namespace zn {

void FormatTime(i64 seconds, char (&out)[kTimeTextSize]) noexcept {
  const auto clock = static_cast<time_t>(seconds);
  tm local{};
  out[0] = '\0';
  // Names of days and months in English whatever the locale, hence asctime_r and not strftime.
  if (localtime_r(&clock, &local) == nullptr || asctime_r(&local, out) == nullptr) {
    std::memcpy(out, "\n", 2);
  }
}

std::string TemporaryFolder() {
  const char* named = std::getenv("TMPDIR");
  std::string folder = named != nullptr && *named != '\0' ? named : "/tmp";
  if (folder.back() != '/') folder += '/';
  return folder;
}

}  // namespace zn
