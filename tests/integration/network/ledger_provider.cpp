// The provider of these tests: what a call noted stands in a file before the call returns, so that
// it outlives a killed server, and can be compared with what the callers were told. Gates (FIFOs
// that the environment names) hold its loading and one of its calls until the test lets them go.
#include "tests/integration/network/ledger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "zn/znmira.h"

namespace {

using namespace zn::test::ledger;

ZnHandle bus;
ZnHandle self;
ObjectId book;
std::mutex mutex;
int file = -1;
u64 position = 0;
u64 tellings = 0;

Property2 Flat(const char* name, u32 type, const void* value, size_t size) {
  return {const_cast<char*>(name), type, 0, static_cast<u32>(size), const_cast<void*>(value)};
}

u64 NumberIn(ZnHandle set, const char* name) {
  Property2* flat = nullptr;
  if (ZN_FAILED(PsFindProperty(set, name, &flat))) return 0;
  u64 number = 0;
  if (flat->Type == ZN_TYPE_UINT64) std::memcpy(&number, flat->Value, sizeof number);
  PsFreeProperty(flat);
  return number;
}

void WaitAtGate(const char* variable) {
  const char* gate = std::getenv(variable);
  if (gate == nullptr) return;
  const std::string waits = std::string(gate) + kWaitsSuffix;
  close(open(waits.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  const int fd = open(gate, O_RDONLY | O_CLOEXEC);
  char byte = 0;
  static_cast<void>(read(fd, &byte, 1));
  close(fd);
}

u32 MakeType(const char* name, const std::vector<Property2>& defaults) {
  ZnHandle set = nullptr;
  u32 status = PsCreatePropset(&set);
  for (const Property2& flat : defaults) {
    if (!ZN_FAILED(status)) status = PsAddProperty(set, &flat);
  }
  ObjectId id;
  if (!ZN_FAILED(status)) status = ObCreateTypeObject(bus, name, nullptr, set, &id);
  PsDestroyPropset(set);
  return status;
}

u32 Initialize(ZnHandle database, ZnHandle provider, u32, u32) {
  bus = database;
  self = provider;
  const char* path = std::getenv(kFileVariable);
  if (path != nullptr) file = open(path, O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
  WaitAtGate(kLoadGateVariable);
  const u64 count = 0;
  const u8 text[1] = {0};
  u32 status = MakeType(kLeafType, {});
  if (!ZN_FAILED(status)) {
    status = MakeType(kType, {Flat("Count", ZN_TYPE_UINT64, &count, sizeof count),
                              Flat("Text", ZN_TYPE_BINARY, text, sizeof text)});
  }
  if (!ZN_FAILED(status)) status = ObRegisterInterfaceOnType(bus, kType, self, &kInterface);
  return ZN_FAILED(status) ? status : ObCreateObject(bus, self, kType, &book);
}

// One writer at a time, so that the positions and the object's "Count" rise.
u32 Append(ZnHandle in, ZnHandle out) {
  const u64 number = NumberIn(in, "Number");
  const std::lock_guard<std::mutex> lock(mutex);
  if (write(file, &number, sizeof number) != sizeof number) return ZNE_UNEXPECTED;
  ++position;
  const Property2 answer = Flat("Position", ZN_TYPE_UINT64, &position, sizeof position);
  const u32 status = PsAddProperty(out, &answer);
  if (ZN_FAILED(status) || NumberIn(in, "Tells") == 0) return status;
  const Property2 count = Flat("Count", ZN_TYPE_UINT64, &position, sizeof position);
  return ObSetProperty(bus, book, &count);
}

u32 Tell(ZnHandle in) {
  const std::lock_guard<std::mutex> lock(mutex);
  std::vector<u8> bytes(NumberIn(in, "Size"));
  if (bytes.size() < 16) return ZNE_INVALID_ARGUMENTS;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const i64 stamp = i64{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  ++tellings;
  std::memcpy(bytes.data(), &stamp, sizeof stamp);
  std::memcpy(bytes.data() + 8, &tellings, sizeof tellings);
  const Property2 text = Flat("Text", ZN_TYPE_BINARY, bytes.data(), bytes.size());
  return ObSetProperty(bus, book, &text);
}

u32 Make(u64 count) {
  ObjectId id;
  u32 status = ZN_OK;
  for (u64 i = 0; i < count && !ZN_FAILED(status); ++i) {
    status = ObCreateObject(bus, self, kLeafType, &id);
  }
  return status;
}

u32 Call(ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32, u32, void*,
         TaskCallback, const GUID* interfaceId, const ObjectId*, ZnHandle*) {
  if (!ZnCompareGuid(interfaceId, &kInterface)) return ZNE_INTERFACE_NOT_FOUND;
  if (!ObIsA(bus, id, kType)) return ZNE_NOT_SUPPORTED_FOR_OBJECT;
  if (majorCode != kMajor) return ZNE_INVALID_MAJOR_CODE;
  switch (minorCode) {
    case kAppend:
      return Append(in, out);
    case kNothing:
      return ZN_OK;
    case kTell:
      return Tell(in);
    case kHold:
      WaitAtGate(kHoldGateVariable);
      return ZN_OK;
    case kMake:
      return Make(NumberIn(in, "Count"));
    default:
      return ZNE_INVALID_MINOR_CODE;
  }
}

u32 Event(const EventRecord*) {
  return ZN_OK;
}

u32 Shutdown(ZnHandle) {
  if (file >= 0) close(file);
  file = -1;
  return ZN_OK;
}

}  // namespace

extern "C" ZN_API u32 ProviderEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks);
extern "C" ZN_API u32 ProviderEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks) {
  *callbacks = {Call, Initialize, Shutdown, nullptr, Event, nullptr};
  return ZN_OK;
}
