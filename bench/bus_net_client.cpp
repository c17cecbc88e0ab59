// The clients' side: processes that are started, sessions, and the process that only reads.
#include "bench/bus_net.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "framework/common/znwire/nestedset.h"
#include "ucl/common/cipher.h"
#include "ucl/common/credentials.h"
#include "ucl/common/frame.h"

namespace zn::bench {

// --- What the processes share ------------------------------------------------------------------

namespace {

constexpr const char* kSharedVariable = "ZNBENCH_SHARED";

Counters* MapCounters(int fd) {
  void* room = mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (room == MAP_FAILED) Fail("mmap");
  return static_cast<Counters*>(room);
}

Counters* OpenCounters() {
  if (const char* number = std::getenv(kSharedVariable)) return MapCounters(std::atoi(number));
  const int fd = memfd_create("znbench", 0);  // inherited by the processes that are started
  if (fd < 0 || ftruncate(fd, sizeof(Counters)) != 0) Fail("memfd_create");
  setenv(kSharedVariable, std::to_string(fd).c_str(), 1);
  Counters* counters = new (MapCounters(fd)) Counters;
  sem_init(&counters->heard, 1, 0);
  return counters;
}

}  // namespace

Counters& Shared() {
  static Counters& counters = *OpenCounters();
  return counters;
}

u64 Nanoseconds() {
  return static_cast<u64>(Clock::now().time_since_epoch().count());
}

// --- Processes ---------------------------------------------------------------------------------

Process::Process(std::vector<std::string> arguments) {
  Shared();
  int down[2];
  int up[2];
  if (pipe2(down, O_CLOEXEC) != 0 || pipe2(up, O_CLOEXEC) != 0) Fail("pipe");
  arguments.insert(arguments.begin(), "znbench_bus");
  arguments.push_back("--seconds");
  arguments.push_back(std::to_string(seconds));
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(down[0], STDIN_FILENO);
    dup2(up[1], STDOUT_FILENO);
    Pin(0);
    execv("/proc/self/exe", words.data());
    _exit(127);
  }
  close(down[0]);
  close(up[1]);
  ask_ = down[1];
  tell_ = up[0];
  others.push_back(pid_);
  static_cast<void>(Read());
}

Process::~Process() {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  close(ask_);
  close(tell_);
  std::erase(others, pid_);
}

u64 Process::Read() const {
  u64 answer = 0;
  if (read(tell_, &answer, sizeof answer) != sizeof answer) Fail("a process of the benchmark");
  return answer;
}

u64 Process::Do(Task task, u32 number) const {
  Tell(ask_, Command{task, number});
  return Read();
}

u32 ServerProcess::FreePort() {
  u32 port = 0;
  close(Listen(&port));
  return port;
}

// --- Bare sessions -----------------------------------------------------------------------------

namespace {

PropertySet MessageOf(u32 number) {
  PropertySet set;
  set.Put("Message", Value::UInt32(number));
  return set;
}

void SendAll(int fd, const void* bytes, size_t length) {
  if (send(fd, bytes, length, MSG_NOSIGNAL) != static_cast<ssize_t>(length)) Fail("send");
}

void ReceiveAll(int fd, void* bytes, size_t length) {
  for (size_t done = 0; done < length;) {
    const ssize_t got = recv(fd, static_cast<char*>(bytes) + done, length - done, MSG_WAITALL);
    if (got <= 0) Fail("recv");
    done += static_cast<size_t>(got);
  }
}

}  // namespace

BareSession::BareSession(u32 port) : fd_(Connect(port)) {
  LogOn();
}

BareSession::~BareSession() {
  close(fd_);
}

PropertySet BareSession::Ask(const PropertySet& message, u64* bytes) const {
  BinaryWriter writer;
  message.Marshal(writer);
  std::vector<u8> frame(kFrameHeaderSize);
  EncodeFrameHeader({writer.Buffer().Size(), kFrameRequest, 1, 0}, frame.data());
  const u8* payload = static_cast<const u8*>(writer.Buffer().Data());
  frame.insert(frame.end(), payload, payload + writer.Buffer().Size());
  frame.insert(frame.end(), kFrameTrailer, kFrameTrailer + kFrameTrailerSize);
  SendAll(fd_, frame.data(), frame.size());
  FrameHeader header;
  std::vector<u8> answer;
  do {  // whatever is pushed meanwhile is passed over
    u8 head[kFrameHeaderSize];
    ReceiveAll(fd_, head, sizeof head);
    if (!DecodeFrameHeader(head, &header)) Fail("frame");
    answer.resize(size_t{header.length} + kFrameTrailerSize);
    ReceiveAll(fd_, answer.data(), answer.size());
  } while (header.type != kFrameResponse);
  if (bytes != nullptr) {
    *bytes = header.length;
    return {};
  }
  PropertySet set;
  BinaryReader reader(answer.data(), header.length);
  ZN_MUST(set.Unmarshal(reader));
  return set;
}

PropertySet BareSession::ObjectsOf(const char* type) {
  PropertySet data;
  data.Put("Type", Value::Text(std::string_view(type)));
  PropertySet request = MessageOf(5);
  request.Put("Criteria", Value::UInt32(2));
  request.Put("Data", Value::Set(std::move(data)));
  return request;
}

