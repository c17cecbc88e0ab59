// Providers and their groups: whether the libraries load and what depends on what. A library is
// loaded to see that it can be; its entry point is looked up and not called.
#include "check.h"

#include <map>
#include <set>

#include "zn/platform.h"
#include "zn/text.h"

namespace zn::svc {

namespace {

using Dependencies = std::map<std::string, std::vector<std::string>>;

[[nodiscard]] std::u16string ToWide(const std::string& text) {
  std::u16string wide(text.size() + 1, u'\0');
  const u32 written = Znmbstowcs(wide.data(), text.c_str(), static_cast<u32>(wide.size()));
  wide.resize(written <= text.size() ? written : 0);
  return wide;
}

void CheckLibrary(const std::string& name, const toml::table& provider, Findings& findings) {
  const std::string file = TextOf(provider, "ImageFile", name);
  const std::string entry = TextOf(provider, "ProviderEntry", "ProviderEntry");
  const std::string head = "Providers." + name + ": ";
  void* library = ZnLoadLibraryW(ToWide(file).c_str());
  if (library == nullptr) {
    findings.Error(LineOf(provider), head + "the library '" + file + "' cannot be loaded");
    return;
  }
  if (ZnGetProcAddress(library, entry.c_str()) == nullptr) {
    findings.Error(LineOf(provider), head + "'" + file + "' has no entry point '" + entry + "'");
  }
  static_cast<void>(ZnFreeLibrary(library));
}

void CheckNames(const std::string& head, const toml::table& table, const char* value,
                const toml::table& known, unsigned line, Findings& findings) {
  for (const std::string& name : SplitList(TextOf(table, value), ';')) {
    if (FindTable(known, name) != nullptr) continue;
    findings.Warn(line, head + value + ": there is no '" + name + "'");
  }
}

void CheckProvider(const std::string& name, const toml::table& provider,
                   const toml::table& providers, const toml::table* groups, Findings& findings) {
  const std::string head = "Providers." + name + ": ";
  CheckLibrary(name, provider, findings);
  CheckNames(head, provider, "DependsOn", providers, LineOf(provider), findings);
  for (const std::string& other : SplitList(TextOf(provider, "StrictDependsOn"), ';')) {
    if (FindTable(providers, other) != nullptr) continue;
    findings.Error(LineOf(provider),
                   head + "it depends strictly on '" + other + "', which does not exist");
  }
  const std::string group = TextOf(provider, "ProviderGroup");
  if (!group.empty() && (groups == nullptr || FindTable(*groups, group) == nullptr)) {
    findings.Warn(LineOf(provider), head + "there is no group '" + group + "'");
  }
}

// Whether a walk along the dependencies of `name` comes back to it.
[[nodiscard]] bool IsInCircle(const Dependencies& all, const std::string& name) {
  std::set<std::string> seen;
  std::vector<std::string> open = all.at(name);
  while (!open.empty()) {
    const std::string next = open.back();
    open.pop_back();
    if (next == name) return true;
    const auto found = all.find(next);
    if (found == all.end() || !seen.insert(next).second) continue;
    open.insert(open.end(), found->second.begin(), found->second.end());
  }
  return false;
}

void CheckCircles(const toml::table& tables, const char* kind,
                  std::initializer_list<const char*> values, Findings& findings) {
  Dependencies all;
  for (auto&& [key, node] : tables) {
    const toml::table* table = node.as_table();
    if (table == nullptr) continue;
    std::vector<std::string>& names = all[std::string(key.str())];
    for (const char* value : values) {
      for (const std::string& name : SplitList(TextOf(*table, value), ';')) names.push_back(name);
    }
  }
  for (const auto& [name, names] : all) {
    if (!IsInCircle(all, name)) continue;
    const toml::node* node = FindEntry(tables, name);
    findings.Error(LineOf(*node), std::string(kind) + "." + name + ": it depends on itself");
  }
}

}  // namespace

void CheckProviders(const toml::table& root, Findings& findings) {
  const toml::table* providers = FindTable(root, "Providers");
  const toml::table* groups = FindTable(root, "ProviderGroup");
  if (groups != nullptr) CheckCircles(*groups, "ProviderGroup", {"DependsOn"}, findings);
  if (providers == nullptr) return;
  for (auto&& [key, node] : *providers) {
    const std::string name(key.str());
    const toml::table* provider = node.as_table();
    if (provider == nullptr) {
      findings.Warn(LineOf(node), "Providers." + name + " is no table");
    } else {
      CheckProvider(name, *provider, *providers, groups, findings);
    }
  }
  CheckCircles(*providers, "Providers", {"DependsOn", "StrictDependsOn"}, findings);
}

}  // namespace zn::svc
