/* A client in one page: connects to a server, reads an object, listens to its changes, calls it.
 * The server has the example provider with its lamps. docs/client.md tells it step by step.
 * Usage: lamp HOST PORT USER, with the password in the environment variable LAMP_PASSWORD.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zn/znmira.h>

static const GUID kSwitchInterface = {
    0x6F0C2A9B, 0x51C4, 0x4D0E, {0x9A, 0x37, 0x2B, 0x8E, 0x1D, 0x7C, 0x40, 0xF5}};

static int Fail(const char* what, u32 status) {
  fprintf(stderr, "%s: 0x%08x %s\n", what, status, ZnSysGetErrorString(0, status));
  return 1;
}

/* Wide text of the library is UTF-16; this is enough for ASCII. */
static const ZnWChar* Wide(const char* text, ZnWChar* out, size_t units) {
  size_t i = 0;
  for (; text[i] != '\0' && i + 1 < units; ++i) out[i] = (ZnWChar)text[i];
  out[i] = 0;
  return out;
}

static u32 Connect(const char* host, u32 port, const char* user, const char* password,
                   ClientHandle** client, ZnHandle* database) {
  ZnWChar userText[64], passwordText[64];
  const ZnWChar empty[] = {0};
  const ClConnectInfo where = {0, port, host, 0, 0, 0};
  const ClLogonInfo who = {Wide(user, userText, 64), Wide(password, passwordText, 64), empty, empty,
                           ZN_LOGON_PASSWORD};
  return ClCreateDatabaseEx(&where, &who, client, database, 0);
}

static u32 ReadLamp(ZnHandle database, ObjectId lamp, bool* on) {
  Property2* property = NULL;
  const u32 status = ObGetProperty(database, lamp, "On", &property);
  if (ZN_FAILED(status)) return status;
  *on = *(const u8*)property->Value != 0;
  PsFreeProperty(property);
  return ZN_OK;
}

static u32 OnEvent(const EventRecord* event) {
  printf("heard %s\n", event->topic);
  return ZN_OK;
}

static u32 Listen(ClientHandle* client, ZnHandle database) {
  const ZnWChar name[] = {'l', 'a', 'm', 'p', 0};
  ClRegisterInfo self = {name, {0}};
  self.callbacks.Event = OnEvent;
  ZnHandle provider = NULL, registration = NULL;
  const u32 status = ClRegisterClient(client, 0, &self, &provider);
  if (ZN_FAILED(status)) return status;
  return EvRegisterEvent(database, provider, "event.keld.dom.object.EXAMPLE_Lamp", &registration);
}

static u32 Switch(ZnHandle database, ObjectId lamp, bool on) {
  ZnHandle in = NULL, out = NULL;
  ObjectId answeredBy;
  u32 status = PsCreatePropset(&in);
  if (!ZN_FAILED(status)) status = PsCreatePropset(&out);
  if (!ZN_FAILED(status)) {
    status = PrCallDispatch(database, lamp, &kSwitchInterface, 1, on ? 1 : 0, in, out, 0, 0, NULL,
                            NULL, &answeredBy, NULL);
  }
  PsDestroyPropset(in);
  PsDestroyPropset(out);
  return status;
}

static int UseLamp(ClientHandle* client, ZnHandle database) {
  u32 count = 0;
  ObjectId* lamps = NULL;
  bool on = false;
  u32 status = DbGetObjects(database, "EXAMPLE_Lamp", &count, &lamps);
  if (ZN_FAILED(status) || count == 0) return Fail("no lamps", status);
  const ObjectId lamp = lamps[0];
  ZnFree(lamps);
  if (ZN_FAILED(status = Listen(client, database))) return Fail("listen", status);
  if (ZN_FAILED(status = Switch(database, lamp, true))) return Fail("switch", status);
  if (ZN_FAILED(status = ReadLamp(database, lamp, &on))) return Fail("read", status);
  printf("the lamp is %s\n", on ? "on" : "off");
  return on ? 0 : 1;
}

int main(int argc, char** argv) {
  const char* password = getenv("LAMP_PASSWORD");
  if (argc != 4 || password == NULL) return 2;
  ClientHandle* client = NULL;
  ZnHandle database = NULL;
  if (ZN_FAILED(ClStartup())) return 1;
  const u32 status = Connect(argv[1], (u32)atoi(argv[2]), argv[3], password, &client, &database);
  if (status != ZN_OK) return Fail("connect", status);
  const int code = UseLamp(client, database);
  ClDeleteDatabase(client, database);
  ClShutdown();
  return code;
}
