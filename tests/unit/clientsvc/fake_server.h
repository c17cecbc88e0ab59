// A server that is a socket and a script: it reads frames by hand, answers each message as the test
// says, and pushes what it is given. What it does by itself is a well-behaved server's part of a
// logon, and answers to cache requests out of a private database.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "framework/common/zncore/database.h"
#include "framework/common/zncore/remoteserver.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "tests/unit/framework/sets.h"
#include "tests/unit/ucl/peers.h"
#include "ucl/common/cipher.h"
#include "ucl/common/credentials.h"
#include "zn/client.h"
#include "zn/db.h"
#include "zn/memory.h"
#include "zn/pr.h"

namespace zn::test {

class FakeServer {
 public:
  // The answer to a message, or nothing: then none is sent.
  using Answer = std::function<std::optional<std::string>(const PropertySet& request)>;

  FakeServer() {
    EXPECT_EQ(DbCreatePrivateDatabase(&store_), ZN_OK);
    {
      const BusLock lock;
      EXPECT_EQ(RegisterMissingSystemTypes(Store()), ZN_OK);
    }
    options_.Put("Version", Value::UInt32(30));
    options_.Put("Encryption", Value::UInt32(2));
    options_.Put("Compression", Value::UInt32(0));
    options_.Put("Authentication", Value::UInt32(1));
    listen_ = socket(AF_INET, SOCK_STREAM, 0);
    port_ = ListenOnLoopback(listen_);
    acceptor_ = std::thread([this] { Accept(); });
  }
  ~FakeServer() {
    Stop();
    EXPECT_EQ(DbDeletePrivateDatabase(store_), ZN_OK);
  }
  FakeServer(const FakeServer&) = delete;
  FakeServer& operator=(const FakeServer&) = delete;

  // Ends every connection and listens no more.
  void Stop() {
    if (stopping_.exchange(true)) return;
    shutdown(listen_, SHUT_RDWR);
    acceptor_.join();
    close(listen_);
    DropClients();
    for (std::thread& thread : servers_) thread.join();
  }
  void DropClients() {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const BarePeer& peer : peers_) shutdown(peer.Fd(), SHUT_RDWR);
  }

  [[nodiscard]] u32 Port() const { return port_; }
  [[nodiscard]] ZnHandle StoreHandle() const { return store_; }
  [[nodiscard]] Database& Store() const { return *HandleThing<Database>(store_); }

