// What goes on over time: events, tasks, signals, closed pipes, and what a terminal shows.
#include <signal.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "console_process.h"
#include "text.h"

namespace zn::ctl {
namespace {

using Json = nlohmann::ordered_json;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr char kTaskInterface[] = "{51d0c0de-0001-4000-8000-000000000001}";
constexpr char kCleanEnd[] = "shutdown\n";

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

std::string WithoutColour(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\033' && i + 1 < text.size() && text[i + 1] == '[') {
      while (i < text.size() && !isalpha(static_cast<unsigned char>(text[i]))) ++i;
      continue;
    }
    out.push_back(text[i]);
  }
  return out;
}

class Following : public testing::Test {
 protected:
  Workplace place_;
};

TEST_F(Following, WatchTellsWhatChangedFromWhatToWhat) {
  const Finished finished = place_.Znctl({"watch", "--object", "ticker", "--count", "3", "--json"});
  ASSERT_EQ(finished.code, 0) << finished.err;
  const std::vector<std::string> lines = LinesOf(finished.out);
  ASSERT_EQ(lines.size(), 3u);
  i64 last = -1;
  for (const std::string& line : lines) {
    const Json event = Json::parse(line);
    std::vector<std::string> keys;
    for (const auto& [key, value] : event.items()) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{"schema", "verb", "time", "topic", "kind", "object",
                                              "changes", "gained", "lost", "data"}));
    EXPECT_EQ(event["kind"], "data.change");
    EXPECT_THAT(event["time"].get<std::string>(),
                ContainsRegex("^[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}Z$"));
    EXPECT_THAT(event["topic"].get<std::string>(),
                HasSubstr("event.keld.dom.object.ZnctlTest_Thing.data.change."));
    EXPECT_EQ(event["object"]["path"], "/bench/ticker");
    ASSERT_EQ(event["changes"].size(), 1u);
    const Json& change = event["changes"][0];
    EXPECT_EQ(change["property"], "Count");
    EXPECT_LT(change["before"].get<i64>(), change["after"].get<i64>());
    if (last >= 0) {
      EXPECT_EQ(change["before"].get<i64>(), last);
    }
    last = change["after"].get<i64>();
  }
  EXPECT_EQ(place_.Read("log"), kCleanEnd);
}

TEST_F(Following, WatchIsReadableAsText) {
  const Finished finished = place_.Znctl({"watch", "--type", "ZnctlTest_Thing", "-n", "1"});
  ASSERT_EQ(finished.code, 0) << finished.err;
  EXPECT_THAT(finished.out, ContainsRegex("^[0-9:]{8}\\.[0-9]{3}  data\\.change      "
                                          " /bench/ticker  ZnctlTest_Thing\n"
                                          "    Count: [0-9]+ → [0-9]+\n$"));
}

TEST_F(Following, WatchEndsAfterItsTime) {
  const Finished finished = place_.Znctl({"watch", "event.nobody.raises.this", "--for", "0.2"});
  EXPECT_EQ(finished.code, 0);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(place_.Read("log"), kCleanEnd);
}

TEST_F(Following, WatchRefusesABadPattern) {
  const Finished finished = place_.Znctl({"watch", "a$b", "--for", "1"});
  EXPECT_EQ(finished.code, 1);
  EXPECT_THAT(finished.err, HasSubstr("cannot listen to \"a$b\": 0xc100003f "
                                      "ZNE_EVENT_STRING_INVALID: "));
}

TEST_F(Following, SignalsEndAWatchCleanlyWithZero) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const Workplace place;
    Invocation run;
    run.arguments = {"watch"};
    run.untilOutput = "Count:";
    run.signal = number;
    const Finished finished = place.Do(run);
    EXPECT_EQ(finished.code, 0) << number << finished.err;
    EXPECT_EQ(place.Read("log"), kCleanEnd) << number;
  }
}

TEST_F(Following, InterruptStopsATaskWith130) {
  Invocation run;
  run.arguments = {"call", "tray", kTaskInterface, "1", "2", "Steps=100000", "--async"};
  run.onTerminal = true;
  run.untilOutput = "  0%";
  run.signal = SIGINT;
  const Finished finished = place_.Do(run);
  EXPECT_EQ(finished.code, 130);
  EXPECT_THAT(finished.out, HasSubstr("stopped following; the task was told to stop"));
  EXPECT_EQ(place_.Read("log"), kCleanEnd);
}

