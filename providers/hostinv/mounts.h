// The mounted file systems of a machine, by libmount from /proc/self/mountinfo below a root folder.
// What holds no files of the user's (proc, sysfs, cgroups, tmpfs ...) is left out, by libmount's
// own list, with these exceptions: "overlay", "virtiofs" and "vboxsf" are shown, for they are what
// containers and guests live on, and whatever is mounted at "/" is shown.
#pragma once

#include <string>
#include <vector>

#include "machine.h"

namespace hostinv {

// Without sizes. Of several mounts at one point the last, the visible one, counts.
std::vector<FileSystemState> ReadMounts(const std::string& root);

}  // namespace hostinv
