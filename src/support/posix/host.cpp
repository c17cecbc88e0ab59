// What this host says of itself: local time, names, version, folders.
#include <elf.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "support/common/platform.h"
#include "zn/platform.h"

namespace zn {

void FormatTime(i64 seconds, char (&out)[kTimeTextSize]) noexcept {
  const auto clock = static_cast<time_t>(seconds);
  tm local{};
  out[0] = '\0';
  // Names of days and months in English whatever the locale, hence asctime_r and not strftime.
  if (localtime_r(&clock, &local) == nullptr || asctime_r(&local, out) == nullptr) {
    std::memcpy(out, "\n", 2);
  }
}

std::string GetEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

std::string TemporaryFolder() {
  std::string folder = GetEnvironment("TMPDIR");
  if (folder.empty()) folder = "/tmp";
  if (folder.back() != '/') folder += '/';
  return folder;
}

std::string ProfileFolder() {
  std::string folder = GetEnvironment("USERPROFILE");
  if (folder.empty()) folder = GetEnvironment("HOME");
  while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\')) folder.pop_back();
  return folder;
}

bool GetFileStatus(const std::string& path, FileStatus* out) noexcept {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return false;
  *out = {static_cast<u64>(status.st_size), S_ISREG(status.st_mode)};
  return true;
}

bool EnsureFolder(const std::string& path) noexcept {
  if (mkdir(path.c_str(), 0700) == 0) return true;
  const int error = errno;
  struct stat status {};
  if (error == EEXIST && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
  SetLastFailure(static_cast<u32>(error));
  return false;
}

std::string GetHostName() {
  char name[HOST_NAME_MAX + 1] = "";
  if (gethostname(name, sizeof(name) - 1) != 0) return {};
  return name;
}

namespace {

struct MachineRow {
  const char* name;
  u32 number;
};
constexpr MachineRow kMachines[] = {
    {"x86_64", EM_X86_64}, {"aarch64", EM_AARCH64}, {"i386", EM_386},   {"i486", EM_386},
    {"i586", EM_386},      {"i686", EM_386},        {"armv7l", EM_ARM}, {"riscv64", EM_RISCV},
    {"ppc64le", EM_PPC64}, {"s390x", EM_S390},
};

u32 MachineNumber(const char* machine) noexcept {
  for (const MachineRow& row : kMachines) {
    if (std::strcmp(row.name, machine) == 0) return row.number;
  }
  return EM_NONE;
}

}  // namespace

HostVersion GetHostVersion() {
  utsname names{};
  if (uname(&names) != 0) return {"Linux", "", EM_NONE};
  return {"Linux", names.release, MachineNumber(names.machine)};
}

}  // namespace zn

void ZnSetLocale(void) {
  std::setlocale(LC_ALL, "");  // NOLINT(concurrency-mt-unsafe): what the function is for
}
