// The trace file. A line is "<time text> :  <message>\n" with the time as ZnGetTime gives it, less
// its newline; the message may end in a newline of its own and then leaves an empty line. A line is
// flushed before ZnTrace returns, so that a crash loses nothing, and written in one piece, so that
// lines of two threads do not mix. The lock is a leaf: nothing is called under it but the C
// library.
#include "support/common/zndebug.h"

#include <cstdarg>
#include <cstdio>
#include <exception>

#include "support/common/format.h"
#include "support/common/sync.h"
#include "support/common/trace.h"
#include "zn/platform.h"

namespace zn {

constinit std::atomic<int> traceThreshold{kTraceOff};

namespace {

// The open file and the level at which it takes lines.
class ZnTraceFile {
 public:
  void Open(const std::string& path, const TraceOptions& options) {
    const MutexLock lock(mutex_);
    CloseLocked();
    file_ = std::fopen(path.c_str(), "w");
    if (file_ == nullptr) {
      std::fputs("Open failed\n", stderr);
      return;
    }
    std::fputs(ZnGetTime(), file_);
    std::fflush(file_);
    traceThreshold.store(options.level, std::memory_order_relaxed);
  }

  void Close() {
    const MutexLock lock(mutex_);
    CloseLocked();
  }

  void Write(const std::string& line) {
    const MutexLock lock(mutex_);
    if (file_ == nullptr) return;
    std::fwrite(line.data(), 1, line.size(), file_);
    std::fflush(file_);
  }

 private:
  void CloseLocked() ZN_REQUIRES(mutex_) {
    traceThreshold.store(kTraceOff, std::memory_order_relaxed);
    if (file_ != nullptr) std::fclose(file_);
    file_ = nullptr;
  }

  Mutex mutex_;
  std::FILE* file_ ZN_GUARDED_BY(mutex_) = nullptr;
};

ZnTraceFile& TraceFile() {
  static ZnTraceFile& file = *new ZnTraceFile;  // never destroyed: late threads may still trace
  return file;
}

void WriteLine(const char* format, va_list arguments) {
  std::string line = ZnGetTime();
  if (!line.empty()) line.pop_back();
  line += " :  ";
  line += FormatText(format, arguments);
  line += '\n';
  TraceFile().Write(line);
}

}  // namespace

void OpenTrace(const std::string& path, const TraceOptions& options) {
  TraceFile().Open(path, options);
}

}  // namespace zn

extern "C" {

u32 ZnTrace(int level, const char* format, ...) {
  if (!zn::TraceEnabled(level) || format == nullptr) return 0;
  va_list arguments;
  va_start(arguments, format);
  try {
    zn::WriteLine(format, arguments);
  } catch (const std::exception&) {  // short of memory: the line is lost, the caller goes on
  }
  va_end(arguments);
  return 0;
}

void ZnTraceClose(void) {
  zn::TraceFile().Close();
}

}  // extern "C"
