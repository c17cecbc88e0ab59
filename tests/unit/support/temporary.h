// A folder of a test's own, and settings and a trace in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/common/text.h"
#include "zn/settings.h"
#include "zn/trace.h"

namespace zn::test {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "znXXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// Sets an environment variable for a scope.
class Environment {
 public:
  Environment(const char* name, const std::string& value) : name_(name) {
    const char* old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~Environment() {
    if (had_) {
      ::setenv(name_, old_.c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
  bool had_ = false;
  std::string old_;
};

// Settings of the test's own: a file that ZN_SETTINGS names.
class TemporarySettings {
 public:
  explicit TemporarySettings(const std::string& text = "")
      : file_(folder_ / "settings.toml"), environment_("ZN_SETTINGS", file_) {
    if (!text.empty()) WriteFile(file_, text);
  }
  void Write(const std::string& text) const { WriteFile(file_, text); }
  [[nodiscard]] std::string Text() const { return ReadFile(file_); }
  [[nodiscard]] const std::string& File() const { return file_; }
  [[nodiscard]] const TemporaryFolder& Folder() const { return folder_; }

 private:
  TemporaryFolder folder_;
  std::string file_;
  Environment environment_;
};

// A trace of the test's own, from a level on.
class TemporaryTrace {
 public:
  explicit TemporaryTrace(int level) : file_(settings_.Folder() / "trace.log") {
    settings_.Write("[Tracing.test]\nTRACELEVEL = " + std::to_string(level) + "\nTraceFile = '" +
                    file_ + "'\n");
    static_cast<void>(ZnTraceInit(u"test", 0, nullptr));
  }
  ~TemporaryTrace() { ZnTraceClose(); }
  TemporaryTrace(const TemporaryTrace&) = delete;
  TemporaryTrace& operator=(const TemporaryTrace&) = delete;
  [[nodiscard]] std::string Text() const { return ReadFile(file_); }
  [[nodiscard]] bool Has(const std::string& line) const {
    return Text().find(" :  " + line + "\n") != std::string::npos;
  }
  [[nodiscard]] const TemporarySettings& Settings() const { return settings_; }

 private:
  TemporarySettings settings_;
  std::string file_;
};

}  // namespace zn::test
