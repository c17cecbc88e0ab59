// Where a library is looked for, and what its failure says.
#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/common/platform.h"
#include "tests/unit/support/temporary.h"
#include "zn/platform.h"

namespace zn {
namespace {

using test::TemporaryFolder;
using test::TemporarySettings;
using test::WriteFile;

// A library that surely is there: the file of the C library's mathematics.
std::string SomeLibrary() {
  void* library = dlopen("libm.so.6", RTLD_NOW);
  link_map* map = nullptr;
  EXPECT_EQ(dlinfo(library, RTLD_DI_LINKMAP, static_cast<void*>(&map)), 0);
  std::string path = map->l_name;
  dlclose(library);
  return path;
}

// An install directory whose folder "providers" holds the library under two names, and a broken
// one.
class Providers {
 public:
  Providers() {
    settings_.Write("InstallDir = '" + settings_.Folder().Path() + "'\n");
    const std::string folder = settings_.Folder() / "providers";
    EXPECT_EQ(mkdir(folder.c_str(), 0700), 0);
    std::filesystem::copy_file(SomeLibrary(), folder + "/libsample.so");
    std::filesystem::copy_file(SomeLibrary(), folder + "/plain");
    WriteFile(folder + "/libbroken.so", "this is no library\n");
  }
  [[nodiscard]] std::string operator/(const std::string& name) const {
    return settings_.Folder() / name;
  }

 private:
  TemporarySettings settings_;
};

bool Loads(const std::string& path) {
  void* library = ZnLoadLibraryA(path.c_str());
  if (library == nullptr) return false;
  EXPECT_NE(ZnGetProcAddress(library, "cos"), nullptr);
  EXPECT_TRUE(ZnFreeLibrary(library));
  return true;
}

TEST(Loading, ABareNameIsFoundAmongTheProviders) {
  const Providers providers;
  for (const char* name : {"sample", "libsample", "libsample.so", "plain"}) {
    EXPECT_TRUE(Loads(name)) << name << ": " << LastFailureText();
  }
}

TEST(Loading, APathIsTriedAsItIsGiven) {
  const Providers providers;
  for (const char* name : {"providers/sample", "providers/libsample", "providers/libsample.so",
                           "providers\\libsample.so"}) {
    EXPECT_TRUE(Loads(providers / name)) << name << ": " << LastFailureText();
  }
}

TEST(Loading, ARelativePathIsTriedBelowTheProviders) {
  const Providers providers;
  std::filesystem::create_directory(providers / "providers/deep");
  std::filesystem::copy_file(SomeLibrary(), providers / "providers/deep/inner.so");
  EXPECT_TRUE(Loads("deep/inner"));
  EXPECT_TRUE(Loads("deep\\inner.so"));
}

TEST(Loading, ABareNameIsNotLookedForInTheCurrentFolder) {
  const TemporarySettings settings;
  const TemporaryFolder folder;
  std::filesystem::copy_file(SomeLibrary(), folder / "libhere.so");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  EXPECT_FALSE(Loads("here"));
  EXPECT_FALSE(Loads("libhere.so"));
  EXPECT_TRUE(Loads("./libhere.so")) << "a path is one";
  std::filesystem::current_path(before);
}

TEST(Loading, TheLoadersOwnPathIsTheLast) {
  const TemporarySettings settings;
  EXPECT_TRUE(Loads("libm.so.6"));
}

TEST(Loading, WideNamesLoadToo) {
  const Providers providers;
  void* library = ZnLoadLibraryW(u"sample");
  ASSERT_NE(library, nullptr);
  EXPECT_TRUE(ZnFreeLibrary(library));
  EXPECT_EQ(ZnLoadLibraryW(nullptr), nullptr);
}

TEST(Loading, FailuresSayWhatIsWrong) {
  const Providers providers;
  EXPECT_EQ(ZnLoadLibraryA("broken"), nullptr);
  EXPECT_EQ(ZnGetLastError(), static_cast<u32>(ENOEXEC)) << "there, and no library";
  EXPECT_NE(std::string(LastFailureText()).find("libbroken.so"), std::string::npos)
      << LastFailureText();
  EXPECT_EQ(ZnLoadLibraryA((providers / "absent").c_str()), nullptr);
  EXPECT_EQ(ZnGetLastError(), static_cast<u32>(ENOENT));
  EXPECT_EQ(ZnLoadLibraryA("absent"), nullptr);
  EXPECT_EQ(ZnGetLastError(), static_cast<u32>(ENOENT));
  EXPECT_NE(std::string(LastFailureText()).find("absent"), std::string::npos) << LastFailureText();
  EXPECT_EQ(ZnLoadLibraryA(""), nullptr);
  EXPECT_EQ(ZnLoadLibraryA(nullptr), nullptr);
}

TEST(Loading, AMissingSymbolIsNull) {
  const TemporarySettings settings;
  void* library = ZnLoadLibraryA("libm.so.6");
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(ZnGetProcAddress(library, "ProviderEntry"), nullptr);
  EXPECT_NE(std::string(LastFailureText()).find("ProviderEntry"), std::string::npos);
  EXPECT_EQ(ZnGetProcAddress(library, nullptr), nullptr);
  EXPECT_EQ(ZnGetProcAddress(nullptr, "cos"), nullptr);
  EXPECT_TRUE(ZnFreeLibrary(library));
  EXPECT_FALSE(ZnFreeLibrary(nullptr));
}

}  // namespace
}  // namespace zn
