// call and refresh: asking a provider to do something, at once or as a task that is followed.
//
// A finished task disappears: its report of 100 % and the deletion of its object come on different
// threads. The output of the task stands in the properties of the dying object, so the follower
// listens to the events of tasks and waits for both.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>

#include "console.h"
#include "failure.h"
#include "inbox.h"
#include "json_form.h"
#include "listener.h"
#include "render.h"
#include "status_names.h"
#include "text.h"
#include "zn/ob.h"
#include "zn/pr.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr char kRefreshInterface[] = "{e89e2fd0-07fb-11d2-a7c4-00a0c9249029}";
constexpr char kServiceInterface[] = "{3a998f90-0af5-11d4-abb5-00c04f87c098}";
constexpr char kUnnamed[] = "Noname";  // the default of every object's name
constexpr u32 kRefreshMajor = 0;
constexpr u32 kRefreshMinor = 1;
constexpr u32 kRescanMinor = 2;

struct Request {
  Id object;
  Id interface;
  u32 major = 0;
  u32 minor = 0;
  PropertyList input;
};

struct Outcome {
  Id provider;
  Id task;
  u32 result = 0;
  PropertyList output;
};

bool OnProgress(TaskReport* report) {
  Inbox::Get().Push(
      TaskProgress{report->result, Id{report->taskId}, report->percentComplete, report->state});
  return Inbox::Get().Signal() == 0;
}

std::string DescribeCall(const Request& request) {
  return fmt::format("call {} {}.{}", IdText(request.interface), request.major, request.minor);
}

// Keeps the notice for the time in which a provider's call cannot be left.
class BusyNotice {
 public:
  explicit BusyNotice(const char* text) { Inbox::Get().SetBusyNotice(text); }
  ~BusyNotice() { Inbox::Get().SetBusyNotice(nullptr); }
  BusyNotice(const BusyNotice&) = delete;
  BusyNotice& operator=(const BusyNotice&) = delete;
};

Outcome CallAndWait(Console& console, const Request& request) {
  const Propset input(request.input);
  const Propset output;
  Outcome outcome;
  u32 status = ZN_OK;
  {
    const BusyNotice notice("\nwaiting for the provider; a second Ctrl-C ends at once\n");
    status = PrCallDispatch(console.Bus().Handle(), request.object.guid, &request.interface.guid,
                            request.major, request.minor, input.Handle(), output.Handle(), 0, 0,
                            nullptr, nullptr, &outcome.provider.guid, &outcome.task.guid);
  }
  Inbox::Get().ThrowIfInterrupted();
  Check(status, DescribeCall(request));
  outcome.result = status;
  outcome.output = output.Read();
  return outcome;
}

// Follows one task from its start to its end.
class TaskFollower {
 public:
  TaskFollower(Console& console, const Request& request, const std::string& label)
      : console_(console),
        request_(request),
        listener_(console.Bus(), "event.keld.dom.object.KELD_Task"),
        bar_(console.Screen(), label) {}

  Outcome Run() {
    Start();
    while (!finished_ || (!objectGone_ && !GraceOver())) {
      const std::optional<InboxItem> item = Inbox::Get().Wait(graceEnd_);
      if (item) {
        std::visit([this](const auto& one) { Take(one); }, *item);
      } else if (Inbox::Get().Signal() != 0) {
        GiveUp();
      }
    }
    bar_.Clear();
    Check(outcome_.result, DescribeCall(request_));
    return outcome_;
  }

 private:
  void Start() {
    const Propset input(request_.input);
    const Propset output;
    bar_.Update(0);
    const u32 status = PrCallDispatch(
        console_.Bus().Handle(), request_.object.guid, &request_.interface.guid, request_.major,
        request_.minor, input.Handle(), output.Handle(), ZN_CALL_ASYNCHRONOUS, 0, nullptr,
        OnProgress, &outcome_.provider.guid, &outcome_.task.guid);
    if (ZN_FAILED(status)) bar_.Clear();
    Check(status, DescribeCall(request_));
    outcome_.output = output.Read();
  }

  bool GraceOver() const { return graceEnd_ && std::chrono::steady_clock::now() >= *graceEnd_; }

  void Take(const TaskProgress& progress) {
    if (!(progress.task == outcome_.task) && !progress.task.IsZero()) return;
    if (!named_) NameBar(progress.task);
    bar_.Update(progress.percent);
    if (progress.state != TASK_STATE_FINISHED) return;
    finished_ = true;
    outcome_.result = progress.result;
    constexpr std::chrono::seconds kGrace(2);
    graceEnd_ = std::chrono::steady_clock::now() + kGrace;
  }

