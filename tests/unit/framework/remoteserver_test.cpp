#include "framework/common/zncore/remoteserver.h"

#include <gmock/gmock.h>

#include "framework/common/znwire/messages.h"
#include "framework/common/znwire/nestedset.h"
#include "framework/common/znwire/recordhead.h"
#include "support/common/handle.h"
#include "tests/unit/framework/fixture.h"
#include "tests/unit/framework/sets.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr GUID kInterface = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};

class RemoteServer : public StoreTest {
 protected:
  static PropertySet Request(u32 criterion, PropertySet data) {
    PropertySet set;
    set.Put("Message", Value::UInt32(5));
    set.Put("Criteria", Value::UInt32(criterion));
    set.Put("Data", Value::Set(std::move(data)));
    return set;
  }
  static PropertySet ById(const std::vector<ObjectId>& ids) {
    std::vector<Value> values;
    for (const ObjectId& id : ids) values.push_back(Value::Id(id));
    PropertySet data;
    data.Put("Data", Value::Array(ZN_TYPE_OBJECT_ID, std::move(values)));
    return Request(1, std::move(data));
  }
  static PropertySet ByType(std::string_view type) {
    PropertySet data;
    data.Put("Type", Value::Text(type));
    return Request(2, std::move(data));
  }
  static PropertySet ByQuery(std::u16string_view text) {
    PropertySet data;
    data.Put("Query", Value::WideText(text));
    return Request(3, std::move(data));
  }
  static PropertySet ByInterface(std::string_view type, const GUID& id) {
    PropertySet data;
    data.Put("Type", Value::Text(type));
    data.Put("InterfaceId", Value::Guid(id));
    return Request(4, std::move(data));
  }
  static u32 Ask(const PropertySet& request, PropertySet* reply) {
    BinaryWriter stream;
    const u32 status = DbRemoteCacheRequest(nullptr, request, stream);
    reply->Clear();
    if (!ZN_FAILED(status)) {
      *reply =
          SetOf({reinterpret_cast<const char*>(stream.Buffer().Data()), stream.Buffer().Size()});
    }
    return status;
  }
  static std::vector<GUID> IdsIn(const PropertySet& reply) {
    std::vector<GUID> ids;
    const Value* objects = reply.FindValue("Objects", ZN_TYPE_OBJECT | ZN_TYPE_ARRAY);
    EXPECT_NE(objects, nullptr);
    if (objects == nullptr) return ids;
    for (const Value& object : objects->AsArray()) {
      ids.push_back(object.AsSet().FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid());
    }
    return ids;
  }
  static std::vector<GUID> Found(const PropertySet& request) {
    PropertySet reply;
    EXPECT_EQ(Ask(request, &reply), ZN_OK);
    EXPECT_EQ(reply.Count(), 1u);
    return IdsIn(reply);
  }
};

MATCHER_P(Is, id, "") {
  return SameGuid(arg, id);
}

TEST(PropertyHead, IsTheOneThatAPropertyWrites) {
  static constexpr auto kObjectsHead = wire::HeadOf(ZN_TYPE_OBJECT | ZN_TYPE_ARRAY, "Objects");
  BinaryWriter stream;
  stream.WriteUInt32(1);
  wire::WriteHead(stream, kObjectsHead);
  wire::CountPlace place(stream);
  place.Set(0);
  PropertySet set;
  set.Put("Objects", Value::Array(ZN_TYPE_OBJECT, {}));
  EXPECT_EQ(
      std::string(reinterpret_cast<const char*>(stream.Buffer().Data()), stream.Buffer().Size()),
      BytesOf(set));
}

TEST(NestedSet, IsReadAsASetAndAsBytes) {
  PropertySet inner;
  inner.Put("Number", Value::UInt32(7));
  PropertySet message;
  PropertySet room;
  EXPECT_EQ(wire::FindNestedSet(message, "Data", &room), nullptr);
  message.Put("Data", Value::Set(PropertySet(inner)));
  const PropertySet* found = wire::FindNestedSet(message, "Data", &room);
  ASSERT_NE(found, nullptr);
  EXPECT_NE(found, &room);
  EXPECT_EQ(BytesOf(*found), BytesOf(inner));
  message.Put("Data", wire::AsBinary(inner));
  EXPECT_EQ(wire::FindNestedSet(message, "Data", &room), &room);
  EXPECT_EQ(BytesOf(room), BytesOf(inner));
  message.Put("Data", Value::Binary("\0\0\0\1", 4));
  EXPECT_EQ(wire::FindNestedSet(message, "Data", &room), nullptr);
  message.Put("Data", Value::UInt32(1));
  EXPECT_EQ(wire::FindNestedSet(message, "Data", &room), nullptr);
}

