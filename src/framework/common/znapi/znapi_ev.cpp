// The Ev* exports, and the two of alerts that are events: checks in argument order, then one call
// of the event classes.
#include <cstring>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/provider.h"
#include "zn/alert.h"
#include "zn/ev.h"
#include "zn/memory.h"

namespace zn {

namespace {

bool IsGoodTopic(const char* topic) noexcept {
  return IsGoodString(topic, kMaxTypeLength);
}

// The texts behind the pointers to them, in one block; null when memory is short.
char** TokensToBlock(const TopicTokens& tokens) noexcept {
  size_t room = 0;
  for (const std::string_view token : tokens) room += sizeof(char*) + token.size() + 1;
  auto** block = static_cast<char**>(ZnAlloc(static_cast<u32>(room)));
  if (block == nullptr) return nullptr;
  char* text = reinterpret_cast<char*>(block + tokens.Count());
  for (size_t i = 0; i < tokens.Count(); ++i) {
    block[i] = text;
    if (!tokens[i].empty()) std::memcpy(text, tokens[i].data(), tokens[i].size());
    text[tokens[i].size()] = '\0';
    text += tokens[i].size() + 1;
  }
  return block;
}

u32 SplitToBlock(std::string_view topic, char*** out, u32* count) {
  const TopicTokens tokens(topic);
  for (const std::string_view token : tokens) {
    if (!IsPatternToken(token)) return ZNE_EVENT_STRING_INVALID;
  }
  char** block = TokensToBlock(tokens);
  if (block == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = block;
  *count = static_cast<u32>(tokens.Count());
  return ZN_OK;
}

struct Registration {
  ZnHandle hDb;
  ZnHandle hProvider;
  const char* topic;
  ZnHandle* out;
};

u32 RegisterEvent(const ApiFrame& frame, const Registration& wanted) {
  ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(wanted.hDb)));
  ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(wanted.hProvider)));
  ZN_RETURN_IF_FAILED(frame.Check(IsGoodTopic(wanted.topic)));
  ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(wanted.out)));
  Database* database = nullptr;
  ZN_RETURN_UNLESS_OK(frame.OpenDatabase(wanted.hDb, &database));
  if (*wanted.topic == '\0') return ZNE_INVALID_ARGUMENTS;
  ZnHandle handle = nullptr;
  const u32 status =
      database->Events().Add(*HandleThing<Provider>(wanted.hProvider), wanted.topic, &handle);
  *wanted.out = handle;
  return status;
}

u32 UnregisterEvent(const ApiFrame& frame, ZnHandle hDb, ZnHandle registration) {
  ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
  Database* database = nullptr;
  ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
  return database->Events().Remove(registration);
}

}  // namespace

}  // namespace zn

using namespace zn;  // NOLINT(google-build-using-namespace): the exports stand in the global
                     // namespace

extern "C" {

// The status is seen in the exit trace alone, and no authorisation is asked: only the types of the
// database are looked at.
bool EvMatch(ZnHandle hDb, const char* topic, const char* pattern) {
  bool matches = false;
  static_cast<void>(ApiCall("EvMatch", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodTopic(topic)));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodTopic(pattern)));
    Database* database = hDb == nullptr ? ZnGetSystemDatabase() : HandleThing<Database>(hDb);
    matches = MatchTopic(database, topic, pattern);
    return ZN_OK;
  }));
  return matches;
}

u32 EvTokens(const char* topic, char*** tokens, u32* count) {
  return ApiCall("EvTokens", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodTopic(topic)));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(tokens)));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(count)));
    return SplitToBlock(topic, tokens, count);
  });
}

u32 EvRegisterEvent(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle* registration) {
  return ApiCall("EvRegisterEvent", [&](ApiFrame& frame) -> u32 {
    return RegisterEvent(frame, {hDb, hProvider, topic, registration});
  });
}

u32 EvUnregisterEvent(ZnHandle hDb, ZnHandle registration) {
  return ApiCall("EvUnregisterEvent",
                 [&](ApiFrame& frame) -> u32 { return UnregisterEvent(frame, hDb, registration); });
}

// Alerts are events, and these are the same two calls under other names.
u32 ObRegisterAlert(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle* registration) {
  return ApiCall("ObRegisterAlert", [&](ApiFrame& frame) -> u32 {
    return RegisterEvent(frame, {hDb, hProvider, topic, registration});
  });
}

u32 ObUnregisterAlert(ZnHandle hDb, ZnHandle registration) {
  return ApiCall("ObUnregisterAlert",
                 [&](ApiFrame& frame) -> u32 { return UnregisterEvent(frame, hDb, registration); });
}

u32 EvCreateWaitEvent(ZnHandle hDb, bool (*predicate)(const EventRecord*, void*), void* context,
                      ZnHandle* waitHandle) {
  return ApiCall("EvCreateWaitEvent", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(reinterpret_cast<const void*>(predicate))));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodPointer(waitHandle)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return CreateWaitEvent(*database, predicate, context, waitHandle);
  });
}

u32 EvWaitForEvent(ZnHandle hDb, ZnHandle waitHandle, u32 timeoutMs) {
  return ApiCall("EvWaitForEvent", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    ZN_RETURN_IF_FAILED(frame.Check(IsValidHandle(waitHandle, HANDLE_EVENT)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return WaitForEvent(*database, waitHandle, timeoutMs);
  });
}

u32 EvRaiseEvent(ZnHandle hDb, ZnHandle hProvider, const char* topic, ZnHandle hPropset) {
  return ApiCall("EvRaiseEvent", [&](ApiFrame& frame) -> u32 {
    ZN_RETURN_IF_FAILED(frame.Check(IsDatabaseHandle(hDb)));
    ZN_RETURN_IF_FAILED(frame.Check(IsProviderHandle(hProvider)));
    ZN_RETURN_IF_FAILED(frame.Check(IsGoodTopic(topic)));
    ZN_RETURN_IF_FAILED(frame.Check(IsPropsetHandle(hPropset)));
    Database* database = nullptr;
    ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
    return RaiseEvent(*database, hProvider, topic, *HandleThing<PropertySet>(hPropset),
                      kRaiseFlags);
  });
}

}  // extern "C"