  // Most providers give their tasks a name that tells more than that of the object.
  void NameBar(const Id& task) {
    const std::optional<Property> name = console_.Bus().FindProperty(task, "Name");
    const auto* text = name ? std::get_if<std::string>(&name->value.data) : nullptr;
    if (text == nullptr) return;
    named_ = true;
    if (!text->empty() && *text != kUnnamed) bar_.SetLabel(Printable(*text));
  }

  void Take(const BusEvent& event) {
    if (!(event.object == outcome_.task)) return;
    const bool gone = event.topic.find(".object.delete.") != std::string::npos;
    // A server's provider reports to the server: here its task tells how far it is.
    if (console_.IsRemote()) {
      TakeState(
          gone ? event.data : console_.Bus().Properties(event.object).value_or(PropertyList()),
          gone);
    }
    if (!gone) return;
    objectGone_ = true;
    const Property* output = FindProperty(event.data, "OutData");
    const auto* set = output == nullptr ? nullptr : std::get_if<PropertyList>(&output->value.data);
    if (set != nullptr) outcome_.output = *set;
  }

  static u32 Number(const PropertyList& task, const char* name) {
    const Property* property = FindProperty(task, name);
    const auto* number = property == nullptr ? nullptr : std::get_if<u64>(&property->value.data);
    return number == nullptr ? 0 : static_cast<u32>(*number);
  }

  void TakeState(const PropertyList& task, bool gone) {
    if (task.empty()) return;
    Take(TaskProgress{Number(task, "Result"), outcome_.task, Number(task, "PercentComplete"),
                      gone ? TASK_STATE_FINISHED : Number(task, "State")});
  }

  [[noreturn]] void Take(const ConnectionLost&) {
    bar_.Clear();
    throw Failure(UCLW_SOCKET_DISCONNECTED,
                  fmt::format("lost the connection to {}", console_.remote->Text()),
                  {fmt::format("the task {} may go on", IdText(outcome_.task))});
  }

  // A task whose object is gone is told to stop at its next report.
  [[noreturn]] void GiveUp() {
    bar_.Clear();
    const bool stops = console_.BusEndsWithProgram();
    if (stops && !outcome_.task.IsZero()) console_.Bus().Delete(outcome_.task);
    WriteError(
        stops ? "stopped following; the task was told to stop\n"
              : fmt::format("stopped following; the task {} goes on\n", IdText(outcome_.task)));
    throw Interrupted(Inbox::Get().Signal());
  }

  Console& console_;
  const Request& request_;
  Listener listener_;
  ProgressBar bar_;
  Outcome outcome_;
  bool named_ = false;
  bool finished_ = false;
  bool objectGone_ = false;
  Deadline graceEnd_;
};

Id ResolveInterface(Console& console, const Id& object, const std::string& text) {
  if (text == "refresh") return *ParseId(kRefreshInterface);
  if (text == "service") return *ParseId(kServiceInterface);
  if (const std::optional<Id> id = ParseId(text)) return *id;
  const std::vector<Id> offered = console.Bus().Interfaces(object);
  std::vector<Id> found;
  std::vector<std::string> all;
  for (const Id& id : offered) {
    if (LooksLikeIdPrefix(text) && HasIdPrefix(id, text)) found.push_back(id);
    all.push_back(IdText(id));
  }
  if (found.size() == 1) return found.front();
  if (all.empty()) all.emplace_back("the object offers no interface");
  throw Failure(ZNE_INTERFACE_NOT_FOUND,
                fmt::format("\"{}\" names {} interfaces of {}", Printable(text), found.size(),
                            console.Describe(object)),
                std::move(all));
}

void PrintOutcome(Console& console, const Request& request, const Outcome& outcome,
                  const char* verb) {
  const std::string provider = console.Bus().ProviderNameOf(outcome.provider);
  if (console.json) {
    Json document = JsonDocument(verb);
    document["object"] = IdText(request.object);
    document["interface"] = IdText(request.interface);
    document["major"] = request.major;
    document["minor"] = request.minor;
    document["provider"] = provider;
    document["task"] = outcome.task.IsZero() ? Json() : Json(IdText(outcome.task));
    document["result"] = outcome.result;
    document["output"] = JsonOfProperties(outcome.output);
    WriteOut(JsonPretty(document));
    return;
  }
  std::string out = fmt::format("answered by {}", Printable(provider));
  if (outcome.result != ZN_OK) out += fmt::format(" with {}", DescribeStatus(outcome.result));
  out += "\n" + RenderProperties(console.Screen(), outcome.output, "  ", true);
  WriteOut(out);
}

