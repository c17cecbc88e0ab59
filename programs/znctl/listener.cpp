// The listener's provider. Its slots run on bus threads: they copy and push, nothing else, so that
// no other receiver waits for the terminal.
#include "listener.h"

#include <fmt/format.h>

#include "failure.h"
#include "inbox.h"
#include "text.h"
#include "zn/ev.h"
#include "zn/init.h"
#include "zn/ob.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

// Raised by the listener to itself: events are delivered in the order of their raising, so what
// comes before it is older than the listener.
constexpr char kMarkerTopic[] = "event.znctl.listener.start";

u32 OnCall(ObjectId, u32, u32, ZnHandle, ZnHandle, u32, u32, void*, TaskCallback, const GUID*,
           const ObjectId*, ZnHandle*) {
  return ZNE_NOT_IMPLEMENTED;
}

u32 OnInitialize(ZnHandle, ZnHandle, u32, u32) {
  return ZN_OK;
}
u32 OnShutdown(ZnHandle) {
  return ZN_OK;
}

u32 OnEvent(const EventRecord* record) {
  BusEvent event;
  event.time = std::chrono::system_clock::now();
  event.topic = record->topic == nullptr ? "" : record->topic;
  ZnHandle data = nullptr;
  if (record->size == sizeof(EventRecord)) {
    data = record->data;
    if (record->provider != nullptr) event.raisedBy = NameOfProvider(record->provider);
  } else {
    const auto* change = reinterpret_cast<const LocalEventRecord*>(record);
    event.object = Id{change->objectId};
    event.isObjectChange = !event.object.IsZero();
    event.type = change->typeName == nullptr ? "" : change->typeName;
    data = (change->flags & EVENT_HAS_DATA) != 0 ? change->data : nullptr;
  }
  event.hasData = data != nullptr;
  if (event.hasData) event.data = ReadPropset(data);
  Inbox::Get().Push(std::move(event));
  return ZN_OK;
}

}  // namespace

Listener::Listener(const Database& database, const std::string& pattern) : database_(database) {
  ProviderCallbacks callbacks{};
  callbacks.Call = OnCall;
  callbacks.Initialize = OnInitialize;
  callbacks.Shutdown = OnShutdown;
  callbacks.Event = OnEvent;
  const std::u16string name = ToUtf16(kListenerName);
  Check(ZnRegisterAsProvider(database.Handle(), name.c_str(), &callbacks, &provider_),
        "listen to events");
  if (provider_ == nullptr) provider_ = database.ProviderByName(kListenerName);
  ownId_ = IdOfProvider(provider_);
  ObSetFlags(database.Handle(), ownId_.guid, OBJECT_HIDDEN);
  Check(EvRegisterEvent(database.Handle(), provider_, pattern.c_str(), &registration_),
        fmt::format("listen to \"{}\"", Printable(pattern)));
}

void Listener::SkipThePast() {
  const Propset nothing;
  Check(EvRegisterEvent(database_.Handle(), provider_, kMarkerTopic, &markerRegistration_),
        "listen to events");
  Check(EvRaiseEvent(database_.Handle(), provider_, kMarkerTopic, nothing.Handle()),
        "listen to events");
  for (;;) {
    const std::optional<InboxItem> item = Inbox::Get().Wait(std::nullopt);
    if (!item) return;  // a signal; whoever waits next sees it too
    // Then the marker does not come: the provider has gone with the connection.
    if (std::holds_alternative<ConnectionLost>(*item)) {
      throw Failure(UCLW_SOCKET_DISCONNECTED, "cannot listen to events");
    }
    const auto* event = std::get_if<BusEvent>(&*item);
    if (event != nullptr && event->topic == kMarkerTopic) break;
  }
  EvUnregisterEvent(database_.Handle(), markerRegistration_);
  markerRegistration_ = nullptr;
}

Listener::~Listener() {
  if (markerRegistration_ != nullptr) EvUnregisterEvent(database_.Handle(), markerRegistration_);
  if (registration_ != nullptr) EvUnregisterEvent(database_.Handle(), registration_);
}

}  // namespace zn::ctl
