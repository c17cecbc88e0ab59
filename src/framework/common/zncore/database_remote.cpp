// A client copy and its server: requests for objects, and what their answers bring. Whoever made
// the copy carries the request (DatabaseCallbacks::forwardRequest) with the bus lock given up, so
// the copy may be another one after each: changes that the server tells meanwhile are applied, and
// those of objects that are not here are kept, to be applied behind an answer that brings them in
// an older state.
#include "framework/common/zncore/database.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <unordered_set>
#include <utility>

#include "framework/common/zncore/wireform.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "framework/common/znwire/messages.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/sync.h"

namespace zn {

namespace {

// Wakes whoever waits for the last request of a copy.
struct PinSignal {
  Mutex mutex;
  Condition unpinned;
  u64 unpins ZN_GUARDED_BY(mutex) = 0;
};
PinSignal& Pins() noexcept {
  static PinSignal& signal = *new PinSignal;  // a late request may end after the statics are gone
  return signal;
}

// Groups that the user or the settings made: they may have thousands of children.
constexpr std::string_view kUserGroupTypes[] = {"KELD_GenericGroup", "KELD_SystemGroup"};

}  // namespace

void Database::Unpin() noexcept {
  if (--pins_ != 0 || !closing_) return;
  PinSignal& signal = Pins();
  {
    const MutexLock lock(signal.mutex);
    ++signal.unpins;
  }
  signal.unpinned.NotifyAll();
}

void Database::BeginClose() noexcept {
  closing_ = true;
  if (!IsLocal()) SetAuthenticated(false);
}

// The one that unpinned last may still be in the copy, with the lock; and may pin it again before
// it gives the lock up.
void Database::WaitForRequests() noexcept {
  PinSignal& signal = Pins();
  while (pins_ != 0) {
    u64 seen = 0;
    {
      const MutexLock lock(signal.mutex);
      seen = signal.unpins;
    }
    const BusRelease release;
    const MutexLock lock(signal.mutex);
    while (signal.unpins == seen) signal.unpinned.Wait(signal.mutex);
  }
}

u32 Database::RemoteRequest(RequestCriteria criteria, PropertySet data, PropertySet* reply) {
  AssertBusLocked();
  if (closing_) return ZNE_INVALID_ARGUMENTS;
  PropertySet request;
  request.Put(wire::kMessageKey, Value::UInt32(wire::kCacheRequest));
  request.Put(wire::kCriteriaKey, Value::UInt32(static_cast<u32>(criteria)));
  request.Put(wire::kDataKey, Value::Set(std::move(data)));
  const Pin pin(*this);
  const DatabaseCallbacks callbacks = callbacks_;
  const BusRelease released;
  return callbacks.forwardRequest(request, reply, callbacks.context);
}

// The records kept from here on belong to this fetch, and to those that began before it.
class Database::FetchScope {
 public:
  explicit FetchScope(Database& database) noexcept
      : database_(database), first_(database.missed_.size()) {
    ++database.fetches_;
  }
  ~FetchScope() {
    if (--database_.fetches_ == 0) database_.missed_.clear();
  }
  FetchScope(const FetchScope&) = delete;
  FetchScope& operator=(const FetchScope&) = delete;
  [[nodiscard]] size_t First() const noexcept { return first_; }

