// The Cl* exports: handles, their states and the order of a logon. What a session does stands in
// clientsession.h, start and stop in clientstart.cpp. No lock is taken around a call: a session may
// block on its server.
#include <cstdio>
#include <memory>
#include <string>

#include "clientsvc/common/clienthandle.h"
#include "clientsvc/common/clientsession.h"
#include "clientsvc/common/csmanager.h"
#include "clientsvc/common/discovery.h"
#include "framework/common/zncore/clientcopy.h"
#include "framework/common/znwire/messages.h"
#include "support/common/block.h"
#include "support/common/helpers.h"
#include "support/common/memory_guard.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "support/common/trace.h"
#include "zn/client.h"
#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {

namespace {

[[nodiscard]] bool IsGoodOrNull(const void* pointer) noexcept {
  return pointer == nullptr || IsGoodPointer(pointer);
}

// Where a record leads; `isLocal` when it names no host.
struct Destination {
  SessionTarget target;
  bool isLocal = true;
  bool isPinged = false;
};

[[nodiscard]] u32 ReadDestination(const ClConnectInfo* connect, Destination* out) {
  if (connect == nullptr) return ZN_OK;
  if ((connect->flags & ZN_CONNECT_PING) != 0) ZN_RETURN_IF_FAILED(CSManagerStartup());
  if (connect->host == nullptr) {
    // Contract: a record without a host counts as none, after it has started the watch.
    if ((connect->flags & ZN_CONNECT_LOCAL_PORT) != 0) out->target.port = connect->port;
    return ZN_OK;
  }
  if (!IsGoodString(connect->host, kMaxNameLength)) return ZNE_INVALID_ARGUMENTS;
  out->isLocal = false;
  out->isPinged = (connect->flags & ZN_CONNECT_PING) != 0;
  out->target.host = connect->host;
  out->target.port = connect->port;
  return ZN_OK;
}

[[nodiscard]] u32 ReadCredentials(const ClLogonInfo* logon, Credentials* out) {
  if (!IsGoodPointer(logon)) return ZNE_INVALID_ARGUMENTS;
  const ZnWChar* const texts[] = {logon->user, logon->password, logon->domain, logon->system};
  for (const ZnWChar* text : texts) {
    if (!IsGoodString(text, kMaxTypeLength)) return ZNE_INVALID_ARGUMENTS;
  }
  out->user = logon->user;
  out->password = logon->password;
  out->domain = logon->domain;
  out->fourth = logon->system;
  return ZN_OK;
}

// A session that is not the caller's yet: it goes with this unless it is handed over.
class NewSession {
 public:
  NewSession() = default;
  ~NewSession() {
    if (session_ == nullptr) return;
    session_->Close();
    FreeClientHandle(handle_);
  }
  NewSession(const NewSession&) = delete;
  NewSession& operator=(const NewSession&) = delete;

  [[nodiscard]] u32 Open(const Destination& destination, u32 offer) {
    session_ = ClientSession::Open(destination.target, offer);
    handle_ = MakeClientHandle(session_.get());
    if (handle_ == nullptr) return ZNE_OUT_OF_MEMORY;
    ZN_RETURN_IF_FAILED(session_->LastError());
    if (session_->DatabaseHandle() == nullptr) {
      ZN_TRACE(3, "ClCreateDatabase: Invalid database");
      return ZNE_UNEXPECTED;
    }
    SetClientState(handle_, ZN_CLIENT_CONNECTED);
    return ZN_OK;
  }
  [[nodiscard]] ClientSession& Session() noexcept { return *session_; }
  [[nodiscard]] ClientHandle* Handle() const noexcept { return handle_; }

  // The entry of the watch, for a server that answers pings.
  [[nodiscard]] u32 WatchServer(const Destination& destination) {
    if (!destination.isPinged || session_->Options().pingToken == 0) return ZN_OK;
    ServerEntry entry;
    entry.session = session_.get();
    entry.token = session_->Options().pingToken;
    entry.lastResponse = ZnGetMiraTime();
    entry.address = session_->Address();
    entry.port = session_->Port();
    // The watch may have ended with another session since this one asked for it.
    const bool isAdded =
        CSManagerAddServer(entry) || (CSManagerStartup() == ZN_OK && CSManagerAddServer(entry));
    if (!isAdded) return ZNE_UNEXPECTED;
    session_->SetPinged();
    return ZN_OK;
  }
  [[nodiscard]] ClientHandle* HandOver(ZnHandle* database) {
    *database = session_->DatabaseHandle();
    session_->WatchConnection();
    session_.reset();
    return handle_;
  }

