// What the server tells a client copy: the records of changes, applied to what is here. A record of
// an object that is not here changes nothing, unless it says that an object of a type has come
// whose objects are all here. Whatever it does, the listeners of this process hear it.
#include "framework/common/zncore/database.h"

#include <new>
#include <string_view>
#include <utility>

#include "framework/common/zncore/wireform.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "framework/common/znwire/messages.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"

namespace zn {

namespace {

constexpr size_t kKindToken = 3;    // "object" or "type"
constexpr size_t kChangeToken = 5;  // and the one behind it

// The properties of one record. Data and topic are taken out.
[[nodiscard]] u32 ReadRecord(const Database& database, PropertySet& set, ChangeRecord* record) {
  const Value* message = set.FindValue(wire::kMessageKey, ZN_TYPE_UINT32);
  if (message == nullptr || message->AsUInt32() != wire::kChangeNotification) {
    return ZNE_INVALID_ARGUMENTS;
  }
  const Value* flags = set.FindValue(wire::kFlagsKey, ZN_TYPE_UINT32);
  const Value* topic = set.FindValue(wire::kNotificationIdKey, ZN_TYPE_STRING);
  const Value* id = set.FindValue(wire::kObjectIdKey, ZN_TYPE_OBJECT_ID);
  const Value* type = set.FindValue(wire::kObjectTypeKey, ZN_TYPE_STRING);
  if (flags == nullptr || topic == nullptr || id == nullptr || type == nullptr ||
      !TakeNestedSet(set, wire::kDataKey, &record->data)) {
    return ZNE_PROPERTY_NOT_FOUND;
  }
  record->flags = flags->AsUInt32();
  record->topic = topic->AsText();
  record->database = database.Handle();
  record->objectId = id->AsId();
  record->objectType = type->AsText();
  return ZN_OK;
}

[[nodiscard]] bool IsBatch(std::string_view topic) noexcept {
  return topic.starts_with(kDatabaseChangeTopic) &&
         (topic.size() == kDatabaseChangeTopic.size() || topic[kDatabaseChangeTopic.size()] == '.');
}

// The whole new word of a change of flags: with the whole object, or as the change names it.
[[nodiscard]] const Value* NewFlags(const PropertySet& data) noexcept {
  const Value* flags = data.FindValue(wire::kFlagsKey, ZN_TYPE_UINT32);
  return flags != nullptr ? flags : data.FindValue("NewFlags", ZN_TYPE_UINT32);
}

}  // namespace

// One kind of change, by the words of its topic "event.keld.dom.<kind>.<type>.<first>.<second>".
struct Database::UpdateRow {
  std::string_view kind;
  std::string_view first;
  std::string_view second;
  ApplyChange apply;
};

u32 Database::UpdateCache(PropertySet& set) {
  AssertBusLocked();
  ChangeRecord record;
  ZN_RETURN_IF_FAILED(ReadRecord(*this, set, &record));
  if (IsBatch(record.topic)) return ApplyBatch(record.data);
  ApplyAndTell(record);
  return ZN_OK;
}

// The batch itself tells nothing. A bad record in it does not stop the ones behind.
u32 Database::ApplyBatch(PropertySet& data) {
  std::vector<Value>* records = FindOwnSetList(data, wire::kDataKey);
  if (records == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  for (Value& entry : *records) {
    try {
      ChangeRecord record;
      if (!ZN_FAILED(ReadRecord(*this, entry.AsSet(), &record))) ApplyAndTell(record);
    } catch (const std::bad_alloc&) {  // this one is missed
    }
  }
  return ZN_OK;
}

void Database::ApplyAndTell(ChangeRecord& record) {
  std::unique_ptr<PropertySet> localData;
  const Outcome outcome = Apply(record, &localData);
  // The record's flags say for whom it was on the server; here everybody hears it.
  if (events_.HasListeners()) {
    SendLocalNotificationEvent(*this, record.topic, record.objectId, record.objectType,
                               IsPlainTopic(record.topic), std::move(localData));
  }
  if (outcome == Outcome::kMissed) RememberMissed(std::move(record));
}

Database::Outcome Database::Apply(ChangeRecord& record, std::unique_ptr<PropertySet>* localData) {
  static constexpr UpdateRow kRows[] = {
      {"object", "data", "change", &Database::ApplyData},
      {"object", "object", "add", &Database::ApplyAdd},
      {"object", "object", "delete", &Database::ApplyDelete},
      {"object", "relation", "parent", &Database::ApplyParents},
      {"object", "relation", "child", &Database::ApplyChildren},
      {"object", "interface", "change", &Database::ApplyInterfaces},
      {"object", "flag", "change", &Database::ApplyFlags},
      {"type", "object", "add", &Database::ApplyTypeAdd},
      {"type", "interface", "change", &Database::ApplyTypeInterfaces},
  };
  const TopicTokens tokens(record.topic);
  if (tokens.Count() <= kChangeToken + 1 || tokens[0] != "event" || tokens[1] != "keld" ||
      tokens[2] != "dom") {
    return Outcome::kDone;
  }
  for (const UpdateRow& row : kRows) {
    if (tokens[kChangeToken] != row.first || tokens[kChangeToken + 1] != row.second ||
        tokens[kKindToken] != row.kind) {
      continue;
    }
    const NotifyHold hold(*this);
    return (this->*row.apply)(record, localData);
  }
  return Outcome::kDone;
}

// Objects that nobody asked for stay outside.
Database::Outcome Database::ApplyAdd(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  const TypeObject* type = types_.FindType(record.objectType.Text());
  const bool isWanted = type != nullptr && type->IsComplete();
  if (!isWanted && !ObjectExists(record.objectId.Value())) return Outcome::kMissed;
  static_cast<void>(ReplaceObject(record));
  return Outcome::kDone;
}

// With the form read first, a bad one leaves the object as it is.
u32 Database::ReplaceObject(ChangeRecord& record) {
  std::unique_ptr<DBNode> node;
  ZN_RETURN_IF_FAILED(MakeFromForm(record.data, FindOwnSet(record.data, wire::kDataKey), &node));
  if (!(node->GetId() == record.objectId)) return ZNE_INVALID_ARGUMENTS;
  if (DBNode* present = FindCached(record.objectId.Value())) DeleteQuietly(present);
  EnterInstalled(std::move(node), record.data);
  return ZN_OK;
}

// Without its relations, so that no other object changes; the client's own groups take the object
// up again when it comes back.
void Database::DeleteQuietly(DBNode* node) noexcept {
  for (DBNode* group : groups_) group->ForgetChild(node->GetId());
  node->ReplaceChildren({});
  node->ReplaceParents({});
  DeleteNode(node);
}

Database::Outcome Database::ApplyDelete(ChangeRecord& record,
                                        std::unique_ptr<PropertySet>* localData) {
  DBNode* node = FindCached(record.objectId.Value());
  if (node == nullptr) return Outcome::kMissed;
  if (events_.HasListeners()) *localData = std::make_unique<PropertySet>(node->Properties());
  DeleteNode(node);
  return Outcome::kMissed;  // an answer that is on its way may still have it
}

// All properties come with each change of one.
Database::Outcome Database::ApplyData(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  DBNode* node = FindCached(record.objectId.Value());
  if (node == nullptr) return Outcome::kMissed;
  node->ReplaceProperties(std::move(record.data));
  return Outcome::kDone;
}

Database::Outcome Database::ApplyParents(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  DBNode* node = FindCached(record.objectId.Value());
  if (node == nullptr) return Outcome::kMissed;
  if (FindArray(record.data, wire::kParentListKey, ZN_TYPE_OBJECT_ID) == nullptr) {
    return Outcome::kDone;  // the object was gone when the server told it
  }
  IdSet parents = ReadIds(record.data, wire::kParentListKey);
  if ((node->GetFlags() & OBJECT_IN_CLIENT_GROUP) != 0) {
    std::vector<DBNode*> groups;
    static_cast<void>(
        GetGroupsContaining(node->GetTypeName().Text(), OBJECT_GROUP_CLIENT, &groups));
    for (const DBNode* group : groups) parents.insert(group->GetId());
  }
  node->ReplaceParents(std::move(parents));
  return Outcome::kDone;
}

Database::Outcome Database::ApplyChildren(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  DBNode* node = FindCached(record.objectId.Value());
  if (node == nullptr) return Outcome::kMissed;
  if (FindArray(record.data, wire::kChildListKey, ZN_TYPE_OBJECT_ID) != nullptr) {
    node->ReplaceChildren(ReadIds(record.data, wire::kChildListKey));
  }
  return Outcome::kDone;
}

Database::Outcome Database::ApplyInterfaces(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  DBNode* node = FindCached(record.objectId.Value());
  if (node == nullptr) return Outcome::kMissed;
  if (FindArray(record.data, wire::kInterfaceListKey, ZN_TYPE_PROPSET) != nullptr) {
    ReadInterfaces(record.data, *node);
  }
  return Outcome::kDone;
}

// A hidden object is none for a client; one that is shown again has just come into being for it.
Database::Outcome Database::ApplyFlags(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  const Value* flags = NewFlags(record.data);
  if (flags == nullptr) return Outcome::kDone;
  const u32 word = flags->AsUInt32();
  const bool isHidden = (word & OBJECT_HIDDEN) != 0;
  DBNode* node = FindCached(record.objectId.Value());
  if (isHidden) {
    if (node != nullptr) DeleteNode(node);
    return Outcome::kMissed;
  }
  if (node != nullptr) {
    node->SetRawFlags(word);
    return Outcome::kDone;
  }
  RestoreRelations(record.objectId, record.data);
  const TypeObject* type = types_.FindType(record.objectType.Text());
  if (type == nullptr || !type->IsComplete()) return Outcome::kMissed;
  if (ZN_FAILED(ReplaceObject(record))) return Outcome::kDone;
  record.topic = ObjectTopic(record.objectType.Text(), kObjectAdded.topic, record.objectId.Value());
  return Outcome::kDone;
}

// Its relatives lost it here when it was hidden, and the server tells of no change of theirs.
void Database::RestoreRelations(const InternedId& id, const PropertySet& form) {
  for (const InternedId& parentId : ReadIds(form, wire::kParentListKey)) {
    DBNode* parent = FindCached(parentId.Value());
    if (parent == nullptr) continue;
    IdSet children = parent->Children();
    children.insert(id);
    parent->ReplaceChildren(std::move(children));
  }
  for (const InternedId& childId : ReadIds(form, wire::kChildListKey)) {
    DBNode* child = FindCached(childId.Value());
    if (child == nullptr) continue;
    IdSet parents = child->Parents();
    parents.insert(id);
    child->ReplaceParents(std::move(parents));
  }
}

// Before the types are here its supertypes may be unknown, and what is on its way may be older.
bool Database::AreTypesHere() {
  const TypeObject* typeType = types_.FindType(kTypeTypeName);
  return typeType != nullptr && typeType->IsComplete();
}

// Where all objects of a base type are here, so are those of the new type: it has none yet.
Database::Outcome Database::ApplyTypeAdd(ChangeRecord& record, std::unique_ptr<PropertySet>*) {
  if (!AreTypesHere()) return Outcome::kMissed;
  const Value* name = record.data.FindValue("TypeName", ZN_TYPE_STRING);
  if (name == nullptr || ZN_FAILED(types_.InstallType(record.data))) return Outcome::kDone;
  TypeObject* type = types_.FindType(name->AsText());
  for (const TypeObject* super : type->Supertypes()) {
    if (super->IsComplete()) type->SetComplete();
  }
  return Outcome::kDone;
}

Database::Outcome Database::ApplyTypeInterfaces(ChangeRecord& record,
                                                std::unique_ptr<PropertySet>*) {
  if (!AreTypesHere()) return Outcome::kMissed;
  static_cast<void>(types_.ReplaceInterfaces(record.objectId.Value(), record.data));
  return Outcome::kDone;
}

}  // namespace zn
