// The settings of the service: see the header.
#include "settings.h"

#include <toml++/toml.h>

#include <cstdlib>

#include "check.h"
#include "file_fault.h"

namespace zn::svc {

std::string SettingsFile() {
  const char* file = std::getenv("ZN_SETTINGS");
  return file == nullptr || *file == '\0' ? "/etc/znmira/settings.toml" : file;
}

std::string FaultOfSettingsFile() {
  return ctl::FaultOfFile(SettingsFile(), "it", "there is no such file");
}

// From the file itself, where values of every type are to be seen. One that does not parse is the
// library's to tell.
bool ReadBindAddress(std::string* address) {
  address->clear();
  if (!FaultOfSettingsFile().empty()) return true;
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
  const std::string fault = FaultOfSettingsFile();
  if (!fault.empty()) return "; the settings file is " + SettingsFile() + ": " + fault;
  return "; znsvc --check --settings " + SettingsFile() + " tells more";
}

}  // namespace zn::svc
