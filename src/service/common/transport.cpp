// The communication layer behind the seam. What it answers for one peer concerns nobody: a peer
// that is gone has been told of by the loss of its connection.
#include "service/common/transport.h"

namespace zn {

void UclTransport::Disconnect(u32 address, u32 connectionId) {
  static_cast<void>(UCLDisconnectPeer(server_, address, connectionId));
}

void UclTransport::MarkLoggedOn(u32 address, u32 connectionId) {
  static_cast<void>(UCLMarkLoggedOn(server_, address, connectionId));
}

void UclTransport::SendRound(const std::vector<UclBuffer>& payloads,
                             std::vector<UclTarget>* targets) {
  const u32 status = UCLSendRound(server_, payloads.data(), static_cast<u32>(payloads.size()),
                                  targets->data(), static_cast<u32>(targets->size()));
  if (!ZN_FAILED(status)) return;
  for (UclTarget& target : *targets) target.status = status;
}

}  // namespace zn
