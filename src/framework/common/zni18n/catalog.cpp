// Catalog files: see the header.
#include "framework/common/zni18n/catalog.h"

#include <cstring>
#include <memory>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znguid/znguid.h"
#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"

namespace zn {

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

[[nodiscard]] std::string_view Trimmed(std::string_view text) noexcept {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

[[nodiscard]] int HexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// As the C library reads " %x": blanks, a sign, "0x", digits, and whatever stands behind them. 0
// where there is no digit, the largest number for one beyond 32 bits.
[[nodiscard]] u32 ReadHexNumber(std::string_view text) noexcept {
  constexpr u64 kLargest = 0xFFFFFFFF;
  text = Trimmed(text);
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  u64 number = 0;
  for (const char c : text) {
    const int digit = HexDigit(c);
    if (digit < 0) break;
    number = number * 16 + static_cast<u64>(digit);
    if (number > kLargest) number = kLargest;
  }
  return static_cast<u32>(isNegative ? 0 - number : number);
}

// Whether the line is one of that message; its text then.
[[nodiscard]] bool IsMessageLine(std::string_view line, u32 message, std::string_view* text) {
  line = Trimmed(line);
  if (line.empty() || line.front() == '#') return false;
  // Contract: a line without "=" has an empty number, which reads as 0.
  const size_t equals = line.find('=');
  const bool hasNumber = equals != std::string_view::npos;
  if (ReadHexNumber(hasNumber ? line.substr(0, equals) : std::string_view()) != message) {
    return false;
  }
  *text = hasNumber ? Trimmed(line.substr(equals + 1)) : line;
  return true;
}

[[nodiscard]] bool HasUInt32(const PropertySet& set, std::string_view name, u32 value) noexcept {
  const Value* found = set.FindValue(name, ZN_TYPE_UINT32);
  return found != nullptr && found->AsUInt32() == value;
}

// The path where the object stands for that catalog, else null.
[[nodiscard]] const Value* MatchExtension(const PropertySet& set, std::string_view catalog,
                                          const CatalogKey& key) {
  const Value* id = set.FindValue("Id", ZN_TYPE_STRING);
  if (id == nullptr || CompareNoCase(id->AsText(), catalog) != 0) return nullptr;
  if (!HasUInt32(set, "Locale", key.locale)) return nullptr;
  if (!HasUInt32(set, "Platform", key.platform)) return nullptr;
  const Value* skin = set.FindValue("Skin", ZN_TYPE_STRING);
  if (skin == nullptr || skin->AsText() != key.skin) return nullptr;
  return set.FindValue("ImageFile", ZN_TYPE_WIDESTRING);
}

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { static_cast<void>(std::fclose(file)); }
};

// A device or a pipe could hold the bus for ever, so nothing but a plain file is opened.
[[nodiscard]] std::unique_ptr<std::FILE, FileCloser> OpenCatalog(const std::string& path) {
  FileStatus status;
  if (!GetFileStatus(path, &status) || !status.isRegular) return nullptr;
  return std::unique_ptr<std::FILE, FileCloser>(std::fopen(path.c_str(), "r"));
}

}  // namespace

u32 FindCatalogFile(Database& database, const CatalogKey& key, std::u16string* path) {
  std::vector<ObjectId> ids;
  ZN_RETURN_IF_FAILED(database.GetObjectsOfType(kExtensionTypeName, &ids));
  char catalog[kGuidTextLength];
  FormatGuid(key.catalog, catalog);
  for (const ObjectId& id : ids) {
    const DBNode* node = database.FindObject(id);
    if (node == nullptr) return ZNE_OBJECT_NOT_FOUND;
    const Value* found = MatchExtension(node->Properties(), {catalog, sizeof(catalog)}, key);
    if (found == nullptr) continue;
    *path = found->AsWideText();
    break;
  }
  return path->empty() ? ZNE_CATALOG_NOT_PRESENT : ZN_OK;
}

bool FindMessage(std::FILE* file, u32 message, std::string* out) {
  // Contract: what does not fit is the next line.
  char line[1024];
  while (std::fgets(line, sizeof(line), file) != nullptr) {
    std::string_view text;
    if (!IsMessageLine(line, message, &text)) continue;
    *out = text;
    return true;
  }
  return false;
}

u32 ReadMessage(std::u16string_view path, u32 message, std::u16string* out) {
  const std::string narrow = ToHostPath(ToNarrow(path));
  const auto file = OpenCatalog(narrow);
  if (file == nullptr) {
    ZN_TRACE(6, "Unable to open the catalog file %s", narrow.c_str());
    return ZNE_UNEXPECTED;
  }
  std::string text;
  if (!FindMessage(file.get(), message, &text)) return ZNE_THING_NOT_FOUND;
  *out = ToWide(text);
  return ZN_OK;
}

}  // namespace zn
