// The trace file and its configuration, and the formats of its lines.
#include "support/common/zndebug.h"

#include <sys/stat.h>

#include <cstdarg>
#include <limits>
#include <sstream>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/common/format.h"
#include "support/common/trace.h"
#include "tests/unit/support/temporary.h"

namespace zn {
namespace {

using test::ReadFile;
using test::TemporarySettings;
using test::TemporaryTrace;
using test::WriteFile;

std::string Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = FormatText(format, arguments);
  va_end(arguments);
  return text;
}

TEST(Trace, LinesBelowTheLevelAreNotWritten) {
  const TemporaryTrace trace(6);
  EXPECT_EQ(ZnTrace(5, "five"), 0u);
  EXPECT_EQ(ZnTrace(6, "six"), 0u);
  EXPECT_EQ(ZnTrace(7, "seven"), 0u);
  EXPECT_FALSE(trace.Has("five"));
  EXPECT_TRUE(trace.Has("six"));
  EXPECT_TRUE(trace.Has("seven"));
}

TEST(Trace, TheFileBeginsWithTheTimeAndLinesHaveTheirForm) {
  const TemporaryTrace trace(1);
  ZnTrace(1, "ZnAPI:Exiting %s: 0x%x, %lu", "ObExists", 0xC1000010u, 0xC1000010ul);
  ZnTrace(1, "ends in a newline\n");
  const std::string time = "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}";
  EXPECT_THAT(trace.Text(),
              ::testing::MatchesRegex(time + "\n" + time +
                                      " :  ZnAPI:Exiting ObExists: 0xc1000010, 3238002704\n" +
                                      time + " :  ends in a newline\n\n"));
}

TEST(Trace, WithoutAFileCallsDoNothing) {
  ZnTraceClose();
  EXPECT_EQ(traceThreshold, kTraceOff);
  EXPECT_EQ(ZnTrace(6, "nowhere"), 0u);
  ZnTraceClose();
}

TEST(Trace, ASuppressedLineDoesNotEvaluateItsArguments) {
  const TemporaryTrace trace(5);
  int evaluated = 0;
  ZN_TRACE(4, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  ZN_TRACE(5, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 1);
}

TEST(Trace, AfterClosingNothingIsWritten) {
  const TemporaryTrace trace(1);
  ZnTrace(6, "before");
  ZnTraceClose();
  ZnTrace(6, "after");
  EXPECT_TRUE(trace.Has("before"));
  EXPECT_FALSE(trace.Has("after"));
}

TEST(Trace, ANullFormatWritesNothing) {
  const TemporaryTrace trace(1);
  const std::string before = trace.Text();
  EXPECT_EQ(ZnTrace(6, nullptr), 0u);
  EXPECT_EQ(trace.Text(), before);
}

TEST(Trace, ASecondOpeningStartsTheFileAnew) {
  const TemporaryTrace trace(1);
  ZnTrace(6, "old");
  EXPECT_EQ(ZnTraceInit(u"test", 100, nullptr), 0u);
  ZnTrace(6, "new");
  EXPECT_FALSE(trace.Has("old"));
  EXPECT_TRUE(trace.Has("new"));
}

TEST(Trace, AFileThatCannotBeOpenedIsSilent) {
  const TemporarySettings settings("[Tracing.test]\nTraceFile = \"/nowhere/at/all.log\"\n");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ZnTraceInit(u"test", 0, nullptr), 0u);
  EXPECT_EQ(ZnTrace(6, "lost"), 0u);
  ZnTraceClose();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Open failed\n");
}

TEST(Trace, TheDefaultFileLiesBelowTheInstallDirectory) {
  const TemporarySettings settings;
  settings.Write("InstallDir = '" + settings.Folder().Path() + "'\n");
  EXPECT_EQ(ZnTraceInit(u"test", 0, nullptr), 0u);
  EXPECT_EQ(traceThreshold, 3) << "the default level";
  ZnTrace(2, "two");
  ZnTrace(3, "three");
  ZnTraceClose();
  const std::string text = ReadFile(settings.Folder() / "Logs/znmira.log");
  EXPECT_NE(text.find("three\n"), std::string::npos);
  EXPECT_EQ(text.find("two\n"), std::string::npos);
}

TEST(Trace, WithoutAnInstallDirectoryThereIsNoFile) {
  const TemporarySettings settings;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ZnTraceInit(u"test", 0, nullptr), 0u);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Open failed\n");
  EXPECT_EQ(traceThreshold, kTraceOff);
}