 private:
  Database& database_;
  size_t first_;
};

u32 Database::Fetch(RequestCriteria criteria, PropertySet data, const FetchPlan& plan) {
  const FetchScope scope(*this);
  PropertySet reply;
  ZN_RETURN_IF_FAILED(RemoteRequest(criteria, std::move(data), &reply));
  std::vector<ObjectId> added;
  const u32 status = (this->*plan.install)(reply, &added);
  if (!ZN_FAILED(status) && !plan.completes.empty()) {
    TypeObject* type = types_.FindType(plan.completes);  // it may have come just now
    if (type != nullptr) type->SetComplete();
  }
  ReplayMissed(scope.First(), added);
  if (plan.added != nullptr) *plan.added = std::move(added);
  return status;
}

u32 Database::FetchIds(const std::vector<ObjectId>& ids) {
  std::vector<Value> list;
  list.reserve(ids.size());
  for (const ObjectId& id : ids) list.push_back(Value::Id(id));
  PropertySet data;
  data.Put(wire::kDataKey, Value::Array(ZN_TYPE_OBJECT_ID, std::move(list)));
  return Fetch(RequestCriteria::kIds, std::move(data), {&Database::InstallListing});
}

// The id may lie in an object that goes while the lock is given up.
DBNode* Database::FetchObject(const ObjectId& id) noexcept try {
  const ObjectId wanted = id;
  // An answer that could not be installed to its end may have brought the object all the same.
  static_cast<void>(FetchIds({wanted}));
  const DBNode* node = FindCached(wanted);
  if (node == nullptr) return nullptr;
  if (!IsUserGroup(*node)) ReadAhead(*node);
  return FindCached(wanted);
} catch (const std::bad_alloc&) {
  return nullptr;
}

bool Database::IsUserGroup(const DBNode& node) noexcept {
  return std::any_of(std::begin(kUserGroupTypes), std::end(kUserGroupTypes),
                     [&](std::string_view name) {
                       const TypeObject* type = types_.FindType(name);
                       return type != nullptr && node.GetType()->IsA(*type);
                     });
}

// Walking down a tree so costs one request for each level.
void Database::ReadAhead(const DBNode& node) {
  std::vector<ObjectId> missing;
  for (const InternedId& child : node.Children()) {
    if (!ObjectExists(child.Value())) missing.push_back(child.Value());
  }
  if (!missing.empty()) static_cast<void>(FetchIds(missing));
}

void Database::FetchMissing(const std::vector<ObjectId>& ids) noexcept try {
  if (IsLocal()) return;
  std::vector<ObjectId> missing;
  for (const ObjectId& id : ids) {
    if (!ObjectExists(id)) missing.push_back(id);
  }
  if (missing.size() > 1) static_cast<void>(FetchIds(missing));
} catch (const std::bad_alloc&) {  // then one by one
}

u32 Database::CompleteType(std::string_view typeName) {
  TypeObject* type = types_.FindType(typeName);
  if (type == nullptr && typeName != kTypeTypeName) return ZNE_INVALID_ARGUMENTS;
  if (type != nullptr && type->IsComplete()) return ZN_OK;
  const std::string name(typeName);
  Install install = &Database::InstallListing;
  if (name == kProviderTypeName) install = &Database::InstallProviders;
  if (name == kTypeTypeName) install = &Database::InstallTypes;
  PropertySet data;
  data.Put(wire::kTypeKey, Value::Text(std::string_view(name)));
  return Fetch(RequestCriteria::kType, std::move(data), {install, nullptr, name});
}

u32 Database::QueryServer(std::u16string_view text, std::vector<ObjectId>* out) {
  PropertySet data;
  data.Put(wire::kQueryKey, Value::WideText(text));
  return Fetch(RequestCriteria::kQuery, std::move(data), {&Database::InstallListing, out});
}

u32 Database::AskForInterface(std::string_view typeName, const GUID& interfaceId,
                              std::vector<ObjectId>* out) {
  PropertySet data;
  data.Put(wire::kTypeKey, Value::Text(typeName));
  data.Put(wire::kInterfaceIdKey, Value::Guid(interfaceId));
  return Fetch(RequestCriteria::kInterface, std::move(data), {&Database::InstallListing, out});
}

// A bound for a server that tells more than it answers: what is beyond it is missed. An honest one
// may change each of many objects several times while they are on their way.
void Database::RememberMissed(ChangeRecord&& record) {
  constexpr size_t kMost = size_t{1} << 20;
  if (fetches_ != 0 && missed_.size() < kMost) missed_.push_back(std::move(record));
}

// The listeners have heard of them when they came. An object that is here, and not by this answer,
// came another way since, with all that is told of it here behind it: an older record would take it
// back to what it was.
void Database::ReplayMissed(size_t first, const std::vector<ObjectId>& added) {
  if (missed_.size() <= first) return;
  std::unordered_set<GUID, GuidHasher, GuidEqual> due(added.begin(), added.end());
  for (size_t i = first; i < missed_.size(); ++i) {
    const ObjectId id = missed_[i].objectId.Value();
    if (!due.contains(id)) {
      if (ObjectExists(id)) continue;
      due.insert(id);
    }
    std::unique_ptr<PropertySet> unheard;
    ChangeRecord record = fetches_ > 1 ? missed_[i] : std::move(missed_[i]);
    static_cast<void>(Apply(record, &unheard));
  }
}

}  // namespace zn
