// The one queue through which other threads and signals reach the main thread.
//
// Bus threads push copies of events and task reports; a signal handler marks its number. The main
// thread waits in Wait(). The inbox lives until the process ends, so a provider thread that reports
// late, during the shutdown of the bus, still finds it.
#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "values.h"

namespace zn::ctl {

// A copy of one event of the bus.
struct BusEvent {
  std::chrono::system_clock::time_point time;
  std::string topic;
  bool isObjectChange = false;  // object and type are set
  Id object;
  std::string type;
  std::string raisedBy;  // provider of a raised event, may be empty
  bool hasData = false;
  PropertyList data;
};

// A copy of one report of an asynchronous call.
struct TaskProgress {
  u32 result = 0;
  Id task;
  u32 percent = 0;
  u32 state = 0;
};

// The connection with the server has gone.
struct ConnectionLost {};

using InboxItem = std::variant<BusEvent, TaskProgress, ConnectionLost>;
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// That many seconds from now; none for a negative number.
Deadline DeadlineIn(double seconds);

class Inbox {
 public:
  static Inbox& Get();

  // Signals that end the program become marks here from now on; a second one ends it at once.
  void CatchSignals();
  // 0, or the number of the first signal that came.
  int Signal() const;
  void ThrowIfInterrupted() const;
  // What the handler says when a signal comes while the main thread cannot react, or null.
  void SetBusyNotice(const char* notice);

  void Push(InboxItem item);  // any thread

  // The next item; nothing when the deadline passes or a signal came.
  std::optional<InboxItem> Wait(const Deadline& deadline);

 private:
  Inbox();
  std::optional<InboxItem> Pop();

  int wakeDescriptor_;
  std::mutex mutex_;
  std::deque<InboxItem> items_;
};

}  // namespace zn::ctl
