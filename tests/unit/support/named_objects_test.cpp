// Shared memory and named mutexes, between processes too.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "support/common/handle.h"
#include "support/common/named_mutex.h"
#include "support/common/shared_memory.h"
#include "tests/unit/support/temporary.h"
#include "zn/platform.h"

namespace zn {
namespace {

using test::TemporaryTrace;

constexpr u32 kInvalid = 0x80070057u;
constexpr u32 kForever = 0xFFFFFFFFu;

// A name of this process's own.
std::string OwnName(const char* what) {
  return std::string("ZnTest") + what + std::to_string(getpid());
}

// What `body` answers in a forked child.
int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(SharedMemory, TheNameCarriesAnUnusualPort) {
  EXPECT_EQ(AuthSharedMemoryName(0), "ZnMiraAuthShareMemory");
  EXPECT_EQ(AuthSharedMemoryName(2148), "ZnMiraAuthShareMemory");
  EXPECT_EQ(AuthSharedMemoryName(4000), "ZnMiraAuthShareMemory4000");
}

TEST(SharedMemory, WhatIsWrittenIsReadElsewhere) {
  const std::string name = OwnName("A");
  ZnHandle handle = nullptr;
  auto* view = static_cast<char*>(ZnCreateShMem(name.c_str(), 5000, &handle));
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(HandleTag(handle), HANDLE_SYSOBJECT);
  EXPECT_EQ(view[4999], 0);
  std::strcpy(view, "secret");
  EXPECT_EQ(InChild([&] {
              auto* seen = static_cast<const char*>(ZnOpenShMem(name.c_str()));
              return seen != nullptr && std::strcmp(seen, "secret") == 0 ? 0 : 1;
            }),
            0);
  void* second = ZnOpenShMem(name.c_str());
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(ZnCloseShMem(second), 0u);
  EXPECT_EQ(ZnCloseShMem(second), kInvalid);
  EXPECT_EQ(ZnDeleteShMem(view, handle), 0u);
  EXPECT_EQ(ZnDeleteShMem(view, handle), kInvalid);
  EXPECT_EQ(ZnOpenShMem(name.c_str()), nullptr) << "the name went too";
}

TEST(SharedMemory, IsForThisUserAlone) {
  const std::string name = OwnName("Mode");
  const mode_t before = umask(0);
  ZnHandle handle = nullptr;
  void* view = ZnCreateShMem(name.c_str(), 10, &handle);
  umask(before);
  ASSERT_NE(view, nullptr);
  struct stat status {};
  ASSERT_EQ(stat(("/dev/shm/" + name).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(ZnDeleteShMem(view, handle), 0u);
}

TEST(SharedMemory, AnAreaOfThatNameIsMadeAnew) {
  const std::string name = OwnName("Old");
  ZnHandle first = nullptr;
  auto* old = static_cast<char*>(ZnCreateShMem(name.c_str(), 10, &first));
  ASSERT_NE(old, nullptr);
  *old = 'o';
  ZnHandle second = nullptr;
  auto* fresh = static_cast<char*>(ZnCreateShMem(name.c_str(), 10, &second));
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(*fresh, 0);
  EXPECT_EQ(ZnDeleteShMem(old, first), 0u);
  void* open = ZnOpenShMem(name.c_str());
  EXPECT_NE(open, nullptr) << "the name is the second one's and stays";
  EXPECT_EQ(ZnCloseShMem(open), 0u);
  EXPECT_EQ(ZnCloseHandle(second), 0u) << "a handle alone closes too";
  EXPECT_EQ(ZnOpenShMem(name.c_str()), nullptr);
  EXPECT_EQ(ZnCloseShMem(fresh), 0u);
}

TEST(SharedMemory, SeparatorsInTheNameAreNone) {
  const std::string name = "Global\\" + OwnName("Sep") + "/x";
  ZnHandle handle = nullptr;
  void* view = ZnCreateShMem(name.c_str(), 10, &handle);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(access(("/dev/shm/Global_" + OwnName("Sep") + "_x").c_str(), F_OK), 0);
  EXPECT_EQ(ZnDeleteShMem(view, handle), 0u);
}

TEST(SharedMemory, FailuresAreTraced) {
  const TemporaryTrace trace(6);
  EXPECT_EQ(ZnOpenShMem(OwnName("Absent").c_str()), nullptr);
  EXPECT_EQ(ZnGetLastError(), static_cast<u32>(ENOENT));
  EXPECT_TRUE(trace.Has("ZnOpenShMem: Error in opening shmem.  Errno is 2"));
  const std::string empty = "/" + OwnName("Empty");
  close(shm_open(empty.c_str(), O_CREAT | O_RDWR, 0600));
  EXPECT_EQ(ZnOpenShMem(empty.c_str() + 1), nullptr);
  EXPECT_TRUE(trace.Has("ZnOpenShMem: Mapping object. Errno is 22"));
  shm_unlink(empty.c_str());
  ZnHandle handle = nullptr;
  EXPECT_EQ(ZnCreateShMem(std::string(300, 'n').c_str(), 10, &handle), nullptr);
  EXPECT_TRUE(trace.Has("ZnCreateShMem: Create mapping object. Errno is 22")) << trace.Text();
  EXPECT_EQ(handle, nullptr);
}

TEST(SharedMemory, BadArgumentsAreRefused) {
  ZnHandle handle = nullptr;
  EXPECT_EQ(ZnCreateShMem(nullptr, 10, &handle), nullptr);
  EXPECT_EQ(ZnCreateShMem("", 10, &handle), nullptr);
  EXPECT_EQ(ZnCreateShMem("x", 0, &handle), nullptr);
  EXPECT_EQ(ZnCreateShMem("x", 10, nullptr), nullptr);
  EXPECT_EQ(ZnOpenShMem(nullptr), nullptr);
  EXPECT_EQ(ZnOpenShMem(""), nullptr);
  EXPECT_EQ(ZnCloseShMem(nullptr), kInvalid);
  char local = 0;
  EXPECT_EQ(ZnCloseShMem(&local), kInvalid);
  EXPECT_EQ(ZnDeleteShMem(&local, nullptr), kInvalid);
}

// A named mutex closed, and its memory removed, at the end of a test.
class Named {
 public:
  explicit Named(const char* what)
      : name_(OwnName(what)), handle_(ZnCreateNamedMutex(name_.c_str())) {}
  ~Named() {
    ZnCloseNamedMutex(handle_);
    shm_unlink(("/" + name_ + ".mutex").c_str());
  }
  Named(const Named&) = delete;
  Named& operator=(const Named&) = delete;
  [[nodiscard]] const char* Name() const { return name_.c_str(); }
  [[nodiscard]] ZnHandle Get() const { return handle_; }

 private:
  std::string name_;
  ZnHandle handle_;
};

TEST(NamedMutex, ItsHolderMayTakeItAgain) {
  const Named mutex("Again");
  ASSERT_NE(mutex.Get(), nullptr);
  EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), 0), 0u);
  EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), kForever), 0u);
  EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
  EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
  EXPECT_FALSE(ZnReleaseNamedMutex(mutex.Get())) << "not held any more";
}

