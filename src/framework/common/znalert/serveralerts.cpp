// The two alerts of the library itself. Their texts are rows of the table of messages.
#include "framework/common/znalert/alert.h"
#include "support/common/status.h"

namespace zn {

namespace {

struct ServerAlert {
  const char* topic;
  u32 severity;
  u32 message;
  u32 friendlyName;
  u32 classification;
  u32 description;
  u32 recommendedAction;
};

constexpr u32 kServerAlertFlag = 3;
constexpr ServerAlert kServerAlerts[] = {
    {kServerStartAlert, 4, ZNI_ALERT_START_TEXT, ZNI_ALERT_START_TITLE, ZNI_ALERT_START_CLASS,
     ZNI_ALERT_START_DESCRIPTION, ZNI_ALERT_START_ACTION},
    {kServerShutdownAlert, 3, ZNI_ALERT_STOP_TEXT, ZNW_ALERT_STOP_TITLE, ZNW_ALERT_STOP_CLASS,
     ZNW_ALERT_STOP_DESCRIPTION, ZNW_ALERT_STOP_ACTION},
};

// Borrowed for reading: a record's text is not const because it also carries results.
[[nodiscard]] I18nString MessageOf(u32 code) noexcept {
  const StatusRow& row = *ZnLookupStatusRow(code);
  return {row.messageClass, code, const_cast<char*>(row.text)};
}

[[nodiscard]] u32 Publish(Database& database, Provider& system, const ServerAlert& alert) {
  const I18nString message = MessageOf(alert.message);
  const I18nString friendlyName = MessageOf(alert.friendlyName);
  const I18nString classification = MessageOf(alert.classification);
  const I18nString description = MessageOf(alert.description);
  const I18nString action = MessageOf(alert.recommendedAction);
  AlertDescriptor descriptor{};
  descriptor.topic = alert.topic;
  descriptor.flag = kServerAlertFlag;
  descriptor.severity = alert.severity;
  descriptor.message = &message;
  descriptor.classification = &classification;
  descriptor.friendlyName = &friendlyName;
  descriptor.description = &description;
  descriptor.recommendedAction = &action;
  return PublishAlert(database, system, descriptor);
}

}  // namespace

u32 PublishServerAlerts(Database& database, Provider& system) {
  for (const ServerAlert& alert : kServerAlerts) {
    ZN_RETURN_IF_FAILED(Publish(database, system, alert));
  }
  return ZN_OK;
}

}  // namespace zn
