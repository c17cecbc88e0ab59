// alerts: what may be raised, and what is raised while one looks.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "alerts.h"
#include "checks.h"
#include "console.h"
#include "failure.h"
#include "language.h"
#include "listener.h"
#include "render.h"
#include "text.h"
#include "watcher.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr char kAlertType[] = "KELD_SystemAlerts";

struct AlertArguments {
  std::string topic;
  bool follow = false;
  double seconds = -1;
  u32 count = 0;
};

std::vector<Alert> ReadPublished(const Database& bus, const Localizer& messages) {
  std::vector<Alert> alerts;
  if (!bus.TypeIsA(kAlertType, kAlertType)) return alerts;
  for (const Id& id : bus.Objects(kAlertType)) {
    const std::optional<PropertyList> properties = bus.Properties(id);
    std::optional<Alert> alert = properties ? ReadAlert(*properties, messages) : std::nullopt;
    if (!alert) continue;
    alert->provider = bus.OwnerOf(id);
    alert->id = id;
    alerts.push_back(std::move(*alert));
  }
  std::sort(alerts.begin(), alerts.end(),
            [](const Alert& a, const Alert& b) { return NaturalLess(a.topic, b.topic); });
  return alerts;
}

Json JsonOfPublished(const Alert& alert) {
  Json json = JsonOfAlert(alert);
  json["object"] = IdText(alert.id);
  return json;
}

void ShowOne(const Console& console, const Alert& alert) {
  const Terminal& screen = console.Screen();
  std::string out = RenderField(screen, "topic", Printable(alert.topic));
  out += RenderField(screen, "name", Printable(alert.friendlyName));
  out += RenderField(screen, "severity", SeverityText(alert.severity));
  out += RenderField(screen, "flag", fmt::to_string(alert.flag));
  if (!alert.classification.empty()) {
    out += RenderField(screen, "class", Printable(alert.classification));
  }
  out += RenderField(screen, "message", Printable(alert.message));
  out += RenderField(screen, "about", Printable(alert.description));
  out += RenderField(screen, "action", Printable(alert.action));
  out += RenderField(screen, "provider", Printable(alert.provider));
  out += RenderField(screen, "object", IdText(alert.id));
  if (!alert.userProperties.empty()) {
    out += RenderField(screen, "properties", "");
    out += RenderProperties(screen, alert.userProperties, "  ", true);
  }
  WriteOut(out);
}

int RunList(Console& console, const AlertArguments& arguments) {
  const Localizer messages = console.Messages();
  std::vector<Alert> alerts = ReadPublished(console.Bus(), messages);
  if (!arguments.topic.empty()) {
    std::erase_if(alerts, [&](const Alert& alert) { return alert.topic != arguments.topic; });
    if (alerts.empty()) {
      throw Failure(ZNE_ALERT_OBJECT_NOT_FOUND,
                    fmt::format("no alert is published as \"{}\"", Printable(arguments.topic)),
                    {"znctl alerts shows those that are"});
    }
  }
  if (console.json) {
    Json document = JsonDocument("alerts");
    document["locale"] = messages.Locale();
    Json list = Json::array();
    for (const Alert& alert : alerts) list.push_back(JsonOfPublished(alert));
    document["alerts"] = std::move(list);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  if (!arguments.topic.empty()) {
    ShowOne(console, alerts.front());
    return kExitOk;
  }
  std::vector<std::vector<std::string>> rows;
  rows.reserve(alerts.size());
  for (const Alert& alert : alerts) {
    rows.push_back({SeverityText(alert.severity), alert.topic, alert.friendlyName});
  }
  WriteOut(RenderTable(console.Screen(), {{"SEVERITY"}, {"TOPIC"}, {"NAME", Style::kName, true}},
                       rows, "no alerts are published"));
  return kExitOk;
}

bool ShowRaised(const Console& console, const Alert& alert, const BusEvent& event) {
  if (!console.json) return WriteOut(RenderAlert(console.Screen(), alert, event.time));
  Json json = {{"schema", kJsonSchema}, {"verb", "alerts"}, {"time", ClockText(event.time, true)}};
  json.update(JsonOfAlert(alert));
  json["computer"] = alert.computer;
  json["id"] = IdText(alert.id);
  return WriteOut(JsonLine(json));
}

int RunFollow(Console& console, const AlertArguments& arguments) {
  std::optional<Localizer> messages;
  std::optional<Listener> listener;
  const auto stop = [&] {
    listener.reset();
    messages.reset();
  };
  const auto start = [&] {
    messages.emplace(console.Messages());
    listener.emplace(console.Bus(), arguments.topic.empty() ? "event.alert" : arguments.topic);
    listener->SkipThePast();
  };
  start();
  const Deadline deadline = DeadlineIn(arguments.seconds);
  if (console.Screen().bars && !console.json && !deadline) {
    WriteError("waiting for alerts; Ctrl-C ends\n");
  }
  u32 shown = 0;
  while (arguments.count == 0 || shown < arguments.count) {
    const std::optional<InboxItem> item = Inbox::Get().Wait(deadline);
    if (!item) break;  // time is up, or a signal: both are the way to end it
    if (std::holds_alternative<ConnectionLost>(*item)) {
      if (!console.TakeUpAgain(deadline, stop, start)) break;
      continue;
    }
    const auto* event = std::get_if<BusEvent>(&*item);
    const std::optional<Alert> alert =
        event == nullptr ? std::nullopt : ReadAlert(event->data, *messages);
    if (!alert) continue;
    if (!ShowRaised(console, *alert, *event)) break;
    ++shown;
  }
  stop();
  console.Drop();
  return kExitOk;
}

constexpr char kAlertHelp[] =
    "Without --follow the alerts that providers have published: what may be raised.\n"
    "With a topic one of them in full. With --follow what is raised from now on,\n"
    "under that topic or all that begin with it; ends after --for or --count, or by\n"
    "Ctrl-C. Texts are in the language of --locale, else of the environment, else\n"
    "the provider's own. Severity 1 is the most severe. With a server, a lost\n"
    "connection is taken up again; alerts raised meanwhile are not seen.\n\n"
    "Examples:\n"
    "  znctl --local alerts\n"
    "  znctl --local alerts event.alert.keld.server.start --locale de\n"
    "  znctl --local alerts --follow --locale de\n"
    "  znctl --local alerts --follow event.alert.hostinv.filesystem --json\n";

}  // namespace

void AddAlertVerbs(CLI::App& app, Command* command) {
  auto arguments = std::make_shared<AlertArguments>();
  CLI::App* verb = app.add_subcommand("alerts", "Show published alerts, or those that are raised");
  verb->add_option("topic", arguments->topic, "This one; with --follow all below it");
  CLI::Option* follow =
      verb->add_flag("--follow", arguments->follow, "Show alerts as they are raised");
  verb->add_option("-f,--for", arguments->seconds, "End after so many seconds")
      ->type_name("SECONDS")
      ->check(ANumberOfSeconds())
      ->needs(follow);
  verb->add_option("-n,--count", arguments->count, "End after so many alerts")
      ->check(AtLeastOne())
      ->needs(follow);
  verb->footer(kAlertHelp);
  verb->callback([=] {
    *command = [=](Console& c) {
      return arguments->follow ? RunFollow(c, *arguments) : RunList(c, *arguments);
    };
  });
}

}  // namespace zn::ctl