TEST(Trace, ADefaultPathThatIsTooLongIsTheTemporaryFolderWhichIsNoFile) {
  const TemporarySettings settings("InstallDir = '/" + std::string(990, 'x') + "'\n");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ZnTraceInit(u"test", 0, nullptr), 0u);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Open failed\n");
}

TEST(Trace, BackslashesInThePathSeparate) {
  const TemporarySettings settings;
  ASSERT_EQ(mkdir((settings.Folder() / "sub").c_str(), 0700), 0);
  std::string path = settings.Folder() / "sub/t.log";
  std::replace(path.begin(), path.end(), '/', '\\');
  settings.Write("[Tracing.test]\nTraceFile = '" + path + "'\nOverwriteMode = \"On\"\n");
  EXPECT_EQ(ZnTraceInit(u"test", 0, nullptr), 0u);
  ZnTrace(6, "here");
  ZnTraceClose();
  EXPECT_NE(ReadFile(settings.Folder() / "sub/t.log").find("here\n"), std::string::npos);
}

TEST(Trace, ABadComponentIsRefused) {
  EXPECT_EQ(ZnTraceInit(nullptr, 0, nullptr), 0x80070057u);
  EXPECT_EQ(ZnTraceRefresh(nullptr, nullptr), 0x80070057u);
}

TraceFlagRow Row(const char* name) {
  TraceFlagRow row{};
  ToWide(name).copy(row.name, std::size(row.name));
  return row;
}

TEST(Trace, FlagsTellWhichValuesThereAre) {
  const TemporarySettings settings(
      "[Tracing.test]\nDispatch = 0\nNotify = \"no\"\nTraceFile = '/nowhere/x'\n");
  TraceFlagRow table[] = {Row("DISPATCH"), Row("Other"), Row("Notify"), Row(""), Row("Notify")};
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(ZnTraceInit(u"test", 0, table), 0u);
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(table[0].flag, 1) << "presence counts, not the value";
  EXPECT_EQ(table[1].flag, 0);
  EXPECT_EQ(table[2].flag, 1);
  EXPECT_EQ(table[4].flag, 0) << "the table ended before";
}

TEST(Trace, RefreshingSetsNewFlagsAndClearsNone) {
  const TemporarySettings settings("[Tracing.test]\nA = 1\n");
  TraceFlagRow table[] = {Row("A"), Row("B"), Row("")};
  EXPECT_EQ(ZnTraceRefresh(u"test", table), 0u);
  EXPECT_EQ(table[0].flag, 1);
  EXPECT_EQ(table[1].flag, 0);
  settings.Write("[Tracing.test]\nB = 1\n");
  EXPECT_EQ(ZnTraceRefresh(u"test", table), 0u);
  EXPECT_EQ(table[0].flag, 1);
  EXPECT_EQ(table[1].flag, 1);
  EXPECT_EQ(ZnTraceRefresh(u"absent", table), 0u);
  EXPECT_EQ(ZnTraceRefresh(u"test", nullptr), 0u);
}

TEST(Trace, ANameMayFillItsWholeCell) {
  const std::string name(100, 'n');
  const TemporarySettings settings("[Tracing.test]\n" + name + " = 1\n");
  TraceFlagRow table[] = {Row(name.c_str()), Row("")};
  EXPECT_EQ(ZnTraceRefresh(u"test", table), 0u);
  EXPECT_EQ(table[0].flag, 1);
}

