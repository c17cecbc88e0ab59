// What the tests of the connections share: an object's callbacks that note what they are told, and
// a bare socket that plays the other end, byte by byte where that matters.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/common/sync.h"
#include "tests/unit/ucl/frame_bytes.h"
#include "ucl/common/ucl.h"
#include "zn/memory.h"

namespace zn::test {

using Clock = std::chrono::steady_clock;
inline constexpr auto kLongWait = std::chrono::seconds(20);
inline constexpr u32 kLoopback = 0x0100007F;  // 127.0.0.1 in network order on this host

// Until the condition holds; looks again and again, for what nobody tells of.
inline bool Eventually(const std::function<bool()>& holds) {
  const auto end = Clock::now() + kLongWait;
  while (!holds()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// A port of the loopback as sockets take it; 0 for a free one.
[[nodiscard]] inline sockaddr_in LoopbackName(u32 port = 0) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<u16>(port));
  name.sin_addr.s_addr = kLoopback;
  return name;
}

inline void ConnectToLoopback(int fd, u32 port) {
  const sockaddr_in name = LoopbackName(port);
  EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&name), sizeof(name)), 0);
}

// Takes a free port of the loopback: the port.
[[nodiscard]] inline u32 BindToLoopback(int fd) {
  sockaddr_in name = LoopbackName();
  socklen_t size = sizeof(name);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&name), size), 0);
  getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size);
  return ntohs(name.sin_port);
}

// The same, and listens on it.
[[nodiscard]] inline u32 ListenOnLoopback(int fd, int backlog = 100) {
  const u32 port = BindToLoopback(fd);
  EXPECT_EQ(listen(fd, backlog), 0);
  return port;
}

// A flag to wait for.
class Signal {
 public:
  void Set() {
    const MutexLock lock(mutex_);
    isSet_ = true;
    changed_.NotifyAll();
  }
  bool Wait(Clock::duration most = kLongWait) {
    const auto end = Clock::now() + most;
    const MutexLock lock(mutex_);
    while (!isSet_) {
      if (!changed_.WaitUntil(mutex_, end) && !isSet_) return false;
    }
    return true;
  }

 private:
  Mutex mutex_;
  Condition changed_;
  bool isSet_ ZN_GUARDED_BY(mutex_) = false;
};

struct DataCall {
  bool oneWay;
  u32 address;
  u32 connectionId;
  std::string data;
};

struct ConnectCall {
  std::string host;
  u32 address;
  u32 connectionId;
  bool connected;
};

// The callbacks of one object. It must outlive the object's connections.
class Recorder {
 public:
  // What answers a frame: the status; `*answer` travels back.
  using Answer = std::function<u32(const DataCall& call, std::string* answer)>;
  Answer onData = [](const DataCall& call, std::string* answer) {
    *answer = call.data;
    return 0u;
  };
  std::function<u32(const ConnectCall& call)> onConnect = [](const ConnectCall&) { return 0u; };

  static u32 Data(u32 oneWay, u32* address, u32* id, u32 length, void* data, void** out,
                  u32* outLength, void* context) {
    auto* self = static_cast<Recorder*>(context);
    const DataCall call{oneWay != 0, *address, *id,
                        std::string(static_cast<const char*>(data), length)};
    EXPECT_EQ(data == nullptr, length == 0);
    std::string answer;
    const u32 status = self->onData(call, &answer);
    if (!answer.empty()) {
      *out = ZnAlloc(static_cast<u32>(answer.size()));
      answer.copy(static_cast<char*>(*out), answer.size());
      *outLength = static_cast<u32>(answer.size());
    }
    self->Note([&] { self->data_.push_back(call); });
    return status;
  }
  static u32 Connect(char* host, char* hostAgain, u32* address, u32* id, u32 connected,
                     void* context) {
    auto* self = static_cast<Recorder*>(context);
    EXPECT_STREQ(host, hostAgain);
    const ConnectCall call{host, *address, *id, connected == 1};
    const u32 status = self->onConnect(call);
    self->Note([&] { self->connects_.push_back(call); });
    return status;
  }

  std::vector<DataCall> DataCalls() {
    const MutexLock lock(mutex_);
    return data_;
  }
  std::vector<ConnectCall> ConnectCalls() {
    const MutexLock lock(mutex_);
    return connects_;
  }
  // So many of them have ended.
  bool WaitForData(size_t count) {
    return WaitUntil([&] { return data_.size() >= count; });
  }
  bool WaitForConnected(size_t count) {
    return WaitUntil([&] { return Count(true) >= count; });
  }
  bool WaitForLost(size_t count) {
    return WaitUntil([&] { return Count(false) >= count; });
  }
  size_t LostCount() {
    const MutexLock lock(mutex_);
    return Count(false);
  }

 private:
  size_t Count(bool connected) const ZN_NO_THREAD_SAFETY_ANALYSIS {
    size_t count = 0;
    for (const ConnectCall& call : connects_) count += call.connected == connected ? 1 : 0;
    return count;
  }
  template <typename Body>
  void Note(Body&& body) {
    const MutexLock lock(mutex_);
    body();
    changed_.NotifyAll();
  }
  template <typename Holds>
  bool WaitUntil(Holds&& holds) ZN_NO_THREAD_SAFETY_ANALYSIS {
    const auto end = Clock::now() + kLongWait;
    const MutexLock lock(mutex_);
    while (!holds()) {
      if (!changed_.WaitUntil(mutex_, end) && !holds()) return false;
    }
    return true;
  }

