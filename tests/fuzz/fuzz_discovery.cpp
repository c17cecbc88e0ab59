// Discovery replies of anybody: one input is a row of datagrams, each a big-endian 16-bit length
// and its bytes, all from different senders. A row of the table is whole or absent: its texts end,
// its counts are within bounds, no host stands twice.
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "clientsvc/common/discovery.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
  std::vector<zn::DiscoveryReply> replies;
  while (size >= 2) {
    const size_t length = std::min<size_t>(size - 2, size_t{data[0]} << 8 | data[1]);
    replies.push_back({static_cast<u32>(replies.size() + 1), {data + 2, data + 2 + length}});
    data += 2 + length;
    size -= 2 + length;
  }
  const std::vector<ClHostInfo> rows = zn::ReadDiscoveryReplies(replies);
  Require(rows.size() <= replies.size());
  std::set<std::string> names;
  for (const ClHostInfo& row : rows) {
    Require(std::memchr(row.hostname, 0, sizeof(row.hostname)) != nullptr);
    Require(names.insert(row.hostname).second);
    Require(row.addressCount <= ZN_HOST_ADDRESSES && row.protocolCount <= ZN_HOST_PROTOCOLS);
    for (const ClHostProtocol& protocol : row.protocols) {
      Require(std::memchr(protocol.name, 0, sizeof(protocol.name)) != nullptr);
    }
  }
  return 0;
}
