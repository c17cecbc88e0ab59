// Collects the trace lines of a test: tracing runs at level 1 into a file of its own.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "zn/settings.h"
#include "zn/trace.h"

namespace zn::test {

class TraceCapture {
 public:
  TraceCapture() {
    char path[] = "/tmp/znmira-trace-XXXXXX";
    const int file = mkstemp(path);
    if (file >= 0) close(file);
    path_ = path;
    char settings[] = "/tmp/znmira-settings-XXXXXX";
    const int settingsFile = mkstemp(settings);
    if (settingsFile >= 0) close(settingsFile);
    settings_ = settings;
    std::ofstream(settings_) << "[Tracing.znmira]\nTRACELEVEL = 1\nTraceFile = \"" << path_
                             << "\"\n";
    setenv("ZN_SETTINGS", settings_.c_str(), 1);
    static_cast<void>(ZnTraceInit(u"znmira", 0, nullptr));
  }
  ~TraceCapture() {
    ZnTraceClose();
    unsetenv("ZN_SETTINGS");
    unlink(path_.c_str());
    unlink(settings_.c_str());
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  [[nodiscard]] std::string Text() const {
    std::ifstream file(path_);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
  }
  // Whether a line ends with exactly that message.
  [[nodiscard]] bool Has(const std::string& message) const {
    return Text().find(" :  " + message + "\n") != std::string::npos;
  }

 private:
  std::string path_;
  std::string settings_;
};

}  // namespace zn::test
