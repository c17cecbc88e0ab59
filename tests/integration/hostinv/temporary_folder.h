// A folder of a test's own, removed with everything in it at the end.
#pragma once

#include <linux/magic.h>
#include <stdlib.h>
#include <sys/vfs.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace hostinv {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "hostinv_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp: " + name);
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& Path() const { return path_; }

  // True where the folder lies in a file system in memory: a mount of such a one is not shown.
  bool IsInMemory() const {
    struct statfs usage {};
    if (statfs(path_.c_str(), &usage) != 0) return false;
    return usage.f_type == TMPFS_MAGIC || usage.f_type == static_cast<long>(RAMFS_MAGIC);
  }

  // Writes a file, its folders included; `name` is relative.
  void Write(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = std::filesystem::path(path_) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }

 private:
  std::string path_;
};

}  // namespace hostinv
