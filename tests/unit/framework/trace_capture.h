// The lines that a piece of code traces.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "support/common/zndebug.h"
#include "zn/trace.h"

namespace zn::test {

// The lines traced, from the given level on, while the object lives.
class TraceCapture {
 public:
  explicit TraceCapture(int level = 1)
      : path_("/tmp/zn_trace_" + std::to_string(getpid()) + ".log") {
    OpenTrace(path_, {level, 0, true});
    file_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  }
  ~TraceCapture() {
    ZnTraceClose();
    close(file_);
    static_cast<void>(unlink(path_.c_str()));
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // Whether one of the messages so far is exactly that one.
  [[nodiscard]] bool Has(std::string_view message) const {
    const std::vector<std::string> messages = Messages();
    return std::find(messages.begin(), messages.end(), message) != messages.end();
  }
  // The messages so far, without the time in front.
  [[nodiscard]] std::vector<std::string> Messages() const {
    constexpr std::string_view kMark = " :  ";
    std::vector<std::string> messages;
    std::string text;
    char buffer[8192];
    for (ssize_t got = 0;
         (got = pread(file_, buffer, sizeof(buffer), static_cast<off_t>(text.size()))) > 0;) {
      text.append(buffer, static_cast<size_t>(got));
    }
    for (size_t at = 0, end = 0; at < text.size(); at = end + 1) {
      end = std::min(text.find('\n', at), text.size());
      const std::string line = text.substr(at, end - at);
      const size_t mark = line.find(kMark);
      if (mark != std::string::npos) messages.push_back(line.substr(mark + kMark.size()));
    }
    return messages;
  }

 private:
  std::string path_;
  int file_ = -1;  // open throughout: a process out of descriptors can look, too
};

}  // namespace zn::test
