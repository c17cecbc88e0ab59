// Libraries by dlopen. A name may carry '\\' for '/', and may stand without its suffix and its
// "lib": each place is tried with the name as given, with ".so" added, and as "lib<name>.so".
// Places, for a path: as it is given, then, when it is relative, <InstallDir>/providers; for a bare
// name: <InstallDir>/providers, then wherever the loader looks. The current folder is no place of
// its own: a stranger may have chosen it.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "support/common/helpers.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/text.h"
#include "zn/platform.h"

namespace zn {

namespace {

std::vector<std::string> Spellings(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t base = slash == std::string::npos ? 0 : slash + 1;
  return {path, path + ".so", path.substr(0, base) + "lib" + path.substr(base) + ".so"};
}

void NoteLoaderFailure(u32 code) noexcept {
  const char* text = dlerror();
  if (text != nullptr) {
    SetLastFailure(code, text);
  } else {
    SetLastFailure(code);
  }
}

void* Open(const std::string& path) noexcept {
  return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

// Loads the first of the spellings that is a file. `*found` tells whether one was, so that a file
// which does not load is reported as that and not as missing.
void* OpenFile(const std::string& path, bool* found) {
  for (const std::string& spelling : Spellings(path)) {
    if (access(spelling.c_str(), F_OK) != 0) continue;
    *found = true;
    void* library = Open(spelling);
    if (library == nullptr) NoteLoaderFailure(ENOEXEC);
    return library;
  }
  return nullptr;
}

void* OpenByLoader(const std::string& name) {
  for (const std::string& spelling : Spellings(name)) {
    if (void* library = Open(spelling); library != nullptr) return library;
  }
  NoteLoaderFailure(ENOENT);
  return nullptr;
}

void* Load(const std::string& path) {
  if (path.empty()) {
    SetLastFailure(ENOENT);
    return nullptr;
  }
  const bool isPath = path.find('/') != std::string::npos;
  bool found = false;
  if (isPath) {
    void* library = OpenFile(path, &found);
    if (found) return library;
  }
  if (path.front() != '/') {
    const std::string folder = InstallDirectory();
    void* library = folder.empty() ? nullptr : OpenFile(folder + "/providers/" + path, &found);
    if (found) return library;
  }
  if (!isPath) return OpenByLoader(path);
  SetLastFailure(ENOENT, path + ": no such library");
  return nullptr;
}

// The path is made in here, since that may want memory too.
template <typename MakePath>
void* LoadGuarded(const MakePath& makePath) noexcept {
  try {
    return Load(ToHostPath(makePath()));
  } catch (const std::exception&) {
    SetLastFailure(ENOMEM);
    return nullptr;
  }
}

}  // namespace

}  // namespace zn

extern "C" {

void* ZnLoadLibraryA(const char* path) {
  if (!zn::IsGoodPointer(path)) return nullptr;
  return zn::LoadGuarded([&] { return std::string(path); });
}

void* ZnLoadLibraryW(const ZnWChar* path) {
  if (!zn::IsGoodPointer(path)) return nullptr;
  return zn::LoadGuarded([&] { return zn::ToNarrow(path); });
}

void* ZnGetProcAddress(void* library, const char* name) {
  if (library == nullptr || !zn::IsGoodPointer(name)) return nullptr;
  void* address = dlsym(library, name);
  if (address == nullptr) zn::NoteLoaderFailure(ENOENT);
  return address;
}

bool ZnFreeLibrary(void* library) {
  if (library == nullptr) return false;
  if (dlclose(library) == 0) return true;
  zn::NoteLoaderFailure(EINVAL);
  return false;
}

}  // extern "C"