TEST_F(RemoteServer, WritesAnObjectAsItsSetIsMarshalled) {
  MakeType("Thing");
  DBNode* group = MakeGroup(u"things", {"Thing", "Other"});
  DBNode* parent = Make("Thing");
  DBNode* hidden = Make("Thing", OBJECT_HIDDEN);
  DBNode* child = Make("Thing");
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  ASSERT_EQ(parent->AddChild(hidden->GetId()), ZN_OK);
  ASSERT_EQ(parent->AddInterface(kInterface, provider_->GetId()), ZN_OK);
  ASSERT_EQ(parent->SetProperty(Property("Name", Value::WideText(u"a thing"))), ZN_OK);
  for (const DBNode* node : {group, parent, hidden, child}) {
    PropertySet form;
    database_->MarshalObject(*node, &form);
    BinaryWriter stream;
    WriteObject(*database_, *node, stream);
    EXPECT_EQ(
        std::string(reinterpret_cast<const char*>(stream.Buffer().Data()), stream.Buffer().Size()),
        BytesOf(form));
  }
}

TEST_F(RemoteServer, FindsObjectsByTheirIds) {
  const DBNode* first = Make();
  const DBNode* second = Make();
  const DBNode* hidden = Make("KELD_Object", OBJECT_HIDDEN);
  EXPECT_THAT(Found(ById({second->Guid(), TestGuid(1), hidden->Guid(), first->Guid()})),
              ElementsAre(Is(second->Guid()), Is(first->Guid())))
      << "in the order asked for, without the unknown and the hidden";
  EXPECT_THAT(Found(ById({})), IsEmpty());
}

TEST_F(RemoteServer, FindsTheObjectsOfATypeAndOfThoseDerivedFromIt) {
  MakeType("Thing");
  MakeType("Small", {}, {"Thing"});
  const DBNode* thing = Make("Thing");
  const DBNode* small = Make("Small");
  Make("Small", OBJECT_HIDDEN);
  Make("KELD_Object");
  EXPECT_THAT(Found(ByType("Thing")), UnorderedElementsAre(Is(thing->Guid()), Is(small->Guid())));
  MakeType("Empty");
  EXPECT_THAT(Found(ByType("Empty")), IsEmpty()) << "the list is there also when it is empty";
}

TEST_F(RemoteServer, ListsAllProviders) {
  provider_->SetExtensions("{ext}", "{cat}");
  PropertySet reply;
  ASSERT_EQ(Ask(ByType("KELD_Provider"), &reply), ZN_OK);
  EXPECT_EQ(reply.Count(), 1u);
  const Value* list = reply.FindValue("Providers", ZN_TYPE_PROVIDER | ZN_TYPE_ARRAY);
  ASSERT_NE(list, nullptr);
  ASSERT_THAT(list->AsArray(), SizeIs(database_->Providers().size()));
  const PropertySet& form = list->AsArray().back().AsSet();
  EXPECT_EQ(form.Count(), 5u);
  EXPECT_TRUE(
      SameGuid(form.FindValue("ProviderId", ZN_TYPE_OBJECT_ID)->AsGuid(), provider_->Guid()));
  EXPECT_EQ(form.FindValue("Name", ZN_TYPE_WIDESTRING)->AsWideText(), u"test");
  EXPECT_EQ(form.FindValue("ExtensionId", ZN_TYPE_STRING)->AsText(), "{ext}");
  EXPECT_EQ(form.FindValue("MessageCatalogId", ZN_TYPE_STRING)->AsText(), "{cat}");
  EXPECT_NE(form.FindValue("Data", ZN_TYPE_PROPSET), nullptr);
}

TEST_F(RemoteServer, ListsAllTypesSupertypesFirst) {
  MakeType("Thing");
  MakeType("Any", {}, {"Thing"});
  PropertySet reply;
  ASSERT_EQ(Ask(ByType("KELD_Type"), &reply), ZN_OK);
  const Value* list = reply.FindValue("Types", ZN_TYPE_TYPE_OBJECT | ZN_TYPE_ARRAY);
  ASSERT_NE(list, nullptr);
  std::vector<std::string> names;
  for (const Value& type : list->AsArray()) {
    names.emplace_back(type.AsSet().FindValue("TypeName", ZN_TYPE_STRING)->AsText());
  }
  const auto at = [&](const char* name) { return std::find(names.begin(), names.end(), name); };
  ASSERT_NE(at("Any"), names.end());
  EXPECT_LT(at("Thing"), at("Any"));
}

TEST_F(RemoteServer, FindsObjectsByAQuery) {
  PropertySet properties;
  properties.Put("Size", Value::UInt32(0), ZN_PROPERTY_INDEXED);
  MakeType("Thing", properties);
  DBNode* one = Make("Thing");
  Make("Thing");
  ASSERT_EQ(one->SetProperty(Property("Size", Value::UInt32(7))), ZN_OK);
  EXPECT_THAT(Found(ByQuery(u"SELECT FROM Thing WHERE Size EQ 7")), ElementsAre(Is(one->Guid())));
  PropertySet reply;
  EXPECT_EQ(Ask(ByQuery(u"no query"), &reply), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Ask(ByQuery(u"SELECT FROM Unheard WHERE Size EQ 7"), &reply), ZNE_TYPE_NOT_FOUND);
}

