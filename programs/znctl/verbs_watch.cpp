// watch: the events of the bus as they come.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "checks.h"
#include "console.h"
#include "failure.h"
#include "inbox.h"
#include "listener.h"
#include "text.h"
#include "watcher.h"

namespace zn::ctl {
namespace {

struct WatchArguments {
  std::string pattern = "*";
  std::string object;
  std::string type;
  double seconds = -1;
  u32 count = 0;
  bool topics = false;
};

bool IsWanted(const BusEvent& event, const Id& own, const std::optional<Id>& only) {
  if (event.object == own && event.isObjectChange) return false;
  if (event.topic.find(IdText(own)) != std::string::npos) return false;
  return !only || (event.isObjectChange && event.object == *only);
}

bool Show(const Console& console, const WatchArguments& arguments, const Sighting& sighting) {
  if (console.json) return WriteOut(JsonLine(JsonOfSighting(sighting)));
  return WriteOut(RenderSighting(console.Screen(), sighting, arguments.topics));
}

std::string PatternOf(Console& console, const WatchArguments& arguments) {
  if (arguments.type.empty()) return arguments.pattern;
  if (!console.Bus().TypeIsA(arguments.type, arguments.type)) {
    throw UsageError(fmt::format("there is no type \"{}\"", Printable(arguments.type)));
  }
  return "event.keld.dom.object." + arguments.type;
}

int RunWatch(Console& console, const WatchArguments& arguments) {
  const Database& bus = console.Bus();
  std::optional<Id> only;
  if (!arguments.object.empty()) only = console.Resolve(arguments.object);
  Listener listener(bus, PatternOf(console, arguments));
  listener.SkipThePast();
  Watcher watcher(bus);
  const Deadline deadline = DeadlineIn(arguments.seconds);
  if (console.Screen().bars && !console.json && !deadline) {
    WriteError("watching; Ctrl-C ends\n");
  }
  u32 shown = 0;
  while (arguments.count == 0 || shown < arguments.count) {
    const std::optional<InboxItem> item = Inbox::Get().Wait(deadline);
    if (!item) break;  // time is up, or a signal: both are the way to end it
    const auto* event = std::get_if<BusEvent>(&*item);
    if (event == nullptr || !IsWanted(*event, listener.OwnId(), only)) continue;
    const Sighting sighting = watcher.Look(*event);
    if (sighting.IsEmpty()) continue;
    if (!Show(console, arguments, sighting)) break;
    ++shown;
  }
  return kExitOk;
}

constexpr char kWatchHelp[] =
    "A pattern is a topic or its beginning, token by token, with * for any token.\n"
    "Without one, everything is shown. A type in the fifth place of object topics\n"
    "means the types derived from it too. Ends after --for or --count, or by Ctrl-C.\n\n"
    "Examples:\n"
    "  znctl --local watch\n"
    "  znctl --local watch --for 10\n"
    "  znctl --local watch --type KELD_Group\n"
    "  znctl --local watch 'event.keld.dom.object.*.object.delete'\n"
    "  znctl --local watch --object eth0 --json | jq .changes\n";

}  // namespace

void AddWatchVerbs(CLI::App& app, Command* command) {
  auto arguments = std::make_shared<WatchArguments>();
  CLI::App* verb = app.add_subcommand("watch", "Show events as they come");
  CLI::Option* pattern = verb->add_option("pattern", arguments->pattern, "Topics to show");
  verb->add_option("-f,--for", arguments->seconds, "End after so many seconds")
      ->type_name("SECONDS")
      ->check(ANumberOfSeconds());
  verb->add_option("-n,--count", arguments->count, "End after so many events")->check(AtLeastOne());
  verb->add_option("-t,--type", arguments->type, "Only objects of this type")->excludes(pattern);
  verb->add_option("-o,--object", arguments->object, "Only this object");
  verb->add_flag("--topics", arguments->topics, "Whole topics instead of the kind of change");
  verb->footer(kWatchHelp);
  verb->callback([=] { *command = [=](Console& c) { return RunWatch(c, *arguments); }; });
}

}  // namespace zn::ctl
