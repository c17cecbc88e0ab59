// What a server is made of, and the gate that the end of its start opens.
#include "service/common/server.h"

#include "framework/common/znpropset/propertyname.h"
#include "framework/common/znwire/messages.h"

namespace zn {

namespace {

// A stranger's message may make no new names, so those that its messages are read by must be there.
void KnowNamesOfStrangers() {
  for (const std::string_view name :
       {wire::kMessageKey, wire::kDataKey, wire::kVersionKey, wire::kEncryptionKey,
        wire::kEncryptionKeyIndexKey, wire::kCompressionKey, wire::kAuthenticationKey,
        wire::kLengthKey, wire::kAuthenticationTypeKey}) {
    static_cast<void>(PropertyName::Intern(name));
  }
}

}  // namespace

ServerObject::ServerObject(Transport& theTransport, LogonHost& theHost)
    : transport(theTransport), host(theHost), sender(clients, serviceIds, transport, traces) {
  KnowNamesOfStrangers();
}

void ReadyGate::Open() {
  const MutexLock lock(mutex_);
  open_ = true;
  changed_.NotifyAll();
}

void ReadyGate::End() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.NotifyAll();
}

bool ReadyGate::Wait() {
  const MutexLock lock(mutex_);
  while (!open_ && !ended_) changed_.Wait(mutex_);
  return open_ && !ended_;
}

}  // namespace zn
