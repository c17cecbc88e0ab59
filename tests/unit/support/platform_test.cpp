// Critical sections, threads, closing of handles, pointer probes, time, names, versions, flags.
#include "zn/platform.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <clocale>
#include <ctime>
#include <thread>

#include <gtest/gtest.h>

#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "support/common/platform.h"
#include "tests/unit/support/temporary.h"
#include "zn/init.h"
#include "zn/memory.h"

namespace zn {
namespace {

using test::TemporarySettings;
using test::TemporaryTrace;

constexpr u32 kForever = 0xFFFFFFFFu;

TEST(CriticalSection, ItsHolderMayTakeItAgain) {
  void* section = nullptr;
  ZnInitializeCriticalSection(&section);
  ASSERT_NE(section, nullptr);
  ZnEnterCriticalSection(&section);
  ZnEnterCriticalSection(&section);
  ZnLeaveCriticalSection(&section);
  ZnLeaveCriticalSection(&section);
  void* moved = section;  // the variable may lie in a structure that moves
  ZnEnterCriticalSection(&moved);
  ZnLeaveCriticalSection(&moved);
  ZnDeleteCriticalSection(&section);
  EXPECT_EQ(section, nullptr);
}

TEST(CriticalSection, NullIsHarmless) {
  void* section = nullptr;
  ZnEnterCriticalSection(&section);
  ZnLeaveCriticalSection(&section);
  ZnDeleteCriticalSection(&section);
  ZnInitializeCriticalSection(nullptr);
  ZnEnterCriticalSection(nullptr);
  ZnLeaveCriticalSection(nullptr);
  ZnDeleteCriticalSection(nullptr);
  EXPECT_EQ(section, nullptr);
}

TEST(CriticalSectionThreads, OnlyOneThreadIsInside) {
  void* section = nullptr;
  ZnInitializeCriticalSection(&section);
  int counter = 0;  // plain on purpose
  const auto work = [&] {
    for (int i = 0; i < 5000; ++i) {
      ZnEnterCriticalSection(&section);
      ++counter;
      ZnLeaveCriticalSection(&section);
    }
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(counter, 10000);
  ZnDeleteCriticalSection(&section);
}

// What a thread of these tests works on.
struct Work {
  ZnHandle done = ZnCreateEvent(0, 0);
  std::atomic<u32> id{0};
  std::atomic<bool> scopeLeft{false};
  std::atomic<bool> wentOn{false};
  ~Work() { ZnCloseEvent(done); }
};

u32 NoteId(void* argument) {
  auto* work = static_cast<Work*>(argument);
  work->id = CurrentThreadId();
  ZnSetEvent(work->done);
  return 5;
}

TEST(PlatformThreads, AThreadRunsAndItsHandleCloses) {
  Work work;
  u32 id = 0;
  ZnHandle thread = ZnCreateThread(nullptr, 0, NoteId, &work, 0, &id);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(HandleTag(thread), HANDLE_THREAD);
  EXPECT_EQ(ZnWaitForEvent(work.done, kForever), 0u);
  EXPECT_EQ(work.id, id);
  EXPECT_NE(id, CurrentThreadId());
  EXPECT_TRUE(ZnTerminateThread(thread, 1)) << "does nothing";
  EXPECT_EQ(ZnCloseHandle(thread), 0u);
  EXPECT_EQ(ZnCloseHandle(thread), 0x80070057u) << "the second time";
  EXPECT_TRUE(ZnTerminateThread(nullptr, 1));
}

TEST(PlatformThreads, StackSizesAreRoundedUp) {
  for (const u32 size : {1u, 100000u, 1u << 20}) {
    Work work;
    ZnHandle thread = ZnCreateThread(nullptr, size, NoteId, &work, 0, nullptr);
    ASSERT_NE(thread, nullptr) << size;
    EXPECT_EQ(ZnWaitForEvent(work.done, kForever), 0u);
    EXPECT_EQ(ZnCloseHandle(thread), 0u);
  }
}

TEST(PlatformThreads, BadStartsAreRefused) {
  EXPECT_EQ(ZnCreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), nullptr);
  EXPECT_EQ(ZnCreateThread(nullptr, 0, NoteId, nullptr, 4, nullptr), nullptr) << "suspended";
}

u32 ExitEarly(void* argument) {
  auto* work = static_cast<Work*>(argument);
  struct Scope {
    Work* work;
    ~Scope() {
      work->scopeLeft = true;
      ZnSetEvent(work->done);
    }
  } scope{work};
  ZnExitThread(3);
  work->wentOn = true;
  return 0;
}

TEST(PlatformThreads, ExitEndsTheThreadAndLeavesItsScopes) {
  Work work;
  ZnHandle thread = ZnCreateThread(nullptr, 0, ExitEarly, &work, 0, nullptr);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(ZnWaitForEvent(work.done, kForever), 0u);
  EXPECT_TRUE(work.scopeLeft);
  EXPECT_FALSE(work.wentOn);
  EXPECT_EQ(ZnCloseHandle(thread), 0u);
}

TEST(Handles, CloseTakesTheKindsThatCallersOwn) {
  struct KindCase {
    u32 tag;
    void* thing;
    bool closes;
  };
  const KindCase cases[] = {
      {HANDLE_PROPITER, reinterpret_cast<void*>(std::uintptr_t{17}), true},
      {HANDLE_EVENT, reinterpret_cast<void*>(UINTPTR_MAX), true},
      {HANDLE_THREAD, nullptr, true},
      {HANDLE_PROPSET, nullptr, false},
      {HANDLE_DATABASE, nullptr, false},
      {HANDLE_PROVIDER, nullptr, false},
      {HANDLE_EVENT_REGISTRATION, nullptr, false},
      {HANDLE_CLIENT, nullptr, false},
  };
  for (const KindCase& c : cases) {
    SCOPED_TRACE(c.tag);
    ZnHandle handle = AllocateHandle(c.tag, c.thing);
    EXPECT_EQ(ZnCloseHandle(handle), c.closes ? 0u : 0x80070057u);
    EXPECT_EQ(HandleTag(handle), c.closes ? 0u : c.tag);
    EXPECT_EQ(FreeAnyHandle(handle), !c.closes);
  }
  EXPECT_EQ(ZnCloseHandle(nullptr), 0x80070057u);
  EXPECT_EQ(ZnCloseHandle(reinterpret_cast<ZnHandle>(UINTPTR_MAX)), 0x80070057u);
}

TEST(Pointers, NullTheFirstPageAndAllOnesAreBad) {
  char good[4] = "abc";
  EXPECT_EQ(ZnIsBadReadPtr(good, 4), 0);
  EXPECT_EQ(ZnIsBadWritePtr(good, 4), 0);
  EXPECT_EQ(ZnIsBadCodePtr(good), 0);
  for (const std::uintptr_t address :
       {std::uintptr_t{0}, std::uintptr_t{1}, std::uintptr_t{4095}, std::uintptr_t{UINTPTR_MAX}}) {
    auto* bad = reinterpret_cast<void*>(address);
    EXPECT_NE(ZnIsBadReadPtr(bad, 1), 0);
    EXPECT_NE(ZnIsBadWritePtr(bad, 1), 0);
    EXPECT_NE(ZnIsBadCodePtr(bad), 0);
    EXPECT_NE(ZnIsBadStringPtrA(static_cast<char*>(bad), 10), 0);
    EXPECT_NE(ZnIsBadStringPtrW(static_cast<ZnWChar*>(bad), 10), 0);
  }
}

TEST(Pointers, AStringNeedsItsTerminatorWithinTheLimit) {
  EXPECT_EQ(ZnIsBadStringPtrA("abc", 3), 0);
  EXPECT_NE(ZnIsBadStringPtrA("abc", 2), 0);
  EXPECT_EQ(ZnIsBadStringPtrA("", 0), 0);
  EXPECT_NE(ZnIsBadStringPtrA("a", 0), 0);
  EXPECT_EQ(ZnIsBadStringPtrA("abc", SIZE_MAX), 0);
  EXPECT_EQ(ZnIsBadStringPtrW(u"abc", 3), 0);
  EXPECT_NE(ZnIsBadStringPtrW(u"abc", 2), 0);
  EXPECT_EQ(ZnIsBadStringPtrW(u"abc", SIZE_MAX), 0);
}

// time() moves on with the host's tick only, and may still tell of the second before.
time_t ExactSeconds() {
  return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

TEST(Time, TheTextIsThatOfTheMoment) {
  const time_t before = ExactSeconds();
  const std::string text = ZnGetTime();
  const time_t after = ExactSeconds();
  ASSERT_EQ(text.size(), 25u);
  EXPECT_EQ(text.back(), '\n');
  bool found = false;
  for (time_t t = before; t <= after; ++t) {
    char expected[32];
    tm local{};
    localtime_r(&t, &local);
    found = found || text == asctime_r(&local, expected);
  }
  EXPECT_TRUE(found) << text;
}

TEST(TimeThreads, TheTextBelongsToItsThread) {
  const char* mine = ZnGetTime();
  const std::string before = mine;
  const char* others = nullptr;
  std::thread other([&] { others = ZnGetTime(); });
  other.join();
  EXPECT_NE(mine, others);
  EXPECT_EQ(before, mine);
}

TEST(Time, TheNumberHasSecondsAboveAndMicrosecondsBelow) {
  const i64 before = ExactSeconds();
  const i64 now = ZnGetMiraTime();
  const i64 after = ExactSeconds();
  EXPECT_GE(now >> 32, before);
  EXPECT_LE(now >> 32, after);
  const i64 low = now & 0xFFFFFFFF;
  EXPECT_LT(low, 1000000);
  EXPECT_EQ(low % 1000, 0) << "of millisecond grain";
}

TEST(Names, TheComputerNameIsCutToFifteenUnits) {
  char host[256] = "";
  ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
  ZnWChar* name = ZnGetComputerName();
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::u16string(name), ToWide(host).substr(0, 15));
  ZnFree(name);
}

TEST(Versions, AreBuiltIn) {
  u32 v[4] = {9, 9, 9, 9};
  EXPECT_EQ(ZnGetMiraVersion(&v[0], &v[1]), 0u);
  EXPECT_EQ(v[0], 3u);
  EXPECT_EQ(v[1], 0u);
  EXPECT_EQ(ZnGetMiraVersion(nullptr, &v[1]), 0x80070057u);
  EXPECT_EQ(ZnGetMiraVersion(&v[0], nullptr), 0x80070057u);
  v[1] = 9;
  EXPECT_EQ(ZnGetLibVersion(&v[0], &v[1], &v[2], &v[3]), 0u);
  EXPECT_EQ(v[0], 3u);
  EXPECT_EQ(v[1] + v[2] + v[3], 0u);
}

TEST(Versions, BadPointersAreTraced) {
  const TemporaryTrace trace(3);
  u32 v = 0;
  EXPECT_EQ(ZnGetLibVersion(nullptr, &v, &v, &v), 0x80070057u);
  EXPECT_EQ(ZnGetLibVersion(&v, nullptr, &v, &v), 0x80070057u);
  EXPECT_EQ(ZnGetLibVersion(&v, &v, nullptr, &v), 0x80070057u);
  EXPECT_EQ(ZnGetLibVersion(&v, &v, &v, nullptr), 0x80070057u);
  EXPECT_TRUE(trace.Has("ZnAPI:ZnGetLibVersion: Invalid arguments"));
}

TEST(Versions, TheStringJoinsHostAndSetting) {
  const TemporarySettings settings("VERSION = '4.5'\n");
  utsname names{};
  ASSERT_EQ(uname(&names), 0);
  const std::string processor = std::string(names.machine) == "x86_64" ? "62" : "";
  ZnWChar* text = nullptr;
  ASSERT_EQ(ZnGetVersionString(&text), 0u);
  const std::string narrow = ToNarrow(text);
  ZnFree(text);
  EXPECT_EQ(narrow.find("Linux#" + std::string(names.release) + "#" + processor), 0u) << narrow;
  EXPECT_EQ(narrow.substr(narrow.rfind('#')), "#4.5");
  settings.Write("");
  ASSERT_EQ(ZnGetVersionString(&text), 0u);
  EXPECT_EQ(ToNarrow(text).back(), '#') << "without the setting the part is empty";
  ZnFree(text);
  EXPECT_EQ(ZnGetVersionString(nullptr), 0x80070057u);
}

TEST(ServerFlags, AreReadAndExchanged) {
  const u32 before = ZnGetServerFlags();
  EXPECT_EQ(ZnSetServerFlags(0xAB), before);
  EXPECT_EQ(ZnGetServerFlags(), 0xABu);
  EXPECT_EQ(ZnSetServerFlags(before), 0xABu);
  EXPECT_FALSE(fastLock.HeldByThisThread());
}

TEST(Locale, ComesFromTheEnvironment) {
  const test::Environment environment("LC_ALL", "C.UTF-8");
  ZnSetLocale();
  EXPECT_STREQ(setlocale(LC_CTYPE, nullptr), "C.UTF-8");
  setlocale(LC_ALL, "C");
}

TEST(LastError, IsPerThreadAndHasAText) {
  SetLastFailure(2);
  EXPECT_EQ(ZnGetLastError(), 2u);
  EXPECT_STREQ(LastFailureText(), "No such file or directory");
  u32 others = 99;
  std::thread other([&] { others = ZnGetLastError(); });
  other.join();
  EXPECT_EQ(others, 0u);
  SetLastFailure(7, std::string(1000, 'x'));
  EXPECT_EQ(ZnGetLastError(), 7u);
  EXPECT_EQ(std::string(LastFailureText()), std::string(511, 'x'));
}

}  // namespace
}  // namespace zn
