// A store of typed objects. One class serves three kinds of database: the system database of a
// process, private databases, and client copies of a remote database. It owns its nodes, providers,
// types, event tree and handle record. Every call runs under FAST_LOCK unless it says otherwise.
// database.cpp: objects, keys, interfaces, life. database_groups.cpp: groups.
// database_providers.cpp: the provider list. databaselist.cpp: the databases of the process.
// database_notify.cpp: change records and update sequences. database_query.cpp: queries.
// database_install.cpp: objects, types and providers from their marshalled forms.
// database_remote.cpp: what a client copy asks its server. database_update.cpp: what the server
// tells a client copy.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "framework/common/zncore/baseobject.h"
#include "framework/common/zncore/changerecord.h"
#include "framework/common/zncore/dbnode.h"
#include "framework/common/znevent/eventregistry.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "support/common/flat_table.h"
#include "support/common/handle.h"
#include "zn/types.h"

namespace zn {

class Provider;
struct MessageRequest;

// Database flags.
inline constexpr u32 DB_AUTHENTICATED = 0x10000;
inline constexpr u32 DB_KEYED = 0x20000;
inline constexpr u32 DB_PRIVATE = 0x40000;

inline constexpr std::string_view kProviderTypeName = "KELD_Provider";

// Callbacks of a database and the context that its owner gets back.
struct DatabaseCallbacks {
  ZnChangeCallback changeCallback = nullptr;  // makes it a database whose changes may be sent
  ZnEventCallback eventCallback = nullptr;
  // A client copy's way to its server: requests for objects, and provider calls. Null elsewhere.
  u32 (*forwardRequest)(PropertySet& request, PropertySet* reply, void* context) = nullptr;
  u32 (*forwardProviderCall)(PropertySet& request, ObjectId* provider, ObjectId* task,
                             PropertySet* out, void* context) = nullptr;
  // A client copy's way to the message files of its server; runs with the bus lock released.
  u32 (*fetchMessage)(const MessageRequest& request, std::u16string* text, void* context) = nullptr;
  void* context = nullptr;
};

// By what a client copy asks its server for objects, as the request numbers it.
enum class RequestCriteria : u32 { kIds = 1, kType = 2, kQuery = 3, kInterface = 4 };

class Database {
 public:
  Database(u32 flags, const DatabaseCallbacks& callbacks);
  // Stops events, shuts the providers down in reverse order with the lock released around each,
  // deletes every object with notifications off.
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  [[nodiscard]] const InternedId& GetId() const noexcept { return id_; }
  void SetId(InternedId id) noexcept { id_ = std::move(id); }
  [[nodiscard]] ZnHandle Handle() const noexcept { return handle_.Get(); }
  [[nodiscard]] u32 Flags() const noexcept { return flags_; }
  void SetFlags(u32 flags) noexcept { flags_ = flags; }
  [[nodiscard]] bool IsAuthenticated() const noexcept { return (flags_ & DB_AUTHENTICATED) != 0; }
  // Of a client copy: whether its session has logged on. No effect on one that is going.
  void SetAuthenticated(bool isLoggedOn) noexcept {
    flags_ = isLoggedOn && !closing_ ? flags_ | DB_AUTHENTICATED : flags_ & ~DB_AUTHENTICATED;
  }
  [[nodiscard]] bool IsKeyed() const noexcept { return (flags_ & DB_KEYED) != 0; }
  // Not a client copy.
  [[nodiscard]] bool IsLocal() const noexcept { return callbacks_.forwardRequest == nullptr; }
  [[nodiscard]] const DatabaseCallbacks& Callbacks() const noexcept { return callbacks_; }
  [[nodiscard]] TypeManager& Types() noexcept { return types_; }
  [[nodiscard]] EventRegistry& Events() noexcept { return events_; }

