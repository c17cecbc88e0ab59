// The provider's hold on the bus: property sets by value, its settings, and the Publisher that
// keeps the objects of the database equal to an Inventory. Only this file, declared_types and calls
// speak to the library; none of them holds a lock while doing so.
#pragma once

#include <map>
#include <string>

#include "alerts.h"
#include "inventory.h"
#include "zn/types.h"

namespace hostinv {

// A property set of ours, destroyed at the end.
class PropertySet {
 public:
  PropertySet();
  ~PropertySet();
  PropertySet(const PropertySet&) = delete;
  PropertySet& operator=(const PropertySet&) = delete;

  ZnHandle Handle() const { return handle_; }

 private:
  ZnHandle handle_ = nullptr;
};

// Adds one property to a set or replaces its value.
u32 PutProperty(ZnHandle set, const char* name, const Value& value, u32 flags = 0);
u32 PutProperty(ZnHandle set, const char* name, const PropertySet& value);
u32 PutId(ZnHandle set, const char* name, const ObjectId& id);
u32 PutProperties(ZnHandle set, const Properties& properties);

// Text of a string or wide string property of a set, as UTF-8. ZNE_PROPERTY_NOT_FOUND without the
// property, ZNE_INVALID_ARGUMENTS if it is of another type.
u32 FindText(ZnHandle set, const char* name, std::string* text);
// The id in an object id property of a set, with the same statuses.
u32 FindId(ZnHandle set, const char* name, ObjectId* id);

// Values of the provider's own settings key. A value that is missing or of another type leaves the
// default.
struct Settings {
  std::string root;     // "Root": the recorded machine to show; empty for the live one
  u32 periodMs = 2000;  // "Period": time between samples; 0 for none, at least kLeastPeriodMs
  AlertLimits alerts;   // "AlertUsedPercent", "AlertHysteresis", "AlertLinks", "AlertDisks"
};
inline constexpr u32 kLeastPeriodMs = 100;
Settings ReadSettings(ZnHandle provider);

// Owned by the Follower's thread after the start; the database and provider handles outlive it.
class Publisher {
 public:
  Publisher(ZnHandle database, ZnHandle provider) : database_(database), provider_(provider) {}

  // Makes the objects equal to `next`, everything in one update sequence. What is equal already is
  // not touched. An object that cannot be made is tried again the next time.
  void Publish(Inventory next);

  // Takes note of objects that others have deleted, so that the next Publish makes them again.
  void ForgetDeleted();

 private:
  void Remove(const std::string& key);
  bool Add(const std::string& key, const Item& item);
  void Set(const std::string& key, const Properties& properties);
  // The id of an object of ours; the zero id for none.
  ObjectId IdOf(const std::string& key) const;

  ZnHandle database_;
  ZnHandle provider_;
  Inventory current_;
  std::map<std::string, ObjectId, std::less<>> ids_;
};

}  // namespace hostinv
