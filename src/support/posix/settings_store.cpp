// The settings file: the document in memory, kept in step with the file that ZN_SETTINGS names,
// else /etc/znmira/settings.toml. Every call looks whether the file is still the one that was read
// (path, device, inode, size, times) and reads it again if not, so a change by another process
// shows at the next call. The times of a file move on with the host's tick, so those of a file that
// was written just now do not tell it from the next version: until it has aged, its text does. A
// write takes a lock file beside the settings, reads the file again, applies the change to a copy,
// writes that to a temporary file, syncs it and renames it over the old one, so that a reader sees
// the old file or the new one and nothing between. A file that does not parse is traced, fails
// every call, and is never overwritten.
#include "support/common/settings_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "support/common/platform.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "support/common/trace.h"
#include "support/posix/settings_toml.h"

namespace zn {

namespace {

constexpr char kDefaultFile[] = "/etc/znmira/settings.toml";
constexpr size_t kMaxFileBytes = size_t{16} << 20;
// Ten ticks of the slowest clock that a host has.
constexpr i64 kAgedMs = 100;

std::string SettingsFile() {
  const char* named = std::getenv("ZN_SETTINGS");
  return named != nullptr && *named != '\0' ? named : kDefaultFile;
}

class Descriptor {
 public:
  explicit Descriptor(int fd) noexcept : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int Get() const noexcept { return fd_; }
  [[nodiscard]] bool Bad() const noexcept { return fd_ < 0; }

 private:
  int fd_;
};

// Tells one version of a file from another.
struct FileStamp {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  explicit FileStamp(const struct stat& status) noexcept
      : exists(true),
        device(status.st_dev),
        inode(status.st_ino),
        size(status.st_size),
        modified(status.st_mtim),
        changed(status.st_ctim) {}
  FileStamp() = default;

  bool operator==(const FileStamp& other) const noexcept {
    const auto same = [](const timespec& a, const timespec& b) {
      return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    return exists == other.exists && device == other.device && inode == other.inode &&
           size == other.size && same(modified, other.modified) && same(changed, other.changed);
  }
};

FileStamp StampOf(const std::string& path) noexcept {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? FileStamp(status) : FileStamp();
}

i64 ToMs(const timespec& time) noexcept {
  return i64{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

// By the clock that the host stamps files with.
i64 FileClockMs() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  return ToMs(now);
}

// A change of the file made after that moment shows in its stamp.
bool HasAged(const FileStamp& stamp, i64 momentMs) noexcept {
  return !stamp.exists || momentMs - std::max(ToMs(stamp.modified), ToMs(stamp.changed)) > kAgedMs;
}

// 0, or the errno.
int ReadAll(int fd, std::string* text) {
  char buffer[8192];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof(buffer));
    if (got == 0) return 0;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    text->append(buffer, static_cast<size_t>(got));
    if (text->size() > kMaxFileBytes) return EFBIG;
  }
}

int WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t put = write(fd, text.data(), text.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno;
    text.remove_prefix(static_cast<size_t>(put));
  }
  return 0;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// The file behind symbolic links, so that a rename replaces the file and not the link.
std::string RealFile(const std::string& path) {
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) return path;
  std::string result = resolved;
  std::free(resolved);
  return result;
}

// Writes a temporary file beside `path` and renames it over it. 0, or the errno.
int ReplaceFile(const std::string& path, const std::string& text) {
  std::string temporary = path + ".XXXXXX";
  const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));
  if (file.Bad()) return errno;
  struct stat old {};
  const bool hadFile = stat(path.c_str(), &old) == 0;
  int error = WriteAll(file.Get(), text);
  if (error == 0 && fchmod(file.Get(), hadFile ? old.st_mode & 07777 : 0644) != 0) error = errno;
  // Only root may give a file away; anybody else has made it his own, which is all he can do.
  if (error == 0 && hadFile && fchown(file.Get(), old.st_uid, old.st_gid) != 0 && errno != EPERM) {
    error = errno;
  }
  if (error == 0 && fsync(file.Get()) != 0) error = errno;
  if (error == 0 && rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) {
    unlink(temporary.c_str());
    return error;
  }
  const Descriptor folder(open(FolderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.Bad()) static_cast<void>(fsync(folder.Get()));
  return 0;
}

