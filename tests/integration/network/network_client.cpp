// A client as a process of its own, for tests that kill, stop and starve it. What happens to it
// goes to its standard output, one line with one write each, so that what a killed one had said
// counts:
//
//   C <time>             connected (in steps alone)
//   O <time>             logged on (in steps alone)
//   R <time>             logged on, and the ledger is here
//   A <number>           the server acknowledged the number
//   F <time> <status>    a call failed
//   L <time>             the loss of the server was told
//   X <text>             what must not happen
//
// Times are nanoseconds of the monotonic clock, which all processes of a machine share.
//
// Usage: network_client append PORT CLIENT COUNT EVERY PATIENCE
//          Appends numbers until COUNT of them were acknowledged (0: for ever), each number once,
//          whatever became of it; each EVERYth tells (0: none). After a failed call it waits up to
//          PATIENCE ms to be told of the loss, then makes another session and goes on.
//        network_client steps PORT CLIENT COUNT EVERY PATIENCE
//          The same, but connects and logs on by a call each, and tells of both.
//        network_client listen PORT
//          Logs on, and waits to be told of the loss.
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "tests/integration/network/ledger.h"
#include "zn/znmira.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace zn::test::ledger;

constexpr auto kReconnectPatience = std::chrono::seconds(60);
constexpr auto kReconnectPause = std::chrono::milliseconds(5);

long long Now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

__attribute__((format(printf, 1, 2))) void Say(const char* format, ...) {
  char line[160];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  static_cast<void>(write(STDOUT_FILENO, line, static_cast<size_t>(length)));
}

// The loss of the session that there is now; the end of one that this program ends itself is none.
std::mutex lossMutex;
std::condition_variable lossTold;
bool isEnding = false;
bool isLost = false;

u32 OnEnd(ZnHandle) {
  const std::lock_guard<std::mutex> lock(lossMutex);
  if (isEnding) return ZN_OK;
  isLost = true;
  Say("L %lld\n", Now());
  lossTold.notify_all();
  return ZN_OK;
}

u32 OnEvent(const EventRecord*) {
  return ZN_OK;
}

bool WaitForLoss(std::chrono::milliseconds most) {
  std::unique_lock<std::mutex> lock(lossMutex);
  return lossTold.wait_for(lock, most, [] { return isLost; });
}

