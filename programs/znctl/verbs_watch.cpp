// watch: the events of the bus as they come.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <memory>
#include <optional>

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
      if (event == nullptr || !IsWanted(*event, listener_->OwnId(), only_)) continue;
      if (!Tell(watcher_->Look(*event))) break;
    }
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

  // A new session, and what has changed meanwhile. False when the time is up or a signal came.
  bool TakeUpAgain() {
    WriteError(
        fmt::format("znctl: lost the connection to {}; trying again\n", console_.remote->Text()));
    listener_.reset();
    const std::unique_ptr<Watcher> before = std::move(watcher_);
    for (;;) {
      console_.Drop();
      try {
        Listen();
        break;
      } catch (const Failure&) {
        listener_.reset();
        if (!Pause()) return false;
      }
    }
    WriteError(fmt::format("znctl: connected to {} again\n", console_.remote->Text()));
    for (const Sighting& sighting : watcher_->DifferencesFrom(*before)) {
      if (only_ && !(sighting.object->id == *only_)) continue;
      if (IsEnough() || !Tell(sighting)) return false;
    }
    return true;
  }

  // A second, unless the watch ends in it. What is still in the inbox is of the session that went.
  bool Pause() const {
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < until) {
      if (Inbox::Get().Signal() != 0) return false;
      if (deadline_ && std::chrono::steady_clock::now() >= *deadline_) return false;
      static_cast<void>(Inbox::Get().Wait(until));
    }
    return true;
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
    "is shown as changes.\n\n"
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
