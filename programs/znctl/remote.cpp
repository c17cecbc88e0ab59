// Sessions with a server. A session registers a provider of its own on its copy, because the end of
// that provider is how the loss of the connection is told: at once, on a thread of the library.
#include "remote.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <vector>

#include "failure.h"
#include "inbox.h"
#include "terminal.h"
#include "text.h"
#include "zn/platform.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr u32 kStandardPort = 2148;
constexpr char kKeeperName[] = "znctl connection";

// Of the one session that is watched at a time.
std::atomic<bool> isWatched{false};

u32 OnEvent(const EventRecord*) {
  return ZN_OK;
}
// The copy's providers go with the connection, and with the session.
u32 OnShutdown(ZnHandle) {
  if (isWatched.exchange(false)) Inbox::Get().Push(ConnectionLost{});
  return ZN_OK;
}

// Up to the end of the first line.
std::string ReadFirstLine(int descriptor, const std::string& what) {
  std::string text;
  std::array<char, 256> part{};
  while (text.find('\n') == std::string::npos) {
    const ssize_t count = read(descriptor, part.data(), part.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      throw UsageError(
          fmt::format("{} cannot be read: {}", what, std::generic_category().message(errno)));
    }
    if (count == 0) break;
    text.append(part.data(), static_cast<size_t>(count));
  }
  text.resize(std::min(text.find('\n'), text.size()));
  if (!text.empty() && text.back() == '\r') text.pop_back();
  return text;
}

std::string AskForPassword(const RemoteTarget& target) {
  if (isatty(STDIN_FILENO) == 0) {
    throw UsageError("no terminal to ask for the password: --password-file or --password-fd");
  }
  WriteError(fmt::format("Password for {} on {}: ", Printable(target.user), target.Text()));
  char* text = nullptr;
  const u32 status = ZnGetPassword(&text);
  WriteError("\n");
  Inbox::Get().ThrowIfInterrupted();
  Check(status, "read the password");
  std::string password(text);
  std::memset(text, 0, password.size());
  ZnFree(text);
  return password;
}

std::string ObtainPassword(const RemoteTarget& target) {
  if (target.passwordDescriptor >= 0) {
    return ReadFirstLine(target.passwordDescriptor,
                         fmt::format("descriptor {}", target.passwordDescriptor));
  }
  if (target.passwordFile.empty()) return AskForPassword(target);
  const int file = open(target.passwordFile.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    throw UsageError(fmt::format("the password file {} cannot be read: {}",
                                 Printable(target.passwordFile),
                                 std::generic_category().message(errno)));
  }
  const std::string password = ReadFirstLine(file, target.passwordFile);
  close(file);
  return password;
}

struct HintRow {
  u32 status;
  const char* hint;
};
constexpr HintRow kHints[] = {
    {0xFFFFFFFFu, "no host of that name is known here"},
    {UCLE_SOCKET_ERROR, "nobody answers there: is znsvc running, and on that port?"},
    {UCLW_SOCKET_DISCONNECTED, "the server closed the connection, or did not answer in time"},
    {ZNE_ACCESS_DENIED, "user or password are wrong, or may not log on"},
    {ZNE_INVALID_ARGUMENTS, "the server wants a password: name a user with --user"},
    {ZNE_SERVER_NOT_READY, "the server is still starting"},
};

std::vector<std::string> Hints(u32 status, const RemoteTarget& target) {
  if (status == ZNE_ACCESS_DENIED && target.user.empty()) {
    return {"only processes of the server's own user log on without a password: use --user"};
  }
  for (const HintRow& row : kHints) {
    if (row.status == status) return {row.hint};
  }
  return {};
}

// "domain\name" in its two parts.
void SplitUser(const std::string& text, std::u16string* domain, std::u16string* user) {
  const size_t mark = text.find('\\');
  *domain = mark == std::string::npos ? u"" : ToUtf16(text.substr(0, mark));
  *user = ToUtf16(mark == std::string::npos ? text : text.substr(mark + 1));
}

}  // namespace

std::string RemoteTarget::Text() const {
  return fmt::format("{}:{}", Printable(host), port == 0 ? kStandardPort : port);
}

RemoteTarget ParseRemoteTarget(const std::string& text) {
  RemoteTarget target;
  const size_t colon = text.rfind(':');
  target.host = text.substr(0, std::min(colon, text.size()));
  if (target.host.empty()) target.host = "localhost";
  if (colon == std::string::npos) return target;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, target.port);
  if (error != std::errc() || stop != end || target.port == 0 || target.port > 65535) {
    throw UsageError(fmt::format("\"{}\" is no host[:port]", Printable(text)));
  }
  return target;
}

bool IsThisMachine(const std::string& host) {
  std::array<char, 256> own{};
  if (gethostname(own.data(), own.size() - 1) != 0) own[0] = '\0';
  return host == "localhost" || host.starts_with("127.") || host == own.data();
}

ClientSide::ClientSide() {
  Check(ClStartup(), "start the client side");
}
ClientSide::~ClientSide() {
  ClShutdown();
}

RemoteSession::RemoteSession(RemoteTarget* target) {
  Check(ClStartup(), "start the client side");
  try {
    Open(target);
    WatchConnection();
  } catch (...) {
    if (client_ != nullptr) ClDeleteDatabase(client_, database_.Handle());
    ClShutdown();
    throw;
  }
}

RemoteSession::~RemoteSession() {
  isWatched = false;
  ClDeleteDatabase(client_, database_.Handle());
  ClShutdown();
}

bool RemoteSession::IsLost() const {
  return !isWatched;
}

void RemoteSession::Open(RemoteTarget* target) {
  const bool isLocal = target->user.empty();
  if (isLocal && !IsThisMachine(target->host)) {
    throw UsageError(fmt::format("who logs on to {}? --user NAME", target->Text()));
  }
  if (!isLocal && !target->hasPassword) {
    target->password = ObtainPassword(*target);
    target->hasPassword = true;
  }
  const u32 flags = ZN_CONNECT_PING | (isLocal ? ZN_CONNECT_LOCAL_PORT : 0u);
  const ClConnectInfo connect{0,
                              target->port == 0 ? kStandardPort : target->port,
                              isLocal ? nullptr : target->host.c_str(),
                              flags,
                              0,
                              0};
  std::u16string domain;
  std::u16string user;
  SplitUser(target->user, &domain, &user);
  const std::u16string password = ToUtf16(target->password);
  const ClLogonInfo logon{user.c_str(), password.c_str(), domain.c_str(), u"", ZN_LOGON_PASSWORD};
  ZnHandle database = nullptr;
  const u32 status =
      ClCreateDatabaseEx(&connect, isLocal ? nullptr : &logon, &client_, &database, 0);
  if (status != ZN_OK) {
    client_ = nullptr;
    throw Failure(status, "cannot log on to " + target->Text(), Hints(status, *target));
  }
  database_ = Database(database);
}

void RemoteSession::WatchConnection() {
  ClRegisterInfo info{};
  const std::u16string name = ToUtf16(kKeeperName);
  info.name = name.c_str();
  info.callbacks.Event = OnEvent;
  info.callbacks.Shutdown = OnShutdown;
  ZnHandle provider = nullptr;
  isWatched = true;
  Check(ClRegisterClient(client_, 0, &info, &provider), "watch the connection");
}

}  // namespace zn::ctl
