// Alerts as they are shown; see the header.
#include "alerts.h"

#include <fmt/format.h>

#include "render.h"
#include "text.h"
#include "watcher.h"

namespace zn::ctl {
namespace {

const PropertyList* FindSet(const PropertyList& list, const char* name) {
  const Property* property = FindProperty(list, name);
  return property == nullptr ? nullptr : std::get_if<PropertyList>(&property->value.data);
}

u64 NumberOf(const PropertyList& list, const char* name) {
  const Property* property = FindProperty(list, name);
  const u64* number = property == nullptr ? nullptr : std::get_if<u64>(&property->value.data);
  return number == nullptr ? 0 : *number;
}

std::string TextOf(const PropertyList& list, const char* name) {
  const Property* property = FindProperty(list, name);
  const auto* text =
      property == nullptr ? nullptr : std::get_if<std::string>(&property->value.data);
  return text == nullptr ? std::string() : *text;
}

// An alert must have an action; this text (the provider's own, before translation) says that there
// is none.
constexpr char kNoAction[] = "None";

bool AsksForAction(const Property* action) {
  const auto* message = action == nullptr ? nullptr : std::get_if<Message>(&action->value.data);
  return message == nullptr || message->name != kNoAction;
}

constexpr const char* kSeverities[] = {"critical", "error", "warning", "information"};

}  // namespace

std::optional<Alert> ReadAlert(const PropertyList& properties, const Localizer& messages) {
  const PropertyList* generic = FindSet(properties, "GenericAlertPropset");
  if (generic == nullptr) return std::nullopt;
  const auto text = [&](const char* name) { return messages.Text(FindProperty(*generic, name)); };
  Alert alert;
  alert.topic = TextOf(*generic, "AlertTopic");
  alert.severity = NumberOf(*generic, "AlertSeverity");
  alert.flag = NumberOf(*generic, "AlertFlag");
  alert.friendlyName = text("FriendlyAlertName");
  alert.message = text("AlertMsg");
  alert.classification = text("ClassificationName");
  alert.description = text("Description");
  alert.action = text("RecommendedAction");
  alert.asksForAction = AsksForAction(FindProperty(*generic, "RecommendedAction"));
  alert.computer = TextOf(properties, "SourceComputer");
  alert.provider = TextOf(properties, "SourceProvider");
  const PropertyList* user = FindSet(properties, "UserDefinedPropset");
  if (user != nullptr) alert.userProperties = *user;
  const Property* id = FindProperty(*generic, "AlertGUID");
  const Id* value = id == nullptr ? nullptr : std::get_if<Id>(&id->value.data);
  if (value != nullptr) alert.id = *value;
  return alert;
}

std::string SeverityText(u64 severity) {
  if (severity == 0 || severity > std::size(kSeverities)) return fmt::to_string(severity);
  return fmt::format("{} {}", severity, kSeverities[severity - 1]);
}

Style StyleOfSeverity(u64 severity) {
  if (severity <= 2) return Style::kBad;
  return severity == 3 ? Style::kBold : Style::kPlain;
}

std::string RenderAlert(const Terminal& terminal, const Alert& alert,
                        std::chrono::system_clock::time_point time) {
  const std::string indent = "    ";
  const size_t width = terminal.width > 24 ? terminal.width - indent.size() : SIZE_MAX;
  std::string out =
      Styled(terminal, Style::kDim, ClockText(time, false)) + "  " +
      Styled(terminal, StyleOfSeverity(alert.severity), SeverityText(alert.severity)) + "  " +
      Styled(terminal, Style::kName, Printable(alert.friendlyName)) + "\n";
  for (const std::string* text : {&alert.message, &alert.action}) {
    const bool isAction = text == &alert.action;
    if (text->empty() || (isAction && !alert.asksForAction)) continue;
    const std::string head = isAction ? std::string(terminal.Arrow()) + " " : "";
    for (const std::string& line : Wrap(head + Printable(*text), width)) {
      out += indent + line + "\n";
    }
  }
  const std::string source = fmt::format("{}  by {}", alert.topic, alert.provider);
  for (const std::string& line : Wrap(Printable(source), width)) {
    out += indent + Styled(terminal, Style::kDim, line) + "\n";
  }
  return out;
}

Json JsonOfAlert(const Alert& alert) {
  return {{"topic", alert.topic},
          {"severity", alert.severity},
          {"flag", alert.flag},
          {"friendlyName", alert.friendlyName},
          {"message", alert.message},
          {"classification", alert.classification},
          {"description", alert.description},
          {"recommendedAction", alert.action},
          {"provider", alert.provider},
          {"userProperties", JsonOfProperties(alert.userProperties)}};
}

}  // namespace zn::ctl
