/* A small program outside the project: starts the bus in its own process with the providers of the
 * settings file, calls the example provider and hears a change. It ends with 0 only when everything
 * came out as the example promises; the first thing that did not is told with its line.
 */
#include <stdio.h>
#include <string.h>
#include <zn/znmira.h>

#define CHECK(condition)                                                    \
  do {                                                                      \
    if (!(condition)) {                                                     \
      fprintf(stderr, "client.c:%d: not true: %s\n", __LINE__, #condition); \
      return 1;                                                             \
    }                                                                       \
  } while (0)
#define CHECK_STATUS(expected, call)                                                  \
  do {                                                                                \
    const u32 status_ = (call);                                                       \
    if (status_ != (expected)) {                                                      \
      fprintf(stderr, "client.c:%d: %s gives 0x%08X: %s\n", __LINE__, #call, status_, \
              ZnSysGetErrorString(0, status_));                                       \
      return 1;                                                                       \
    }                                                                                 \
  } while (0)

static const GUID kSwitchInterface = {
    0x6F0C2A9B, 0x51C4, 0x4D0E, {0x9A, 0x37, 0x2B, 0x8E, 0x1D, 0x7C, 0x40, 0xF5}};
static const GUID kOtherInterface = {0x11111111, 0x2222, 0x3333, {4, 4, 4, 4, 4, 4, 4, 4}};

typedef struct Awaited {
  ZnHandle database;
  ObjectId lamp;
  bool seen;
} Awaited;

static void OnChange(ZnHandle change) {
  (void)change;
}
static bool OnEvent(const EventRecord* event, u32 parameter) {
  (void)event;
  (void)parameter;
  return true;
}

/* 1 on, 0 off, -1 when it cannot be read as a boolean. */
static int IsOn(ZnHandle database, ObjectId lamp) {
  Property2* property = NULL;
  if (ZN_FAILED(ObGetProperty(database, lamp, "On", &property))) return -1;
  const int on = property->Type == ZN_TYPE_BOOLEAN ? *(const u8*)property->Value : -1;
  PsFreeProperty(property);
  return on;
}

/* The change that the wait is for: the lamp has changed, and it is off. */
static bool LampWentOff(const EventRecord* event, void* context) {
  Awaited* awaited = context;
  if (event->size == sizeof(EventRecord)) return false;
  if (!EvMatch(awaited->database, event->topic, "event.keld.dom.object.EXAMPLE_Lamp.data.change")) {
    return false;
  }
  const LocalEventRecord* change = (const LocalEventRecord*)(const void*)event;
  if (!ObCompareId(change->objectId, awaited->lamp)) return false;
  if (IsOn(awaited->database, awaited->lamp) != 0) return false;
  awaited->seen = true;
  return true;
}

static int Run(ZnHandle database) {
  u32 count = 0;
  ObjectId* lamps = NULL;
  CHECK_STATUS(ZN_OK, DbGetObjects(database, "EXAMPLE_Lamp", &count, &lamps));
  CHECK(count == 2);
  const ObjectId lamp = lamps[0];
  ZnFree(lamps);
  CHECK(IsOn(database, lamp) == 0);

  ZnHandle provider = NULL;
  CHECK_STATUS(ZN_OK, PrGetProviderByName(database, u"example", &provider));
  ZnHandle in = NULL;
  ZnHandle out = NULL;
  CHECK_STATUS(ZN_OK, PsCreatePropset(&in));
  CHECK_STATUS(ZN_OK, PsCreatePropset(&out));

  /* Calls: one that fits, and one wrong in each way. */
  const struct {
    const GUID* interfaceId;
    ObjectId object;
    u32 majorCode;
    u32 minorCode;
    u32 status;
  } calls[] = {
      {&kOtherInterface, lamp, 1, 1, ZNE_INTERFACE_NOT_FOUND},
      {&kSwitchInterface, {0, 0, 0, {0}}, 1, 1, ZNE_NOT_SUPPORTED_FOR_OBJECT},
      {&kSwitchInterface, lamp, 9, 1, ZNE_INVALID_MAJOR_CODE},
      {&kSwitchInterface, lamp, 1, 9, ZNE_INVALID_MINOR_CODE},
      {&kSwitchInterface, lamp, 1, 1, ZN_OK},
  };
  ObjectId answering;
  for (size_t i = 0; i < sizeof calls / sizeof calls[0]; ++i) {
    CHECK_STATUS(calls[i].status,
                 PrCallProvider(provider, calls[i].object, calls[i].interfaceId, calls[i].majorCode,
                                calls[i].minorCode, in, out, 0, 0, NULL, NULL, &answering, NULL));
    CHECK(IsOn(database, lamp) == (calls[i].status == ZN_OK));
  }
  /* The same through the object: the bus finds the provider by the interface of the type. */
  CHECK_STATUS(ZN_OK, PrCallDispatch(database, lamp, &kSwitchInterface, 1, 0, in, out, 0, 0, NULL,
                                     NULL, &answering, NULL));
  CHECK(IsOn(database, lamp) == 0);
  CHECK_STATUS(ZN_OK, PrCallDispatch(database, lamp, &kSwitchInterface, 1, 1, in, out, 0, 0, NULL,
                                     NULL, &answering, NULL));
  ObjectId providerId;
  CHECK_STATUS(ZN_OK, PrGetProviderId(provider, &providerId));
  CHECK(ObCompareId(answering, providerId));
  CHECK(IsOn(database, lamp) == 1);

  /* An event puts the lamps out, and the change is heard. */
  Awaited awaited = {database, lamp, false};
  ZnHandle wait = NULL;
  CHECK_STATUS(ZN_OK, EvCreateWaitEvent(database, LampWentOff, &awaited, &wait));
  CHECK_STATUS(ZN_OK, EvRaiseEvent(database, provider, "event.example.lamp.alloff", in));
  CHECK_STATUS(ZN_OK, EvWaitForEvent(database, wait, 10000));
  CHECK(awaited.seen);
  CHECK(IsOn(database, lamp) == 0);

  CHECK_STATUS(ZN_OK, PsDestroyPropset(in));
  CHECK_STATUS(ZN_OK, PsDestroyPropset(out));
  return 0;
}

int main(void) {
  ZnHandle database = NULL;
  CHECK_STATUS(ZN_OK, ZnInitialize(1, OnChange, OnEvent, &database));
  const int result = Run(database);
  ShutdownServer();
  if (result == 0) puts("client: the lamps did as they were told");
  return result;
}