 private:
  std::shared_ptr<ClientSession> session_;
  ClientHandle* handle_ = nullptr;
};

// What the server wants to see, by what was agreed on.
[[nodiscard]] u32 ChooseCredentials(const ClientSession& session, const ClLogonInfo* logon,
                                    Credentials* out) {
  const u32 authentication = session.Options().authentication;
  if (authentication == wire::kAuthenticationPassword) return ReadCredentials(logon, out);
  if ((authentication & wire::kAuthenticationSharedMemory) != 0) {
    return session.ReadLocalCredentials(out);
  }
  // No host of ours is reached by component activation.
  return (authentication & wire::kAuthenticationToken) != 0 ? ZNE_NOT_IMPLEMENTED : ZN_OK;
}

// What held a password is overwritten before it goes back to the heap.
void Wipe(std::u16string& text) noexcept {
  volatile ZnWChar* at = text.data();
  for (size_t i = 0; i < text.size(); ++i) at[i] = 0;
}

[[nodiscard]] u32 LogOn(ClientHandle* handle, ClientSession& session, Credentials& credentials) {
  const u32 status = session.Logon(credentials);
  Wipe(credentials.password);
  Wipe(credentials.user);  // of a local logon it is the secret
  if (status == ZN_OK && !MarkLoggedOn(handle)) return ZNE_INVALID_ARGUMENTS;
  return status;
}

[[nodiscard]] u32 OfferOf(const Destination& destination, const ClLogonInfo* logon) noexcept {
  if (logon != nullptr) return wire::kAuthenticationPassword;
  return destination.isLocal ? wire::kAuthenticationSharedMemory : wire::kAuthenticationToken;
}

// Ends the session of a handle that was taken for closing.
void EndSession(const std::shared_ptr<ClientSession>& session) {
  if (session->IsPinged()) CSManagerRemoveServer(session.get());
  session->Close();
}

// The listed session of a good handle, or null.
[[nodiscard]] std::shared_ptr<ClientSession> ListedSession(const ClientHandle* handle) {
  return IsClientHandle(handle) ? SessionList::Instance().FindListed(ClientSessionOf(handle))
                                : nullptr;
}

}  // namespace

}  // namespace zn

