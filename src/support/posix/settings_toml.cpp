// Keys and values in a TOML document, and the two texts of a value: TOML's and the boundary's.
#include "support/posix/settings_toml.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <optional>
#include <sstream>

#include "support/common/status.h"
#include "support/common/text.h"
#include "zn/settings.h"

namespace zn {

static_assert(kSettingMissing == ZNE_HASH_LOOKUP_FAILED &&
              kSettingNoMore == ZNE_NO_MORE_PROPERTIES && kSettingRefused == ZNE_UNEXPECTED &&
              kSettingConflict == ZNE_INVALID_ARGUMENTS);

namespace {

constexpr std::string_view kBinaryKey = "binary";

// ---- One value ----

std::optional<std::vector<u8>> FromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  const auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::vector<u8> bytes;
  bytes.reserve(hex.size() / 2);
  for (size_t i = 0; i < hex.size(); i += 2) {
    const int high = digit(hex[i]);
    const int low = digit(hex[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<u8>(high * 16 + low));
  }
  return bytes;
}

std::string ToHex(const std::vector<u8>& bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const u8 byte : bytes) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 0xF];
  }
  return hex;
}

void AppendUnits(std::u16string_view text, std::vector<u8>* data) {
  const size_t at = data->size();
  data->resize(at + (text.size() + 1) * sizeof(ZnWChar));  // the terminator is zero already
  if (!text.empty()) std::memcpy(data->data() + at, text.data(), text.size() * sizeof(ZnWChar));
}

bool IsBytesTable(const toml::table& table) {
  return table.is_inline() && table.size() == 1 && table.get(kBinaryKey) != nullptr;
}

std::optional<SettingValue> FromList(const toml::array& list) {
  SettingValue value{ZN_REG_MULTI_SZ, {}};
  for (const toml::node& item : list) {
    const auto* text = item.as_string();
    if (text == nullptr) return std::nullopt;
    const std::u16string wide = ToWide(text->get());
    const std::u16string_view shown = std::u16string_view(wide).substr(0, wide.find(u'\0'));
    if (!shown.empty()) AppendUnits(shown, &value.data);  // an empty text would end the list
  }
  AppendUnits({}, &value.data);
  return value;
}

// The node as a value; nothing for a key and for what this store does not know.
std::optional<SettingValue> FromNode(const toml::node& node) {
  if (const auto* text = node.as_string()) {
    SettingValue value{ZN_REG_SZ, {}};
    AppendUnits(ToWide(text->get()), &value.data);
    return value;
  }
  if (const auto* number = node.as_integer()) {
    const int64_t wide = number->get();
    if (wide < 0 || wide > std::numeric_limits<u32>::max()) return std::nullopt;
    const auto narrow = static_cast<u32>(wide);
    SettingValue value{ZN_REG_DWORD, std::vector<u8>(sizeof(narrow))};
    std::memcpy(value.data.data(), &narrow, sizeof(narrow));
    return value;
  }
  if (const auto* list = node.as_array()) return FromList(*list);
  if (const auto* table = node.as_table(); table != nullptr && IsBytesTable(*table)) {
    const auto* hex = table->get(kBinaryKey)->as_string();
    if (hex == nullptr) return std::nullopt;
    std::optional<std::vector<u8>> bytes = FromHex(hex->get());
    if (bytes.has_value()) return SettingValue{ZN_REG_BINARY, std::move(*bytes)};
  }
  return std::nullopt;
}

std::u16string ToUnits(const std::vector<u8>& data) {
  std::u16string text(data.size() / sizeof(ZnWChar), u'\0');
  if (!text.empty()) std::memcpy(text.data(), data.data(), text.size() * sizeof(ZnWChar));
  return text;
}

toml::array ToList(std::u16string_view units) {
  toml::array list;
  while (!units.empty() && units.front() != 0) {
    const size_t end = std::min(units.find(u'\0'), units.size());
    list.push_back(ToNarrow(units.substr(0, end)));
    units.remove_prefix(std::min(end + 1, units.size()));
  }
  return list;
}

