// The settings of a server beyond its lists and providers: where it listens and what a peer may
// cost it. Read once, at the start.
#pragma once

#include <string>

#include "ucl/common/ucl.h"
#include "zn/types.h"

namespace zn {

struct ServerOptions {
  std::string bindAddress;  // dotted IPv4 text; empty: every address
  bool tcpNoDelay = true;
  u32 maxFrameLength = 0;  // 0: no limit
  u32 maxLogonFrameLength = 1u << 20;
  u32 logonTimeoutSeconds = 60;  // 0: none
  u32 maxClients = 0;            // 0: no limit
  bool acceptLogonWarnings = false;
  u32 maxQueuedBytesPerClient = 64u << 20;  // 0: no limit
};

[[nodiscard]] ServerOptions ReadServerOptions();

// What of them the communication layer keeps. `options` must outlive the result.
[[nodiscard]] UclServerOptions ToUclOptions(const ServerOptions& options) noexcept;

}  // namespace zn