  // Makes an object of that type with the default properties, and a child of every group that
  // contains the type: ZNE_TYPE_NOT_FOUND or ZNE_OUT_OF_MEMORY, with nothing left behind and
  // `*outNode` null. `provider` null means the provider
  // "system"; without one the creator is the zero id.
  [[nodiscard]] u32 CreateDBNode(Provider* provider, std::string_view typeName, u32 flags,
                                 DBNode** outNode, const std::vector<std::string>* containedTypes);
  void DeleteNode(DBNode* node) noexcept { delete node; }
  // The object, or null. On a client copy a miss goes to the server, with the lock given up
  // meanwhile: every pointer into the database but this one is dead after it.
  [[nodiscard]] DBNode* FindObject(const ObjectId& id) noexcept {
    DBNode* node = FindCached(id);
    if (node != nullptr || IsLocal()) [[likely]] {
      return node;
    }
    return FetchObject(id);
  }
  [[nodiscard]] DBNode* FindObject(const InternedId& id) noexcept { return FindObject(id.Value()); }
  // Looks in the table only.
  [[nodiscard]] DBNode* FindCached(const ObjectId& id) const noexcept;
  [[nodiscard]] bool ObjectExists(const ObjectId& id) const noexcept {
    return FindCached(id) != nullptr;
  }
  void InsertObject(DBNode* node);
  void RemoveObject(DBNode* node) noexcept;
  [[nodiscard]] size_t ObjectCount() const noexcept { return objectTable_.Size(); }
  // Ids of all instances, those of derived types included. ZNE_INVALID_ARGUMENTS for an unknown
  // type, ZNE_UNEXPECTED for "KELD_Type" while it is unknown. A client copy asks its server the
  // first time, with the lock given up meanwhile, and passes the failure of the request on.
  [[nodiscard]] u32 GetObjectsOfType(std::string_view typeName, std::vector<ObjectId>* out);
  // The same of what is here, on a client copy too.
  [[nodiscard]] u32 ListInstances(std::string_view typeName, std::vector<ObjectId>* out);
  // On a client copy: fetches those that are not here in one request when there is more than one.
  // The lock is given up meanwhile.
  void FetchMissing(const std::vector<ObjectId>& ids) noexcept;
  [[nodiscard]] u32 GetObjectsWithInterface(std::string_view typeName, const GUID& interfaceId,
                                            std::vector<ObjectId>* out);

  // Ids of the objects that the text asks for (znquery/querytext.h), in no particular order and
  // hidden ones among them. ZNE_INVALID_ARGUMENTS for a text that is no query and a value that
  // cannot be read; ZNE_TYPE_NOT_FOUND; ZNE_PROPERTY_NOT_FOUND for one that the type does not
  // declare; ZNE_QUERY_TYPE_UNSUPPORTED for a property that cannot be indexed. A client copy asks
  // its server instead and may give the lock up meanwhile: the objects that it did not hold yet,
  // the failure of the request, or ZNE_PROPERTY_NOT_FOUND for an answer without a list.
  [[nodiscard]] u32 Query(std::u16string_view text, std::vector<ObjectId>* out);

  // `key` is a whole block, the provider's id in front. Without a key table every object is looked
  // at, in the order of the types' lists.
  [[nodiscard]] DBNode* FindByKey(std::string_view key);
  void EnterKey(DBNode* node);  // only on a DB_KEYED database
  void RemoveKey(DBNode* node) noexcept;

  // Both ends: the node's record and the registry of the database.
  [[nodiscard]] u32 RegisterInterface(DBNode* node, const GUID& interfaceId,
                                      const InternedId& provider);
  [[nodiscard]] u32 DeregisterInterface(DBNode* node, const GUID& interfaceId);
  // The registry's entry alone.
  void ForgetInterface(DBNode* node, const GUID& interfaceId) noexcept;

  // Groups.
  [[nodiscard]] u32 CreateGroup(std::u16string_view name,
                                const std::vector<std::string>& containedTypes,
                                std::string_view groupType, Provider* provider, u32 flags,
                                DBNode** outNode);
  [[nodiscard]] u32 FindGroupByName(std::u16string_view name, DBNode** outNode);
  // Takes it off the list; the caller deletes the node.
  [[nodiscard]] u32 RemoveGroup(std::u16string_view name, DBNode** outNode);
  // ZNE_OBJECT_NOT_IN_GROUP when there is none.
  // In the order of the list; a group that matches by two of its contained types comes twice.
  [[nodiscard]] u32 GetGroupsContaining(std::string_view typeName, u32 flagMask,
                                        std::vector<DBNode*>* out);
  // Makes the object a child of every group that contains its type.
  void AddToGroups(DBNode* node) noexcept;
  // Takes a node that goes off the list of groups, if it is there.
  void ForgetGroup(const DBNode* node) noexcept;
  // Groups of the settings key "Groups". ZNE_GROUP_REG_UNREADABLE without the key,
  // ZNE_GROUP_REG_DAMAGED when it cannot be read to its end; a group that cannot be made is passed
  // over.
  [[nodiscard]] u32 LoadRegistryGroups(Provider* provider);