struct CallArguments {
  std::string object;
  std::string interface;
  u32 major = 0;
  u32 minor = 0;
  std::vector<std::string> values;
  bool async = false;
};

int RunCall(Console& console, const CallArguments& arguments) {
  Request request;
  for (const std::string& text : arguments.values) request.input.push_back(ParseArgument(text));
  request.object = console.Resolve(arguments.object);
  request.interface = ResolveInterface(console, request.object, arguments.interface);
  request.major = arguments.major;
  request.minor = arguments.minor;
  if (!arguments.async) {
    PrintOutcome(console, request, CallAndWait(console, request), "call");
    return kExitOk;
  }
  const std::string label = Printable(TitleOf(*console.Objects().Info(request.object)));
  PrintOutcome(console, request, TaskFollower(console, request, label).Run(), "call");
  return kExitOk;
}

// The group of the computer, on which the system provider serves the refresh interface.
Id SystemGroup(Console& console) {
  const Id interface = *ParseId(kRefreshInterface);
  for (const char* type : {"KELD_SystemGroup", "KELD_Group"}) {
    for (const Id& id : console.Bus().Objects(type)) {
      const std::vector<Id> offered = console.Bus().Interfaces(id);
      if (std::find(offered.begin(), offered.end(), interface) != offered.end()) return id;
    }
  }
  throw Failure(ZNE_INTERFACE_NOT_FOUND, "no group offers the refresh interface");
}

int RunRefresh(Console& console, bool rescan) {
  Request request;
  request.object = SystemGroup(console);
  request.interface = *ParseId(kRefreshInterface);
  request.major = kRefreshMajor;
  request.minor = rescan ? kRescanMinor : kRefreshMinor;
  const std::string label = rescan ? "rescanning" : "refreshing";
  const Outcome outcome = TaskFollower(console, request, label).Run();
  if (console.json) {
    PrintOutcome(console, request, outcome, "refresh");
  } else {
    WriteOut(rescan ? "rescanned\n" : "refreshed\n");
  }
  return kExitOk;
}

constexpr char kCallHelp[] =
    "The interface is a GUID or the start of one that the object offers (show lists\n"
    "them), or one of the words refresh and service. Major and minor select the\n"
    "operation; the provider's own page tells which there are.\n\n"
    "Values: name=value or name:type=value. Without a type, true and false are\n"
    "booleans, whole numbers uint32 (or uint64, int32, int64 as they need),\n"
    "{...38 characters} an object id, [a, b] an array, {\"a\": 1} a property set,\n"
    "all else a string.\n"
    "Types: boolean int32 uint32 int64 uint64 string wide binary guid objectid time\n"
    "propset; with [] behind it an array, its elements separated by commas.\n\n"
    "Examples:\n"
    "  znctl --local call 'Desk lamp' 6f0c2a9b 1 1\n"
    "  znctl --local call /home c1a7 1 1 Path=/home/me/big.iso --async\n"
    "  znctl --local call x 1f0c 2 0 'ids:int64[]=1, 2, 3' 'title:wide=Été'\n";

}  // namespace

void AddCallVerbs(CLI::App& app, Command* command) {
  {
    auto arguments = std::make_shared<CallArguments>();
    CLI::App* verb = app.add_subcommand("call", "Call an operation of an object");
    verb->add_option("object", arguments->object, "Path, id or start of an id")->required();
    verb->add_option("interface", arguments->interface, "The interface that has it")->required();
    verb->add_option("major", arguments->major, "Group of operations")->required();
    verb->add_option("minor", arguments->minor, "Operation in the group")->required();
    verb->add_option("values", arguments->values, "Arguments, each name=value")
        ->type_name("name[:type]=value");
    verb->add_flag("--async", arguments->async, "As a task, with a progress bar");
    verb->footer(kCallHelp);
    verb->callback([=] { *command = [=](Console& c) { return RunCall(c, *arguments); }; });
  }
  {
    auto rescan = std::make_shared<bool>(false);
    CLI::App* verb = app.add_subcommand("refresh", "Let all providers read their values afresh");
    verb->add_flag("--rescan", *rescan, "Let them search for their objects again");
    verb->callback([=] { *command = [=](Console& c) { return RunRefresh(c, *rescan); }; });
  }
}

}  // namespace zn::ctl
