// Message catalogs: which file holds a catalog, and the text of a message in such a file. The files
// are objects of type KELD_Extension (znprov/extensions.h); a file is a list of lines
//
//   <number in hexadecimal> = <text>
//
// in UTF-8, at most 1023 bytes each, with "#" in front of comments. It is opened and closed within
// a call and nothing is kept: texts are fetched when somebody looks at them.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "zn/types.h"

namespace zn {

class Database;

inline constexpr u32 kDefaultLocale = 0x409;
inline constexpr std::string_view kDefaultSkin = "MiraSkin";
inline constexpr u32 kCatalogPlatform = 1;
inline constexpr std::string_view kExtensionTypeName = "KELD_Extension";

// One catalog in one language.
struct CatalogKey {
  GUID catalog{};
  u32 locale = kDefaultLocale;
  std::string skin{kDefaultSkin};
  u32 platform = kCatalogPlatform;
};

// The path of the first extension object that matches; the file is not opened.
// ZNE_CATALOG_NOT_PRESENT without one, else the status of the list. Under FAST_LOCK.
[[nodiscard]] u32 FindCatalogFile(Database& database, const CatalogKey& key, std::u16string* path);

// ZNE_UNEXPECTED, traced, for a file that cannot be opened or is none; ZNE_THING_NOT_FOUND when it
// has no such message.
[[nodiscard]] u32 ReadMessage(std::u16string_view path, u32 message, std::u16string* out);

// The text of the first line with that number: from where the file stands to its end. False without
// one.
[[nodiscard]] bool FindMessage(std::FILE* file, u32 message, std::string* out);

}  // namespace zn