// Puts a value under a name; false when its bytes do not suit its type.
bool Put(toml::table* table, std::string_view name, const SettingValue& value) {
  const bool isText =
      value.type == ZN_REG_SZ || value.type == ZN_REG_EXPAND_SZ || value.type == ZN_REG_MULTI_SZ;
  if (isText && value.data.size() % sizeof(ZnWChar) != 0) return false;
  const std::u16string units = isText ? ToUnits(value.data) : std::u16string();
  switch (value.type) {
    case ZN_REG_SZ:
    case ZN_REG_EXPAND_SZ:
      table->insert_or_assign(name, ToNarrow(std::u16string_view(units).substr(
                                        0, std::min(units.find(u'\0'), units.size()))));
      return true;
    case ZN_REG_MULTI_SZ:
      table->insert_or_assign(name, ToList(units));
      return true;
    case ZN_REG_DWORD: {
      u32 number = 0;
      if (value.data.size() != sizeof(number)) return false;
      std::memcpy(&number, value.data.data(), sizeof(number));
      table->insert_or_assign(name, static_cast<int64_t>(number));
      return true;
    }
    case ZN_REG_BINARY: {
      toml::table bytes;
      bytes.insert(kBinaryKey, ToHex(value.data));
      bytes.is_inline(true);
      table->insert_or_assign(name, std::move(bytes));
      return true;
    }
    default:
      return false;
  }
}

// ---- Names and keys ----

// The entry of that name, whatever its case, or null. Const or not, as the table.
template <typename Table>
auto FindEntry(Table& table, std::string_view name) -> decltype(table.get(name)) {
  if (auto* exact = table.get(name); exact != nullptr) return exact;
  for (auto&& [key, node] : table) {
    if (CompareNoCase(key.str(), name) == 0) return &node;
  }
  return nullptr;
}

// The table behind an entry if it is a key.
template <typename Node>
auto* AsKey(Node* node) {
  auto* table = node == nullptr ? nullptr : node->as_table();
  return table != nullptr && !IsBytesTable(*table) ? table : nullptr;
}

template <typename Table>
Table* FindKey(Table& root, const SettingsPath& path) {
  Table* key = &root;
  for (const std::string& name : path) {
    key = AsKey(FindEntry(*key, name));
    if (key == nullptr) return nullptr;
  }
  return key;
}

// Has the key and all above it written out from here on: in braces a key that is left with
// `binary = ...` alone would read as bytes, and does already when this is called.
void WriteOut(toml::table& root, const SettingsPath& path) {
  toml::table* key = &root;
  for (const std::string& name : path) {
    key = FindEntry(*key, name)->as_table();
    key->is_inline(false);
  }
}

// A table in braces is written with all its tables in braces, also those that stood as dotted
// names.
void PutTablesInBraces(toml::table& table) {
  for (auto&& [key, node] : table) {
    toml::table* inner = node.as_table();
    if (inner == nullptr) continue;
    if (table.is_inline()) inner->is_inline(true);
    PutTablesInBraces(*inner);
  }
}

// The name as the table spells it.
std::string Spelling(const toml::table& table, std::string_view name) {
  if (table.contains(name)) return std::string(name);
  for (auto&& [key, node] : table) {
    if (CompareNoCase(key.str(), name) == 0) return std::string(key.str());
  }
  return std::string(name);
}

// The names of a key's entries that `wanted` accepts, sorted without case, each but once.
template <typename Wanted>
std::vector<std::string> SortedNames(const toml::table& table, const Wanted& wanted) {
  std::vector<std::string> names;
  for (auto&& [key, node] : table) {
    if (FindEntry(table, key.str()) == &node && wanted(node)) names.emplace_back(key.str());
  }
  const auto less = [](const std::string& a, const std::string& b) {
    return CompareNoCase(a, b) < 0;
  };
  std::sort(names.begin(), names.end(), less);
  const auto equal = [](const std::string& a, const std::string& b) {
    return CompareNoCase(a, b) == 0;
  };
  names.erase(std::unique(names.begin(), names.end(), equal), names.end());
  return names;
}

bool IsKeyNode(const toml::node& node) {
  return AsKey(&node) != nullptr;
}

void DescribeOddities(const toml::table& table, const std::string& where,
                      std::vector<std::string>* lines) {
  for (auto&& [key, node] : table) {
    const std::string name =
        where.empty() ? std::string(key.str()) : where + "\\" + std::string(key.str());
    if (const toml::table* inner = AsKey(&node); inner != nullptr) {
      DescribeOddities(*inner, name, lines);
    } else if (!FromNode(node).has_value()) {
      std::ostringstream line;
      line << "line " << node.source().begin.line << ": \"" << name
           << "\" is no text, number in 0 to 4294967295, list of texts or { binary = \"hex\" }";
      lines->push_back(line.str());
    }
  }
}

// The comment and blank lines a text begins with, if there is a comment among them.
std::string HeadComments(std::string_view text) {
  size_t end = 0;
  bool hasComment = false;
  while (end < text.size()) {
    const size_t newline = text.find('\n', end);
    if (newline == std::string_view::npos) break;
    const std::string_view line = text.substr(end, newline - end);
    const size_t first = line.find_first_not_of(" \t\r");
    if (first != std::string_view::npos && line[first] != '#') break;
    hasComment = hasComment || first != std::string_view::npos;
    end = newline + 1;
  }
  return hasComment ? std::string(text.substr(0, end)) : std::string();
}

}  // namespace