// Lines for the trace, written after the store's lock is free.
struct Report {
  int level;
  std::string text;
};

class SettingsStore {
 public:
  // Runs `read` on the document as the file has it now.
  template <typename Read>
  u32 With(const Read& read) {
    std::vector<Report> reports;
    const u32 status = [&]() -> u32 {
      const MutexLock lock(mutex_);
      ZN_RETURN_IF_FAILED(Refresh(&reports));
      return read(std::as_const(document_));
    }();
    Trace(reports);
    return status;
  }

  // Runs `change` on a copy of the document and writes what came of it, if something did.
  template <typename Change>
  u32 Modify(const Change& change) {
    std::vector<Report> reports;
    const u32 status = [&]() -> u32 {
      const MutexLock lock(mutex_);
      ZN_RETURN_IF_FAILED(Refresh(&reports));
      return ModifyLocked(change, &reports);
    }();
    Trace(reports);
    return status;
  }

 private:
  static void Trace(const std::vector<Report>& reports) {
    for (const Report& report : reports) ZN_TRACE(report.level, "%s", report.text.c_str());
  }

  static u32 Failed(int error, const std::string& what, std::vector<Report>* reports) {
    SetLastFailure(static_cast<u32>(error));
    reports->push_back({6, "Settings: " + what + ": " + LastFailureText()});
    return kSettingRefused;
  }

  static u32 FailedAsNoFile(const std::string& path, std::vector<Report>* reports) {
    SetLastFailure(EINVAL, "not a regular file");
    reports->push_back({6, "Settings: cannot read " + path + ": " + LastFailureText()});
    return kSettingRefused;
  }

  u32 Refresh(std::vector<Report>* reports) ZN_REQUIRES(mutex_) {
    const std::string path = SettingsFile();
    const bool isLoaded = loaded_ && path == path_;
    if (isLoaded && hasAged_ && StampOf(path) == stamp_) return status_;
    FileStamp stamp;
    std::string text;
    std::vector<Report> told;
    const i64 beginMs = FileClockMs();
    path_ = path;
    const u32 status = Read(&stamp, &text, &told);
    hasAged_ = HasAged(stamp, beginMs);
    if (isLoaded && stamp.exists && stamp == stamp_ && text == text_) return status_;
    reports->insert(reports->end(), told.begin(), told.end());
    stamp_ = stamp;
    text_ = std::move(text);
    document_ = SettingsDocument();
    status_ = ZN_FAILED(status) ? status : Parse(reports);
    loaded_ = true;
    return status_;
  }

