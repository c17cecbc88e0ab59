// Settings of a server: see the header.
#include "service/common/serveroptions.h"

#include <algorithm>

#include "support/common/helpers.h"
#include "support/common/text.h"

namespace zn {

namespace {

[[nodiscard]] u32 ReadNumber(const ZnWChar* name, u32 fallback) {
  u32 value = fallback;
  ReadDwordSetting(HkeyMiraRoot(), nullptr, name, fallback, &value);
  return value;
}

constexpr u32 kMsPerSecond = 1000;
constexpr u32 kMostSeconds = 0xFFFFFFFFu / kMsPerSecond;

}  // namespace

ServerOptions ReadServerOptions() {
  const ServerOptions defaults;
  ServerOptions options;
  std::u16string address;
  if (!ZN_FAILED(ReadTextSetting(HkeyMiraRoot(), nullptr, u"BindAddress", &address))) {
    options.bindAddress = ToNarrow(address);
  }
  options.tcpNoDelay = ReadNumber(u"TcpNoDelay", 1) != 0;
  options.maxFrameLength = ReadNumber(u"MaxFrameLength", defaults.maxFrameLength);
  options.maxLogonFrameLength = ReadNumber(u"MaxLogonFrameLength", defaults.maxLogonFrameLength);
  options.logonTimeoutSeconds = ReadNumber(u"LogonTimeout", defaults.logonTimeoutSeconds);
  options.maxClients = ReadNumber(u"MaxClients", defaults.maxClients);
  options.acceptLogonWarnings = ReadNumber(u"AcceptLogonWarnings", 0) != 0;
  options.maxQueuedBytesPerClient =
      ReadNumber(u"MaxQueuedBytesPerClient", defaults.maxQueuedBytesPerClient);
  return options;
}

UclServerOptions ToUclOptions(const ServerOptions& options) noexcept {
  UclServerOptions ucl;
  if (!options.bindAddress.empty()) ucl.bindAddress = options.bindAddress.c_str();
  ucl.tcpNoDelay = options.tcpNoDelay;
  ucl.maxFrameLength = options.maxFrameLength;
  ucl.maxLogonFrameLength = options.maxLogonFrameLength;
  ucl.logonTimeoutMs = std::min(options.logonTimeoutSeconds, kMostSeconds) * kMsPerSecond;
  ucl.maxClients = options.maxClients;
  ucl.maxQueuedBytes = options.maxQueuedBytesPerClient;
  return ucl;
}

}  // namespace zn
