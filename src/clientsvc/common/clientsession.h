// One session with one server: a connection, the options agreed on, and a client copy in which the
// application's calls land. It forwards the copy's requests and turns what the server pushes into
// changes and events of the copy. It never connects anew: once lost it stays lost, until the
// application deletes it.
//
// Life. The list of sessions (below) owns each by a counted reference until the application closes
// it; whoever uses one holds a reference. The communication layer knows a session by a ticket, the
// copy by its address: a copy goes before its session, and waits for the requests under way.
//
// Threads. Any thread sends; answers and pushes come on the threads of the communication layer and
// on those that wait in a request. clientsession.cpp: life, requests, pushes.
// clientsession_logon.cpp: negotiation and logon. clientsession_files.cpp: files and catalogs.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/zni18n/localize.h"
#include "support/common/sync.h"
#include "ucl/common/credentials.h"
#include "zn/types.h"

namespace zn {

// What both ends agreed on.
struct SessionOptions {
  u32 version = 0;
  u32 encryption = 0;
  u32 encryptionKeyIndex = 0;
  u32 compression = 0;
  u32 authentication = 0;
  u32 pingToken = 0;   // 0: the server does not answer pings
  u32 shMemIndex = 0;  // with shared memory only
};

struct SessionTarget {
  std::string host = "localhost";
  u32 port = 0;  // 0: the standard port
};

// Applies what a server pushed to a copy. Statuses of DbUpdateCache and RaiseServerEvent;
// ZNE_INVALID_ARGUMENTS without bytes, ZNE_UNEXPECTED for bytes that are no set,
// ZNE_PROPERTY_NOT_FOUND without a number, 0 for a number that means nothing here.
[[nodiscard]] u32 ApplyPush(ZnHandle database, const void* data, u32 length);

class ClientSession : public std::enable_shared_from_this<ClientSession> {
 public:
  // Connects and negotiates with that offer of authentication, and enters the list of sessions. The
  // outcome is LastError; a session that failed is closed by the caller like any other.
  [[nodiscard]] static std::shared_ptr<ClientSession> Open(const SessionTarget& target,
                                                           u32 offeredAuthentication);
  ~ClientSession();
  ClientSession(const ClientSession&) = delete;
  ClientSession& operator=(const ClientSession&) = delete;

  [[nodiscard]] u32 LastError() const noexcept { return lastError_.load(); }
  // Null once it has gone.
  [[nodiscard]] ZnHandle DatabaseHandle() const noexcept;
  [[nodiscard]] const SessionOptions& Options() const noexcept { return options_; }
  [[nodiscard]] u32 Address() const noexcept { return address_; }
  [[nodiscard]] u32 Port() const noexcept { return port_; }
  [[nodiscard]] bool IsLost() const noexcept { return (flags_.load() & kLost) != 0; }
  [[nodiscard]] bool IsPinged() const noexcept { return pingEnabled_.load(); }
  void SetPinged() noexcept { pingEnabled_.store(true); }

  // Logs on with the four texts; what the server answers. 0 alone is a logon: a warning is none.
  [[nodiscard]] u32 Logon(const Credentials& credentials);
  // The GUID text that the server left for this session in shared memory. ZNE_ACCESS_DENIED when
  // the area cannot be opened.
  [[nodiscard]] u32 ReadLocalCredentials(Credentials* out) const;
  // From now on the loss of the connection is told.
  void WatchConnection() noexcept;
  [[nodiscard]] u32 RegisterClient(const ZnWChar* name, const ProviderCallbacks& callbacks,
                                   ZnHandle* provider);

  // Requests of the copy. ZNE_INVALID_ARGUMENTS once the session is lost.
  [[nodiscard]] u32 ForwardRequest(PropertySet& request, PropertySet* response);
  [[nodiscard]] u32 ForwardProviderCall(PropertySet& request, ObjectId* provider, ObjectId* task,
                                        PropertySet* response);
  [[nodiscard]] u32 FetchMessage(const MessageRequest& request, std::u16string* text);

  [[nodiscard]] u32 DownloadFile(std::u16string_view name, const std::string& localPath);
  // `*isMade` tells whether there is a text: also with the failure of an insertion.
  [[nodiscard]] u32 MakeFormattedString(const I18nFormatString& formatted, std::u16string* out,
                                        bool* isMade);

