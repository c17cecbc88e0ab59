// Providers that need no library, by the names of their entry points. PlainEntry has no slots.
// ThreadlessEntry sees to it that the thread that loads it starts no other thread from then on.
#include <cerrno>

#include "tests/unit/support/refused_calls.h"
#include "zn/pr.h"

extern "C" {

ZN_API u32 PlainEntry(const ZnWChar* providerName, u32, ProviderCallbacks* callbacks);
ZN_API u32 ThreadlessEntry(const ZnWChar* providerName, u32, ProviderCallbacks* callbacks);

u32 PlainEntry(const ZnWChar*, u32, ProviderCallbacks* callbacks) {
  *callbacks = {};
  callbacks->Initialize = [](ZnHandle, ZnHandle, u32, u32) -> u32 { return 0; };
  callbacks->Shutdown = [](ZnHandle) -> u32 { return 0; };
  return 0;
}

u32 ThreadlessEntry(const ZnWChar* providerName, u32 reserved, ProviderCallbacks* callbacks) {
  if (!zn::test::RefuseCalls(zn::test::kThreadCalls, EAGAIN)) return 1;
  return PlainEntry(providerName, reserved, callbacks);
}

}  // extern "C"
