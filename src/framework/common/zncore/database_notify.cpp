// Change records of a database: what is told about a change, to whom, and what an update sequence
// makes of it. The listeners of this process hear every change at once, as a local event on the
// raise thread; clients get it as a marshalled property set through the change queue, held back and
// merged while a sequence is open. What nobody would read is not built. Under FAST_LOCK.
#include "framework/common/zncore/database.h"

#include <new>
#include <string_view>
#include <utility>

#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"

namespace zn {

namespace {

constexpr std::string_view kAddPattern = "event.keld.dom.object.*.object.add";
constexpr std::string_view kChildPattern = "event.keld.dom.object.*.relation.child";
constexpr std::string_view kTypePatterns[] = {"event.keld.dom.type.*.object.add",
                                              "event.keld.dom.type.*.interface.change"};

// What a record of a change carries.
enum class Content { kData, kWholeObject, kRelation, kDeletion, kFlags, kInterfaces, kNothing };

// Contract: told by the text of the topic, so a type whose name begins with "add" or "delete" is
// taken for that change when its flags change. Tried in this order.
Content ContentOf(std::string_view topic) noexcept {
  struct Row {
    std::string_view part;
    Content content;
  };
  static constexpr Row kRows[] = {
      {".data.change", Content::kData},           {".object.add", Content::kWholeObject},
      {".relation.parent", Content::kRelation},   {".relation.child", Content::kRelation},
      {".object.delete", Content::kDeletion},     {"flag.change", Content::kFlags},
      {".interface.change", Content::kInterfaces}};
  for (const Row& row : kRows) {
    if (topic.find(row.part) != std::string_view::npos) return row.content;
  }
  return Content::kNothing;
}

bool Contains(std::string_view topic, std::string_view part) noexcept {
  return topic.find(part) != std::string_view::npos;
}

bool IsTaskRecord(const ChangeRecord& record) noexcept {
  return (record.flags & EVENT_TASK) != 0;
}

u32 WithTaskFlag(u32 eventFlags, const BaseObject& object) noexcept {
  return (object.GetFlags() & OBJECT_TASK) != 0 ? eventFlags | EVENT_TASK : eventFlags;
}

std::unique_ptr<ChangeRecord> CacheRecord(std::string_view topic) {
  auto record = std::make_unique<ChangeRecord>();
  record->message = kCacheChangeMessage;
  record->flags = EVENT_REMOTE;
  record->topic = topic;
  return record;
}

// Whether clients are told of an object's deletion alone when it went within the sequence.
bool IsSupersededByDelete(std::string_view topic) noexcept {
  static constexpr std::string_view kParts[] = {".object.add.", ".data.change.",
                                                ".relation.parent.", ".relation.child.",
                                                ".interface.change."};
  for (const std::string_view part : kParts) {
    if (Contains(topic, part)) return true;
  }
  return false;
}

IdSet DeletedIds(const std::vector<std::unique_ptr<ChangeRecord>>& records) {
  IdSet ids;
  for (const auto& record : records) {
    if (!IsTaskRecord(*record) && Contains(record->topic, ".object.delete.")) {
      ids.insert(record->objectId);
    }
  }
  return ids;
}

// Whether clients may never have seen the object, so that it must come whole.
bool IsOrWasHidden(const DBNode& object, const PropertySet* extra) noexcept {
  const Value* old = extra == nullptr ? nullptr : extra->FindValue("OldFlags", ZN_TYPE_UINT32);
  return object.IsHidden() || (old != nullptr && (old->AsUInt32() & OBJECT_HIDDEN) != 0);
}

void FillData(Database& database, Content content, const DBNode& object, const PropertySet* extra,
              PropertySet* data) {
  switch (content) {
    case Content::kData:
      object.CopyPropertiesTo(*data);
      return;
    case Content::kWholeObject:
      database.MarshalObject(object, data);
      return;
    case Content::kFlags:
      if (IsOrWasHidden(object, extra)) database.MarshalObject(object, data);
      if (extra != nullptr) static_cast<void>(data->Merge(*extra));
      return;
    case Content::kInterfaces:
      data->Put("InterfaceList", TypeObject::InterfaceList(object.Interfaces()));
      return;
    case Content::kRelation:  // read when the record is sent
    case Content::kDeletion:
    case Content::kNothing:
      return;
  }
}

}  // namespace

// Contract: the first text has a point that the topic has not, so only the second ever fits, and
// the event that announces a deaf cache is a long record with an empty type and a zero id.
bool IsPlainTopic(std::string_view topic) noexcept {
  return Contains(topic, ".dom.cache.deaf.") || Contains(topic, "dom.cache.listen");
}

bool Database::WouldNotify(const DBNode& object) noexcept {
  AssertBusLocked();
  if (callbacks_.changeCallback == nullptr || notifyEnable_ < 1) return false;
  // What a sequence still holds for clients that have gone is to be dropped at the next change.
  const bool matters = events_.HasListeners() || !pendingEvents_.IsEmpty() || ClientsPresent();
  if (!matters) return false;
  const Provider* creator = FindProviderById(object.CreatorId().Value());
  return creator != nullptr && creator->IsRegistered();
}

// A change that cannot be told for want of memory is lost: whoever made it has made it.
void Database::NotifyChange(ChangeKind kind, const InternedId& subject, DBNode& object,
                            u32 eventFlags, const PropertySet* extra) try {
  if (!WouldNotify(object)) return;
  const ObjectTopicText topic(object.GetTypeName().Text(), kind.topic, object.Guid());
  const Content content = ContentOf(topic.View());
  if (content == Content::kNothing) return;
  const bool isHeard = (eventFlags & EVENT_LOCAL) != 0 && events_.HasListeners();
  std::unique_ptr<PropertySet> localData;
  if (content == Content::kDeletion && isHeard) {
    localData = std::make_unique<PropertySet>(object.Properties());
  }
  const InternedId& about = content == Content::kRelation ? object.GetId() : subject;
  if (!ClientsPresent()) {
    pendingEvents_.Clear();
    if (!isHeard) return;
    SendLocalNotificationEvent(*this, topic.View(), about, object.GetTypeName(), false,
                               std::move(localData));
    return;
  }
  ChangeRecord record;
  record.flags = WithTaskFlag(eventFlags, object);
  record.topic = topic.View();
  record.database = Handle();
  record.objectId = about;
  record.objectType = object.GetTypeName();
  FillData(*this, content, object, extra, &record.data);
  PostRecord(std::move(record), std::move(localData));
} catch (const std::bad_alloc&) {
}

void Database::NotifyTypeChange(std::string topic, const InternedId& subject, TypeObject& type,
                                PropertySet data, u32 eventFlags) try {
  AssertBusLocked();
  if (callbacks_.changeCallback == nullptr || notifyEnable_ < 1) return;
  if (!MatchTopic(this, topic, kTypePatterns[0]) && !MatchTopic(this, topic, kTypePatterns[1])) {
    return;
  }
  ChangeRecord record;
  record.flags = WithTaskFlag(eventFlags, type);
  record.topic = std::move(topic);
  record.database = Handle();
  record.objectId = subject;
  record.objectType = type.GetTypeName();
  record.data = std::move(data);
  PostRecord(std::move(record), nullptr);
} catch (const std::bad_alloc&) {
}

// Straight to the clients, whatever sequence is open.
void Database::NotifyLocalOnlyChange(ChangeKind kind, const InternedId& subject,
                                     DBNode& object) try {
  AssertBusLocked();
  if (callbacks_.changeCallback == nullptr) return;
  ChangeRecord record;
  record.topic = ObjectTopic(object.GetTypeName().Text(), kind.topic, object.Guid());
  record.flags = EVENT_REMOTE;
  record.database = Handle();
  record.objectId = MatchTopic(this, record.topic, kChildPattern) ? object.GetId() : subject;
  record.objectType = object.GetTypeName();
  SendRecord(record);
} catch (const std::bad_alloc&) {
}

// The listeners of this process hear the change at once, whatever sequence is open.
void Database::PostRecord(ChangeRecord&& record, std::unique_ptr<PropertySet> localData) {
  if ((record.flags & EVENT_LOCAL) != 0 && events_.HasListeners()) {
    SendLocalNotificationEvent(*this, record.topic, record.objectId, record.objectType,
                               IsPlainTopic(record.topic), std::move(localData));
  }
  if (!ClientsPresent()) {
    pendingEvents_.Clear();
  } else if (sequenceDepth_ == 0) {
    SendRecord(record);
  } else {
    pendingEvents_.Merge(std::move(record));
  }
}

// Contract: it always sends what is queued, also the end of an inner sequence: the depth decides
// whether changes are queued, not when they leave. What cannot be told for want of memory is lost:
// a sequence also ends in destructors.
void Database::EndUpdateSequence() try {
  AssertBusLocked();
  if (sequenceDepth_ > 0) --sequenceDepth_;  // the start may have been on another database
  const IdSet deletedIds = DeletedIds(pendingEvents_.Records());
  for (const auto& record : pendingEvents_.Records()) {
    if (IsTaskRecord(*record) || !MatchTopic(this, record->topic, kAddPattern)) continue;
    const DBNode* object = FindCached(record->objectId.Value());
    if (object == nullptr) continue;
    record->data.Clear();
    MarshalObject(*object, &record->data);
  }
  std::vector<std::unique_ptr<ChangeRecord>> records = pendingEvents_.Take();
  if (records.size() == 1) {
    SendRecord(*records.front());
  } else if (!records.empty()) {
    SendBatch(std::move(records), deletedIds);
  }
} catch (const std::bad_alloc&) {
  pendingEvents_.Clear();
}

// One packet: clients stop following, take the changes, and follow again.
void Database::SendBatch(std::vector<std::unique_ptr<ChangeRecord>> records,
                         const IdSet& deletedIds) {
  records.insert(records.begin(), CacheRecord(kCacheDeafTopic));
  records.push_back(CacheRecord(kCacheListenTopic));
  std::vector<Value> changes;
  for (const auto& record : records) {
    if (IsSupersededByDelete(record->topic) && deletedIds.contains(record->objectId)) continue;
    AttachRelations(*record);
    changes.push_back(Value::Set(MarshalRecord(*record)));
  }
  ChangeRecord batch;
  batch.topic = kDatabaseChangeTopic;
  batch.database = Handle();
  batch.data.Put("Data", Value::Array(ZN_TYPE_PROPSET, std::move(changes)));
  SendRecord(batch);
}

void Database::QueueMarker(u32 serviceId) {
  AssertBusLocked();
  ChangeRecord marker;
  marker.flags = kMarkerFlags;
  marker.database = Handle();
  marker.data.Put("ChangeNotifyServiceId", Value::UInt32(serviceId));
  QueueChange(*this, MarshalRecord(marker));
}

void Database::SendRecord(ChangeRecord& record) {
  AttachRelations(record);
  QueueChange(*this, MarshalRecord(record));
}

// The relations as they are now, not as they were at the change: clients replace theirs.
void Database::AttachRelations(ChangeRecord& record) {
  const bool isParents = Contains(record.topic, ".relation.parent");
  if (!isParents && !Contains(record.topic, ".relation.child")) return;
  const DBNode* object = FindCached(record.objectId.Value());
  if (object == nullptr) return;
  record.data.Put(isParents ? "ParentList" : "ChildList",
                  VisibleIds(isParents ? object->Parents() : object->Children()));
}

// Takes the data out of the record.
PropertySet Database::MarshalRecord(ChangeRecord& record) {
  PropertySet set;
  set.Put("Message", Value::UInt32(kChangeNotificationMessage));
  set.Put("Flags", Value::UInt32(record.flags));
  set.Put("NotificationId", Value::Text(std::string_view(record.topic)));
  if (IsValidHandle(record.provider, HANDLE_PROVIDER)) {
    set.Put("ProviderId", Value::Id(HandleThing<Provider>(record.provider)->GetId()));
  }
  set.Put("ObjectId", Value::Id(record.objectId));
  set.Put("ObjectType", Value::Text(record.objectType));
  set.Put("Data", Value::Set(std::move(record.data)));
  return set;
}

Value Database::VisibleIds(const IdSet& ids) const {
  std::vector<Value> visible;
  for (const InternedId& id : ids) {
    const DBNode* object = FindCached(id.Value());
    if (object == nullptr || !object->IsHidden()) visible.push_back(Value::Id(id));
  }
  return Value::Array(ZN_TYPE_OBJECT_ID, std::move(visible));
}

void Database::MarshalObject(const DBNode& object, PropertySet* out) {
  AssertBusLocked();
  out->Put("ObjectId", Value::Id(object.GetId()));
  out->Put("ObjectType", Value::Text(object.GetTypeName()));
  out->Put("Flags", Value::UInt32(object.GetFlags()));
  out->Put("Data", Value::Set(PropertySet(object.Properties())));
  if (const NameSet* contained = object.GetContainedTypes(); contained != nullptr) {
    std::vector<Value> names;
    for (const std::string& name : *contained) names.push_back(Value::Text(std::string_view(name)));
    out->Put("ContainedTypes", Value::Array(ZN_TYPE_STRING, std::move(names)));
  }
  out->Put("ChildList", VisibleIds(object.Children()));
  out->Put("ParentList", VisibleIds(object.Parents()));
  out->Put("InterfaceList", TypeObject::InterfaceList(object.Interfaces()));
  out->Put("CreatorId", Value::Id(object.CreatorId()));
}

}  // namespace zn
