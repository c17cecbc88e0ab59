// Alerts as they are shown: the published ones, and those raised while somebody looks.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "inbox.h"
#include "json_form.h"
#include "localizer.h"
#include "terminal.h"

namespace zn::ctl {

// An alert with its texts in the reader's language. Of a published one the texts have their places
// still in them.
struct Alert {
  std::string topic;
  u64 severity = 0;
  u64 flag = 0;
  std::string friendlyName;
  std::string message;
  std::string classification;
  std::string description;
  std::string action;
  bool asksForAction = true;  // false: the action is the one that says that there is none
  std::string provider;
  PropertyList userProperties;
  // Of a raised one.
  std::string computer;
  Id id;
};

// Reads what an alert object or the data of a raised alert holds; nothing where it is no alert.
std::optional<Alert> ReadAlert(const PropertyList& properties, const Localizer& messages);

// "1 critical", "4 information"; the number alone where it has no name.
std::string SeverityText(u64 severity);
Style StyleOfSeverity(u64 severity);

// One raised alert in lines of the terminal's width.
std::string RenderAlert(const Terminal& terminal, const Alert& alert,
                        std::chrono::system_clock::time_point time);
Json JsonOfAlert(const Alert& alert);

}  // namespace zn::ctl
