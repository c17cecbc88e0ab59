// Alerts: objects of type KELD_SystemAlerts, one per published topic, and the events raised from
// them. An alert is found by a walk over the objects, which anybody may have changed meanwhile:
// what is read from one is looked at before it is believed. Layout of the sets: zn/alert.h. Every
// call runs under FAST_LOCK.
#pragma once

#include <string_view>

#include "framework/common/znpropset/propertyset.h"
#include "zn/types.h"

namespace zn {

class DBNode;
class Database;
class Provider;

inline constexpr std::string_view kAlertTypeName = "KELD_SystemAlerts";
inline constexpr const char* kServerStartAlert = "event.alert.keld.server.start";
inline constexpr const char* kServerShutdownAlert = "event.alert.keld.server.shutdown";

// Makes the type of alerts where the database has none; traced.
[[nodiscard]] u32 FormalizeAlertType(Database& database);

// On a client copy: fetches the alerts, once. The lock may be given up for that, so this comes
// before anything is looked up.
void FetchAlerts(Database& database);
// The alert of exactly that topic, of what is here, or null.
[[nodiscard]] DBNode* FindAlert(Database& database, std::string_view topic);

// ZNE_INVALID_ARGUMENTS, ZNE_ALERT_REREGISTER, ZNE_INSERTION_FORMAT_INVALID, with nothing left
// behind. The topic has been checked.
[[nodiscard]] u32 PublishAlert(Database& database, Provider& provider,
                               const AlertDescriptor& alert);
// ZNE_ALERT_OBJECT_NOT_FOUND.
[[nodiscard]] u32 UnpublishAlert(Database& database, std::string_view topic);

// What a raise brings; both sets may be null.
struct AlertValues {
  const PropertySet* insertions = nullptr;
  const PropertySet* userProperties = nullptr;
};
// ZNE_ALERT_OBJECT_NOT_FOUND, ZNE_INSERTION_FORMAT_INVALID, ZNE_INSERTION_STRINGS_INVALID,
// ZNE_USER_PROPSET_INVALID, or what RaiseEvent answers.
[[nodiscard]] u32 RaiseAlert(Database& database, Provider& provider, std::string_view topic,
                             const AlertValues& values);

// Publishes the alerts of the library itself, the start and the stop of a server.
[[nodiscard]] u32 PublishServerAlerts(Database& database, Provider& system);

}  // namespace zn
