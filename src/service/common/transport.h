// What a server asks of the communication layer: the one seam between the two, so that everything
// above it can be tested without a network.
#pragma once

#include <atomic>
#include <vector>

#include "service/common/clienttable.h"
#include "ucl/common/ucl.h"
#include "zn/types.h"

namespace zn {

class Transport {
 public:
  Transport() = default;
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport() = default;

  // Ends the connection; its loss is told as that of any other.
  virtual void Disconnect(u32 address, u32 connectionId) = 0;
  // The peer has proved who it is: the limits for strangers end.
  virtual void MarkLoggedOn(u32 address, u32 connectionId) = 0;
  // One-way frames with these payloads, in order, to each target; the statuses stand in the
  // targets. Never waits for a peer.
  virtual void SendRound(const std::vector<UclBuffer>& payloads,
                         std::vector<UclTarget>* targets) = 0;
};

// The communication layer itself.
class UclTransport final : public Transport {
 public:
  void SetServer(u32 handle) noexcept { server_ = handle; }
  [[nodiscard]] u32 Server() const noexcept { return server_; }

  void Disconnect(u32 address, u32 connectionId) override;
  void MarkLoggedOn(u32 address, u32 connectionId) override;
  void SendRound(const std::vector<UclBuffer>& payloads, std::vector<UclTarget>* targets) override;

 private:
  // Set when the port is open already: the first bytes of a stranger may come before.
  std::atomic<u32> server_{0};
};

}  // namespace zn