void BareSession::LogOn() {
  PropertySet keys;
  keys.Put("EncryptionKeyIndex", Value::UInt32(1));
  PropertySet offer = MessageOf(1);
  offer.Put("Version", Value::UInt32(30));
  offer.Put("Encryption", Value::UInt32(2));
  offer.Put("Compression", Value::UInt32(0));
  offer.Put("Authentication", Value::UInt32(1));
  offer.Put("Data", wire::AsBinary(keys));
  Ask(offer);
  PropertySet wish = MessageOf(13);
  wish.Put("Length", Value::UInt32(512));
  const PropertySet challenge = Ask(wish);
  const Value* bytes = challenge.FindValue("Data", ZN_TYPE_BINARY);
  if (bytes == nullptr) Fail("challenge");
  std::vector<u8> block;
  ZN_MUST(BuildCredentialBlock(bytes->AsBinary(), {u"bench", u"bench", u"", u""}, &block));
  void* cipher = nullptr;
  u32 length = 0;
  ZN_MUST(EncipherBlock(block.data(), static_cast<u32>(block.size()), 2, 0, &cipher, &length));
  PropertySet logon = MessageOf(3);
  logon.Put("AuthenticationType", Value::UInt32(1));
  logon.Put("Data", Value::Binary(cipher, length));
  ZnFree(cipher);
  const PropertySet welcome = Ask(logon);
  const Value* result = welcome.FindValue("Result", ZN_TYPE_UINT32);
  if (result == nullptr || result->AsUInt32() != ZN_OK) Fail("logon");
  Ask(ObjectsOf("KELD_Task"));
}

// --- The process that reads --------------------------------------------------------------------

namespace {

// Counts what arrives at each session in frames of the size of the first.
class FrameCounter {
 public:
  explicit FrameCounter(u32 sessions) : bytes_(sessions), buffer_(256 << 10) {}

  void Receive(u32 session, int fd) {
    const ssize_t got = recv(fd, buffer_.data(), buffer_.size(), 0);
    if (got <= 0) Fail("a reader was dropped");
    if (size_ == 0) NoteSize(got);
    bytes_[session] += static_cast<u64>(got);
    all_ += static_cast<u64>(got);
  }
  // `first` is the first session that reads.
  void Publish(u32 first) const {
    if (size_ == 0) return;
    const u64 least = *std::min_element(bytes_.begin() + first, bytes_.end());
    Shared().frames = all_ / size_;
    Shared().slowest = least / size_;
  }

 private:
  void NoteSize(ssize_t got) {
    FrameHeader header;
    const bool isHeader =
        got >= static_cast<ssize_t>(kFrameHeaderSize) && DecodeFrameHeader(buffer_.data(), &header);
    if (!isHeader) Fail("no frame");
    size_ = u64{header.length} + kFrameHeaderSize + kFrameTrailerSize;
    Shared().frameSize = size_;
  }
  std::vector<u64> bytes_;
  std::vector<u8> buffer_;
  u64 all_ = 0;
  u64 size_ = 0;
};

}  // namespace

int ReadBench(u32 port, u32 sessions, u32 stopped) {
  std::vector<std::unique_ptr<BareSession>> all;
  const int set = epoll_create1(EPOLL_CLOEXEC);
  for (u32 i = 0; i < sessions; ++i) {
    all.push_back(std::make_unique<BareSession>(port));
    if (i < stopped) continue;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = i;
    epoll_ctl(set, EPOLL_CTL_ADD, all[i]->Socket(), &event);
  }
  Tell<u64>(STDOUT_FILENO, 0);
  if (stopped == sessions) {
    pause();
    return 0;
  }
  FrameCounter counter(sessions);
  std::vector<epoll_event> events(sessions);
  for (;;) {
    const int ready = epoll_wait(set, events.data(), static_cast<int>(sessions), -1);
    for (int i = 0; i < ready; ++i) {
      const u32 session = events[static_cast<size_t>(i)].data.u32;
      counter.Receive(session, all[session]->Socket());
    }
    counter.Publish(stopped);
  }
}

// --- Sessions of the library -------------------------------------------------------------------

Session::Session(const ServerProcess& server) {
  const ClConnectInfo connect{0, server.Port(), "127.0.0.1", 0, 0, 0};
  const ClLogonInfo logon{u"bench", u"bench", u"", u"", ZN_LOGON_PASSWORD};
  ZN_MUST(ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0));
  ZN_MUST(PsCreatePropset(&in_));
  ZN_MUST(PsCreatePropset(&out_));
}

Session::~Session() {
  ZN_MUST(ClDeleteDatabase(handle_, database_));
  ZN_MUST(PsDestroyPropset(in_));
  ZN_MUST(PsDestroyPropset(out_));
}

std::vector<ObjectId> Session::Objects(const char* type) const {
  u32 count = 0;
  ObjectId* ids = nullptr;
  ZN_MUST(DbGetObjects(database_, type, &count, &ids));
  std::vector<ObjectId> list(ids, ids + count);
  ZnFree(ids);
  return list;
}

u32 Session::CountOf(const ObjectId& id) const {
  Property2* property = nullptr;
  ZN_MUST(ObGetProperty(database_, id, "Count", &property));
  u32 count = 0;
  std::memcpy(&count, property->Value, sizeof count);
  PsFreeProperty(property);
  return count;
}

void Session::Call(const ObjectId& id, u32 majorCode, u32 minorCode) const {
  ObjectId answering{};
  ZN_MUST(PrCallDispatch(database_, id, &kInterface, majorCode, minorCode, in_, out_, 0, 0, nullptr,
                         nullptr, &answering, nullptr));
}

}  // namespace zn::bench