TEST(Format, PlainFormatsAreTheLibrarys) {
  EXPECT_EQ(Format("nothing"), "nothing");
  EXPECT_EQ(Format("%d %5.1f %-4s| %c %%", -3, 2.25, "ab", 'x'), "-3   2.2 ab  | x %");
  const std::string longText(5000, 'y');
  EXPECT_EQ(Format("<%s>", longText.c_str()), "<" + longText + ">");
}

TEST(Format, WideTextIsWrittenAsUtf8) {
  EXPECT_EQ(Format("Error in loading provider %S : %s \n", u"h\u00f6st", "no such file"),
            "Error in loading provider h\xC3\xB6st : no such file \n");
  EXPECT_EQ(Format("%ls", u"😀"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Format("%S", static_cast<const ZnWChar*>(nullptr)), "(null)");
  EXPECT_EQ(Format("%.2S|%6S|%-6S|%*S|%.*S", u"abc", u"abc", u"abc", 5, u"abc", 1, u"abc"),
            "ab|   abc|abc   |  abc|a");
  EXPECT_EQ(Format("%C%lc", u'\u00e4', u'b'),
            "\xC3\xA4"
            "b");
  const std::u16string longText(5000, u'z');
  EXPECT_EQ(Format("%S", longText.c_str()), std::string(5000, 'z'));
}

TEST(Format, OtherConversionsBesideWideTextTakeTheirArguments) {
  constexpr long long kLarge = std::numeric_limits<long long>::min();
  EXPECT_EQ(Format("%S %d %u %ld %lu %lld %llx %zu %s %c %f %p %% %5d|%-5d|%05d|%+d|%#x", u"w", -1,
                   4000000000u, -2L, 3ul, kLarge, 0xABCDEF0123ull, size_t{7}, "n", 'c', 1.5,
                   static_cast<void*>(nullptr), 42, 42, 42, 42, 42),
            "w -1 4000000000 -2 3 -9223372036854775808 abcdef0123 7 n c 1.500000 (nil) %    "
            "42|42   |00042|+42|0x2a");
  EXPECT_EQ(Format("%S %hd %hhd %hu %hhu %Lf %jd %td", u"w", 70000, 300, 70000, 300, 2.5L,
                   static_cast<std::intmax_t>(-5), static_cast<std::ptrdiff_t>(6)),
            "w 4464 44 4464 44 2.500000 -5 6");
  EXPECT_EQ(Format("%*d%S%.*f", 4, 7, u"w", 1, 2.26), "   7w2.3");
  EXPECT_EQ(Format("%-*dx%S", -4, 7, u"w"), "7   xw");
}

TEST(Format, WhatIsNoConversionStands) {
  EXPECT_EQ(Format("%S %y 100%", u"w"), "w %y 100%");
}

TEST(Format, NothingIsStored) {
  int stored = 77;
  EXPECT_EQ(Format("ab%nc%d", &stored, 5), "abc5");
  EXPECT_EQ(stored, 77);
}

TEST(TraceThreads, LinesOfManyThreadsAreWhole) {
  const TemporaryTrace trace(1);
  constexpr int kThreads = 4;
  constexpr int kLines = 50;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      for (int line = 0; line < kLines; ++line) ZnTrace(3, "thread %d line %d %S", i, line, u"end");
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string text = trace.Text();
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  int count = 0;
  while (std::getline(lines, line)) {
    EXPECT_THAT(line, ::testing::MatchesRegex("[^:]*:..:.. .... :  thread [0-3] line [0-9]+ end"));
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

TEST(TraceThreads, OpeningAndClosingWhileOthersTrace) {
  const TemporaryTrace trace(1);
  std::atomic<bool> stop{false};
  std::thread other([&] {
    while (!stop) ZN_TRACE(6, "line");
  });
  for (int i = 0; i < 50; ++i) {
    ZnTraceClose();
    EXPECT_EQ(ZnTraceInit(u"test", 0, nullptr), 0u);
  }
  stop = true;
  other.join();
}

}  // namespace
}  // namespace zn
