// Shared memory by shm_open, mode 0600: what stands for "administrators only" is that the service
// runs as root. An area of the same name that is already there is unlinked and made anew, since a
// stranger may have put it there. Views are kept in one table, for unmapping needs their sizes.
#include "support/common/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <map>
#include <memory>

#include "support/common/handle.h"
#include "support/common/platform.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/sync.h"
#include "support/common/sysobject.h"
#include "support/common/trace.h"
#include "zn/platform.h"

namespace zn {

std::string AuthSharedMemoryName(u32 port) {
  std::string name = "ZnMiraAuthShareMemory";
  if (port != 0 && port != kStandardPort) name += std::to_string(port);
  return name;
}

namespace {

// The name as shm_open wants it: one slash, at the front.
std::string SystemName(const char* name) {
  std::string plain = name;
  std::replace(plain.begin(), plain.end(), '\\', '_');
  std::replace(plain.begin(), plain.end(), '/', '_');
  return "/" + plain;
}

// The mapped areas of this process.
class Views {
 public:
  void Add(void* view, size_t bytes) {
    const MutexLock lock(mutex_);
    sizes_.insert_or_assign(view, bytes);
  }
  // False when the address is no view.
  bool Unmap(void* view) {
    const MutexLock lock(mutex_);
    const auto found = sizes_.find(view);
    if (found == sizes_.end()) return false;
    munmap(view, found->second);
    sizes_.erase(found);
    return true;
  }

 private:
  Mutex mutex_;
  std::map<void*, size_t> sizes_ ZN_GUARDED_BY(mutex_);
};

Views& MappedViews() {
  static Views& views = *new Views;
  return views;
}

// An area this process made. Closing it takes the name away, unless another area has it by now.
class SharedArea : public SystemObject {
 public:
  SharedArea(int fd, std::string name) : fd_(fd), name_(std::move(name)) {}
  ~SharedArea() override {
    struct stat ours {};
    struct stat named {};
    const int current = shm_open(name_.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (current >= 0) {
      if (fstat(fd_, &ours) == 0 && fstat(current, &named) == 0 && ours.st_ino == named.st_ino &&
          ours.st_dev == named.st_dev) {
        shm_unlink(name_.c_str());
      }
      close(current);
    }
    close(fd_);
  }

 private:
  int fd_;
  std::string name_;
};

// What failed, for the trace, and how.
void* CreateFailed(const char* what) noexcept {
  const int error = errno;
  SetLastFailure(static_cast<u32>(error));
  ZN_TRACE(6, "ZnCreateShMem: %s Errno is %d", what, error);
  return nullptr;
}

void* CreateArea(const char* name, u32 size, ZnHandle* handle) {
  const std::string systemName = SystemName(name);
  shm_unlink(systemName.c_str());
  const int fd = shm_open(systemName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return CreateFailed("Create mapping object.");
  auto area = std::make_unique<SharedArea>(fd, systemName);
  if (fchmod(fd, 0600) != 0) return CreateFailed("Setting the access.");
  if (ftruncate(fd, static_cast<off_t>(size)) != 0) return CreateFailed("Setting the size.");
  void* view = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (view == MAP_FAILED) return CreateFailed("Mapping object.");
  MappedViews().Add(view, size);
  ZnHandle record = AllocateHandle(HANDLE_SYSOBJECT, static_cast<SystemObject*>(area.get()));
  if (record == nullptr) {
    MappedViews().Unmap(view);
    errno = ENOMEM;
    return CreateFailed("Allocating the handle.");
  }
  static_cast<void>(area.release());  // the record owns it from here on
  *handle = record;
  return view;
}

void* OpenArea(const char* name) {
  const int fd = shm_open(SystemName(name).c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd < 0) {
    const int error = errno;
    SetLastFailure(static_cast<u32>(error));
    ZN_TRACE(6, "ZnOpenShMem: Error in opening shmem.  Errno is %d", error);
    return nullptr;
  }
  struct stat status {};
  errno = EINVAL;  // of an area without a size
  void* view = MAP_FAILED;
  if (fstat(fd, &status) == 0 && status.st_size > 0) {
    view = mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_SHARED, fd, 0);
  }
  const int error = errno;
  close(fd);
  if (view == MAP_FAILED) {
    SetLastFailure(static_cast<u32>(error));
    ZN_TRACE(6, "ZnOpenShMem: Mapping object. Errno is %d", error);
    return nullptr;
  }
  MappedViews().Add(view, static_cast<size_t>(status.st_size));
  return view;
}

}  // namespace

}  // namespace zn

extern "C" {

void* ZnCreateShMem(const char* name, u32 size, ZnHandle* handle) {
  if (!zn::IsGoodPointer(name) || *name == '\0' || size == 0 || !zn::IsGoodPointer(handle)) {
    return nullptr;
  }
  try {
    return zn::CreateArea(name, size, handle);
  } catch (const std::exception&) {
    return nullptr;
  }
}

void* ZnOpenShMem(const char* name) {
  if (!zn::IsGoodPointer(name) || *name == '\0') return nullptr;
  try {
    return zn::OpenArea(name);
  } catch (const std::exception&) {
    return nullptr;
  }
}

u32 ZnCloseShMem(void* view) {
  return zn::MappedViews().Unmap(view) ? ZN_OK : ZNE_INVALID_ARGUMENTS;
}

u32 ZnDeleteShMem(void* view, ZnHandle handle) {
  if (zn::HandleTag(handle) != HANDLE_SYSOBJECT) return ZNE_INVALID_ARGUMENTS;
  if (!zn::MappedViews().Unmap(view)) return ZNE_INVALID_ARGUMENTS;
  return ZnCloseHandle(handle);
}

}  // extern "C"
