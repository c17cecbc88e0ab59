// The check of the settings: the file itself, its values, and the helpers of the other checks.
#include "check.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <ostream>

#include "options.h"
#include "port.h"
#include "settings.h"

namespace zn::svc {

namespace {

[[nodiscard]] bool SameNoCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::toupper(x) == std::toupper(y);
  });
}

enum class Kind { kText, kNumber, kTable };

struct ValueRow {
  const char* name;
  Kind kind;
  bool isRequired;
};
constexpr ValueRow kValueRows[] = {
    {"InstallDir", Kind::kText, true},
    {"ProviderGroup", Kind::kTable, true},
    {"Providers", Kind::kTable, true},
    {"ObjectTypeFile", Kind::kText, false},
    {"AlertTypeFile", Kind::kText, false},
    {"Flags", Kind::kNumber, false},
    {"VERSION", Kind::kText, false},
    {"DisableKeepAlive", Kind::kNumber, false},
    {"BindAddress", Kind::kText, false},
    {"TcpNoDelay", Kind::kNumber, false},
    {"MaxFrameLength", Kind::kNumber, false},
    {"MaxLogonFrameLength", Kind::kNumber, false},
    {"LogonTimeout", Kind::kNumber, false},
    {"MaxClients", Kind::kNumber, false},
    {"AcceptLogonWarnings", Kind::kNumber, false},
    {"MaxQueuedBytesPerClient", Kind::kNumber, false},
    {"Groups", Kind::kTable, false},
    {"Security", Kind::kTable, false},
    {"ClientExtensions", Kind::kTable, false},
    {"MessageCatalogs", Kind::kTable, false},
    {"Tracing", Kind::kTable, false},
};

[[nodiscard]] bool IsKind(const toml::node& node, Kind kind) noexcept {
  if (kind == Kind::kText) return node.is_string();
  if (kind == Kind::kTable) return node.is_table();
  const toml::value<int64_t>* number = node.as_integer();
  return number != nullptr && number->get() >= 0 && number->get() <= 0xFFFFFFFF;
}

[[nodiscard]] const char* NameOf(Kind kind) noexcept {
  switch (kind) {
    case Kind::kText:
      return "a text";
    case Kind::kNumber:
      return "a number from 0 to 4294967295";
    case Kind::kTable:
      return "a table";
  }
  return "";
}

[[nodiscard]] bool IsKnown(std::string_view name) noexcept {
  return std::any_of(std::begin(kValueRows), std::end(kValueRows),
                     [name](const ValueRow& row) { return SameNoCase(row.name, name); });
}

void CheckRow(const toml::table& root, const ValueRow& row, Findings& findings) {
  const toml::node* node = FindEntry(root, row.name);
  if (node == nullptr) {
    if (row.isRequired) findings.Error(0, std::string(row.name) + " is missing");
    return;
  }
  if (IsKind(*node, row.kind)) return;
  findings.Error(LineOf(*node), std::string(row.name) + " must be " + NameOf(row.kind));
}

void CheckInstallDir(const toml::table& root, Findings& findings) {
  const toml::node* node = FindEntry(root, "InstallDir");
  if (node == nullptr || !node->is_string()) return;
  const std::string folder = TextOf(root, "InstallDir");
  std::error_code ignored;
  if (std::filesystem::is_directory(folder, ignored)) return;
  findings.Error(LineOf(*node), "InstallDir: there is no folder '" + folder + "'");
}

void CheckAll(const toml::table& root, Findings& findings) {
  CheckValues(root, findings);
  CheckNetwork(root, findings);
  CheckSecurity(root, findings);
  CheckProviders(root, findings);
  CheckDocuments(root, findings);
  CheckCatalogs(root, findings);
}

}  // namespace

void Findings::Error(unsigned line, const std::string& what) {
  ++errors_;
  Tell(line, "error", what);
}

void Findings::Warn(unsigned line, const std::string& what) {
  ++warnings_;
  Tell(line, "warning", what);
}

void Findings::Tell(unsigned line, const char* kind, const std::string& what) {
  out_ << file_;
  if (line != 0) out_ << ':' << line;
  out_ << ": " << kind << ": " << what << '\n';
}

const toml::node* FindEntry(const toml::table& table, std::string_view name) {
  for (auto&& [key, node] : table) {
    if (SameNoCase(key.str(), name)) return &node;
  }
  return nullptr;
}

const toml::table* FindTable(const toml::table& table, std::string_view name) {
  const toml::node* node = FindEntry(table, name);
  return node == nullptr ? nullptr : node->as_table();
}

std::string TextOf(const toml::table& table, std::string_view name, const std::string& fallback) {
  const toml::node* node = FindEntry(table, name);
  const toml::value<std::string>* text = node == nullptr ? nullptr : node->as_string();
  return text == nullptr ? fallback : text->get();
}

unsigned LineOf(const toml::node& node) noexcept {
  return node.source().begin.line;
}

std::vector<std::string> SplitList(const std::string& text, char delimiter) {
  std::vector<std::string> parts;
  std::string part;
  for (const char c : text + delimiter) {
    if (c == delimiter) {
      if (!part.empty()) parts.push_back(part);
      part.clear();
    } else if (std::isspace(static_cast<unsigned char>(c)) == 0) {
      part += c;
    }
  }
  return parts;
}

void CheckValues(const toml::table& root, Findings& findings) {
  for (const ValueRow& row : kValueRows) CheckRow(root, row, findings);
  for (auto&& [key, node] : root) {
    if (IsKnown(key.str())) continue;
    findings.Warn(LineOf(node), std::string(key.str()) + " is not known to the service");
  }
  CheckInstallDir(root, findings);
}

void CheckNetwork(const toml::table& root, Findings& findings) {
  const toml::node* node = FindEntry(root, "BindAddress");
  const std::string address = TextOf(root, "BindAddress");
  if (node == nullptr || address.empty()) return;
  if (IsAddressOfThisMachine(address)) return;
  findings.Error(LineOf(*node),
                 "BindAddress: '" + address + "' is no IPv4 address of this machine");
}

namespace {

void CheckFile(const std::string& file, Findings& findings) {
  if (const std::string fault = FaultOfSettingsFile(); !fault.empty()) {
    findings.Error(0, fault);
    return;
  }
  try {
    const toml::table root = toml::parse_file(file);
    CheckAll(root, findings);
  } catch (const toml::parse_error& error) {
    const toml::source_position place = error.source().begin;
    findings.Error(place.line, "column " + std::to_string(place.column) + ": " +
                                   std::string(error.description()));
  }
}

}  // namespace

int RunCheck(std::ostream& out) {
  const std::string file = SettingsFile();
  Findings findings(out, file);
  CheckFile(file, findings);
  out << file << ": " << findings.Errors() << " errors, " << findings.Warnings() << " warnings\n";
  return findings.Errors() == 0 ? kExitDone : kExitFailed;
}

}  // namespace zn::svc
