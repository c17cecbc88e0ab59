// A client that speaks frames by hand over a plain socket: it sends bytes in whatever pieces a test
// wants, and reads what comes back frame by frame. It shares the marshalled form and the logon
// block with the library, and nothing of its communication layer.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "framework/common/znpropset/propertyset.h"
#include "tests/unit/framework/sets.h"
#include "tests/unit/service/messages.h"
#include "tests/unit/ucl/frame_bytes.h"
#include "zn/types.h"

namespace zn::test {

struct RawFrame {
  u32 type = 0;
  u32 id = 0;
  u32 status = 0;
  std::string payload;

  [[nodiscard]] PropertySet Set() const { return SetOf(payload); }
};

class RawClient {
 public:
  RawClient() = default;
  explicit RawClient(unsigned port) { Connect(port); }
  ~RawClient() { Close(); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  void Connect(unsigned port);
  void Close();
  // False when the peer has closed.
  bool SendBytes(std::string_view bytes);
  // The next frame; false when the connection ended, or nothing came for a minute.
  [[nodiscard]] bool Receive(RawFrame* frame);
  // Whether the peer closes the connection before anything else comes.
  [[nodiscard]] bool IsClosedByPeer();

  // A request and its response. Notifications that come before it are kept in `pushed`.
  RawFrame Ask(const PropertySet& message);
  RawFrame WaitForResponse(u32 id);
  u32 SendRequest(const PropertySet& message);

  // The session up to a logon; the result of the logon.
  u32 LogOn(const std::u16string& user, const std::u16string& password,
            const std::u16string& domain = {}, u32 offer = 1);
  // Offer and challenge alone.
  void Meet(u32 offer = 1);
  [[nodiscard]] PropertySet LogonMessage(const std::u16string& user, const std::u16string& password,
                                         const std::u16string& domain, u32 type) const;
  [[nodiscard]] const PropertySet& Offered() const { return offered_; }  // the answer to the offer

  // Objects of a type: the set that the answer carries.
  PropertySet Objects(const char* type);

  std::vector<RawFrame> pushed;

 private:
  bool ReceiveBytes(size_t count, std::string* bytes);

  int fd_ = -1;
  u32 lastId_ = 0;
  std::string challenge_;
  PropertySet offered_;
};

}  // namespace zn::test
