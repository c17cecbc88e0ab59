// Logons by PAM under the service name "znsvc": authentication, then the account's own rules (an
// expired account, hours of the day). Groups are those of getgrouplist, the primary one among them;
// this host knows no difference between global and local ones. The right to load drivers is the
// superuser's. This host is one domain: no name, ".", or the host's own name; others are not
// served.
//
// libpam may be used by several threads as long as each has a handle of its own, so logons do not
// wait for each other, save that a few run at a time: each one occupies a thread and maybe another
// machine.
#include "service/common/logonhost.h"

#include <grp.h>
#include <pwd.h>
#include <security/pam_appl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/common/platform.h"
#include "support/common/sync.h"
#include "support/common/text.h"

namespace zn {

namespace {

constexpr const char* kPamService = "znsvc";
constexpr u32 kLogonsAtATime = 8;
// What a failed logon may be delayed at most, whatever the modules ask for.
constexpr std::chrono::microseconds kLongestDelay = std::chrono::seconds(5);

// --- Accounts ----------------------------------------------------------------------------------

struct Account {
  uid_t user = 0;
  gid_t group = 0;
};

// The record that `ask` (getpwnam_r, getgrnam_r) finds by that name, its numbers alone: what it
// points to ends with the call.
template <typename Record, typename Ask>
[[nodiscard]] bool FindByName(const std::string& name, Ask ask, Record* out) {
  std::vector<char> room(1024);
  Record* found = nullptr;
  int error = ERANGE;
  while (error == ERANGE) {
    room.resize(room.size() * 2);
    error = ask(name.c_str(), out, room.data(), room.size(), &found);
  }
  return error == 0 && found != nullptr;
}

[[nodiscard]] bool FindAccount(const std::string& name, Account* out) {
  passwd record{};
  if (!FindByName(name, getpwnam_r, &record)) return false;
  *out = {record.pw_uid, record.pw_gid};
  return true;
}

[[nodiscard]] bool FindGroup(const std::string& name, gid_t* out) {
  group record{};
  if (!FindByName(name, getgrnam_r, &record)) return false;
  *out = record.gr_gid;
  return true;
}

[[nodiscard]] std::vector<gid_t> GroupsOf(const std::string& user, gid_t primary) {
  int count = 32;
  std::vector<gid_t> groups(static_cast<size_t>(count));
  while (getgrouplist(user.c_str(), primary, groups.data(), &count) < 0) {
    groups.resize(std::max(static_cast<size_t>(count), groups.size() * 2));
    count = static_cast<int>(groups.size());
  }
  groups.resize(static_cast<size_t>(count));
  return groups;
}

[[nodiscard]] bool IsThisDomain(std::u16string_view domain) {
  if (domain.empty() || domain == u".") return true;
  return CompareNoCase(std::string_view(ToNarrow(domain)), GetHostName()) == 0;
}

// A name with a NUL in it would be cut where the host's calls see it.
[[nodiscard]] bool IsPlain(std::u16string_view text) noexcept {
  return text.find(u'\0') == std::u16string_view::npos;
}

// --- PAM ---------------------------------------------------------------------------------------

// What the modules are told and what they ask for.
struct Conversation {
  std::string user;
  std::string password;
  std::chrono::microseconds delay{0};