bool SettingsDocument::Parse(std::string_view text, SettingsError* error) {
  root_.clear();
  head_.clear();
  try {
    root_ = toml::parse(text);
    PutTablesInBraces(root_);
    head_ = HeadComments(text);
    return true;
  } catch (const toml::parse_error& failure) {
    *error = {failure.source().begin.line, failure.source().begin.column,
              std::string(failure.description())};
    return false;
  }
}

std::vector<std::string> SettingsDocument::Oddities() const {
  std::vector<std::string> lines;
  DescribeOddities(root_, "", &lines);
  return lines;
}

u32 SettingsDocument::Open(const SettingsPath& path) const {
  return FindKey(root_, path) == nullptr ? kSettingMissing : ZN_OK;
}

u32 SettingsDocument::CreateKey(const SettingsPath& path, bool* changed) {
  toml::table* key = &root_;
  for (const std::string& name : path) {
    toml::node* entry = FindEntry(*key, name);
    if (entry == nullptr) {
      key->insert(name, toml::table{});
      entry = key->get(name);
      *changed = true;
    }
    key = AsKey(entry);
    if (key == nullptr) return kSettingConflict;
  }
  if (*changed) WriteOut(root_, path);
  return ZN_OK;
}

u32 SettingsDocument::DeleteKey(const SettingsPath& path, bool* changed) {
  const SettingsPath parentPath(path.begin(), path.end() - 1);
  toml::table* parent = FindKey(root_, parentPath);
  if (parent == nullptr) return kSettingMissing;
  const toml::table* key = AsKey(FindEntry(*parent, path.back()));
  if (key == nullptr) return kSettingMissing;
  if (std::any_of(key->begin(), key->end(), [](auto&& entry) { return IsKeyNode(entry.second); })) {
    return kSettingRefused;
  }
  WriteOut(root_, parentPath);
  parent->erase(Spelling(*parent, path.back()));
  *changed = true;
  return ZN_OK;
}

u32 SettingsDocument::SubKey(const SettingsPath& path, u32 index, std::string* name) const {
  const toml::table* key = FindKey(root_, path);
  if (key == nullptr) return kSettingRefused;
  std::vector<std::string> names = SortedNames(*key, IsKeyNode);
  if (index >= names.size()) return kSettingNoMore;
  *name = std::move(names[index]);
  return ZN_OK;
}

u32 SettingsDocument::ValueAt(const SettingsPath& path, u32 index, std::string* name,
                              SettingValue* value) const {
  const toml::table* key = FindKey(root_, path);
  if (key == nullptr) return kSettingRefused;
  std::vector<std::string> names =
      SortedNames(*key, [](const toml::node& node) { return FromNode(node).has_value(); });
  if (index >= names.size()) return kSettingNoMore;
  *value = *FromNode(*FindEntry(*key, names[index]));
  *name = std::move(names[index]);
  return ZN_OK;
}

u32 SettingsDocument::Value(const SettingsPath& path, std::string_view name,
                            SettingValue* value) const {
  const toml::table* key = FindKey(root_, path);
  if (key == nullptr) return kSettingRefused;
  const toml::node* entry = FindEntry(*key, name);
  std::optional<SettingValue> found = entry == nullptr ? std::nullopt : FromNode(*entry);
  if (!found.has_value()) return kSettingMissing;
  *value = std::move(*found);
  return ZN_OK;
}

u32 SettingsDocument::SetValue(const SettingsPath& path, std::string_view name,
                               const SettingValue& value, bool* changed) {
  toml::table* key = FindKey(root_, path);
  if (key == nullptr) return kSettingRefused;
  const toml::node* entry = FindEntry(*key, name);
  if (AsKey(entry) != nullptr) return kSettingConflict;
  if (entry != nullptr && FromNode(*entry) == value) return ZN_OK;
  if (!Put(key, Spelling(*key, name), value)) return ZNE_INVALID_ARGUMENTS;
  WriteOut(root_, path);
  *changed = true;
  return ZN_OK;
}

u32 SettingsDocument::DeleteValue(const SettingsPath& path, std::string_view name, bool* changed) {
  toml::table* key = FindKey(root_, path);
  if (key == nullptr) return kSettingRefused;
  const toml::node* entry = FindEntry(*key, name);
  if (entry == nullptr || AsKey(entry) != nullptr) return kSettingMissing;
  WriteOut(root_, path);
  key->erase(Spelling(*key, name));
  *changed = true;
  return ZN_OK;
}

}  // namespace zn