  // What the session answer says besides its fixed parts.
  void SetOption(const char* name, u32 value) { options_.Put(name, Value::UInt32(value)); }
  void RemoveOption(const char* name) { EXPECT_EQ(options_.Delete(name), ZN_OK); }
  // Instead of the server's own answer to that message.
  void On(u32 message, Answer answer) {
    const std::lock_guard<std::mutex> lock(mutex_);
    scripts_[message] = std::move(answer);
  }
  // Answers leave in pieces of so many bytes.
  void SetPiece(size_t bytes) { piece_ = bytes; }
  // Goes out right in front of the next answer, in one piece with it.
  void PushWithNextAnswer(const PropertySet& message) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ahead_ += FrameBytes(3, 0, BytesOf(message));
  }
  // To the client that came last.
  void Push(const PropertySet& message) { SendRaw(FrameBytes(3, 0, BytesOf(message))); }
  void SendRaw(const std::string& bytes) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ASSERT_FALSE(peers_.empty());
    peers_.back().Send(bytes);
  }

  // The messages that came, by number.
  [[nodiscard]] std::vector<PropertySet> Received(u32 message) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return received_[message];
  }
  [[nodiscard]] std::vector<u32> Numbers() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return numbers_;
  }
  [[nodiscard]] std::vector<Credentials> Logons() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return logons_;
  }

  // What the server would answer by itself.
  [[nodiscard]] std::optional<std::string> Answered(u32 message, const PropertySet& request) {
    switch (message) {
      case wire::kSessionOffer:
        return BytesOf(SessionAnswer());
      case wire::kChallengeRequest:
        return BytesOf(ChallengeAnswer());
      case wire::kLogon:
        return BytesOf(LogonAnswer(request));
      case wire::kCacheRequest:
        return BytesOf(CacheAnswer(request));
      default: {
        PropertySet answer;
        answer.Put("Result", Value::UInt32(ZN_OK));
        return BytesOf(answer);
      }
    }
  }
  [[nodiscard]] PropertySet SessionAnswer() const {
    PropertySet keys;
    keys.Put("EncryptionKeyIndex", Value::UInt32(0));
    PropertySet answer(options_);
    answer.Put("Data", wire::AsBinary(keys));
    answer.Put("Message", Value::UInt32(2));
    answer.Put("Result", Value::UInt32(ZN_OK));
    return answer;
  }

 private:
  [[nodiscard]] PropertySet ChallengeAnswer() {
    PropertySet answer;
    answer.Put("Message", Value::UInt32(14));
    if (challenged_) {  // one for a connection
      answer.Put("Result", Value::UInt32(ZNE_UNEXPECTED));
      return answer;
    }
    challenged_ = true;
    for (size_t i = 0; i < challenge_.size(); ++i) challenge_[i] = static_cast<char>(i * 7);
    answer.Put("Data", Value::Binary(challenge_.data(), static_cast<u32>(challenge_.size())));
    answer.Put("Result", Value::UInt32(ZN_OK));
    return answer;
  }
  [[nodiscard]] PropertySet LogonAnswer(const PropertySet& request) {
    PropertySet answer;
    answer.Put("Message", Value::UInt32(4));
    u32 result = ZNE_UNEXPECTED;
    const Value* data = request.FindValue("Data", ZN_TYPE_BINARY);
    void* plain = nullptr;
    u32 length = 0;
    Credentials credentials;
    if (data != nullptr &&
        DecipherBlock(data->AsBinary().data(), static_cast<u32>(data->AsBinary().size()), 2, 0,
                      &plain, &length) == ZN_OK &&
        ReadCredentialBlock(plain, length, challenge_, &credentials) == ZN_OK) {
      logons_.push_back(credentials);
      const bool isLocal = request.FindValue("AuthenticationType", ZN_TYPE_UINT32)->AsUInt32() == 2;
      result = isLocal || credentials.password == u"secret" ? ZN_OK : ZNE_ACCESS_DENIED;
    }
    ZnFree(plain);
    answer.Put("Result", Value::UInt32(result));
    return answer;
  }
  [[nodiscard]] PropertySet CacheAnswer(const PropertySet& request) {
    BinaryWriter list;
    PropertySet answer;
    answer.Put("Result", Value::UInt32(DbRemoteCacheRequest(store_, request, list)));
    PropertySet data;
    BinaryReader reader(list.Buffer().Data(), list.Buffer().Size());
    if (list.Buffer().Size() != 0) {
      EXPECT_EQ(data.Unmarshal(reader), ZN_OK);
    }
    answer.Put("Data", Value::Set(std::move(data)));
    answer.Put("Message", Value::UInt32(6));
    return answer;
  }

  void Accept() {
    for (;;) {
      const int fd = accept(listen_, nullptr, nullptr);
      if (fd < 0 || stopping_) {
        if (fd >= 0) close(fd);
        return;
      }
      const std::lock_guard<std::mutex> lock(mutex_);
      const auto peer = peers_.emplace(peers_.end(), fd);
      challenged_ = false;
      servers_.emplace_back([this, peer] {
        Serve(*peer);
        const std::lock_guard<std::mutex> end(mutex_);
        peers_.erase(peer);
      });
    }
  }
  void Serve(const BarePeer& peer) {
    char first = 0;
    while (recv(peer.Fd(), &first, 1, MSG_PEEK) > 0) {
      const BarePeer::Frame frame = peer.ReceiveFrame();
      const PropertySet request = SetOf(frame.payload);
      const Value* number = request.FindValue("Message", ZN_TYPE_UINT32);
      const u32 message = number == nullptr ? 0 : number->AsUInt32();
      EXPECT_EQ(frame.type, 2u);
      const std::optional<std::string> answer = AnswerTo(message, request);
      if (!answer.has_value()) continue;
      const std::lock_guard<std::mutex> lock(mutex_);
      SendInPieces(peer, std::exchange(ahead_, std::string()) + FrameBytes(1, frame.id, *answer));
    }
  }
  [[nodiscard]] std::optional<std::string> AnswerTo(u32 message, const PropertySet& request) {
    Answer script;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      received_[message].push_back(request);
      numbers_.push_back(message);
      const auto found = scripts_.find(message);
      if (found != scripts_.end()) script = found->second;
    }
    return script ? script(request) : Answered(message, request);
  }
  void SendInPieces(const BarePeer& peer, const std::string& bytes) const {
    const size_t piece = piece_ == 0 ? bytes.size() : piece_.load();
    for (size_t at = 0; at < bytes.size(); at += piece) {
      peer.Send(bytes.substr(at, piece));
      if (piece_ != 0) std::this_thread::yield();
    }
  }

  ZnHandle store_ = nullptr;
  int listen_ = -1;
  u32 port_ = 0;
  std::atomic<bool> stopping_{false};
  std::atomic<size_t> piece_{0};
  PropertySet options_;
  std::string challenge_ = std::string(512, '\0');
  bool challenged_ = false;
  std::mutex mutex_;
  std::map<u32, Answer> scripts_;
  std::map<u32, std::vector<PropertySet>> received_;
  std::vector<u32> numbers_;
  std::vector<Credentials> logons_;
  std::string ahead_;
  std::list<BarePeer> peers_;  // those that are served
  std::vector<std::thread> servers_;
  std::thread acceptor_;
};

// A client process with a server to talk to.
class ClientTest : public testing::Test {
 protected:
  ClientTest() { EXPECT_EQ(ClStartup(), ZN_OK); }
  ~ClientTest() override {
    if (handle_ != nullptr) {
      EXPECT_EQ(ClDeleteDatabase(handle_, database_), ZN_OK);
    }
    server_.Stop();
    EXPECT_EQ(ClShutdown(), ZN_OK);
  }

  [[nodiscard]] ClConnectInfo Connection(u32 flags = 0) const {
    return {0, server_.Port(), "127.0.0.1", flags, 0, 0};
  }
  [[nodiscard]] static ClLogonInfo Alice(const ZnWChar* password = u"secret") {
    return {u"alice", password, u"domain", u"system", ZN_LOGON_PASSWORD};
  }
  // Connected and logged on.
  u32 LogOn(u32 flags = 0) {
    const ClConnectInfo connect = Connection(flags);
    const ClLogonInfo logon = Alice();
    return ClCreateDatabaseEx(&connect, &logon, &handle_, &database_, 0);
  }
  u32 ConnectOnly(u32 flags = 0) {
    const ClConnectInfo connect = Connection(flags);
    return ClCreateDatabase(&connect, &handle_, &database_);
  }
  // Drops the handle without deleting: it is gone already.
  void Forget() { handle_ = nullptr; }

  FakeServer server_;
  ClientHandle* handle_ = nullptr;
  ZnHandle database_ = nullptr;
};

}  // namespace zn::test
