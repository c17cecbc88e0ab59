// The small parts of a connection that its source files share.
#pragma once

#include "ucl/common/connection.h"

namespace zn {

// What one connection may read or drain in one turn before the others have theirs.
inline constexpr size_t kBytesPerTurn = size_t{4} << 20;

// A caller in UCLSendRcv. Lives on its stack, linked while it waits; fields under lock_.
struct Connection::Waiter {
  u32 id = 0;
  bool isDone = false;
  bool leads = false;   // its own: it holds the role
  bool isSent = false;  // under sendLock_
  u32 length = 0;
  void* data = nullptr;
  Condition wake;
  Waiter* next = nullptr;
};

// Stands around a callback of the connection: says on the thread that it is inside one.
class Connection::CallbackFrame {
 public:
  CallbackFrame(const Connection& connection, bool isData);
  ~CallbackFrame();
  CallbackFrame(const CallbackFrame&) = delete;
  CallbackFrame& operator=(const CallbackFrame&) = delete;

 private:
  friend class Connection;
  const Connection& connection_;
  const bool isData_;
  const CallbackFrame* const outer_;
};

// A caller inside a send or a wait; a disconnect waits for it.
class Connection::UserScope {
 public:
  explicit UserScope(Connection& connection);
  ~UserScope();
  UserScope(const UserScope&) = delete;
  UserScope& operator=(const UserScope&) = delete;

 private:
  Connection& connection_;
};

}  // namespace zn
