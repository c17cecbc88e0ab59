// Answers to cache requests: see the header.
#include "framework/common/zncore/remoteserver.h"

#include <utility>
#include <vector>

#include "framework/common/znapi/apiframe.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "framework/common/znwire/recordhead.h"

namespace zn {

namespace {

using wire::CountPlace;
using wire::HeadOf;
using wire::WriteHead;

constexpr std::string_view kProviderTypeName = "KELD_Provider";

void WriteVisibleIds(const Database& database, const IdSet& ids, BinaryWriter& stream) {
  CountPlace place(stream);
  u32 count = 0;
  for (const InternedId& id : ids) {
    const DBNode* object = database.FindCached(id.Value());
    if (object != nullptr && object->IsHidden()) continue;
    stream.WriteGuid(id.Value());
    ++count;
  }
  place.Set(count);
}

void WriteInterfaces(const std::vector<InterfaceRecord>& interfaces, BinaryWriter& stream) {
  static constexpr auto kInterface = HeadOf(ZN_TYPE_GUID, "Interface");
  static constexpr auto kProvider = HeadOf(ZN_TYPE_OBJECT_ID, "Provider");
  stream.WriteUInt32(static_cast<u32>(interfaces.size()));
  for (const InterfaceRecord& record : interfaces) {
    stream.WriteUInt32(2);
    WriteHead(stream, kInterface);
    stream.WriteGuid(record.interfaceId);
    WriteHead(stream, kProvider);
    stream.WriteGuid(record.provider.Value());
  }
}

void WriteNames(const NameSet& names, BinaryWriter& stream) {
  stream.WriteUInt32(static_cast<u32>(names.size()));
  for (const std::string& name : names) stream.WriteString(name);
}

// The list of objects as the one property of the answer's set.
class ObjectList {
 public:
  ObjectList(const Database& database, BinaryWriter& stream)
      : database_(database), stream_(stream), place_(Begin(stream)) {}

  void Add(const DBNode& object) {
    if (object.IsHidden()) return;
    WriteObject(database_, object, stream_);
    place_.Set(++count_);
  }
  void Add(const std::vector<ObjectId>& ids) {
    for (const ObjectId& id : ids) {
      const DBNode* object = database_.FindCached(id);
      if (object != nullptr) Add(*object);
    }
  }

 private:
  static CountPlace Begin(BinaryWriter& stream) {
    static constexpr auto kObjects = HeadOf(ZN_TYPE_OBJECT | ZN_TYPE_ARRAY, "Objects");
    stream.WriteUInt32(1);
    WriteHead(stream, kObjects);
    return CountPlace(stream);
  }