  ~Conversation() { explicit_bzero(password.data(), password.size()); }
};

[[nodiscard]] char* AnswerTo(int style, const Conversation& conversation) noexcept {
  if (style == PAM_PROMPT_ECHO_OFF) return strdup(conversation.password.c_str());
  if (style == PAM_PROMPT_ECHO_ON) return strdup(conversation.user.c_str());
  return nullptr;  // a message, which nobody is there to read
}

void FreeAnswers(pam_response* answers, int count) noexcept {
  for (int i = 0; i < count; ++i) {
    if (answers[i].resp == nullptr) continue;
    explicit_bzero(answers[i].resp, std::strlen(answers[i].resp));
    std::free(answers[i].resp);
  }
  std::free(answers);
}

extern "C" {

static int Converse(int count, const pam_message** messages, pam_response** out, void* data) {
  const auto& conversation = *static_cast<const Conversation*>(data);
  if (count <= 0 || count > PAM_MAX_NUM_MSG) return PAM_CONV_ERR;
  auto* answers =
      static_cast<pam_response*>(std::calloc(static_cast<size_t>(count), sizeof(pam_response)));
  if (answers == nullptr) return PAM_BUF_ERR;
  for (int i = 0; i < count; ++i) {
    const int style = messages[i]->msg_style;
    answers[i].resp = AnswerTo(style, conversation);
    const bool isAsked = style == PAM_PROMPT_ECHO_OFF || style == PAM_PROMPT_ECHO_ON;
    if (isAsked && answers[i].resp == nullptr) {
      FreeAnswers(answers, count);
      return PAM_BUF_ERR;
    }
  }
  *out = answers;
  return PAM_SUCCESS;
}

// Called by the library instead of sleeping: the logon sleeps where the service's stop can wake it,
// and with nothing held.
static void NoteDelay(int result, unsigned microseconds, void* data) {
  auto& conversation = *static_cast<Conversation*>(data);
  if (result != PAM_SUCCESS) conversation.delay = std::chrono::microseconds(microseconds);
}

}  // extern "C"

[[nodiscard]] bool Authenticate(Conversation& conversation, const std::string& peer) {
  const pam_conv conv = {Converse, &conversation};
  pam_handle_t* pam = nullptr;
  if (pam_start(kPamService, conversation.user.c_str(), &conv, &pam) != PAM_SUCCESS) return false;
  static_cast<void>(pam_set_item(pam, PAM_FAIL_DELAY, reinterpret_cast<const void*>(&NoteDelay)));
  static_cast<void>(pam_set_item(pam, PAM_RHOST, peer.c_str()));
  constexpr int kFlags = PAM_SILENT | PAM_DISALLOW_NULL_AUTHTOK;
  int result = pam_authenticate(pam, kFlags);
  if (result == PAM_SUCCESS) result = pam_acct_mgmt(pam, kFlags);
  // A module may have made another user of the name that was given; the lists are asked for that
  // one, and another must not pass in its place.
  const void* name = nullptr;
  const bool isSame = result == PAM_SUCCESS && pam_get_item(pam, PAM_USER, &name) == PAM_SUCCESS &&
                      name != nullptr && conversation.user == static_cast<const char*>(name);
  static_cast<void>(pam_end(pam, result));
  return isSame;
}

class PamLogonHost final : public LogonHost {
 public:
  [[nodiscard]] bool LogOn(const LogonAttempt& attempt) override {
    if (!IsThisDomain(attempt.domain) || !IsPlain(attempt.user) || !IsPlain(attempt.password)) {
      return false;
    }
    if (attempt.user.empty()) return false;
    Conversation conversation{ToNarrow(attempt.user), ToNarrow(attempt.password), {}};
    if (!Begin()) return false;
    const bool isGood = Authenticate(conversation, attempt.peer);
    End();
    if (!isGood) Delay(std::min(conversation.delay, kLongestDelay));
    return isGood;
  }

  [[nodiscard]] bool IsMember(GroupKind, std::u16string_view domain, std::u16string_view user,
                              std::u16string_view group) override {
    if (!IsThisDomain(domain) || !IsPlain(user) || !IsPlain(group)) return false;
    const std::string name = ToNarrow(user);
    Account account;
    gid_t wanted = 0;
    if (!FindAccount(name, &account) || !FindGroup(ToNarrow(group), &wanted)) return false;
    for (const gid_t id : GroupsOf(name, account.group)) {
      if (id == wanted) return true;
    }
    return false;
  }

  [[nodiscard]] bool MayLoadDrivers(std::u16string_view domain, std::u16string_view user) override {
    Account account;
    return IsThisDomain(domain) && IsPlain(user) && FindAccount(ToNarrow(user), &account) &&
           account.user == 0;
  }

  void EndDelays() override {
    const MutexLock lock(mutex_);
    ended_ = true;
    changed_.NotifyAll();
  }

 private:
  // False once the service stops.
  [[nodiscard]] bool Begin() {
    const MutexLock lock(mutex_);
    while (running_ >= kLogonsAtATime && !ended_) changed_.Wait(mutex_);
    if (ended_) return false;
    ++running_;
    return true;
  }
  void End() {
    const MutexLock lock(mutex_);
    --running_;
    changed_.NotifyAll();
  }
  void Delay(std::chrono::microseconds delay) {
    const auto until = std::chrono::steady_clock::now() + delay;
    const MutexLock lock(mutex_);
    while (!ended_ && std::chrono::steady_clock::now() < until) {
      static_cast<void>(changed_.WaitUntil(mutex_, until));
    }
  }

  Mutex mutex_;
  Condition changed_;
  u32 running_ ZN_GUARDED_BY(mutex_) = 0;
  bool ended_ ZN_GUARDED_BY(mutex_) = false;
};

}  // namespace

LogonHost& ThisLogonHost() {
  static PamLogonHost& host = *new PamLogonHost;
  return host;
}

}  // namespace zn
