// The rule for log files: see the header.
#include "service/common/filerule.h"

#include <algorithm>

#include "support/common/text.h"
#include "zn/types.h"

namespace zn {

namespace {

[[nodiscard]] std::u16string WithPlainSeparators(std::u16string_view text) {
  std::u16string plain(text);
  std::replace(plain.begin(), plain.end(), u'\\', u'/');
  return plain;
}

[[nodiscard]] bool HasParentStep(std::u16string_view path) noexcept {
  while (true) {
    const size_t end = path.find(u'/');
    if (path.substr(0, end) == u"..") return true;
    if (end == std::u16string_view::npos) return false;
    path.remove_prefix(end + 1);
  }
}

}  // namespace

bool IsLogOfInstallation(std::u16string_view path, std::u16string_view installDir) {
  const std::u16string plain = WithPlainSeparators(path);
  const size_t separator = plain.rfind(u'/');
  if (separator == std::u16string::npos || HasParentStep(plain)) return false;
  if (installDir.empty()) return false;
  std::u16string folder = WithPlainSeparators(installDir);
  while (folder.size() > 1 && folder.back() == u'/') folder.pop_back();
  folder += folder.back() == u'/' ? u"logs" : u"/logs";
  return CompareNoCase(std::u16string_view(plain).substr(0, separator),
                       std::u16string_view(folder)) == 0;
}

}  // namespace zn
