// The settings of the service: see the header.
#include "settings.h"

#include <cstdlib>
#include <vector>

#include "zn/settings.h"
#include "zn/status.h"
#include "zn/text.h"

namespace zn::svc {

std::string SettingsFile() {
  const char* file = std::getenv("ZN_SETTINGS");
  return file == nullptr || *file == '\0' ? "/etc/znmira/settings.toml" : file;
}

std::string ReadBindAddress() {
  std::vector<ZnWChar> wide(256);
  u32 type = 0;
  auto length = static_cast<u32>((wide.size() - 1) * sizeof(ZnWChar));
  const u32 status = ZnRegQueryValueEx(HkeyMiraRoot(), u"BindAddress", nullptr, &type,
                                       reinterpret_cast<u8*>(wide.data()), &length);
  if (ZN_FAILED(status) || type != ZN_REG_SZ) return {};
  char narrow[512] = "";
  if (Znwcstombs(narrow, wide.data(), sizeof narrow - 1) >= sizeof narrow) return {};
  return narrow;
}

std::string SettingsHint() {
  return "; znsvc --check --settings " + SettingsFile() + " tells more";
}

}  // namespace zn::svc
