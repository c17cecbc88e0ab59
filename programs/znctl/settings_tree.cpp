// The settings as a tree, from and to TOML.
#include "settings_tree.h"

#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <sstream>

#include "failure.h"
#include "text.h"
#include "values.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr char kBinary[] = "binary";

struct ToNode {
  toml::table* table;
  const std::string& name;

  void operator()(const std::string& text) const { table->insert(name, text); }
  void operator()(u32 number) const { table->insert(name, i64{number}); }
  void operator()(const std::vector<std::string>& list) const {
    toml::array array;
    for (const std::string& item : list) array.push_back(item);
    table->insert(name, std::move(array));
  }
  void operator()(const std::vector<u8>& bytes) const {
    toml::table inner;
    inner.insert(kBinary, HexOf(bytes));
    inner.is_inline(true);
    table->insert(name, std::move(inner));
  }
};

toml::table TableOf(const SettingsKey& key) {
  toml::table table;
  for (const SettingValue& value : key.values) {
    std::visit(ToNode{&table, value.name}, value.data);
  }
  for (const SettingsKey& child : key.keys) table.insert(child.name, TableOf(child));
  return table;
}

std::string TextOf(const toml::table& table) {
  std::ostringstream stream;
  stream << toml::toml_formatter(
      table, toml::format_flags::allow_literal_strings | toml::format_flags::indentation);
  return stream.str();
}

class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file) {}

  SettingsKey Key(const std::string& name, const toml::table& table) const {
    SettingsKey key;
    key.name = name;
    for (const auto& [tomlKey, node] : table) {
      const std::string child(tomlKey.str());
      if (child.empty() || child.find_first_of("/\\") != std::string::npos) {
        Refuse(node, fmt::format("\"{}\" is no name of a setting", Printable(child)));
      }
      const toml::table* inner = node.as_table();
      if (inner != nullptr && !IsBinary(*inner)) {
        key.keys.push_back(Key(child, *inner));
      } else {
        key.values.push_back({child, Data(node)});
      }
    }
    return key;
  }

 private:
  [[noreturn]] void Refuse(const toml::node& node, const std::string& text) const {
    const toml::source_position& at = node.source().begin;
    throw Failure(ZNE_INVALID_ARGUMENTS,
                  fmt::format("{}:{}:{}: {}", file_, at.line, at.column, text));
  }

  static bool IsBinary(const toml::table& table) {
    return table.size() == 1 && table.contains(kBinary) && table.is_inline();
  }

  SettingData Data(const toml::node& node) const {
    if (const auto* text = node.as_string()) return text->get();
    if (const auto* number = node.as_integer()) {
      if (number->get() < 0 || number->get() > std::numeric_limits<u32>::max()) {
        Refuse(node, "a number must be from 0 to 4294967295");
      }
      return static_cast<u32>(number->get());
    }
    if (const auto* array = node.as_array()) return List(*array);
    if (const auto* table = node.as_table()) return Bytes(*table);
    Refuse(node, "a setting is text, a whole number, an array of texts or { binary = \"hex\" }");
  }

  SettingData List(const toml::array& array) const {
    std::vector<std::string> list;
    for (const toml::node& item : array) {
      const auto* text = item.as_string();
      if (text == nullptr) Refuse(item, "an array of settings holds texts only");
      list.push_back(text->get());
    }
    return list;
  }

  SettingData Bytes(const toml::table& table) const {
    const toml::node& node = *table.get(kBinary);
    std::vector<u8> bytes;
    const auto* text = node.as_string();
    if (text == nullptr || !ParseHex(text->get(), &bytes)) {
      Refuse(node, "binary takes an even number of hexadecimal digits as text");
    }
    return bytes;
  }

  const std::string& file_;
};

std::optional<u32> AsDword(const std::string& text) {
  u32 number = 0;
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.data() + (hex ? 2 : 0);
  const char* end = text.data() + text.size();
  const auto [last, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
  if (error != std::errc() || last != end || begin == end) return std::nullopt;
  return number;
}

const std::string& OneWord(const std::vector<std::string>& words, const std::string& type) {
  if (words.size() == 1) return words.front();
  throw UsageError(fmt::format("a {} takes one value, {} were given", type, words.size()));
}

}  // namespace

std::string NormaliseKeyPath(std::string_view text) {
  std::string path(text);
  std::replace(path.begin(), path.end(), '\\', '/');
  while (!path.empty() && path.front() == '/') path.erase(path.begin());
  while (!path.empty() && path.back() == '/') path.pop_back();
  if (path.find("//") != std::string::npos) {
    throw UsageError(fmt::format("\"{}\" has an empty name in it", Printable(text)));
  }
  return path;
}

SettingPath ParseSettingPath(std::string_view text) {
  const std::string path = NormaliseKeyPath(text);
  if (path.empty()) throw UsageError("a setting needs a name, such as Providers/hostinv/ImageFile");
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {"", path};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

std::string ToToml(const SettingsKey& root) {
  const std::string text = TextOf(TableOf(root));
  return text.empty() || text.back() == '\n' ? text : text + "\n";
}

SettingsKey ParseToml(std::string_view text, const std::string& file) {
  try {
    return Reader(file).Key("", toml::parse(text, file));
  } catch (const toml::parse_error& error) {
    const toml::source_position& at = error.source().begin;
    throw Failure(ZNE_INVALID_ARGUMENTS, fmt::format("{}:{}:{}: {}", file, at.line, at.column,
                                                     std::string(error.description())));
  }
}

std::string SettingTypeName(const SettingData& data) {
  constexpr const char* kNames[] = {"string", "dword", "list", "binary"};
  return kNames[data.index()];
}

std::string FormatSetting(const SettingData& data) {
  if (const u32* number = std::get_if<u32>(&data)) return fmt::to_string(*number);
  // A table of one value is written as `v = ...`; what stands behind the sign is the value.
  constexpr std::string_view kHead = "v = ";
  const std::string text = ToToml({"", {{"v", data}}, {}});
  const std::string_view line = std::string_view(text).substr(std::min(kHead.size(), text.size()));
  return std::string(line.substr(0, line.empty() ? 0 : line.size() - 1));
}

SettingData ParseSetting(const std::vector<std::string>& words, const std::string& type) {
  if (type == "list") return words;
  if (type == "string") return OneWord(words, type);
  if (type == "dword") {
    const std::optional<u32> number = AsDword(OneWord(words, type));
    if (number) return *number;
    throw UsageError(
        fmt::format("\"{}\" is not a whole number from 0 to 4294967295", Printable(words.front())));
  }
  if (type == "binary") {
    std::vector<u8> bytes;
    if (ParseHex(OneWord(words, type), &bytes)) return bytes;
    throw UsageError(fmt::format("\"{}\" is not an even number of hexadecimal digits",
                                 Printable(words.front())));
  }
  if (!type.empty()) {
    throw UsageError(fmt::format("\"{}\" is not string, dword, list or binary", Printable(type)));
  }
  if (words.size() != 1) return words;
  if (const std::optional<u32> number = AsDword(words.front())) return *number;
  return words.front();
}

}  // namespace zn::ctl
