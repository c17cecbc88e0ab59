// watch: the events of the bus as they come.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string_view>

#include "checks.h"
#include "console.h"
#include "failure.h"
#include "inbox.h"
#include "listener.h"
#include "text.h"
#include "watcher.h"
#include "zn/ev.h"

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

// How a server tells a client that many changes come at once: nobody's news but who asks for it.
constexpr std::string_view kCacheTopics = "event.keld.dom.cache";

bool IsWanted(const BusEvent& event, const WatchArguments& arguments, const Id& own,
              const std::optional<Id>& only) {
  if (event.object == own && event.isObjectChange) return false;
  if (event.topic.find(IdText(own)) != std::string::npos) return false;
  if (event.topic.starts_with(kCacheTopics) && !arguments.pattern.starts_with(kCacheTopics)) {
    return false;
  }
  return !only || (event.isObjectChange && event.object == *only);
}

// Whether a listener with that pattern would hear the topic.
bool Hears(const Database& bus, std::string pattern, const std::string& topic) {
  while (pattern.ends_with(".*")) pattern.resize(pattern.size() - 2);
  return pattern == "*" || EvMatch(bus.Handle(), topic.c_str(), pattern.c_str());
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

// One watch, over as many sessions as it takes.
class Watch {
 public:
  Watch(Console& console, const WatchArguments& arguments)
      : console_(console), arguments_(arguments), deadline_(DeadlineIn(arguments.seconds)) {}

  int Run() {
    if (!arguments_.object.empty()) only_ = console_.Resolve(arguments_.object);
    Listen();
    if (console_.Screen().bars && !console_.json && !deadline_) {
      WriteError("watching; Ctrl-C ends\n");
    }
    while (!IsEnough()) {
      const std::optional<InboxItem> item = Inbox::Get().Wait(deadline_);
      if (!item) break;  // time is up, or a signal: both are the way to end it
      if (std::holds_alternative<ConnectionLost>(*item) && !TakeUpAgain()) break;
      const auto* event = std::get_if<BusEvent>(&*item);
      if (event == nullptr || !IsWanted(*event, arguments_, listener_->OwnId(), only_)) continue;
      if (!Tell(watcher_->Look(*event))) break;
    }
    StopListening();
    console_.Drop();
    return kExitOk;
  }

 private:
  void Listen() {
    listener_ = std::make_unique<Listener>(console_.Bus(), PatternOf(console_, arguments_));
    listener_->SkipThePast();
    watcher_ = std::make_unique<Watcher>(console_.Bus());
  }
  bool IsEnough() const { return arguments_.count != 0 && shown_ >= arguments_.count; }

  // False when nobody reads any more.
  bool Tell(const Sighting& sighting) {
    if (sighting.IsEmpty()) return true;
    if (!Show(console_, arguments_, sighting)) return false;
    ++shown_;
    return true;
  }

  void StopListening() {
    listener_.reset();
    watcher_.reset();
  }

  // A new session, and what has changed meanwhile. False when the time is up or a signal came.
  bool TakeUpAgain() {
    const std::unique_ptr<Watcher> before = std::move(watcher_);
    if (!console_.TakeUpAgain(
            deadline_, [this] { StopListening(); }, [this] { Listen(); })) {
      return false;
    }
    const std::optional<Id> was = only_;
    FindObject();
    const std::string pattern = PatternOf(console_, arguments_);
    for (const Sighting& sighting : watcher_->DifferencesFrom(*before)) {
      const Id& id = sighting.object->id;
      if (only_ && !(id == *only_) && !(id == *was)) continue;
      if (!Hears(console_.Bus(), pattern, sighting.topic)) continue;
      if (IsEnough() || !Tell(sighting)) return false;
    }
    return true;
  }

  // A server that was started anew has other ids. One that has no such object may make it yet.
  void FindObject() {
    if (!only_) return;
    try {
      only_ = console_.Resolve(arguments_.object);
    } catch (const Failure&) {
    }
  }

  Console& console_;
  const WatchArguments& arguments_;
  Deadline deadline_;
  std::optional<Id> only_;
  std::unique_ptr<Listener> listener_;
  std::unique_ptr<Watcher> watcher_;
  u32 shown_ = 0;
};

int RunWatch(Console& console, const WatchArguments& arguments) {
  return Watch(console, arguments).Run();
}

constexpr char kWatchHelp[] =
    "A pattern is a topic or its beginning, token by token, with * for any token.\n"
    "Without one, everything is shown. A type in the fifth place of object topics\n"
    "means the types derived from it too. Ends after --for or --count, or by Ctrl-C.\n"
    "With a server, a lost connection is taken up again, and what changed meanwhile\n"
    "is shown as changes. What tells clients of a server that many changes come at\n"
    "once (event.keld.dom.cache) is shown only where the pattern names it.\n\n"
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