  Mutex mutex_;
  Condition changed_;
  std::vector<DataCall> data_ ZN_GUARDED_BY(mutex_);
  std::vector<ConnectCall> connects_ ZN_GUARDED_BY(mutex_);
};

// A bare socket, connected.
class BarePeer {
 public:
  BarePeer() = default;
  explicit BarePeer(int fd) : fd_(fd) {}
  ~BarePeer() { Close(); }
  BarePeer(BarePeer&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  BarePeer& operator=(BarePeer&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  static BarePeer ConnectTo(u32 port, int receiveBuffer = 0) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (receiveBuffer != 0) {
      setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    }
    ConnectToLoopback(fd, port);
    return BarePeer(fd);
  }

  void Send(const std::string& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
      const ssize_t result = send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (result <= 0) break;
      sent += static_cast<size_t>(result);
    }
    EXPECT_EQ(sent, bytes.size());
  }
  // So many bytes, fewer when the other end closes or says nothing for long.
  std::string Receive(size_t count) const {
    std::string bytes(count, 0);
    size_t received = 0;
    while (received < count && WaitReadable()) {
      const ssize_t result = recv(fd_, bytes.data() + received, count - received, 0);
      if (result <= 0) break;
      received += static_cast<size_t>(result);
    }
    bytes.resize(received);
    return bytes;
  }
  struct Frame {
    u32 type = 0;
    u32 id = 0;
    u32 status = 0;
    std::string payload;
  };
  Frame ReceiveFrame() const {
    const std::string header = Receive(42);
    if (header.size() < 42) return {};
    EXPECT_EQ(header.substr(0, 26), kHead + Word(0));
    const u32 length = WordAt(header, 26);
    const std::string rest = Receive(length + size_t{22});
    EXPECT_EQ(rest.substr(length), kEnd);
    return {WordAt(header, 30), WordAt(header, 34), WordAt(header, 38), rest.substr(0, length)};
  }
  // The other end has closed; what it sent before is read away.
  bool IsClosedByPeer() const {
    char bytes[4096];
    for (;;) {
      if (!WaitReadable()) return false;
      if (recv(fd_, bytes, sizeof(bytes), 0) <= 0) return true;
    }
  }
  bool WaitReadable(int ms = 20'000) const {
    pollfd waiting{fd_, POLLIN, 0};
    return poll(&waiting, 1, ms) == 1;
  }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  [[nodiscard]] int Fd() const { return fd_; }

 private:
  int fd_ = -1;
};

// A bare listening socket on a free port of the loopback.
class BareListener {
 public:
  explicit BareListener(int receiveBuffer = 0) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
    if (receiveBuffer != 0) {
      setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    }
    port_ = ListenOnLoopback(fd_);
  }
  ~BareListener() { close(fd_); }
  BareListener(const BareListener&) = delete;
  BareListener& operator=(const BareListener&) = delete;
  [[nodiscard]] u32 Port() const { return port_; }
  [[nodiscard]] BarePeer Accept() const { return BarePeer(accept(fd_, nullptr, nullptr)); }

 private:
  int fd_;
  u32 port_ = 0;
};

[[nodiscard]] inline u32 Connections() {
  UclStatistics statistics{};
  UCLGetStatistics(&statistics);
  return statistics.connections;
}

// The layer, ready; ended with the test.
class UclTest : public ::testing::Test {
 protected:
  UclTest() { EXPECT_EQ(UCLStartup(), 0u); }
  ~UclTest() override { UCLCleanup(); }
};

// A server on a free port of the loopback, with a recorder.
class TestServer {
 public:
  explicit TestServer(UclServerOptions options = {}) {
    options.bindAddress = "127.0.0.1";
    options.freePort = true;
    EXPECT_EQ(UCLCreateServer(&handle, &recorder, Recorder::Data, Recorder::Connect, 0, &options),
              0u);
    EXPECT_EQ(UCLGetServerPort(handle, &port), 0u);
  }
  ~TestServer() { EXPECT_EQ(UCLCloseServer(handle), 0u); }
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  Recorder recorder;
  u32 handle = 0;
  u32 port = 0;
};

// A client with one connection, with a recorder.
class TestClient {
 public:
  explicit TestClient(u32 port, const UclClientOptions& options = {}) {
    EXPECT_EQ(
        UCLCreateClient(&handle, &recorder, Recorder::Data, Recorder::Connect, port, &options), 0u);
    EXPECT_EQ(UCLConnect(handle, "127.0.0.1", &address, &id), 0u);
  }
  ~TestClient() { UCLDeleteClient(handle); }
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;

  // The status; *answer gets the response.
  u32 Call(const std::string& data, std::string* answer) const {
    void* out = nullptr;
    u32 length = 0;
    const u32 status = UCLSendRcv(handle, 0, address, id, static_cast<u32>(data.size()),
                                  data.data(), &length, &out);
    if (status == 0) answer->assign(static_cast<const char*>(out), length);
    ZnFree(out);
    return status;
  }
  // The response, or "status <hex>".
  std::string Call(const std::string& data) const {
    std::string answer;
    const u32 status = Call(data, &answer);
    if (status == 0) return answer;
    char text[32];
    std::snprintf(text, sizeof(text), "status %X", status);
    return text;
  }

  Recorder recorder;
  u32 handle = 0;
  u32 address = 0;
  u32 id = 0;
};

}  // namespace zn::test
