// One message of a client on its way to its answer, and the handlers, one per message.
#pragma once

#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstream/znstream.h"
#include "service/common/server.h"
#include "zn/types.h"

namespace zn {

struct Exchange {
  ServerObject& server;
  const ClientPtr& client;  // null for a connection that is not in the table (any more)
  u32 address;
  u32 connectionId;
  const PropertySet& request;
  // The answer: a set, to which the dispatcher adds the result, or, where it is large, its bytes,
  // complete but for the result at their end (WriteResult).
  PropertySet answer;
  BinaryWriter bytes;
};

// Each returns the result that the answer carries.
[[nodiscard]] u32 ServeSessionOffer(Exchange& exchange);
[[nodiscard]] u32 ServeChallengeRequest(Exchange& exchange);
[[nodiscard]] u32 ServeLogon(Exchange& exchange);
[[nodiscard]] u32 ServeCacheRequest(Exchange& exchange);
[[nodiscard]] u32 ServeRequest(Exchange& exchange);
[[nodiscard]] u32 ServeFileRequest(Exchange& exchange);

// The end of an answer that is written as bytes: "Message" and "Result", which come last in the
// order of names. `status` is the answer's result.
void WriteAnswerEnd(BinaryWriter& stream, u32 message, u32 status);

}  // namespace zn