class Session {
 public:
  Session() = default;
  ~Session() { End(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void TellSteps() { tellsSteps_ = true; }
  [[nodiscard]] bool IsOpen() const { return handle_ != nullptr; }
  // One try.
  bool Open(u32 port) {
    {
      const std::lock_guard<std::mutex> lock(lossMutex);
      isEnding = isLost = false;
    }
    const ClConnectInfo connect = {0, port, "127.0.0.1", 0, 0, 0};
    const ClLogonInfo logon = {u"root", u"toor", u"", u"", ZN_LOGON_PASSWORD};
    if (!(tellsSteps_ ? LogOnInSteps(connect, logon) : LogOn(connect, logon))) return false;
    if (Register() && FindLedger()) {
      Say("R %lld\n", Now());
      return true;
    }
    End();
    return false;
  }
  void End() {
    if (handle_ == nullptr) return;
    {
      const std::lock_guard<std::mutex> lock(lossMutex);
      isEnding = true;
    }
    if (ClDeleteDatabase(std::exchange(handle_, nullptr), database_) != ZN_OK) {
      Say("X the session cannot be deleted\n");
    }
  }
  u32 Append(u64 number, bool tells, u64* position) const {
    ZnHandle in = nullptr;
    ZnHandle out = nullptr;
    PsCreatePropset(&in);
    PsCreatePropset(&out);
    Put(in, "Number", number);
    if (tells) Put(in, "Tells", 1);
    ObjectId answeredBy;
    const u32 status = PrCallDispatch(database_, ledger_, &kInterface, kMajor, kAppend, in, out, 0,
                                      0, nullptr, nullptr, &answeredBy, nullptr);
    *position = Number(PsFindProperty, out, "Position");
    PsDestroyPropset(in);
    PsDestroyPropset(out);
    return status;
  }
  // What the copy holds.
  [[nodiscard]] u64 Count() const {
    const auto find = [this](ZnHandle database, const char* name, Property2** flat) {
      return ObGetProperty(database, ledger_, name, flat);
    };
    return Number(find, database_, "Count");
  }

 private:
  bool LogOn(const ClConnectInfo& connect, const ClLogonInfo& logon) {
    if (ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0) == ZN_OK) return true;
    handle_ = nullptr;
    return false;
  }
  bool LogOnInSteps(const ClConnectInfo& connect, const ClLogonInfo& logon) {
    if (ClCreateDatabase(&connect, &handle_, &database_) != ZN_OK) {
      handle_ = nullptr;
      return false;
    }
    Say("C %lld\n", Now());
    if (ClLogon(handle_, &logon) != ZN_OK) {
      End();
      return false;
    }
    Say("O %lld\n", Now());
    return true;
  }
  static void Put(ZnHandle set, const char* name, u64 value) {
    const Property2 flat = {const_cast<char*>(name), ZN_TYPE_UINT64, 0, sizeof value, &value};
    PsAddProperty(set, &flat);
  }
  // 0 where there is none.
  template <typename Find>
  static u64 Number(Find&& find, ZnHandle place, const char* name) {
    Property2* flat = nullptr;
    if (ZN_FAILED(find(place, name, &flat))) return 0;
    u64 number = 0;
    if (flat->Type == ZN_TYPE_UINT64) std::memcpy(&number, flat->Value, sizeof number);
    PsFreeProperty(flat);
    return number;
  }
  bool Register() {
    ClRegisterInfo self = {u"network_client", {}};
    self.callbacks.Event = OnEvent;
    self.callbacks.Shutdown = OnEnd;
    ZnHandle provider = nullptr;
    return !ZN_FAILED(ClRegisterClient(handle_, 0, &self, &provider));
  }
  bool FindLedger() {
    u32 count = 0;
    ObjectId* ids = nullptr;
    if (ZN_FAILED(DbGetObjects(database_, kType, &count, &ids))) return false;
    if (count == 1) ledger_ = ids[0];
    ZnFree(ids);
    return count == 1;
  }

  ClientHandle* handle_ = nullptr;
  ZnHandle database_ = nullptr;
  ObjectId ledger_{};
  bool tellsSteps_ = false;
};

bool Reconnect(Session& session, u32 port) {
  const auto end = Clock::now() + kReconnectPatience;
  while (!session.Open(port)) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(kReconnectPause);
  }
  return true;
}

struct Order {
  u32 port;
  u64 client;
  u64 count;
  u64 every;
  std::chrono::milliseconds patience;
  bool tellsSteps;
};

// An acknowledged number: it stands behind all that came before it, and if it told, the copy knows.
void Check(const Session& session, u64 position, u64* last, bool told) {
  if (position <= *last) Say("X position %lu behind %lu\n", position, *last);
  if (told && session.Count() < position) Say("X the answer came before its change\n");
  *last = position;
}

int Append(const Order& order) {
  Session session;
  if (order.tellsSteps) session.TellSteps();
  u64 acknowledged = 0;
  u64 last = 0;
  for (u64 i = 1; order.count == 0 || acknowledged < order.count; ++i) {
    if (!session.IsOpen()) {
      last = 0;  // another server counts anew
      if (!Reconnect(session, order.port)) return 3;
    }
    const u64 number = order.client << 32 | i;
    const bool tells = order.every != 0 && i % order.every == 0;
    u64 position = 0;
    const u32 status = session.Append(number, tells, &position);
    if (status == ZN_OK) {
      Say("A %lu\n", number);
      Check(session, position, &last, tells);
      ++acknowledged;
      continue;
    }
    Say("F %lld %08x\n", Now(), status);
    WaitForLoss(order.patience);
    session.End();
  }
  return 0;
}

int Listen(u32 port) {
  Session session;
  if (!Reconnect(session, port)) return 3;
  return WaitForLoss(std::chrono::hours(1)) ? 0 : 4;
}

}  // namespace

int main(int argc, char** argv) {
  const auto number = [&](int i) { return i < argc ? std::strtoull(argv[i], nullptr, 10) : 0; };
  const std::string_view mode = argc > 2 ? argv[1] : "";
  if (mode != "append" && mode != "steps" && mode != "listen") return 2;
  if (ZN_FAILED(ClStartup())) return 1;
  const u32 port = static_cast<u32>(number(2));
  const int code =
      mode == "listen"
          ? Listen(port)
          : Append({port, number(3), number(4), number(5),
                    std::chrono::milliseconds(static_cast<long>(number(6))), mode == "steps"});
  ClShutdown();
  return code;
}
