// The settings as the service itself looks at them, before the library does.
#pragma once

#include <string>

namespace zn::svc {

// The file that counts: ZN_SETTINGS, else the default.
[[nodiscard]] std::string SettingsFile();
// What is wrong with it before its first line; empty when it can be read to its end.
[[nodiscard]] std::string FaultOfSettingsFile();
// "BindAddress"; empty when it is not set. False when it is set and is no text: the library passes
// such a value over, and would listen on every address where one was meant.
[[nodiscard]] bool ReadBindAddress(std::string* address);
// A sentence for a failed start: where to look.
[[nodiscard]] std::string SettingsHint();

}  // namespace zn::svc
