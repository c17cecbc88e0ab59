// Documents, and the files that are offered to clients: whether they are there, and whether a
// message catalog reads as one.
#include "check.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "document_check.h"

namespace zn::svc {

namespace {

constexpr size_t kLongestLine = 1023;

[[nodiscard]] std::string HostPath(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

[[nodiscard]] bool IsReadable(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(path, ignored) && std::ifstream(path).is_open();
}

[[nodiscard]] bool IsBlank(char c) noexcept {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// What is wrong with a line of a catalog; empty when nothing is.
[[nodiscard]] std::string LineFault(const std::string& line) {
  if (line.size() > kLongestLine) return "longer than 1023 bytes";
  const auto first = std::find_if_not(line.begin(), line.end(), IsBlank);
  if (first == line.end() || *first == '#') return {};
  const auto equals = std::find(first, line.end(), '=');
  if (equals == line.end()) return "no '=' behind the number";
  auto last = equals;
  while (last != first && IsBlank(*(last - 1))) --last;
  const bool isNumber =
      first != last && last - first <= 10 && std::all_of(first, last, [](char c) {
        return std::isxdigit(static_cast<unsigned char>(c)) != 0 || c == 'x' || c == 'X';
      });
  return isNumber ? "" : "the number is not hexadecimal";
}

void CheckCatalogFile(const std::string& path, unsigned line, Findings& findings) {
  std::ifstream file(path);
  std::string text;
  for (unsigned number = 1; std::getline(file, text); ++number) {
    const std::string fault = LineFault(text);
    if (fault.empty()) continue;
    findings.Error(line, path + ", line " + std::to_string(number) + ": " + fault);
  }
}

// Id, skin, platform, locale: the fourth level of tables names the files.
void CheckOffers(const std::string& head, const toml::table& table, int level, bool isCatalog,
                 Findings& findings) {
  constexpr int kLastLevel = 4;
  if (level < kLastLevel) {
    for (auto&& [key, node] : table) {
      const toml::table* inner = node.as_table();
      if (inner == nullptr) continue;
      CheckOffers(head + "." + std::string(key.str()), *inner, level + 1, isCatalog, findings);
    }
    return;
  }
  const std::string path = HostPath(TextOf(table, "ImageFile"));
  if (path.empty()) {
    findings.Warn(LineOf(table), head + ": without ImageFile the entry is passed over");
  } else if (!IsReadable(path)) {
    findings.Error(LineOf(table), head + ": the file '" + path + "' cannot be read");
  } else if (isCatalog) {
    CheckCatalogFile(path, LineOf(table), findings);
  }
}

// What `znctl validate` says of the document.
void CheckContent(const std::string& name, const std::string& path, unsigned line,
                  Findings& findings) {
  for (const ctl::DocumentFault& fault : ctl::CheckDocument(path).faults) {
    const std::string what =
        name + ": " + fault.file + ":" + std::to_string(fault.line) + ": " + fault.text;
    if (fault.isWarning) {
      findings.Warn(line, what);
    } else {
      findings.Error(line, what);
    }
  }
}

}  // namespace

void CheckDocuments(const toml::table& root, Findings& findings) {
  for (const char* name : {"ObjectTypeFile", "AlertTypeFile"}) {
    const toml::node* node = FindEntry(root, name);
    if (node == nullptr || !node->is_string()) continue;
    const std::string path = HostPath(TextOf(root, name));
    if (IsReadable(path)) {
      CheckContent(name, path, LineOf(*node), findings);
    } else {
      findings.Error(LineOf(*node), std::string(name) + ": the file '" + path + "' cannot be read");
    }
  }
}

void CheckCatalogs(const toml::table& root, Findings& findings) {
  for (const char* name : {"ClientExtensions", "MessageCatalogs"}) {
    const toml::table* offers = FindTable(root, name);
    if (offers == nullptr) continue;
    CheckOffers(name, *offers, 0, std::string_view(name) == "MessageCatalogs", findings);
  }
}

}  // namespace zn::svc
