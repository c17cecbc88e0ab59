// The command line of the service: what it may say, and what is refused before anything starts.
#pragma once

#include <string>

namespace zn::svc {

struct Options {
  std::string settings;  // empty: ZN_SETTINGS, else the default file
  unsigned port = 2148;  // 0: a free one
  bool foreground = false;
  bool check = false;
  bool acceptAnyPassword = false;
  bool onEveryAddress = false;
};

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// Whether to go on; else `*exitCode` is what the process ends with, and help or the mistake has
// been printed.
[[nodiscard]] bool ReadCommandLine(int argc, char** argv, Options* options, int* exitCode);

// What is wrong with accepting any password on this address ("" for every one), or an empty text.
[[nodiscard]] std::string InsecureFault(const Options& options, const std::string& bindAddress);

}  // namespace zn::svc