extern "C" {

using namespace zn;

u32 ClCreateDatabaseEx(const ClConnectInfo* connect, const ClLogonInfo* logon,
                       ClientHandle** handle, ZnHandle* database, u32 reserved) {
  return GuardMemory([&]() -> u32 {
    if (!IsGoodOrNull(connect) || !IsGoodOrNull(logon) || !IsGoodPointer(handle) ||
        !IsGoodPointer(database) || reserved != 0) {
      return ZNE_INVALID_ARGUMENTS;
    }
    Destination destination;
    ZN_RETURN_IF_FAILED(ReadDestination(connect, &destination));
    NewSession made;
    ZN_RETURN_IF_FAILED(made.Open(destination, OfferOf(destination, logon)));
    Credentials credentials;
    ZN_RETURN_IF_FAILED(ChooseCredentials(made.Session(), logon, &credentials));
    // A warning is no logon either: nothing would work with the copy.
    const u32 status = LogOn(made.Handle(), made.Session(), credentials);
    if (status != ZN_OK) return status;
    ZN_RETURN_IF_FAILED(made.WatchServer(destination));
    *handle = made.HandOver(database);
    return ZN_OK;
  });
}

u32 ClCreateDatabase(const ClConnectInfo* connect, ClientHandle** handle, ZnHandle* database) {
  return GuardMemory([&]() -> u32 {
    if (!IsGoodOrNull(connect) || !IsGoodPointer(handle) || !IsGoodPointer(database)) {
      return ZNE_INVALID_ARGUMENTS;
    }
    *handle = nullptr;
    Destination destination;
    ZN_RETURN_IF_FAILED(ReadDestination(connect, &destination));
    NewSession made;
    const u32 offer =
        destination.isLocal ? wire::kAuthenticationSharedMemory : wire::kAuthenticationPassword;
    ZN_RETURN_IF_FAILED(made.Open(destination, offer));
    u32 outcome = ZN_OK;
    if (destination.isLocal) {
      outcome = ZNW_SHMEM_LOGIN_FAILED;  // a warning: the session waits for ClLogon
      if (made.Session().Options().authentication == wire::kAuthenticationSharedMemory) {
        Credentials credentials;
        outcome = made.Session().ReadLocalCredentials(&credentials);
        if (outcome == ZN_OK) outcome = LogOn(made.Handle(), made.Session(), credentials);
        if (outcome != ZN_OK) {
          static_cast<void>(std::puts("Logon failed"));
          return outcome;
        }
      }
    }
    ZN_RETURN_IF_FAILED(made.WatchServer(destination));
    *handle = made.HandOver(database);
    return outcome;
  });
}

u32 ClLogon(ClientHandle* handle, const ClLogonInfo* logon) {
  return GuardMemory([&]() -> u32 {
    if (!IsClientHandle(handle)) return ZNE_INVALID_ARGUMENTS;
    if (ClientState(handle) == ZN_CLIENT_LOGGED_ON) return ZN_OK;
    Credentials credentials;
    ZN_RETURN_IF_FAILED(ReadCredentials(logon, &credentials));
    const std::shared_ptr<ClientSession> session = ListedSession(handle);
    if (session == nullptr) return ZNE_INVALID_ARGUMENTS;
    return LogOn(handle, *session, credentials);
  });
}

u32 ClDisconnect(ClientHandle* handle, u32, u32) {
  return GuardMemory([&]() -> u32 {
    if (!TakeForClosing(handle)) return ZNE_INVALID_ARGUMENTS;
    const std::shared_ptr<ClientSession> session =
        SessionList::Instance().FindKnown(ClientSessionOf(handle));
    if (session == nullptr) return ZNE_INVALID_ARGUMENTS;
    EndSession(session);
    return ZN_OK;
  });
}

u32 ClDeleteDatabase(ClientHandle* handle, ZnHandle database) {
  return GuardMemory([&]() -> u32 {
    if (!IsGoodPointer(handle) || database == nullptr || !TakeForClosing(handle)) {
      return ZNE_INVALID_ARGUMENTS;
    }
    const std::shared_ptr<ClientSession> session =
        SessionList::Instance().FindKnown(ClientSessionOf(handle));
    if (session != nullptr) EndSession(session);
    FreeClientHandle(handle);
    return ZN_OK;
  });
}

u32 ClRegisterClient(ClientHandle* handle, u32, const ClRegisterInfo* info, ZnHandle* provider) {
  return GuardMemory([&]() -> u32 {
    if (!IsClientHandle(handle)) return ZNE_INVALID_ARGUMENTS;
    if (ClientState(handle) != ZN_CLIENT_LOGGED_ON) return ZNW_SHMEM_LOGIN_FAILED;
    const std::shared_ptr<ClientSession> session = ListedSession(handle);
    if (session == nullptr || !IsGoodPointer(info)) return ZNE_INVALID_ARGUMENTS;
    const u32 status = session->RegisterClient(info->name, info->callbacks, provider);
    if (status == ZN_OK && session->IsPinged()) {
      CSManagerActivate(session->Options().pingToken, reinterpret_cast<std::uintptr_t>(info->name));
    }
    return status;
  });
}

u32 ClUnregisterClient(u32, u32, u32) {
  return ZN_OK;
}

u32 ClEnumHosts(u32 flagMask, u32* count, ClHostInfo** hosts) {
  return GuardMemory([&]() -> u32 {
    if (!IsGoodPointer(count) || !IsGoodPointer(hosts)) return ZNE_INVALID_ARGUMENTS;
    const std::vector<ClHostInfo> found = MatchingHosts(flagMask);
    const auto bytes = static_cast<u32>(found.size() * sizeof(ClHostInfo));
    void* block = ZnAlloc(bytes);
    if (block == nullptr) return ZNE_OUT_OF_MEMORY;
    if (bytes != 0) std::memcpy(block, found.data(), bytes);
    *count = static_cast<u32>(found.size());
    *hosts = static_cast<ClHostInfo*>(block);
    return ZN_OK;
  });
}

u32 ClEnableHostDiscovery(u32 timeoutSeconds, u8 immediately) {
  static_cast<void>(GuardMemory([&]() -> u32 {
    EnableDiscovery(timeoutSeconds, immediately != 0);
    return ZN_OK;
  }));
  return ZN_OK;  // Contract: tells the caller nothing
}

u32 ClDisableHostDiscovery(void) {
  DisableDiscovery();
  return ZN_OK;
}

u32 ClDownloadFile(ClientHandle* handle, const ZnWChar* name, const ZnWChar* localPath) {
  return GuardMemory([&]() -> u32 {
    const std::shared_ptr<ClientSession> session = ListedSession(handle);
    if (session == nullptr || !IsGoodString(name, kMaxTypeLength) ||
        !IsGoodString(localPath, kMaxTypeLength)) {
      return ZNE_INVALID_ARGUMENTS;
    }
    return session->DownloadFile(name, ToNarrow(localPath));
  });
}

u32 ClMakeFormattedString(ClientHandle* handle, const I18nFormatString* formatted, ZnWChar** out) {
  return GuardMemory([&]() -> u32 {
    const std::shared_ptr<ClientSession> session = ListedSession(handle);
    if (session == nullptr || !IsGoodPointer(formatted) || !IsGoodPointer(out)) {
      return ZNE_INVALID_ARGUMENTS;
    }
    std::u16string text;
    bool isMade = false;
    const u32 status = session->MakeFormattedString(*formatted, &text, &isMade);
    if (!isMade) return status;
    ZnWChar* block = TextToBlock(text);
    if (block == nullptr) return ZNE_OUT_OF_MEMORY;
    *out = block;
    return status;
  });
}

}  // extern "C"
