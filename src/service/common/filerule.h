// Which files clients may read without their being published: the logs of the installation.
#pragma once

#include <string>
#include <string_view>

namespace zn {

// Whether the path names a file directly in the folder "logs" of the installation: the text up to
// its last separator is the folder's, without regard to case, '/' and '\\' alike, and whether or
// not the installation's name ends with a separator. ".." leads nowhere, and a path without a
// separator is none.
[[nodiscard]] bool IsLogOfInstallation(std::u16string_view path, std::u16string_view installDir);

}  // namespace zn
