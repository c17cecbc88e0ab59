// This program as a listener on the bus: a provider of its own that hears the topics asked for and
// hands copies to the inbox. One at a time. Its own object is hidden from the lists.
#pragma once

#include <string>

#include "bus.h"

namespace zn::ctl {

class Listener {
 public:
  Listener(const Database& database, const std::string& pattern);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Waits until all that was raised before has been delivered, and drops it. What the inbox holds
  // then is news.
  void SkipThePast();

  // The provider's own object, whose changes are nobody's business.
  const Id& OwnId() const { return ownId_; }

 private:
  const Database& database_;
  ZnHandle provider_ = nullptr;
  ZnHandle registration_ = nullptr;
  ZnHandle markerRegistration_ = nullptr;
  Id ownId_;
};

// Name of the provider that a listener makes.
inline constexpr char kListenerName[] = "znctl";

}  // namespace zn::ctl
