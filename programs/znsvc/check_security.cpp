// Who may log on: whether the users and groups of the access lists are known to this machine.
#include "check.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <climits>
#include <filesystem>

namespace zn::svc {

namespace {

// A service checks with many threads; this program has one.
[[nodiscard]] bool IsUser(const std::string& name) {
  return getpwnam(name.c_str()) != nullptr;  // NOLINT(concurrency-mt-unsafe)
}
[[nodiscard]] bool IsGroup(const std::string& name) {
  return getgrnam(name.c_str()) != nullptr;  // NOLINT(concurrency-mt-unsafe)
}

[[nodiscard]] std::string HostName() {
  char name[HOST_NAME_MAX + 1] = "";
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

struct ListRow {
  const char* name;
  const char* what;
  bool (*isKnown)(const std::string&);
};
constexpr ListRow kRows[] = {{"AccessUsers", "user", IsUser}, {"AccessGroups", "group", IsGroup}};

void CheckEntry(const ListRow& row, const std::string& entry, unsigned line, Findings& findings) {
  const std::vector<std::string> parts = SplitList(entry, '\\');
  if (parts.empty()) return;
  const std::string head = std::string(row.name) + ": '" + entry + "': ";
  if (parts.size() > 2) findings.Warn(line, head + "what follows the second part does not count");
  const bool hasDomain = parts.size() > 1;
  if (hasDomain && parts[0] != "." && parts[0] != HostName()) {
    findings.Warn(line, head + "'" + parts[0] + "' is not this machine, so nobody is meant");
    return;
  }
  const std::string& name = hasDomain ? parts[1] : parts[0];
  if (!row.isKnown(name)) {
    findings.Warn(line, head + "this machine knows no " + row.what + " '" + name + "'");
  }
}

}  // namespace

void CheckSecurity(const toml::table& root, Findings& findings) {
  const toml::table* security = FindTable(root, "Security");
  for (const ListRow& row : kRows) {
    const toml::node* node = security == nullptr ? nullptr : FindEntry(*security, row.name);
    if (node == nullptr) continue;
    if (!node->is_string()) {
      findings.Error(LineOf(*node), std::string(row.name) + " must be a text, joined by ';'");
      continue;
    }
    for (const std::string& entry : SplitList(TextOf(*security, row.name), ';')) {
      CheckEntry(row, entry, LineOf(*node), findings);
    }
  }
  const bool hasRules = std::filesystem::exists("/etc/pam.d/znsvc") ||
                        std::filesystem::exists("/usr/lib/pam.d/znsvc");
  if (!hasRules) {
    findings.Warn(0, "PAM has no rules for znsvc (/etc/pam.d/znsvc) and takes those of \"other\"");
  }
}

}  // namespace zn::svc