  // The stamp is that of the text: taken before it was read, so what comes between shows later.
  u32 Read(FileStamp* stamp, std::string* text, std::vector<Report>* reports) ZN_REQUIRES(mutex_) {
    // Nobody waits here for what a pipe or a terminal may bring one day. Nor is a device taken for
    // a file without content: a write would put a file into its place.
    const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.Bad() && (errno == ENOENT || errno == ENOTDIR)) return ZN_OK;  // an empty root key
    if (file.Bad()) return Failed(errno, "cannot open " + path_, reports);
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) return Failed(errno, "cannot read " + path_, reports);
    *stamp = FileStamp(status);
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return FailedAsNoFile(path_, reports);
    if (const int error = ReadAll(file.Get(), text); error != 0) {
      return Failed(error, "cannot read " + path_, reports);
    }
    return ZN_OK;
  }

  u32 Parse(std::vector<Report>* reports) ZN_REQUIRES(mutex_) {
    SettingsError error;
    if (!document_.Parse(text_, &error)) {
      reports->push_back({6, "Settings: " + path_ + ", line " + std::to_string(error.line) +
                                 ", column " + std::to_string(error.column) + ": " + error.text});
      return kSettingRefused;
    }
    for (const std::string& line : document_.Oddities()) {
      reports->push_back({4, "Settings: " + path_ + ", " + line});
    }
    return ZN_OK;
  }

  template <typename Change>
  u32 ModifyLocked(const Change& change, std::vector<Report>* reports) ZN_REQUIRES(mutex_) {
    // A change that comes to nothing needs no lock file, so a reader without write access may ask.
    bool changed = false;
    {
      SettingsDocument trial = document_;
      ZN_RETURN_IF_FAILED(change(&trial, &changed));
      if (!changed) return ZN_OK;
    }
    const std::string file = RealFile(path_);
    static_cast<void>(mkdir(FolderOf(file).c_str(), 0755));  // shows at the lock file if it failed
    const Descriptor lockFile(
        open((file + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (lockFile.Bad()) return Failed(errno, "cannot lock " + file, reports);
    while (flock(lockFile.Get(), LOCK_EX) != 0) {
      if (errno != EINTR) return Failed(errno, "cannot lock " + file, reports);
    }
    ZN_RETURN_IF_FAILED(Refresh(reports));  // somebody may have written before we had the lock
    SettingsDocument next = document_;
    ZN_RETURN_IF_FAILED(change(&next, &changed));
    const std::string text = next.Format();
    if (text.empty()) return Failed(EILSEQ, "cannot write " + file, reports);
    if (const int error = ReplaceFile(file, text); error != 0) {
      return Failed(error, "cannot write " + file, reports);
    }
    document_ = std::move(next);
    text_ = text;
    stamp_ = StampOf(path_);
    hasAged_ = false;
    return ZN_OK;
  }

  Mutex mutex_;
  bool loaded_ ZN_GUARDED_BY(mutex_) = false;
  u32 status_ ZN_GUARDED_BY(mutex_) = ZN_OK;  // of the last loading
  std::string path_ ZN_GUARDED_BY(mutex_);
  FileStamp stamp_ ZN_GUARDED_BY(mutex_);
  bool hasAged_ ZN_GUARDED_BY(mutex_) = false;  // the stamp alone tells of the next change
  std::string text_ ZN_GUARDED_BY(mutex_);
  SettingsDocument document_ ZN_GUARDED_BY(mutex_);
};

SettingsStore& Store() {
  static SettingsStore& store = *new SettingsStore;  // never destroyed: late threads may ask
  return store;
}

}  // namespace

u32 SettingsOpen(const SettingsPath& path) {
  return Store().With([&](const SettingsDocument& document) { return document.Open(path); });
}

u32 SettingsCreateKey(const SettingsPath& path) {
  return Store().Modify([&](SettingsDocument* document, bool* changed) {
    return document->CreateKey(path, changed);
  });
}

u32 SettingsDeleteKey(const SettingsPath& path) {
  return Store().Modify([&](SettingsDocument* document, bool* changed) {
    return document->DeleteKey(path, changed);
  });
}

u32 SettingsSubKey(const SettingsPath& path, u32 index, std::string* name) {
  return Store().With(
      [&](const SettingsDocument& document) { return document.SubKey(path, index, name); });
}

u32 SettingsValueAt(const SettingsPath& path, u32 index, std::string* name, SettingValue* value) {
  return Store().With(
      [&](const SettingsDocument& document) { return document.ValueAt(path, index, name, value); });
}

u32 SettingsValue(const SettingsPath& path, const std::string& name, SettingValue* value) {
  return Store().With(
      [&](const SettingsDocument& document) { return document.Value(path, name, value); });
}

u32 SettingsSetValue(const SettingsPath& path, const std::string& name, const SettingValue& value) {
  return Store().Modify([&](SettingsDocument* document, bool* changed) {
    return document->SetValue(path, name, value, changed);
  });
}

u32 SettingsDeleteValue(const SettingsPath& path, const std::string& name) {
  return Store().Modify([&](SettingsDocument* document, bool* changed) {
    return document->DeleteValue(path, name, changed);
  });
}

}  // namespace zn
