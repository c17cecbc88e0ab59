#include "tests/integration/service/raw_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace zn::test {

namespace {

constexpr int kPatienceMs = 60000;

}  // namespace

void RawClient::Connect(unsigned port) {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  name.sin_port = htons(static_cast<u16>(port));
  ASSERT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  const int yes = 1;
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  const timeval patience{60, 0};  // a test fails rather than hangs
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

void RawClient::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

bool RawClient::SendBytes(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

bool RawClient::ReceiveBytes(size_t count, std::string* bytes) {
  bytes->clear();
  while (bytes->size() < count) {
    pollfd waited{fd_, POLLIN, 0};
    if (poll(&waited, 1, kPatienceMs) != 1) return false;
    char buffer[65536];
    const ssize_t got = recv(fd_, buffer, std::min(sizeof buffer, count - bytes->size()), 0);
    if (got <= 0) return false;
    bytes->append(buffer, static_cast<size_t>(got));
  }
  return true;
}

bool RawClient::Receive(RawFrame* frame) {
  std::string head;
  if (!ReceiveBytes(42, &head)) return false;
  EXPECT_EQ(std::string_view(head).substr(0, 22), kHead);
  EXPECT_EQ(WordAt(head, 22), 0u);
  frame->type = WordAt(head, 30);
  frame->id = WordAt(head, 34);
  frame->status = WordAt(head, 38);
  std::string tail;
  if (!ReceiveBytes(WordAt(head, 26), &frame->payload) || !ReceiveBytes(22, &tail)) return false;
  EXPECT_EQ(tail, kEnd);
  return true;
}

bool RawClient::IsClosedByPeer() {
  std::string bytes;
  pollfd waited{fd_, POLLIN, 0};
  if (poll(&waited, 1, kPatienceMs) != 1) return false;
  char byte = 0;
  return recv(fd_, &byte, 1, 0) <= 0;
}

u32 RawClient::SendRequest(const PropertySet& message) {
  const u32 id = ++lastId_;
  EXPECT_TRUE(SendBytes(FrameBytes(2, id, BytesOf(message))));
  return id;
}

RawFrame RawClient::WaitForResponse(u32 id) {
  RawFrame frame;
  while (Receive(&frame)) {
    if (frame.type == 1 && frame.id == id) return frame;
    pushed.push_back(frame);
  }
  ADD_FAILURE() << "no response";
  return {};
}

RawFrame RawClient::Ask(const PropertySet& message) {
  return WaitForResponse(SendRequest(message));
}

void RawClient::Meet(u32 offer) {
  offered_ = Ask(OfferOf(offer)).Set();
  EXPECT_EQ(NumberOf(offered_, "Result"), ZN_OK);
  const PropertySet answer = Ask(ChallengeRequestOf()).Set();
  const Value* data = answer.FindValue("Data", ZN_TYPE_BINARY);
  ASSERT_NE(data, nullptr);
  challenge_ = data->AsBinary();
}

PropertySet RawClient::LogonMessage(const std::u16string& user, const std::u16string& password,
                                    const std::u16string& domain, u32 type) const {
  return LogonOf(challenge_, {user, password, domain, u""}, type);
}

u32 RawClient::LogOn(const std::u16string& user, const std::u16string& password,
                     const std::u16string& domain, u32 offer) {
  Meet(offer);
  return NumberOf(Ask(LogonMessage(user, password, domain, offer)).Set(), "Result");
}

PropertySet RawClient::Objects(const char* type) {
  const PropertySet answer = Ask(CacheRequestOf(type)).Set();
  EXPECT_EQ(NumberOf(answer, "Result"), ZN_OK);
  const Value* data = answer.FindValue("Data", ZN_TYPE_PROPSET);
  return data == nullptr ? PropertySet() : data->AsSet();
}

}  // namespace zn::test