  // Providers, in load order, of what is here.
  [[nodiscard]] Provider* FindProviderByName(std::u16string_view name) noexcept;
  [[nodiscard]] Provider* FindProviderById(const ObjectId& id) noexcept;
  [[nodiscard]] Provider* FindProviderByHandle(ZnHandle handle) noexcept;
  // The same for callers from outside: a client copy first fetches all providers of its server,
  // once, with the lock given up meanwhile.
  [[nodiscard]] Provider* LookUpProviderByName(std::u16string_view name) noexcept;
  [[nodiscard]] Provider* LookUpProviderById(const ObjectId& id) noexcept;
  void AddProvider(std::unique_ptr<Provider> provider);
  // Takes it off the list, with its event registrations.
  [[nodiscard]] std::unique_ptr<Provider> TakeProvider(Provider* provider) noexcept;
  [[nodiscard]] const std::vector<std::unique_ptr<Provider>>& Providers() const noexcept {
    return providers_;
  }
  // Last to first: off the list, Shutdown with the lock released, delete. The caller answers for
  // the life of the database; UnloadProvidersOf (clientcopy.h) does not need one that does.
  void UnloadProviders() noexcept;

  // Change events leave only while this is above 0.
  void RaiseNotifyEnable() noexcept { ++notifyEnable_; }
  void LowerNotifyEnable() noexcept { --notifyEnable_; }

  // Whether anyone would read a change: a few tests, so that a change with no listener and no
  // client costs no more. Topic and data are built only behind it.
  [[nodiscard]] bool WouldNotify(const DBNode& object) noexcept;
  // Announces a change of `object` about `subject`. The kind decides topic and data.
  void NotifyChange(struct ChangeKind kind, const InternedId& subject, DBNode& object,
                    u32 eventFlags, const PropertySet* extra = nullptr);
  void NotifyTypeChange(std::string topic, const InternedId& subject, TypeObject& type,
                        PropertySet data, u32 eventFlags);
  void NotifyLocalOnlyChange(struct ChangeKind kind, const InternedId& subject, DBNode& object);
  void BeginUpdateSequence() noexcept { ++sequenceDepth_; }
  void EndUpdateSequence();
  [[nodiscard]] u32 SequenceDepth() const noexcept { return sequenceDepth_; }
  [[nodiscard]] const UpdateQueue& PendingEvents() const noexcept { return pendingEvents_; }

  // Queues a marker behind all changes so far, past an open sequence: a change without topic or
  // object that carries the service id in its data. It reaches the change callback at its place.
  void QueueMarker(u32 serviceId);

  // Makes the object that a marshalled one describes, if the database does not hold its id: in the
  // tables and indexes, announced to nobody. ZNE_TYPE_NOT_FOUND, or ZNE_INVALID_ARGUMENTS for a set
  // of another shape. The second one takes the properties out of the form.
  [[nodiscard]] u32 InstallObject(const PropertySet& form);
  [[nodiscard]] u32 InstallObjectFrom(PropertySet& form);
  // Makes the provider object of a provider of the server, unless its id is here: it has no code.
  // ZNE_TYPE_NOT_FOUND while the type of providers is unknown; ZNE_INVALID_ARGUMENTS.
  [[nodiscard]] u32 InstallProvider(const PropertySet& form);

  // A change that the server of a client copy tells, or a batch of them. The set is used up.
  // ZNE_INVALID_ARGUMENTS when it is no change, ZNE_PROPERTY_NOT_FOUND when it lacks something;
  // what is not here any more is no failure.
  [[nodiscard]] u32 UpdateCache(PropertySet& record);
  // All providers are fetched anew at the next look-up: the server has one that is not here.
  void ForgetProvidersComplete() noexcept;

