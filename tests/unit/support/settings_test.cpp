// The ZnReg* calls over a settings file, and the helpers over them.
#include "zn/settings.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/common/handle.h"
#include "support/common/helpers.h"
#include "support/common/settings_store.h"
#include "tests/unit/support/temporary.h"
#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {
namespace {

using test::Environment;
using test::ReadFile;
using test::TemporarySettings;
using test::TemporaryTrace;
using test::WriteFile;

constexpr u32 kInvalid = 0x80070057u;
constexpr u32 kMissing = 0xC100000Cu;
constexpr u32 kTooSmall = 0xC1000034u;
constexpr u32 kNoMore = 0xC1000013u;
constexpr u32 kUnexpected = 0xC1000001u;

// A key opened for a scope.
class Key {
 public:
  explicit Key(const ZnWChar* path) {
    status_ = ZnRegOpenKeyEx(HkeyMiraRoot(), path, 0, 0, &handle_);
  }
  ~Key() {
    if (handle_ == nullptr) return;
    EXPECT_EQ(ZnRegCloseKey(handle_), 0u);
  }
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  [[nodiscard]] u32 Status() const { return status_; }
  [[nodiscard]] ZnHandle Get() const { return handle_; }

 private:
  ZnHandle handle_ = nullptr;
  u32 status_ = 0;
};

u32 SetNumber(ZnHandle key, const ZnWChar* name, u32 value) {
  return ZnRegSetValueEx(key, name, 0, ZN_REG_DWORD, reinterpret_cast<const u8*>(&value), 4);
}

u32 NumberOf(ZnHandle key, const ZnWChar* name) {
  u32 value = 0xDEADBEEF;
  u32 length = 4;
  u32 type = 0;
  EXPECT_EQ(ZnRegQueryValueEx(key, name, nullptr, &type, reinterpret_cast<u8*>(&value), &length),
            0u);
  EXPECT_EQ(type, ZN_REG_DWORD);
  return value;
}

TEST(Settings, BothSlashesSeparate) {
  const TemporarySettings settings("[a.b.c]\nv = 7\n");
  for (const ZnWChar* path : {u"a/b/c", u"a\\b\\c", u"A\\B/C", u"\\a//b\\c\\"}) {
    const Key key(path);
    ASSERT_EQ(key.Status(), 0u);
    EXPECT_EQ(NumberOf(key.Get(), u"V"), 7u);
  }
  const Key a(u"a");
  ZnHandle below = nullptr;
  ASSERT_EQ(ZnRegOpenKeyEx(a.Get(), u"b/c", 0, 0, &below), 0u);
  EXPECT_EQ(NumberOf(below, u"v"), 7u);
  EXPECT_EQ(ZnRegCloseKey(below), 0u);
}

TEST(Settings, AnEmptyPathOpensTheKeyOnceMore) {
  const TemporarySettings settings("v = 3\n");
  for (const ZnWChar* path : {static_cast<const ZnWChar*>(nullptr), u"", u"\\"}) {
    const Key key(path);
    ASSERT_EQ(key.Status(), 0u);
    EXPECT_NE(key.Get(), HkeyMiraRoot());
    EXPECT_EQ(NumberOf(key.Get(), u"v"), 3u);
  }
}

TEST(Settings, AMissingKeyIsNotFound) {
  const TemporarySettings settings("[a]\nv = 1\n");
  EXPECT_EQ(Key(u"b").Status(), kMissing);
  EXPECT_EQ(Key(u"a/b").Status(), kMissing);
  EXPECT_EQ(Key(u"a/v").Status(), kMissing) << "a value is no key";
}

TEST(Settings, WithoutAFileTheRootIsEmpty) {
  const TemporarySettings settings;
  ASSERT_NE(HkeyMiraRoot(), nullptr);
  ZnWChar name[10];
  u32 length = 10;
  EXPECT_EQ(ZnRegEnumKeyEx(HkeyMiraRoot(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            kNoMore);
  EXPECT_NE(access(settings.File().c_str(), F_OK), 0) << "reading makes no file";
  EXPECT_EQ(SetNumber(HkeyMiraRoot(), u"Flags", 5), 0u);
  EXPECT_EQ(settings.Text(), "Flags = 5\n") << "the first write does";
}

TEST(Settings, TheRootStaysOpen) {
  const TemporarySettings settings("v = 1\n");
  ZnHandle root = HkeyMiraRoot();
  EXPECT_EQ(ZnRegCloseKey(root), 0u);
  EXPECT_EQ(HkeyMiraRoot(), root);
  EXPECT_EQ(NumberOf(root, u"v"), 1u);
}

TEST(Settings, ClosedAndForeignKeysAreRefused) {
  const TemporarySettings settings("[a]\n");
  ZnHandle closed = nullptr;
  ASSERT_EQ(ZnRegOpenKeyEx(HkeyMiraRoot(), u"a", 0, 0, &closed), 0u);
  EXPECT_EQ(ZnCloseHandle(closed), kInvalid) << "a key is closed by its own call";
  EXPECT_EQ(ZnRegCloseKey(closed), 0u);
  ZnHandle foreign = AllocateHandle(HANDLE_PROPSET, nullptr);
  for (ZnHandle key : {closed, foreign, ZnHandle{}, reinterpret_cast<ZnHandle>(UINTPTR_MAX)}) {
    ZnHandle result = nullptr;
    ZnWChar name[4];
    u32 length = 4;
    u8 data[4] = {};
    EXPECT_EQ(ZnRegOpenKeyEx(key, u"a", 0, 0, &result), kInvalid);
    EXPECT_EQ(ZnRegCreateKey(key, u"a", &result), kInvalid);
    EXPECT_EQ(ZnRegCloseKey(key), kInvalid);
    EXPECT_EQ(ZnRegDeleteKey(key, u"a"), kInvalid);
    EXPECT_EQ(ZnRegDeleteValue(key, u"a"), kInvalid);
    EXPECT_EQ(ZnRegEnumKeyEx(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), kInvalid);
    EXPECT_EQ(ZnRegEnumValue(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr), kInvalid);
    EXPECT_EQ(ZnRegQueryValueEx(key, u"a", nullptr, nullptr, nullptr, nullptr), kInvalid);
    EXPECT_EQ(ZnRegSetValueEx(key, u"a", 0, ZN_REG_DWORD, data, 4), kInvalid);
  }
  EXPECT_TRUE(FreeAnyHandle(foreign));
}

TEST(Settings, BadPointersAreRefused) {
  const TemporarySettings settings("[a]\nv = 1\n");
  const Key key(u"a");
  ZnWChar name[4];
  u32 length = 4;
  u8 data[4];
  EXPECT_EQ(ZnRegOpenKeyEx(key.Get(), u"a", 0, 0, nullptr), kInvalid);
  EXPECT_EQ(ZnRegCreateKey(key.Get(), u"a", nullptr), kInvalid);
  EXPECT_EQ(ZnRegDeleteKey(key.Get(), nullptr), kInvalid);
  EXPECT_EQ(ZnRegDeleteKey(key.Get(), u"\\"), kInvalid);
  EXPECT_EQ(ZnRegEnumKeyEx(key.Get(), 0, nullptr, &length, nullptr, nullptr, nullptr, nullptr),
            kInvalid);
  EXPECT_EQ(ZnRegEnumKeyEx(key.Get(), 0, name, nullptr, nullptr, nullptr, nullptr, nullptr),
            kInvalid);
  EXPECT_EQ(ZnRegEnumValue(key.Get(), 0, nullptr, &length, nullptr, nullptr, nullptr, nullptr),
            kInvalid);
  EXPECT_EQ(ZnRegEnumValue(key.Get(), 0, name, &length, nullptr, nullptr, data, nullptr), kInvalid);
  EXPECT_EQ(ZnRegQueryValueEx(key.Get(), u"v", nullptr, nullptr, data, nullptr), kInvalid);
  EXPECT_EQ(ZnRegSetValueEx(key.Get(), u"v", 0, ZN_REG_DWORD, nullptr, 4), kInvalid);
  EXPECT_EQ(ZnRegSetValueEx(key.Get(), u"v", 0, 99, data, 4), kInvalid) << "an unknown type";
}

TEST(Settings, APathOfTooManyNamesIsRefused) {
  const TemporarySettings settings;
  std::u16string path;
  for (int i = 0; i < 513; ++i) path += u"k\\";
  ZnHandle key = nullptr;
  EXPECT_EQ(ZnRegCreateKey(HkeyMiraRoot(), path.c_str(), &key), kInvalid);
  EXPECT_EQ(ZnRegOpenKeyEx(HkeyMiraRoot(), path.c_str(), 0, 0, &key), kInvalid);
}

TEST(Settings, NamesAreEnumeratedWithTheirLengths) {
  const TemporarySettings settings("[Beta]\n[alpha]\n");
  ZnWChar name[8];
  u32 length = 8;
  EXPECT_EQ(ZnRegEnumKeyEx(HkeyMiraRoot(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            0u);
  EXPECT_EQ(std::u16string(name), u"alpha");
  EXPECT_EQ(length, 5u) << "without the terminator";
  length = 6;
  ZnWChar cls[2] = {u'x', u'y'};
  u32 clsLength = 2;
  EXPECT_EQ(ZnRegEnumKeyEx(HkeyMiraRoot(), 0, name, &length, nullptr, cls, &clsLength, nullptr),
            0u);
  EXPECT_EQ(cls[0], 0);
  EXPECT_EQ(clsLength, 0u);
  length = 5;
  EXPECT_EQ(ZnRegEnumKeyEx(HkeyMiraRoot(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            kTooSmall);
  EXPECT_EQ(length, 6u) << "the room that is needed";
  EXPECT_EQ(ZnRegEnumKeyEx(HkeyMiraRoot(), 2, name, &length, nullptr, nullptr, nullptr, nullptr),
            kNoMore);
}

TEST(Settings, ValuesAreEnumeratedWithTheirData) {
  const TemporarySettings settings("Flags = 9\nname = 'ab'\n");
  ZnWChar name[8];
  u32 length = 8;
  u32 type = 0;
  u8 data[16];
  u32 dataLength = 16;
  EXPECT_EQ(ZnRegEnumValue(HkeyMiraRoot(), 0, name, &length, nullptr, &type, data, &dataLength),
            0u);
  EXPECT_EQ(std::u16string(name), u"Flags");
  EXPECT_EQ(type, ZN_REG_DWORD);
  EXPECT_EQ(dataLength, 4u);
  length = 8;
  dataLength = 3;
  EXPECT_EQ(ZnRegEnumValue(HkeyMiraRoot(), 1, name, &length, nullptr, &type, data, &dataLength),
            kTooSmall);
  EXPECT_EQ(dataLength, 6u);
  EXPECT_EQ(std::u16string(name), u"name") << "only the data did not fit";
  length = 2;
  EXPECT_EQ(ZnRegEnumValue(HkeyMiraRoot(), 1, name, &length, nullptr, nullptr, nullptr, nullptr),
            kTooSmall);
  EXPECT_EQ(length, 5u);
  EXPECT_EQ(ZnRegEnumValue(HkeyMiraRoot(), 2, name, &length, nullptr, nullptr, nullptr, nullptr),
            kNoMore);
}

TEST(Settings, AValueTellsItsSizeWithoutABuffer) {
  const TemporarySettings settings("s = 'abc'\nl = ['a', 'b']\nb = { binary = '0102' }\n");
  struct SizeCase {
    const ZnWChar* name;
    u32 type;
    u32 bytes;
  };
  for (const SizeCase& c : {SizeCase{u"s", ZN_REG_SZ, 8}, SizeCase{u"l", ZN_REG_MULTI_SZ, 10},
                            SizeCase{u"b", ZN_REG_BINARY, 2}}) {
    u32 type = 0;
    u32 length = 0;
    EXPECT_EQ(ZnRegQueryValueEx(HkeyMiraRoot(), c.name, nullptr, &type, nullptr, &length), 0u);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(length, c.bytes);
    std::vector<u8> data(c.bytes, 0xEE);
    length = c.bytes - 1;
    type = 0;
    EXPECT_EQ(ZnRegQueryValueEx(HkeyMiraRoot(), c.name, nullptr, &type, data.data(), &length),
              kTooSmall);
    EXPECT_EQ(length, c.bytes);
    EXPECT_EQ(type, c.type);
    EXPECT_EQ(data[0], 0xEE) << "nothing is written";
    EXPECT_EQ(ZnRegQueryValueEx(HkeyMiraRoot(), c.name, nullptr, nullptr, data.data(), &length),
              0u);
    EXPECT_EQ(ZnRegQueryValueEx(HkeyMiraRoot(), c.name, nullptr, nullptr, nullptr, nullptr), 0u);
  }
  EXPECT_EQ(ZnRegQueryValueEx(HkeyMiraRoot(), u"x", nullptr, nullptr, nullptr, nullptr), kMissing);
}

TEST(Settings, TheUnnamedValueIsOneOfItsOwn) {
  const TemporarySettings settings;
  EXPECT_EQ(SetNumber(HkeyMiraRoot(), nullptr, 4), 0u);
  EXPECT_EQ(NumberOf(HkeyMiraRoot(), u""), 4u);
  EXPECT_EQ(ZnRegDeleteValue(HkeyMiraRoot(), nullptr), 0u);
  EXPECT_EQ(ZnRegDeleteValue(HkeyMiraRoot(), u""), kMissing);
}

TEST(Settings, KeysAreMadeWithAllThatIsMissing) {
  const TemporarySettings settings("v = 1\n");
  ZnHandle key = nullptr;
  ASSERT_EQ(ZnRegCreateKey(HkeyMiraRoot(), u"Providers/New", &key), 0u);
  EXPECT_EQ(SetNumber(key, u"Order", 2), 0u);
  ZnHandle again = nullptr;
  ASSERT_EQ(ZnRegCreateKey(HkeyMiraRoot(), u"providers\\new", &again), 0u);
  EXPECT_EQ(NumberOf(again, u"order"), 2u);
  EXPECT_EQ(settings.Text(), "v = 1\n\n[Providers.New]\nOrder = 2\n");
  EXPECT_EQ(ZnRegCreateKey(HkeyMiraRoot(), u"v", &again), kInvalid) << "a value stands there";
  EXPECT_EQ(ZnRegCloseKey(key), 0u);
}

TEST(Settings, ADeletedKeyRefusesUntilItIsMadeAgain) {
  const TemporarySettings settings("[a]\nv = 1\n");
  const Key key(u"a");
  ASSERT_EQ(ZnRegDeleteKey(HkeyMiraRoot(), u"A"), 0u);
  u32 length = 4;
  ZnWChar name[4];
  EXPECT_EQ(ZnRegQueryValueEx(key.Get(), u"v", nullptr, nullptr, nullptr, nullptr), kUnexpected);
  EXPECT_EQ(ZnRegEnumKeyEx(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            kUnexpected);
  EXPECT_EQ(SetNumber(key.Get(), u"v", 1), kUnexpected);
  EXPECT_EQ(ZnRegDeleteKey(HkeyMiraRoot(), u"a"), kMissing);
  ZnHandle made = nullptr;
  ASSERT_EQ(ZnRegCreateKey(HkeyMiraRoot(), u"a", &made), 0u);
  EXPECT_EQ(SetNumber(key.Get(), u"v", 8), 0u);
  EXPECT_EQ(NumberOf(made, u"v"), 8u);
  EXPECT_EQ(ZnRegCloseKey(made), 0u);
}

TEST(Settings, AKeyWithKeysBelowIsNotDeleted) {
  const TemporarySettings settings("[a.b]\n");
  EXPECT_EQ(ZnRegDeleteKey(HkeyMiraRoot(), u"a"), kUnexpected);
  EXPECT_EQ(ZnRegDeleteKey(HkeyMiraRoot(), u"a/b"), 0u);
  EXPECT_EQ(ZnRegDeleteKey(HkeyMiraRoot(), u"a"), 0u);
}

TEST(Settings, AChangeFromOutsideShows) {
  const TemporarySettings settings("[a]\nv = 1\n");
  const Key key(u"a");
  EXPECT_EQ(NumberOf(key.Get(), u"v"), 1u);
  settings.Write("[a]\nv = 22\n");
  EXPECT_EQ(NumberOf(key.Get(), u"v"), 22u);
  // Of the same size and perhaps the same moment, but another file.
  WriteFile(settings.File() + ".new", "[a]\nv = 33\n");
  ASSERT_EQ(rename((settings.File() + ".new").c_str(), settings.File().c_str()), 0);
  EXPECT_EQ(NumberOf(key.Get(), u"v"), 33u);
  unlink(settings.File().c_str());
  EXPECT_EQ(ZnRegQueryValueEx(key.Get(), u"v", nullptr, nullptr, nullptr, nullptr), kUnexpected);
}

TEST(Settings, AWriteKeepsWhatAnotherProcessWrote) {
  const TemporarySettings settings("a = 1\n");
  EXPECT_EQ(NumberOf(HkeyMiraRoot(), u"a"), 1u);
  const pid_t child = fork();
  if (child == 0) _exit(SetNumber(HkeyMiraRoot(), u"child", 2) == 0 ? 0 : 1);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(SetNumber(HkeyMiraRoot(), u"parent", 3), 0u);
  EXPECT_EQ(settings.Text(), "a = 1\nchild = 2\nparent = 3\n");
}

TEST(Settings, AFileThatDoesNotParseFailsEverythingAndIsKept) {
  const TemporaryTrace trace(4);
  const std::string file = trace.Settings().File();
  const Key key(u"Tracing");
  ASSERT_EQ(key.Status(), 0u);
  const std::string bad = "a = 1\nb = = 2\n";
  trace.Settings().Write(bad);
  EXPECT_EQ(HkeyMiraRoot(), nullptr);
  ZnHandle result = nullptr;
  EXPECT_EQ(ZnRegOpenKeyEx(key.Get(), u"", 0, 0, &result), kUnexpected);
  EXPECT_EQ(ZnRegCreateKey(key.Get(), u"new", &result), kUnexpected);
  EXPECT_EQ(SetNumber(key.Get(), u"v", 1), kUnexpected);
  EXPECT_EQ(trace.Settings().Text(), bad) << "never overwritten";
  const std::string where = "Settings: " + file + ", line 2, column 5: ";
  const std::string text = trace.Text();
  const size_t first = text.find(where);
  EXPECT_NE(first, std::string::npos) << text;
  EXPECT_EQ(text.find(where, first + 1), std::string::npos) << "told once for each version";
  trace.Settings().Write("a = 1\n");
  EXPECT_NE(HkeyMiraRoot(), nullptr);
}

// Two writes within one tick of the host leave a file of the same size, place and times.
TEST(Settings, AnotherTextOfTheSameSizeShowsAtOnce) {
  const TemporarySettings settings("[k0]\n");
  for (int i = 0; i < 100; ++i) {
    const std::string name = "k" + std::to_string(i % 10);
    settings.Write("[" + name + "]\n");
    EXPECT_EQ(Key(std::u16string(name.begin(), name.end()).c_str()).Status(), 0u) << i;
  }
}

TEST(Settings, OddValuesAreTold) {
  const TemporaryTrace trace(4);
  trace.Settings().Write("good = 1\n[k]\nodd = 1.5\n");
  EXPECT_NE(HkeyMiraRoot(), nullptr);
  EXPECT_TRUE(trace.Has("Settings: " + trace.Settings().File() +
                        ", line 3: \"k\\odd\" is no text, number in 0 to 4294967295, list of texts "
                        "or { binary = \"hex\" }"))
      << trace.Text();
}

TEST(Settings, AFolderInPlaceOfTheFileFails) {
  const test::TemporaryFolder folder;
  const Environment environment("ZN_SETTINGS", folder.Path());
  EXPECT_EQ(HkeyMiraRoot(), nullptr);
}

TEST(Settings, WhatIsNoFileFailsAtOnceAndIsNotReplaced) {
  const TemporaryTrace trace(6);
  const std::string& path = trace.Settings().File();
  const Key key(u"Tracing");
  ASSERT_EQ(key.Status(), 0u);
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(HkeyMiraRoot(), nullptr);
  EXPECT_TRUE(trace.Has("Settings: cannot read " + path + ": not a regular file")) << trace.Text();
  EXPECT_NE(ZnGetLastError(), 0u);
  EXPECT_EQ(SetNumber(key.Get(), u"v", 1), kUnexpected);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST(Settings, AWriteThatCannotBeMadeChangesNothing) {
  const test::TemporaryFolder folder;
  const Environment environment("ZN_SETTINGS", folder / "absent/deeper/settings.toml");
  EXPECT_EQ(SetNumber(HkeyMiraRoot(), u"v", 1), kUnexpected);
  EXPECT_EQ(ZnRegQueryValueEx(HkeyMiraRoot(), u"v", nullptr, nullptr, nullptr, nullptr), kMissing);
  EXPECT_NE(ZnGetLastError(), 0u);
}

TEST(Settings, TheFolderOfTheFileIsMade) {
  const test::TemporaryFolder folder;
  const Environment environment("ZN_SETTINGS", folder / "made/settings.toml");
  EXPECT_EQ(SetNumber(HkeyMiraRoot(), u"v", 1), 0u);
  EXPECT_EQ(ReadFile(folder / "made/settings.toml"), "v = 1\n");
}

TEST(Settings, AWriteKeepsModeAndLink) {
  const TemporarySettings settings("v = 1\n");
  ASSERT_EQ(chmod(settings.File().c_str(), 0640), 0);
  const std::string link = settings.Folder() / "link.toml";
  ASSERT_EQ(symlink(settings.File().c_str(), link.c_str()), 0);
  const Environment environment("ZN_SETTINGS", link);
  EXPECT_EQ(SetNumber(HkeyMiraRoot(), u"v", 2), 0u);
  struct stat status {};
  ASSERT_EQ(lstat(link.c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(stat(settings.File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(settings.Text(), "v = 2\n");
}

TEST(SettingsThreads, ConcurrentWritersLoseNothing) {
  const TemporarySettings settings;
  constexpr int kThreads = 3;
  constexpr int kWrites = 15;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      for (int n = 0; n < kWrites; ++n) {
        const std::string name = "t" + std::to_string(i) + "n" + std::to_string(n);
        EXPECT_EQ(SetNumber(HkeyMiraRoot(), ToWide(name).c_str(), static_cast<u32>(n)), 0u);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < kThreads; ++i) {
    for (int n = 0; n < kWrites; ++n) {
      const std::string name = "t" + std::to_string(i) + "n" + std::to_string(n);
      EXPECT_EQ(NumberOf(HkeyMiraRoot(), ToWide(name).c_str()), static_cast<u32>(n));
    }
  }
}

TEST(SettingsThreads, AKeyClosedMeanwhileIsRefusedAndHarmless) {
  const TemporarySettings settings("[a]\nv = 1\n");
  for (int i = 0; i < 200; ++i) {
    ZnHandle key = nullptr;
    ASSERT_EQ(ZnRegOpenKeyEx(HkeyMiraRoot(), u"a", 0, 0, &key), 0u);
    std::thread other([key] {
      const u32 status = ZnRegQueryValueEx(key, u"v", nullptr, nullptr, nullptr, nullptr);
      EXPECT_TRUE(status == 0 || status == kInvalid) << status;
    });
    EXPECT_EQ(ZnRegCloseKey(key), 0u);
    other.join();
  }
}

// ---- Helpers ----

std::u16string TextOf(const ZnWChar* key, const ZnWChar* name, const ZnWChar* fallback) {
  ZnWChar* text = nullptr;
  EXPECT_EQ(ReadStringSetting(HkeyMiraRoot(), key, name, fallback, &text), 0u);
  std::u16string result = text == nullptr ? u"(none)" : text;
  ZnFree(text);
  return result;
}

TEST(SettingHelpers, AStringHasADefault) {
  const TemporarySettings settings("n = 1\ns = 'x'\nl = ['first', 'second']\n[k]\ns = 'y'\n");
  EXPECT_EQ(TextOf(nullptr, u"OverwriteMode", u"Off"), u"Off");
  EXPECT_EQ(TextOf(nullptr, u"s", u"Off"), u"x");
  EXPECT_EQ(TextOf(u"k", u"s", u"Off"), u"y");
  EXPECT_EQ(TextOf(u"absent", u"s", u"Off"), u"Off") << "a missing key behaves the same";
  EXPECT_EQ(TextOf(nullptr, u"n", u"Off"), u"Off") << "so does another type";
  EXPECT_EQ(TextOf(nullptr, u"l", u"Off"), u"first");
  ZnWChar* text = nullptr;
  EXPECT_EQ(ReadStringSetting(HkeyMiraRoot(), nullptr, u"none", nullptr, &text), kMissing);
  EXPECT_EQ(ReadStringSetting(HkeyMiraRoot(), u"absent", u"s", nullptr, &text), kMissing);
  EXPECT_EQ(ReadStringSetting(HkeyMiraRoot(), nullptr, u"n", nullptr, &text), kInvalid);
  EXPECT_EQ(ReadStringSetting(nullptr, nullptr, u"s", nullptr, &text), kInvalid);
  EXPECT_EQ(ReadStringSetting(HkeyMiraRoot(), nullptr, u"s", nullptr, nullptr), kInvalid);
  EXPECT_EQ(text, nullptr);
}

TEST(SettingHelpers, AStringMayBeLongerThanTheFirstBuffer) {
  const std::string longText(1000, 'q');
  const TemporarySettings settings("s = '" + longText + "'\n");
  EXPECT_EQ(TextOf(nullptr, u"s", nullptr), ToWide(longText));
}

TEST(SettingHelpers, ANumberHasADefault) {
  const TemporarySettings settings("n = 7\ns = 'x'\n[k]\nn = 8\n");
  u32 value = 0;
  EXPECT_EQ(ReadDwordSetting(HkeyMiraRoot(), nullptr, u"n", 3, &value), 0u);
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(ReadDwordSetting(HkeyMiraRoot(), u"k", u"n", 3, &value), 0u);
  EXPECT_EQ(value, 8u);
  for (const ZnWChar* name : {u"none", u"s"}) {
    EXPECT_EQ(ReadDwordSetting(HkeyMiraRoot(), nullptr, name, 3, &value), 0u);
    EXPECT_EQ(value, 3u);
  }
  EXPECT_EQ(ReadDwordSetting(nullptr, u"k", u"n", 4, &value), 0u);
  EXPECT_EQ(value, 4u);
}

TEST(SettingHelpers, AStringIsWritten) {
  const TemporarySettings settings;
  EXPECT_EQ(WriteStringSetting(HkeyMiraRoot(), u"s", u"grün"), 0u);
  EXPECT_EQ(TextOf(nullptr, u"s", nullptr), u"grün");
  EXPECT_EQ(WriteStringSetting(HkeyMiraRoot(), u"s", nullptr), kInvalid);
  EXPECT_EQ(WriteStringSetting(nullptr, u"s", u"x"), kInvalid);
}

TEST(SettingHelpers, TheInstallDirectoryHasOneForm) {
  const TemporarySettings settings;
  EXPECT_EQ(InstallDirectory(), "");
  settings.Write("InstallDir = 'C:\\Program\\'\n");
  EXPECT_EQ(InstallDirectory(), "C:/Program");
  settings.Write("InstallDir = '/opt/x//'\n");
  EXPECT_EQ(InstallDirectory(), "/opt/x");
  settings.Write("InstallDir = '/'\n");
  EXPECT_EQ(InstallDirectory(), "/");
}

}  // namespace
}  // namespace zn
