// The settings of the service: see the header.
#include "settings.h"

#include <toml++/toml.h>

#include <cstdlib>

#include "check.h"

namespace zn::svc {

std::string SettingsFile() {
  const char* file = std::getenv("ZN_SETTINGS");
  return file == nullptr || *file == '\0' ? "/etc/znmira/settings.toml" : file;
}

// From the file itself, where values of every type are to be seen. One that does not parse is the
// library's to tell.
bool ReadBindAddress(std::string* address) {
  address->clear();
  try {
    const toml::table root = toml::parse_file(SettingsFile());
    const toml::node* node = FindEntry(root, "BindAddress");
    if (node == nullptr) return true;
    *address = TextOf(root, "BindAddress");
    return node->is_string();
  } catch (const toml::parse_error&) {
    return true;
  }
}

std::string SettingsHint() {
  return "; znsvc --check --settings " + SettingsFile() + " tells more";
}

}  // namespace zn::svc