TEST_F(RemoteServer, FindsObjectsWithAnInterface) {
  MakeType("Thing");
  DBNode* thing = Make("Thing");
  DBNode* other = Make();
  DBNode* hidden = Make("Thing", OBJECT_HIDDEN);
  for (DBNode* node : {thing, other, hidden}) {
    ASSERT_EQ(database_->RegisterInterface(node, kInterface, provider_->GetId()), ZN_OK);
  }
  EXPECT_THAT(Found(ByInterface("Thing", kInterface)), ElementsAre(Is(thing->Guid())));
  EXPECT_THAT(Found(ByInterface("KELD_Object", kInterface)),
              UnorderedElementsAre(Is(thing->Guid()), Is(other->Guid())));
  EXPECT_THAT(Found(ByInterface("Thing", TestGuid(9))), IsEmpty());
  PropertySet reply;
  EXPECT_EQ(Ask(ByInterface("Unheard", kInterface), &reply), ZNE_INVALID_ARGUMENTS);
}

TEST_F(RemoteServer, TakesItsDataAsBytesToo) {
  const DBNode* node = Make();
  PropertySet request = ById({node->Guid()});
  request.Put("Data", wire::AsBinary(request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet()));
  EXPECT_THAT(Found(request), ElementsAre(Is(node->Guid())));
}

struct BadRequest {
  const char* why;
  PropertySet request;
};
TEST_F(RemoteServer, RefusesARequestOfAnotherShape) {
  const PropertySet good = ById({});
  const auto without = [&](const char* name) {
    PropertySet set = good;
    EXPECT_EQ(set.Delete(name), ZN_OK);
    return set;
  };
  const auto with = [&](const char* name, Value value) {
    PropertySet set = good;
    set.Put(name, std::move(value));
    return set;
  };
  PropertySet idsOfAnotherType;
  idsOfAnotherType.Put("Data", Value::Array(ZN_TYPE_GUID, {}));
  PropertySet wideType;
  wideType.Put("Type", Value::WideText(u"Thing"));
  PropertySet narrowQuery;
  narrowQuery.Put("Query", Value::Text(std::string_view("SELECT")));
  const BadRequest requests[] = {
      {"no message", without("Message")},
      {"another message", with("Message", Value::UInt32(7))},
      {"a message of another type", with("Message", Value::Int32(5))},
      {"no criterion", without("Criteria")},
      {"criterion 0", with("Criteria", Value::UInt32(0))},
      {"criterion 5", with("Criteria", Value::UInt32(5))},
      {"a criterion of another type", with("Criteria", Value::Int32(1))},
      {"no data", without("Data")},
      {"data of another type", with("Data", Value::UInt32(1))},
      {"data that is no set", with("Data", Value::Binary("\0\0\0\1", 4))},
      {"ids of another type", Request(1, idsOfAnotherType)},
      {"no ids", Request(1, {})},
      {"no type", Request(2, {})},
      {"a wide type", Request(2, wideType)},
      {"an unknown type", ByType("Unheard")},
      {"no query", Request(3, {})},
      {"a narrow query", Request(3, narrowQuery)},
      {"no interface", Request(4, ByType("KELD_Object"))},
      {"nothing for an interface", Request(4, {})},
  };
  for (const BadRequest& row : requests) {
    PropertySet reply;
    EXPECT_EQ(Ask(row.request, &reply), ZNE_INVALID_ARGUMENTS) << row.why;
  }
}

TEST_F(RemoteServer, RefusesWithTheTextsOfItsFrameAndNoOthers) {
  const TraceCapture trace(1);
  BinaryWriter stream;
  ZnHandle bad = provider_->Handle();
  EXPECT_EQ(DbRemoteCacheRequest(bad, ById({}), stream), ZNE_INVALID_ARGUMENTS);
  SetSystemDatabase(nullptr);
  EXPECT_EQ(DbRemoteCacheRequest(nullptr, ById({}), stream), ZNE_INVALID_ARGUMENTS);
  SetSystemDatabase(database_.get());
  database_->SetFlags(database_->Flags() & ~DB_AUTHENTICATED);
  EXPECT_EQ(DbRemoteCacheRequest(nullptr, ById({}), stream), ZNW_SHMEM_LOGIN_FAILED);
  database_->SetFlags(database_->Flags() | DB_AUTHENTICATED);
  EXPECT_EQ(DbRemoteCacheRequest(database_->Handle(), ById({}), stream), ZN_OK);
  EXPECT_THAT(trace.Messages(), ElementsAre("ZnAPI:DbRemoteCacheRequest: Invalid arguments",
                                            "ZnAPI:DbRemoteCacheRequest: Invalid database",
                                            "ZnAPI:DbRemoteCacheRequest: DB auth failed"));
}

TEST_F(RemoteServer, AnAnswerOfManyObjectsTakesLittleMoreThanItself) {
  MakeType("Thing");
  for (int i = 0; i < 2000; ++i) Make("Thing");
  BinaryWriter stream;
  ASSERT_EQ(DbRemoteCacheRequest(nullptr, ByType("Thing"), stream), ZN_OK);
  EXPECT_GT(stream.Buffer().Size(), 2000u * 100);
  EXPECT_LT(stream.Buffer().Capacity(), 2 * stream.Buffer().Size() + 0x2000);
}

}  // namespace

}  // namespace zn::test