TEST(NamedMutex, OtherProcessesWait) {
  const Named mutex("Process");
  ASSERT_EQ(ZnWaitNamedMutex(mutex.Get(), 0), 0u);
  const auto tryIt = [&] {
    ZnHandle theirs = ZnTryNamedMutex(mutex.Name());
    if (theirs == nullptr) return 1;
    return ZnReleaseNamedMutex(theirs) ? 0 : 2;
  };
  EXPECT_EQ(InChild(tryIt), 1);
  EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
  EXPECT_EQ(InChild(tryIt), 0);
}

TEST(NamedMutex, AProcessThatEndsLeavesItAbandoned) {
  const Named mutex("Dead");
  EXPECT_EQ(InChild([&] { return ZnTryNamedMutex(mutex.Name()) != nullptr ? 0 : 1; }), 0);
  EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), 0), kWaitAbandoned);
  EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
  EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), 0), 0u) << "told once";
  EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
}

TEST(NamedMutex, ClosingGivesItsHoldsUp) {
  const Named mutex("Close");
  ZnHandle second = ZnTryNamedMutex(mutex.Name());
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(ZnWaitNamedMutex(second, 0), 0u);
  EXPECT_TRUE(ZnCloseNamedMutex(second));
  EXPECT_FALSE(ZnCloseNamedMutex(second));
  EXPECT_EQ(InChild([&] { return ZnTryNamedMutex(mutex.Name()) != nullptr ? 0 : 1; }), 0);
}

TEST(NamedMutex, BadHandlesAndNamesAreRefused) {
  EXPECT_EQ(ZnCreateNamedMutex(nullptr), nullptr);
  EXPECT_EQ(ZnCreateNamedMutex(""), nullptr);
  EXPECT_EQ(ZnCreateNamedMutex(std::string(300, 'n').c_str()), nullptr);
  EXPECT_EQ(ZnTryNamedMutex(nullptr), nullptr);
  ZnHandle area = nullptr;
  void* view = ZnCreateShMem(OwnName("Kind").c_str(), 10, &area);
  ASSERT_NE(view, nullptr);
  for (ZnHandle handle : {ZnHandle{}, area, reinterpret_cast<ZnHandle>(UINTPTR_MAX)}) {
    EXPECT_EQ(ZnWaitNamedMutex(handle, 0), 0xFFFFFFFFu);
    EXPECT_FALSE(ZnReleaseNamedMutex(handle));
    EXPECT_FALSE(ZnCloseNamedMutex(handle));
  }
  EXPECT_EQ(ZnDeleteShMem(view, area), 0u);
}

TEST(NamedMutexThreads, OnlyOneThreadIsInsideAndWaitsRunOut) {
  const Named mutex("Threads");
  ASSERT_EQ(ZnWaitNamedMutex(mutex.Get(), 0), 0u);
  std::thread other([&] {
    EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), 0), 258u);
    EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), 5), 258u);
    EXPECT_FALSE(ZnReleaseNamedMutex(mutex.Get())) << "of a stranger";
  });
  other.join();
  ZnHandle ready = ZnCreateEvent(0, 0);
  std::thread waiter([&] {
    ZnSetEvent(ready);
    EXPECT_EQ(ZnWaitNamedMutex(mutex.Get(), kForever), 0u);
    EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
  });
  EXPECT_EQ(ZnWaitForEvent(ready, kForever), 0u);
  EXPECT_TRUE(ZnReleaseNamedMutex(mutex.Get()));
  waiter.join();
  ZnCloseEvent(ready);
}

}  // namespace
}  // namespace zn