TEST_F(Following, AClosedPipeEndsAWatchCleanly) {
  Invocation run;
  run.arguments = {"watch"};
  run.untilOutput = "Count:";
  run.closeOutput = true;
  const Finished finished = place_.Do(run);
  EXPECT_EQ(finished.code, 0) << finished.err;
  EXPECT_EQ(place_.Read("log"), kCleanEnd);
}

TEST_F(Following, ProvidersAreShutDownAfterFailuresToo) {
  EXPECT_EQ(place_.Znctl({"show", "nothing"}).code, 1);
  EXPECT_EQ(place_.Znctl({"set", "tray", "Count", "x"}).code, 2);
  EXPECT_EQ(place_.Read("log"), std::string(kCleanEnd) + kCleanEnd);
}

TEST_F(Following, ATerminalGetsColourAndBars) {
  Invocation run;
  run.onTerminal = true;
  run.arguments = {"tree", "/bench"};
  EXPECT_THAT(place_.Do(run).out, HasSubstr("\033[1;36mbench\033[0m"));
  run.arguments = {"call", "tray", kTaskInterface, "1", "2", "Steps=20", "--async"};
  const Finished bar = place_.Do(run);
  EXPECT_THAT(bar.out, HasSubstr("tray ["));
  EXPECT_THAT(bar.out, HasSubstr(" 50%"));
  EXPECT_THAT(bar.out, HasSubstr("\r\033[K"));  // and is taken away at its end
}

TEST_F(Following, NoColorIsHonoured) {
  Invocation run;
  run.onTerminal = true;
  run.environment["NO_COLOR"] = "1";
  run.arguments = {"tree"};
  EXPECT_THAT(place_.Do(run).out, Not(HasSubstr("\033[")));
  run.environment = {{"TERM", "dumb"}};
  EXPECT_THAT(place_.Do(run).out, Not(HasSubstr("\033[")));
  run.environment = {{"NO_COLOR", ""}};  // set, but empty: it asks for nothing
  EXPECT_THAT(place_.Do(run).out, HasSubstr("\033["));
  EXPECT_THAT(place_.Znctl({"tree"}).out, Not(HasSubstr("\033[")));
}

TEST_F(Following, NothingIsWiderThanTheTerminal) {
  const std::vector<std::vector<std::string>> verbs = {{"tree"},
                                                       {"list"},
                                                       {"list", "ZnctlTest_Thing"},
                                                       {"show", "tray"},
                                                       {"show", "a/b", "--all"},
                                                       {"types", "--all"},
                                                       {"type", "ZnctlTest_Thing"},
                                                       {"providers"},
                                                       {"providers", "bench"},
                                                       {"groups"},
                                                       {"watch", "-n", "2"},
                                                       {"settings", "list"}};
  for (const std::vector<std::string>& arguments : verbs) {
    Invocation run;
    run.onTerminal = true;
    run.arguments = arguments;
    const Finished finished = place_.Do(run);
    EXPECT_EQ(finished.code, 0) << arguments.front() << finished.out;
    for (const std::string& line : LinesOf(WithoutColour(finished.out))) {
      EXPECT_LE(DisplayWidth(line), 80u) << arguments.front() << ": " << line;
    }
  }
}

TEST_F(Following, ANameCannotSteerTheTerminal) {
  Invocation run;
  run.onTerminal = true;
  run.environment["NO_COLOR"] = "1";
  for (const char* verb : {"tree", "list"}) {
    run.arguments = {verb};
    const Finished finished = place_.Do(run);
    EXPECT_THAT(finished.out, Not(HasSubstr("\033"))) << verb;
    EXPECT_THAT(finished.out, HasSubstr("\\x1b[31m")) << verb;
  }
}

TEST_F(Following, AnAsciiLocaleGetsAsciiLines) {
  Invocation run;
  run.arguments = {"tree", "/bench", "--depth", "2"};
  run.environment["LC_ALL"] = "C";
  const std::string out = place_.Do(run).out;
  EXPECT_THAT(out, HasSubstr("|- list"));
  EXPECT_THAT(out, Not(HasSubstr("├")));
}

}  // namespace
}  // namespace zn::ctl