  // A client copy that is going: it counts as not logged on from here, for good.
  void BeginClose() noexcept;
  [[nodiscard]] bool IsClosing() const noexcept { return closing_; }
  // Returns when no request of this copy is under way. Gives the lock up while it waits.
  void WaitForRequests() noexcept;
  // While one lives, the database stays: for whoever gives the lock up inside a call.
  class Pin {
   public:
    explicit Pin(Database& database) noexcept : database_(database) { ++database.pins_; }
    ~Pin() { database_.Unpin(); }
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;

   private:
    Database& database_;
  };

  // The whole object as a set: id, type, flags, data, contained types, visible relations,
  // interfaces, creator.
  void MarshalObject(const DBNode& object, PropertySet* out);

 private:
  void PostRecord(ChangeRecord&& record, std::unique_ptr<PropertySet> localData);
  void SendRecord(ChangeRecord& record);
  [[nodiscard]] static PropertySet MarshalRecord(ChangeRecord& record);
  void AttachRelations(ChangeRecord& record);
  [[nodiscard]] Value VisibleIds(const IdSet& ids) const;
  void SendBatch(std::vector<std::unique_ptr<ChangeRecord>> records, const IdSet& deletedIds);

  // Asks the server of a client copy. The lock is given up meanwhile: pointers into the database
  // are dead after it, the database itself stays.
  [[nodiscard]] u32 RemoteRequest(RequestCriteria criteria, PropertySet data, PropertySet* reply);
  // What a fetch does with its answer: how it is installed, and which type is complete then.
  using Install = u32 (Database::*)(PropertySet& reply, std::vector<ObjectId>* added);
  struct FetchPlan {
    Install install;
    std::vector<ObjectId>* added = nullptr;  // ids of the new objects
    std::string_view completes = {};         // a type's name, or empty
  };
  class FetchScope;
  // Asks, installs what comes, and applies again what the server told of it meanwhile.
  [[nodiscard]] u32 Fetch(RequestCriteria criteria, PropertySet data, const FetchPlan& plan);
  [[nodiscard]] DBNode* FetchObject(const ObjectId& id) noexcept;
  [[nodiscard]] u32 FetchIds(const std::vector<ObjectId>& ids);
  void ReadAhead(const DBNode& node);
  [[nodiscard]] bool IsUserGroup(const DBNode& node) noexcept;
  void FetchProviders() noexcept;
  // Fetches all of a type unless that is done.
  [[nodiscard]] u32 CompleteType(std::string_view typeName);
  [[nodiscard]] u32 QueryServer(std::u16string_view text, std::vector<ObjectId>* out);
  [[nodiscard]] u32 AskForInterface(std::string_view typeName, const GUID& interfaceId,
                                    std::vector<ObjectId>* out);
  // Installs the objects of an answer that are not here yet, and appends their ids alone. The first
  // that cannot be made ends it.
  [[nodiscard]] u32 InstallListing(PropertySet& reply, std::vector<ObjectId>* added);
  [[nodiscard]] u32 InstallProviders(PropertySet& reply, std::vector<ObjectId>*);
  [[nodiscard]] u32 InstallTypes(PropertySet& reply, std::vector<ObjectId>*);

  // The node that a form describes, in no table yet. `data`, a part of the form, is moved from when
  // it is given.
  [[nodiscard]] u32 MakeFromForm(const PropertySet& form, PropertySet* data,
                                 std::unique_ptr<DBNode>* out);
  void EnterInstalled(std::unique_ptr<DBNode> node, const PropertySet& form);
  [[nodiscard]] u32 InstallUnlessHere(const PropertySet& form, PropertySet* data);
  // Replaces the object's interfaces by those of the form; records that lack a word are passed
  // over.
  void ReadInterfaces(const PropertySet& form, DBNode& node);

