// The example provider: two lamps of a type of its own, an interface that switches them, an event
// that puts them out. The loader's thread enters Initialize and Shutdown, any thread Call, the
// raise thread Event; what they share is written by Initialize alone.
#include <zn/znmira.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace {

constexpr char kLampType[] = "EXAMPLE_Lamp";
constexpr char kAllOffTopic[] = "event.example.lamp.alloff";
constexpr u32 kMajorSwitch = 1, kMinorOff = 0, kMinorOn = 1;
// {6F0C2A9B-51C4-4D0E-9A37-2B8E1D7C40F5}
constexpr GUID kSwitchInterface = {
    0x6F0C2A9B, 0x51C4, 0x4D0E, {0x9A, 0x37, 0x2B, 0x8E, 0x1D, 0x7C, 0x40, 0xF5}};

struct Lamp {
  ObjectId id;
  const ZnWChar* name;
  u32 watts;
};
Lamp lamps[] = {{{}, u"Desk lamp", 8}, {{}, u"Floor lamp", 40}};
ZnHandle bus;
ZnHandle listening;

Property2 Property(const char* name, u32 type, const void* value, std::size_t size) {
  return {const_cast<char*>(name), type, 0, static_cast<u32>(size), const_cast<void*>(value)};
}

u32 Switch(ObjectId id, bool on) {
  const Property2 property = Property("On", ZN_TYPE_BOOLEAN, &on, sizeof on);
  return ObSetProperty(bus, id, &property);
}

u32 CreateLampType() {
  const bool on = false;
  const u32 watts = 0;
  ZnHandle defaults = nullptr;
  u32 status = PsCreatePropset(&defaults);
  for (const Property2& property : {Property("On", ZN_TYPE_BOOLEAN, &on, sizeof on),
                                    Property("Watts", ZN_TYPE_UINT32, &watts, sizeof watts)}) {
    if (!ZN_FAILED(status)) status = PsAddProperty(defaults, &property);
  }
  ObjectId type;
  if (!ZN_FAILED(status)) status = ObCreateTypeObject(bus, kLampType, nullptr, defaults, &type);
  PsDestroyPropset(defaults);
  return status;
}

u32 CreateLamp(ZnHandle provider, Lamp* lamp) {
  u32 status = ObCreateObject(bus, provider, kLampType, &lamp->id);
  const std::size_t nameSize = (Znwcslen(lamp->name) + 1) * sizeof(ZnWChar);
  for (const Property2& property :
       {Property("Name", ZN_TYPE_WIDESTRING, lamp->name, nameSize),
        Property("Watts", ZN_TYPE_UINT32, &lamp->watts, sizeof lamp->watts)}) {
    if (!ZN_FAILED(status)) status = ObSetProperty(bus, lamp->id, &property);
  }
  return status;
}

u32 Initialize(ZnHandle database, ZnHandle provider, u32, u32) {
  bus = database;
  u32 status = CreateLampType();
  if (!ZN_FAILED(status)) {
    status = ObRegisterInterfaceOnType(bus, kLampType, provider, &kSwitchInterface);
  }
  for (Lamp& lamp : lamps) {
    if (!ZN_FAILED(status)) status = CreateLamp(provider, &lamp);
  }
  return ZN_FAILED(status) ? status : EvRegisterEvent(bus, provider, kAllOffTopic, &listening);
}

u32 Call(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle, ZnHandle, u32, u32, void*,
         TaskCallback, const GUID* interfaceId, const ObjectId*, ZnHandle*) {
  if (!ZnCompareGuid(interfaceId, &kSwitchInterface)) return ZNE_INTERFACE_NOT_FOUND;
  if (!ObIsA(bus, id, kLampType)) return ZNE_NOT_SUPPORTED_FOR_OBJECT;
  if (majorCode != kMajorSwitch) return ZNE_INVALID_MAJOR_CODE;
  if (minorCode != kMinorOff && minorCode != kMinorOn) return ZNE_INVALID_MINOR_CODE;
  return Switch(id, minorCode == kMinorOn);
}

u32 Event(const EventRecord* event) {
  if (event->topic != std::string_view(kAllOffTopic)) return ZN_OK;
  for (const Lamp& lamp : lamps) Switch(lamp.id, false);
  return ZN_OK;
}

u32 Shutdown(ZnHandle database) {
  return EvUnregisterEvent(database, listening);
}

}  // namespace

extern "C" ZN_API u32 ProviderEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks) {
  *callbacks = {Call, Initialize, Shutdown, nullptr, Event, nullptr};
  return ZN_OK;
}