  // One frame that the server pushed.
  [[nodiscard]] u32 OnServerData(const void* data, u32 length);
  // The connection is gone, or the pings have stopped. Once; later calls do nothing.
  void OnConnectionLost() noexcept;
  // Ends the connection only, so that whoever waits for the server stops waiting.
  void StopConnection() const noexcept;
  // Ends connection and copy, and leaves the list. Any number of times.
  void Close() noexcept;

 private:
  static constexpr u32 kReady = 1;  // logged on; pushes are taken
  static constexpr u32 kClosing = 4;
  static constexpr u32 kLost = 8;

  class Deadline;
  class LogonTurn;

  ClientSession() = default;
  void Start(const SessionTarget& target, u32 offeredAuthentication);
  [[nodiscard]] u32 Connect(const SessionTarget& target);
  [[nodiscard]] u32 Negotiate(u32 offeredAuthentication);
  [[nodiscard]] u32 ReadOptions(const PropertySet& answer);
  [[nodiscard]] u32 FetchChallenge();
  [[nodiscard]] u32 SendCredentials(const Credentials& credentials, PropertySet* answer);
  [[nodiscard]] u32 FinishLogon();

  // Sends the bytes and waits for the answer's. ZNE_UNEXPECTED for an answer without bytes.
  [[nodiscard]] u32 SendBytes(const void* data, u32 length, PropertySet* answer);
  [[nodiscard]] u32 SendSet(const PropertySet& request, PropertySet* answer);
  // The same under the deadline of a logon's answer.
  [[nodiscard]] u32 SendGuarded(const PropertySet& request, PropertySet* answer);

  // The bytes of a file of the server; they lie in the answer.
  [[nodiscard]] u32 FetchFile(std::u16string_view name, PropertySet* answer,
                              std::string_view* bytes);
  [[nodiscard]] u32 FindCatalog(const GUID& id, std::u16string* serverFile);
  [[nodiscard]] u32 LoadCatalog(const std::string& idText, u32 platform, u32 locale,
                                const std::string& skin, const std::u16string& serverFile,
                                std::string* localFile);
  [[nodiscard]] u32 LookUpMessage(const std::string& catalog, u32 message,
                                  std::string_view defaultText, std::u16string* out);
  friend class CatalogInsertions;

  u64 ticket_ = 0;
  u32 client_ = 0;
  u32 address_ = 0;
  u32 connectionId_ = 0;
  u32 port_ = 0;
  ZnHandle database_ = nullptr;
  SessionOptions options_;  // after the negotiation changed by a logon alone
  std::string challenge_;   // of the logon that runs
  std::atomic<u32> flags_{0};
  std::atomic<u32> lastError_{0};
  std::atomic<bool> pingEnabled_{false};
  std::atomic<bool> lossTold_{false};
  std::atomic<bool> closed_{false};
  Mutex mutex_;
  Condition logonDone_;
  bool logonRuns_ ZN_GUARDED_BY(mutex_) = false;
  // Local files of catalogs that have been opened, by name.
  std::map<std::string, std::string> catalogs_ ZN_GUARDED_BY(mutex_);
};

// The sessions of the process. A session is listed until it is lost or closed, and known until it
// is closed.
class SessionList {
 public:
  [[nodiscard]] static SessionList& Instance() noexcept;

  // Gives the session the ticket by which callbacks find it.
  [[nodiscard]] u64 Enter(const std::shared_ptr<ClientSession>& session);
  void List(u64 ticket);
  void Unlist(const ClientSession* session) noexcept;
  void Remove(const ClientSession* session) noexcept;

  [[nodiscard]] std::shared_ptr<ClientSession> Find(u64 ticket);
  // By the address that a handle holds: not looked at unless it is that of a session.
  [[nodiscard]] std::shared_ptr<ClientSession> FindListed(const void* session);
  [[nodiscard]] std::shared_ptr<ClientSession> FindKnown(const void* session);
  [[nodiscard]] std::vector<std::shared_ptr<ClientSession>> All();

 private:
  struct Entry {
    u64 ticket;
    std::shared_ptr<ClientSession> session;
    bool isListed;
  };
  [[nodiscard]] std::shared_ptr<ClientSession> FindEntry(const void* session, bool mustBeListed);

  Mutex mutex_;
  u64 lastTicket_ ZN_GUARDED_BY(mutex_) = 0;
  std::vector<Entry> entries_ ZN_GUARDED_BY(mutex_);
};

}  // namespace zn
