// Where a file fetched from a server is kept.
#include "support/common/download_path.h"

#include <algorithm>
#include <exception>

#include "support/common/platform.h"

namespace zn {

namespace {

bool IsSeparator(char c) noexcept {
  return c == '/' || c == '\\';
}

// The text from the last point on, with it; empty when the file's own name has no point.
std::string SuffixOf(const std::string& file) {
  const size_t point = file.rfind('.');
  if (point == std::string::npos) return {};
  std::string suffix = file.substr(point);
  return std::any_of(suffix.begin(), suffix.end(), IsSeparator) ? std::string() : suffix;
}

int Build(const std::string& name, const std::string& skin, u32 platform, u32 locale,
          DownloadRequest* request) {
  std::string base;
  if (MakeDownloadTree(&base) != kPathMade) return kPathNoTree;
  std::string file = name + '_' + skin + '_' + std::to_string(static_cast<i32>(platform)) + '_' +
                     std::to_string(static_cast<i32>(locale)) + SuffixOf(request->serverFile);
  std::replace_if(file.begin(), file.end(), IsSeparator, '_');
  request->localPath = base + (request->isExtension ? "Extensions/" : "MsgCatalogs/") + file;
  return kPathMade;
}

}  // namespace

int MakeDownloadTree(std::string* base) {
  const std::string profile = ProfileFolder();
  if (profile.empty()) return kPathNoTree;
  const std::string hidden = profile + "/.KELDob";  // the point hides it
  const std::string downloads = hidden + "/Downloads";
  const std::string folders[] = {hidden, downloads, downloads + "/MsgCatalogs",
                                 downloads + "/Extensions"};
  for (const std::string& folder : folders) {
    if (!EnsureFolder(folder)) return kPathNoTree;
  }
  *base = downloads + "/";
  return kPathMade;
}

int ZnBuildDownloadPath(const std::string& name, const std::string& skin, u32 platform, u32 locale,
                        DownloadRequest* request) noexcept {
  try {
    return Build(name, skin, platform, locale, request);
  } catch (const std::exception&) {
    return kPathNoMemory;
  }
}

}  // namespace zn
