// Writes a settings document as TOML: values first, then a section for each table, names in byte
// order. The library's own formatter does not quote every name that needs it (tabs, newlines and
// apostrophes), hence this one; it still prints the numbers and dates.
#include <toml++/toml.h>

#include <sstream>
#include <string>
#include <string_view>

#include "support/posix/settings_toml.h"

namespace zn {

namespace {

bool IsBareName(std::string_view name) {
  constexpr std::string_view kBare =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  return !name.empty() && name.find_first_not_of(kBare) == std::string_view::npos;
}

std::string Quoted(std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      quoted += {'\\', c};
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (c == '\t') {
      quoted += "\\t";
    } else if (byte < 0x20 || byte == 0x7F) {
      quoted += {'\\', 'u', '0', '0', kDigits[byte >> 4], kDigits[byte & 0xF]};
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

std::string Name(std::string_view name) {
  return IsBareName(name) ? std::string(name) : Quoted(name);
}

// A table that gets a section of its own: not one written in braces, and not one in an array.
bool IsSection(const toml::node& node) {
  const toml::table* table = node.as_table();
  return table != nullptr && !table->is_inline();
}

void WriteValue(std::ostream& out, const toml::node& node) {
  const char* separator = " ";
  if (const auto* text = node.as_string()) {
    out << Quoted(text->get());
  } else if (const auto* list = node.as_array()) {
    out << '[';
    for (const toml::node& item : *list) {
      out << separator;
      WriteValue(out, item);
      separator = ", ";
    }
    out << (list->empty() ? "]" : " ]");
  } else if (const auto* table = node.as_table()) {
    out << '{';
    for (auto&& [key, item] : *table) {
      out << separator << Name(key.str()) << " = ";
      WriteValue(out, item);
      separator = ", ";
    }
    out << (table->empty() ? "}" : " }");
  } else {
    node.visit([&](const auto& value) { out << value; });
  }
}

void WriteSection(std::ostream& out, const toml::table& table, const std::string& path) {
  bool hasValues = false;
  bool hasSections = false;
  for (auto&& [key, node] : table) (IsSection(node) ? hasSections : hasValues) = true;
  // A table of tables alone is named by theirs.
  if (!path.empty() && (hasValues || !hasSections)) out << "\n[" << path << "]\n";
  for (auto&& [key, node] : table) {
    if (IsSection(node)) continue;
    out << Name(key.str()) << " = ";
    WriteValue(out, node);
    out << '\n';
  }
  for (auto&& [key, node] : table) {
    if (!IsSection(node)) continue;
    const std::string below = (path.empty() ? "" : path + ".") + Name(key.str());
    WriteSection(out, *node.as_table(), below);
  }
}

}  // namespace

std::string SettingsDocument::Format() const {
  std::ostringstream out;
  out << head_;
  WriteSection(out, root_, "");
  std::string text = std::move(out).str();
  if (text.starts_with('\n')) text.erase(0, 1);
  SettingsDocument again;
  SettingsError error;
  if (!again.Parse(text, &error) || again.root_ != root_) return {};
  return text.empty() ? "\n" : text;
}

}  // namespace zn
