// The exports as the verbs use them: results are owned values, a failing status is a Failure. One
// Database stands for one handle, whoever provides it (a session). Any thread may call; nothing is
// cached here.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "values.h"
#include "zn/memory.h"
#include "zn/ps.h"

namespace zn::ctl {

struct BlockDeleter {
  void operator()(void* block) const { ZnFree(block); }
};
template <typename T>
using Block = std::unique_ptr<T, BlockDeleter>;

// Throws Failure("cannot <what>") where the status is a failure.
void Check(u32 status, const std::string& what);

// A property set of the bus, destroyed with this object.
class Propset {
 public:
  Propset();
  explicit Propset(ZnHandle handle) : handle_(handle) {}
  explicit Propset(const PropertyList& list);
  ~Propset();
  Propset(Propset&& other) noexcept;
  Propset& operator=(Propset&&) = delete;
  Propset(const Propset&) = delete;
  Propset& operator=(const Propset&) = delete;

  ZnHandle Handle() const { return handle_; }
  ZnHandle* Out() { return &handle_; }
  PropertyList Read() const;

 private:
  ZnHandle handle_ = nullptr;
};

PropertyList ReadPropset(ZnHandle set);
Property ReadFlat(const Property2& flat);

// The flat record of a property with all that its value points to; valid while this object lives.
class FlatProperty {
 public:
  explicit FlatProperty(const Property& property);
  const Property2* Record() const { return &record_; }

 private:
  void FillScalar(const Value& value);
  void FillMessage(const Message& message);
  void FillArray(const Value& value);
  void* Keep(const void* bytes, size_t size);

  Property2 record_{};
  std::string name_;
  std::vector<std::unique_ptr<u8[]>> blocks_;
  std::vector<Propset> sets_;
  std::vector<std::unique_ptr<std::string>> texts_;
};

struct CallResult {
  Id provider;
  Id task;
};

class Database {
 public:
  explicit Database(ZnHandle handle) : handle_(handle) {}
  ZnHandle Handle() const { return handle_; }

  std::vector<Id> Objects(const std::string& type) const;
  // The status of the bus; `ids` is written on success only.
  u32 Query(const std::string& text, std::vector<Id>* ids) const;
  std::optional<std::string> TypeOf(const Id& id) const;
  u32 FlagsOf(const Id& id) const;
  std::vector<Id> Children(const Id& id) const;
  std::vector<Id> Parents(const Id& id) const;
  std::vector<Id> Interfaces(const Id& id) const;
  std::optional<PropertyList> Properties(const Id& id) const;
  std::optional<Property> FindProperty(const Id& id, const std::string& name) const;
  Property GetProperty(const Id& id, const std::string& name, const std::string& what) const;
  void SetProperty(const Id& id, const Property& property, const std::string& what) const;
  void Delete(const Id& id) const;
  bool Exists(const Id& id) const;

  std::vector<std::string> Types() const;
  std::vector<std::string> SuperTypes(const std::string& type) const;
  std::vector<std::string> DerivedTypes(const std::string& type) const;
  PropertyList TypeProperties(const std::string& type, bool inherited) const;
  std::vector<Id> TypeInterfaces(const std::string& type, bool inherited) const;
  bool TypeIsA(const std::string& type, const std::string& base) const;

  // Null where there is none.
  ZnHandle ProviderByName(const std::string& name) const;
  std::string ProviderNameOf(const Id& providerId) const;
  std::string OwnerOf(const Id& object) const;

 private:
  ZnHandle handle_;
};

std::string NameOfProvider(ZnHandle provider);
Id IdOfProvider(ZnHandle provider);
PropertyList PropertiesOfProvider(ZnHandle provider);

}  // namespace zn::ctl