  // One change on a client copy. One of an object that is not here, or not any more, is kept while
  // a fetch is under way: its answer may bring the object as it was before.
  enum class Outcome { kDone, kMissed };
  using ApplyChange = Outcome (Database::*)(ChangeRecord& record,
                                            std::unique_ptr<PropertySet>* localData);
  struct UpdateRow;
  [[nodiscard]] u32 ApplyBatch(PropertySet& data);
  void ApplyAndTell(ChangeRecord& record);
  [[nodiscard]] Outcome Apply(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyAdd(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyDelete(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyData(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyParents(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyChildren(ChangeRecord& record,
                                      std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyInterfaces(ChangeRecord& record,
                                        std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyFlags(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyTypeAdd(ChangeRecord& record, std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] Outcome ApplyTypeInterfaces(ChangeRecord& record,
                                            std::unique_ptr<PropertySet>* localData);
  [[nodiscard]] bool AreTypesHere();
  [[nodiscard]] u32 ReplaceObject(ChangeRecord& record);
  void DeleteQuietly(DBNode* node) noexcept;
  void RememberMissed(ChangeRecord&& record);
  void ReplayMissed(size_t first, const std::vector<ObjectId>& added);
  // The server's relations of an object that it shows again, at the ends that are here.
  void RestoreRelations(const InternedId& id, const PropertySet& form);
  void Unpin() noexcept;

  // A node with its initial properties, in the tables, not told to anybody yet.
  [[nodiscard]] u32 MakeNode(Provider* provider, TypeObject& type, u32 flags,
                             const std::vector<std::string>* containedTypes,
                             std::unique_ptr<DBNode>* out);
  template <typename Visit>
  void ForEachGroupContaining(const TypeObject& type, u32 flagMask, Visit&& visit);
  [[nodiscard]] u32 LoadRegistryGroup(ZnHandle groupsKey, const ZnWChar* subKey,
                                      Provider* provider);
  void DeleteAllObjects() noexcept;

  struct GuidHasher {
    size_t operator()(const GUID& id) const noexcept { return static_cast<size_t>(GuidHash(id)); }
  };
  struct GuidEqual {
    bool operator()(const GUID& a, const GUID& b) const noexcept { return SameGuid(a, b); }
  };

  InternedId id_;
  FlatTable<DBNode> objectTable_;
  FlatTable<DBNode> keyTable_;
  // By id, so that lists have a stable order and one object among many is found at once.
  struct NodeIdLess {
    bool operator()(const DBNode* a, const DBNode* b) const noexcept {
      return a->GetId() < b->GetId();
    }
  };
  std::unordered_map<GUID, std::set<DBNode*, NodeIdLess>, GuidHasher, GuidEqual> interfaceRegistry_;
  UpdateQueue pendingEvents_;
  OwnedHandle handle_;
  u32 flags_;
  bool tearingDown_ = false;  // the object table stays as it is while the nodes go
  bool closing_ = false;
  u32 pins_ = 0;
  u32 fetches_ = 0;                   // under way
  std::vector<ChangeRecord> missed_;  // told while they were, of objects that are not here
  i32 notifyEnable_ = 0;
  u32 sequenceDepth_ = 0;
  std::vector<DBNode*> groups_;
  DatabaseCallbacks callbacks_;
  std::vector<std::unique_ptr<Provider>> providers_;
  TypeManager types_;
  EventRegistry events_;
};

// Keeps changes from being told for a scope.
class NotifyHold {
 public:
  explicit NotifyHold(Database& database) noexcept : database_(database) {
    database_.LowerNotifyEnable();
  }
  ~NotifyHold() { database_.RaiseNotifyEnable(); }
  NotifyHold(const NotifyHold&) = delete;
  NotifyHold& operator=(const NotifyHold&) = delete;

 private:
  Database& database_;
};

// Event flags of a change that listeners of this process and clients hear.
inline constexpr u32 kEventEverywhere = EVENT_LOCAL | EVENT_REMOTE;

// Kinds of object change, with the middle of their topics.
struct ChangeKind {
  const char* topic;
};
inline constexpr ChangeKind kObjectAdded{".object.add."};
inline constexpr ChangeKind kObjectDeleted{".object.delete."};
inline constexpr ChangeKind kDataChanged{".data.change."};
inline constexpr ChangeKind kChildChanged{".relation.child."};
inline constexpr ChangeKind kParentChanged{".relation.parent."};
inline constexpr ChangeKind kInterfaceChanged{".interface.change."};
inline constexpr ChangeKind kFlagChanged{".flag.change."};

// The databases of the process, private ones excepted, and the system database among them. Under
// FAST_LOCK.
[[nodiscard]] Database* ZnGetSystemDatabase() noexcept;
void SetSystemDatabase(Database* database) noexcept;
[[nodiscard]] std::vector<std::unique_ptr<Database>>& DatabaseList() noexcept;
// Copies every type of `source` into `target`, supertypes first.
void CopyTypes(Database& source, Database& target);

}  // namespace zn
