// The user's own tree of files fetched from servers.
#pragma once

#include <string>

#include "zn/types.h"

namespace zn {

inline constexpr int kPathMade = 1;  // whether the file is there already, the caller looks
inline constexpr int kPathNoTree = -1;
inline constexpr int kPathNoMemory = -2;

struct DownloadRequest {
  std::string serverFile;  // the file's name on the server: gives the suffix
  bool isExtension = false;
  std::string localPath;  // the result
};

// Makes <profile>/.KELDob/Downloads/ with MsgCatalogs/ and Extensions/ in it; `*base` receives its
// path with a separator at its end. kPathMade or kPathNoTree.
[[nodiscard]] int MakeDownloadTree(std::string* base);

// Makes the tree and tells where a file of that name, skin, platform and locale lies in it:
// "<name>_<skin>_<platform>_<locale>" and the suffix of the server's file, in MsgCatalogs/ or
// Extensions/. The name and the skin come from a server, so separators in them become '_'.
[[nodiscard]] int ZnBuildDownloadPath(const std::string& name, const std::string& skin,
                                      u32 platform, u32 locale, DownloadRequest* request) noexcept;

}  // namespace zn