  const Database& database_;
  BinaryWriter& stream_;
  CountPlace place_;
  u32 count_ = 0;
};

void WriteList(std::string_view name, u32 elementTag, std::vector<Value> elements,
               BinaryWriter& stream) {
  PropertySet set;
  set.Put(name, Value::Array(elementTag, std::move(elements)));
  set.Marshal(stream);
}

void WriteProviders(const Database& database, BinaryWriter& stream) {
  std::vector<Value> providers;
  for (const auto& provider : database.Providers()) {
    PropertySet form;
    form.Put(wire::kProviderIdKey, Value::Id(provider->GetId()));
    form.Put(wire::kNameKey, Value::WideText(provider->Name()));
    form.Put(wire::kExtensionIdKey, Value::Text(provider->ClientExtension()));
    form.Put(wire::kMessageCatalogIdKey, Value::Text(provider->MessageCatalog()));
    form.Put(wire::kDataKey, Value::Set(PropertySet(provider->Properties())));
    providers.push_back(Value::Set(ZN_TYPE_PROVIDER, std::move(form)));
  }
  WriteList(wire::kProvidersKey, ZN_TYPE_PROVIDER, std::move(providers), stream);
}

void WriteTypes(Database& database, BinaryWriter& stream) {
  std::vector<Value> types;
  for (PropertySet& form : database.Types().DumpTypeGraph()) {
    types.push_back(Value::Set(ZN_TYPE_TYPE_OBJECT, std::move(form)));
  }
  WriteList(wire::kTypesKey, ZN_TYPE_TYPE_OBJECT, std::move(types), stream);
}

[[nodiscard]] u32 WriteByIds(Database& database, const PropertySet& wanted, BinaryWriter& stream) {
  const Value* ids = wanted.FindValue(wire::kDataKey, ZN_TYPE_OBJECT_ID | ZN_TYPE_ARRAY);
  if (ids == nullptr) return ZNE_INVALID_ARGUMENTS;
  ObjectList list(database, stream);
  for (const Value& id : ids->AsArray()) {
    const DBNode* object = database.FindCached(id.AsGuid());
    if (object != nullptr) list.Add(*object);
  }
  return ZN_OK;
}

[[nodiscard]] u32 WriteByType(Database& database, const PropertySet& wanted, BinaryWriter& stream) {
  const Value* name = wanted.FindValue(wire::kTypeKey, ZN_TYPE_STRING);
  if (name == nullptr) return ZNE_INVALID_ARGUMENTS;
  if (name->AsText() == kProviderTypeName) {
    WriteProviders(database, stream);
    return ZN_OK;
  }
  if (name->AsText() == kTypeTypeName) {
    WriteTypes(database, stream);
    return ZN_OK;
  }
  const TypeObject* type = database.Types().FindType(name->AsText());
  if (type == nullptr) return ZNE_INVALID_ARGUMENTS;
  std::vector<DBNode*> nodes;
  type->CollectInstances(&nodes);
  ObjectList list(database, stream);
  for (const DBNode* node : nodes) list.Add(*node);
  return ZN_OK;
}

[[nodiscard]] u32 WriteByQuery(Database& database, const PropertySet& wanted,
                               BinaryWriter& stream) {
  const Value* text = wanted.FindValue(wire::kQueryKey, ZN_TYPE_WIDESTRING);
  if (text == nullptr) return ZNE_INVALID_ARGUMENTS;
  std::vector<ObjectId> found;
  ZN_RETURN_IF_FAILED(database.Query(text->AsWideText(), &found));
  ObjectList(database, stream).Add(found);
  return ZN_OK;
}

[[nodiscard]] u32 WriteByInterface(Database& database, const PropertySet& wanted,
                                   BinaryWriter& stream) {
  const Value* type = wanted.FindValue(wire::kTypeKey, ZN_TYPE_STRING);
  const Value* interfaceId = wanted.FindValue(wire::kInterfaceIdKey, ZN_TYPE_GUID);
  if (type == nullptr || interfaceId == nullptr) return ZNE_INVALID_ARGUMENTS;
  std::vector<ObjectId> found;
  ZN_RETURN_IF_FAILED(
      database.GetObjectsWithInterface(type->AsText(), interfaceId->AsGuid(), &found));
  ObjectList(database, stream).Add(found);
  return ZN_OK;
}

using Answer = u32 (*)(Database&, const PropertySet& wanted, BinaryWriter&);

[[nodiscard]] Answer AnswerTo(RequestCriteria criterion) noexcept {
  switch (criterion) {
    case RequestCriteria::kIds:
      return WriteByIds;
    case RequestCriteria::kType:
      return WriteByType;
    case RequestCriteria::kQuery:
      return WriteByQuery;
    case RequestCriteria::kInterface:
      return WriteByInterface;
  }
  return nullptr;
}

[[nodiscard]] u32 Serve(Database& database, const PropertySet& request, BinaryWriter& reply) {
  const Value* message = request.FindValue(wire::kMessageKey, ZN_TYPE_UINT32);
  const Value* criterion = request.FindValue(wire::kCriteriaKey, ZN_TYPE_UINT32);
  if (message == nullptr || message->AsUInt32() != wire::kCacheRequest || criterion == nullptr) {
    return ZNE_INVALID_ARGUMENTS;
  }
  const Answer answer = AnswerTo(static_cast<RequestCriteria>(criterion->AsUInt32()));
  PropertySet room;
  const PropertySet* wanted = wire::FindNestedSet(request, wire::kDataKey, &room);
  if (answer == nullptr || wanted == nullptr) return ZNE_INVALID_ARGUMENTS;
  return answer(database, *wanted, reply);
}

}  // namespace

void WriteObject(const Database& database, const DBNode& object, BinaryWriter& stream) {
  AssertBusLocked();
  static constexpr auto kChildList = HeadOf(ZN_TYPE_OBJECT_ID | ZN_TYPE_ARRAY, "ChildList");
  static constexpr auto kContained = HeadOf(ZN_TYPE_STRING | ZN_TYPE_ARRAY, "ContainedTypes");
  static constexpr auto kCreatorId = HeadOf(ZN_TYPE_OBJECT_ID, "CreatorId");
  static constexpr auto kData = HeadOf(ZN_TYPE_PROPSET, "Data");
  static constexpr auto kFlags = HeadOf(ZN_TYPE_UINT32, "Flags");
  static constexpr auto kInterfaces = HeadOf(ZN_TYPE_PROPSET | ZN_TYPE_ARRAY, "InterfaceList");
  static constexpr auto kObjectId = HeadOf(ZN_TYPE_OBJECT_ID, "ObjectId");
  static constexpr auto kObjectType = HeadOf(ZN_TYPE_STRING, "ObjectType");
  static constexpr auto kParentList = HeadOf(ZN_TYPE_OBJECT_ID | ZN_TYPE_ARRAY, "ParentList");
  const NameSet* contained = object.GetContainedTypes();
  stream.WriteUInt32(contained == nullptr ? 8 : 9);
  WriteHead(stream, kChildList);
  WriteVisibleIds(database, object.Children(), stream);
  if (contained != nullptr) {
    WriteHead(stream, kContained);
    WriteNames(*contained, stream);
  }
  WriteHead(stream, kCreatorId);
  stream.WriteGuid(object.CreatorId().Value());
  WriteHead(stream, kData);
  object.Properties().Marshal(stream);
  WriteHead(stream, kFlags);
  stream.WriteUInt32(object.GetFlags());
  WriteHead(stream, kInterfaces);
  WriteInterfaces(object.Interfaces(), stream);
  WriteHead(stream, kObjectId);
  stream.WriteGuid(object.Guid());
  WriteHead(stream, kObjectType);
  stream.WriteString(object.GetTypeName().Text());
  WriteHead(stream, kParentList);
  WriteVisibleIds(database, object.Parents(), stream);
}

u32 DbRemoteCacheRequest(ZnHandle hDb, const PropertySet& request, BinaryWriter& reply) noexcept {
  return ApiCall("DbRemoteCacheRequest", {.entry = false, .exit = false},
                 [&](ApiFrame& frame) -> u32 {
                   ZN_RETURN_UNLESS_OK(frame.Check(IsDatabaseHandle(hDb)));
                   Database* database = nullptr;
                   ZN_RETURN_UNLESS_OK(frame.OpenDatabase(hDb, &database));
                   return Serve(*database, request, reply);
                 });
}

}  // namespace zn
