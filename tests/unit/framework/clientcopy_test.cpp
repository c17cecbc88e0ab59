// Client copies: what they fetch, when they ask, and what they keep to themselves. The changes that
// a server tells: clientcopy_update_test.cpp.
#include <thread>

#include "framework/common/znalert/alert.h"
#include "framework/common/znprov/localprovider.h"
#include "tests/unit/framework/clientcopy_fixture.h"
#include "zn/alert.h"
#include "zn/ev.h"

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

TEST_F(RemoteCopyTest, IsAListedDatabaseOfItsOwnKind) {
  EXPECT_FALSE(Copy().IsLocal());
  EXPECT_FALSE(Copy().IsKeyed());
  EXPECT_EQ(Copy().Callbacks().changeCallback, nullptr);
  const auto isCopy = [&](const auto& database) { return database.get() == &Copy(); };
  EXPECT_TRUE(std::any_of(DatabaseList().begin(), DatabaseList().end(), isCopy));
  EXPECT_EQ(DbDeletePrivateDatabase(copy_), ZNE_INVALID_ARGUMENTS);
}

TEST_F(RemoteCopyTest, EveryFrameIsRefusedBeforeTheLogon) {
  const ObjectId id = Make();
  ASSERT_TRUE(SetLoggedOn(copy_, false));
  u32 count = 0;
  ObjectId* ids = nullptr;
  ZnHandle provider = nullptr;
  Property2* property = nullptr;
  EXPECT_EQ(DbGetObjects(copy_, "KELD_Type", &count, &ids), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_EQ(ObGetProperty(copy_, id, "Size", &property), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_EQ(PrGetProviderByName(copy_, u"system", &provider), ZNW_SHMEM_LOGIN_FAILED);
  PropertySet record = Record("event.x", id, "TEST_Thing", {});
  EXPECT_EQ(DbUpdateCache(copy_, record), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_THAT(requests, IsEmpty());
}

TEST_F(RemoteCopyTest, AMissIsFetchedByIdAndOnce) {
  Warm();
  const ObjectId id = Make();
  SetSize(id, 7);
  EXPECT_FALSE(IsHere(id));
  EXPECT_THAT(requests, IsEmpty()) << "the question whether it is here asks nobody";
  EXPECT_EQ(Size(id), 7u);
  EXPECT_EQ(Size(id), 7u);
  EXPECT_TRUE(IsHere(id));
  ASSERT_THAT(requests, SizeIs(1));
  const PropertySet& request = requests[0];
  EXPECT_EQ(request.FindValue("Message", ZN_TYPE_UINT32)->AsUInt32(), 5u);
  EXPECT_EQ(request.FindValue("Criteria", ZN_TYPE_UINT32)->AsUInt32(), 1u);
  const PropertySet& data = request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
  const Value* ids = data.FindValue("Data", ZN_TYPE_ARRAY | ZN_TYPE_OBJECT_ID);
  ASSERT_NE(ids, nullptr);
  ASSERT_THAT(ids->AsArray(), SizeIs(1));
  EXPECT_EQ(ids->AsArray()[0].AsGuid(), id);
}

TEST_F(RemoteCopyTest, AnObjectThatTheServerHasNotOrHidesIsNotFound) {
  Warm();
  const ObjectId hidden = Make("TEST_Thing", OBJECT_HIDDEN);
  EXPECT_EQ(Size(hidden), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(Size(TestGuid(9)), ZNE_OBJECT_NOT_FOUND);
  EXPECT_THAT(Criteria(), ElementsAre(1u, 1u));
}

TEST_F(RemoteCopyTest, AFailedRequestLeavesTheCopyAsItWas) {
  Warm();
  const ObjectId id = Make();
  onRequest = [](PropertySet&, PropertySet*) -> u32 { return ZNE_UNEXPECTED; };
  EXPECT_EQ(Size(id), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(List("TEST_Thing").first, ZNE_UNEXPECTED);
  EXPECT_FALSE(Copy().Types().FindType("TEST_Thing")->IsComplete());
  onRequest = nullptr;
  EXPECT_THAT(List("TEST_Thing").second, ElementsAre(id));
}

TEST_F(RemoteCopyTest, AnAnswerWithoutPropertiesIsAMiss) {
  Warm();
  onRequest = [](PropertySet&, PropertySet*) -> u32 { return ZN_OK; };
  EXPECT_EQ(Size(Make()), ZNE_OBJECT_NOT_FOUND);
}

TEST_F(RemoteCopyTest, AFetchBringsTheChildrenToo) {
  Warm();
  const ObjectId parent = Make();
  std::vector<ObjectId> children;
  for (int i = 0; i < 3; ++i) {
    children.push_back(Make());
    ASSERT_EQ(ObAddChildObject(nullptr, parent, children.back()), ZN_OK);
  }
  EXPECT_EQ(Size(parent), 0u);
  EXPECT_THAT(Criteria(), ElementsAre(1u, 1u)) << "the object, then all its children";
  for (const ObjectId& child : children) EXPECT_TRUE(IsHere(child));
  EXPECT_EQ(Size(parent), 0u);
  EXPECT_THAT(requests, SizeIs(2));
}

TEST_F(RemoteCopyTest, TheChildrenOfGroupsAreNotFetchedAhead) {
  Warm();
  const ObjectId member = Make();
  const char* types[] = {"TEST_Thing"};
  ObjectId group{};
  ASSERT_EQ(DbCreateGroupNode(nullptr, 1, types, 0, u"things", &group), ZN_OK);
  u32 flags = 0;
  EXPECT_EQ(ObGetObjectFlags(copy_, group, &flags), ZN_OK);
  EXPECT_THAT(requests, SizeIs(1));
  EXPECT_FALSE(IsHere(member));
}

TEST_F(RemoteCopyTest, AWholeTypeIsFetchedOnce) {
  Warm();
  const ObjectId one = Make();
  const ObjectId two = Make("TEST_Special");
  EXPECT_THAT(List("TEST_Thing").second, UnorderedElementsAre(one, two));
  EXPECT_THAT(List("TEST_Thing").second, UnorderedElementsAre(one, two));
  EXPECT_THAT(List("TEST_Special").second, ElementsAre(two)) << "complete with its base";
  ASSERT_THAT(Criteria(), ElementsAre(2u));
  EXPECT_EQ(requests[0]
                .FindValue("Data", ZN_TYPE_PROPSET)
                ->AsSet()
                .FindValue("Type", ZN_TYPE_STRING)
                ->AsText(),
            "TEST_Thing");
  EXPECT_FALSE(Copy().Types().FindType("KELD_Object")->IsComplete());
}

TEST_F(RemoteCopyTest, AnUnknownTypeAsksNobody) {
  Warm();
  EXPECT_EQ(List("NoSuchType").first, ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(requests, IsEmpty());
}

TEST_F(RemoteCopyTest, TheTypesComeWithTheFirstQuestionForThem) {
  EXPECT_EQ(List("TEST_Thing").first, ZNE_INVALID_ARGUMENTS) << "no types are here yet";
  const auto [status, types] = List("KELD_Type");
  EXPECT_EQ(status, ZN_OK);
  EXPECT_EQ(types.size(), server->Types().Types().size() - 1) << "the type of types is no instance";
  EXPECT_THAT(Criteria(), ElementsAre(2u));
  EXPECT_TRUE(TypeIsA(copy_, "TEST_Special", "KELD_Object"));
  EXPECT_EQ(List("KELD_Type").second.size(), types.size());
  EXPECT_THAT(requests, SizeIs(1));
}

TEST_F(RemoteCopyTest, TypesAreUnknownWhenTheRequestForThemFails) {
  onRequest = [](PropertySet&, PropertySet*) -> u32 { return ZNE_INVALID_ARGUMENTS; };
  EXPECT_EQ(List("KELD_Type").first, ZNE_INVALID_ARGUMENTS);
  onRequest = [](PropertySet&, PropertySet* reply) -> u32 {
    reply->Put("Types", Value::Array(ZN_TYPE_TYPE_OBJECT, {}));
    return ZN_OK;
  };
  EXPECT_EQ(List("KELD_Type").first, ZNE_UNEXPECTED);
}

TEST_F(RemoteCopyTest, ListsOfPlainSetsAreReadToo) {
  onRequest = [](PropertySet& request, PropertySet* reply) -> u32 {
    PropertySet answer;
    const u32 status = Serve(request, &answer);
    for (const char* name : {"Types", "Objects", "Providers"}) {
      std::vector<Value> sets;
      const std::vector<Value>* list = FindSetList(answer, name);
      if (list == nullptr) continue;
      for (const Value& form : *list) sets.push_back(Value::Set(PropertySet(form.AsSet())));
      reply->Put(name, Value::Array(ZN_TYPE_PROPSET, std::move(sets)));
    }
    return status;
  };
  Warm();
  const ObjectId id = Make();
  EXPECT_THAT(List("TEST_Thing").second, ElementsAre(id));
  ZnHandle provider = nullptr;
  EXPECT_EQ(PrGetProviderByName(copy_, u"first", &provider), ZN_OK);
}

TEST_F(RemoteCopyTest, AnInstallEndsAtTheFirstBadObject) {
  Warm();
  const ObjectId good = Make();
  onRequest = [&](PropertySet&, PropertySet* reply) -> u32 {
    const BusLock lock;
    PropertySet form;
    server->MarshalObject(*server->FindCached(good), &form);
    PropertySet bad = form;
    bad.Put("ObjectId", Value::Id(TestGuid(1)));
    bad.Put("ObjectType", Value::Text("NoSuchType"));
    PropertySet nameless;
    nameless.Put("Name", Value::Text("no id: passed over"));
    PropertySet late = form;
    late.Put("ObjectId", Value::Id(TestGuid(2)));
    std::vector<Value> list;
    for (PropertySet* set : {&nameless, &form, &bad, &late}) {
      list.push_back(Value::Set(std::move(*set)));
    }
    reply->Put("Objects", Value::Array(ZN_TYPE_PROPSET, std::move(list)));
    return ZN_OK;
  };
  EXPECT_EQ(List("TEST_Thing").first, ZNE_TYPE_NOT_FOUND);
  EXPECT_TRUE(IsHere(good));
  EXPECT_FALSE(IsHere(TestGuid(2)));
  EXPECT_FALSE(Copy().Types().FindType("TEST_Thing")->IsComplete());
}

TEST_F(RemoteCopyTest, MissingRelationsComeInOneRequest) {
  Warm();
  const ObjectId parent = Make();
  std::vector<ObjectId> children;
  for (int i = 0; i < 4; ++i) {
    children.push_back(Make(i == 0 ? "TEST_Special" : "TEST_Thing"));
    ASSERT_EQ(ObAddChildObject(nullptr, parent, children.back()), ZN_OK);
  }
  // The first is here before the others are asked for.
  EXPECT_EQ(Size(children[0]), 0u);
  requests.clear();
  u32 count = 0;
  ObjectId* ids = nullptr;
  ASSERT_EQ(ObGetParentObjects(copy_, children[0], "TEST_Thing", &count, &ids), ZN_OK);
  EXPECT_EQ(count, 1u);
  ZnFree(ids);
  EXPECT_THAT(Criteria(), ElementsAre(1u, 1u)) << "the one parent, with its children ahead";
  requests.clear();
  ASSERT_EQ(ObGetChildObjects(copy_, parent, "TEST_Special", &count, &ids), ZN_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(ids[0], children[0]);
  ZnFree(ids);
  EXPECT_THAT(requests, IsEmpty());
}

TEST_F(RemoteCopyTest, TheMembersOfAGroupComeInOneRequestWhenTheyAreAskedFor) {
  Warm();
  for (int i = 0; i < 3; ++i) Make();
  const char* types[] = {"TEST_Thing"};
  ObjectId group{};
  ASSERT_EQ(DbCreateGroupNode(nullptr, 1, types, 0, u"things", &group), ZN_OK);
  u32 count = 0;
  ObjectId* ids = nullptr;
  ASSERT_EQ(ObGetChildObjects(copy_, group, "TEST_Thing", &count, &ids), ZN_OK);
  EXPECT_EQ(count, 3u);
  ZnFree(ids);
  EXPECT_THAT(Criteria(), ElementsAre(1u, 1u));
}

TEST_F(RemoteCopyTest, MembersThatCannotBeFetchedAreLeftOutOfATypedListAlone) {
  Warm();
  const ObjectId parent = Make();
  for (int i = 0; i < 2; ++i) ASSERT_EQ(ObAddChildObject(nullptr, parent, Make()), ZN_OK);
  onRequest = [&](PropertySet& request, PropertySet* reply) -> u32 {
    if (requests.size() == 1) return Serve(request, reply);
    return ZNE_UNEXPECTED;
  };
  u32 count = 7;
  ObjectId* ids = nullptr;
  EXPECT_EQ(ObGetChildObjects(copy_, parent, "TEST_Thing", &count, &ids), ZN_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(ObGetChildObjects(copy_, parent, nullptr, &count, &ids), ZN_OK);
  EXPECT_EQ(count, 2u) << "the root type names every member";
  ZnFree(ids);
}

TEST_F(RemoteCopyTest, ChildrenAreAskedForOnlyWhereNoneThatIsHereWillDo) {
  Warm();
  const ObjectId group = [&] {
    for (int i = 0; i < 3; ++i) Make();
    const char* types[] = {"TEST_Thing"};
    ObjectId id{};
    EXPECT_EQ(DbCreateGroupNode(nullptr, 1, types, 0, u"things", &id), ZN_OK);
    return id;
  }();
  EXPECT_TRUE(ObHasChildren(copy_, group, 0));
  EXPECT_THAT(requests, SizeIs(2)) << "the group and one member";
  EXPECT_TRUE(ObHasChildren(copy_, group, 0));
  EXPECT_THAT(requests, SizeIs(2));
  EXPECT_FALSE(ObHasChildren(copy_, group, OBJECT_NODISPLAY));
  EXPECT_THAT(requests, SizeIs(4));
}

TEST_F(RemoteCopyTest, ARelationMayVanishWhileItsMembersAreFetched) {
  Warm();
  const ObjectId parent = Make();
  for (int i = 0; i < 2; ++i) ASSERT_EQ(ObAddChildObject(nullptr, parent, Make()), ZN_OK);
  onRequest = [&](PropertySet& request, PropertySet* reply) -> u32 {
    if (requests.size() == 1) {
      PropertySet answer;
      const u32 status = Serve(request, &answer);
      *reply = answer;
      return status;
    }
    EXPECT_EQ(ObDeleteObject(copy_, parent), ZN_OK);
    return ZNE_UNEXPECTED;
  };
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(ObGetChildObjects(copy_, parent, "TEST_Thing", &count, &ids), ZNE_OBJECT_NOT_FOUND);
}

TEST_F(RemoteCopyTest, ProvidersComeAllAtOnceAndHaveNoCode) {
  EXPECT_EQ(List("KELD_Type").first, ZN_OK);
  first_->SetExtensions("x", "y");
  ZnHandle provider = nullptr;
  EXPECT_EQ(PrGetProviderByName(copy_, u"SYSTEM", &provider), ZNE_PROVIDER_REG_NO_PROVIDERS)
      << "names are compared exactly";
  EXPECT_THAT(Criteria(), ElementsAre(2u, 2u));
  EXPECT_EQ(PrGetProviderByName(copy_, u"first", &provider), ZN_OK);
  EXPECT_NE(provider, first_->Handle());
  ZnHandle same = nullptr;
  EXPECT_EQ(PrGetProviderHandle(copy_, first_->GetId().Value(), &same), ZN_OK);
  EXPECT_EQ(same, provider);
  EXPECT_THAT(requests, SizeIs(2));
  const auto* installed = HandleThing<Provider>(provider);
  EXPECT_EQ(installed->ClientExtension().Text(), "extension");
  EXPECT_EQ(installed->MessageCatalog().Text(), "catalog");
  EXPECT_EQ(installed->GetFlags() & OBJECT_CLIENT_LOCAL, 0u);
  EXPECT_EQ(installed->Callbacks().Call, nullptr);
}

TEST_F(RemoteCopyTest, AProviderOfTheServerIsNotCalledDirectly) {
  Warm();
  ZnHandle provider = nullptr;
  ASSERT_EQ(PrGetProviderByName(copy_, u"first", &provider), ZN_OK);
  const ZnHandle set = WrapPropertySet(PropertySet());
  ObjectId answered{};
  const TraceCapture traces(3);
  EXPECT_EQ(PrCallProvider(provider, ObjectId{}, &kShownInterface, 1, 2, set, set, 0, 0, nullptr,
                           nullptr, &answered, nullptr),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:PrCallProvider: Client database with non-client provider"));
  EXPECT_TRUE(DestroyPropertySet(set));
}

TEST_F(RemoteCopyTest, ACallIsForwardedWithAllItsWords) {
  Warm();
  const ObjectId object = Make();
  ASSERT_EQ(ObRegisterInterface(nullptr, object, first_->Handle(), &kShownInterface), ZN_OK);
  PropertySet seen;
  onCall = [&](PropertySet& request, ObjectId* provider, ObjectId* task, PropertySet* out) -> u32 {
    seen = request;
    *provider = TestGuid(1);
    if (task != nullptr) *task = TestGuid(2);
    out->Put("Answer", Value::UInt32(42));
    return ZNW_SERVICE_UNAVAILABLE;
  };
  PropertySet input;
  input.Put("Question", Value::Text("six times nine"));
  const ZnHandle in = WrapPropertySet(std::move(input));
  const ZnHandle out = WrapPropertySet(PropertySet());
  ObjectId provider{};
  ObjectId task{};
  EXPECT_EQ(PrCallDispatch(copy_, object, &kShownInterface, 3, 4, in, out, ZN_CALL_ASYNCHRONOUS, 5,
                           nullptr, nullptr, &provider, &task),
            ZNW_SERVICE_UNAVAILABLE);
  EXPECT_EQ(provider, TestGuid(1));
  EXPECT_EQ(task, TestGuid(2));
  EXPECT_EQ(HandleThing<PropertySet>(out)->FindValue("Answer", ZN_TYPE_UINT32)->AsUInt32(), 42u);
  EXPECT_EQ(seen.FindValue("ObjectId", ZN_TYPE_OBJECT_ID)->AsGuid(), object);
  EXPECT_EQ(seen.FindValue("InterfaceId", ZN_TYPE_GUID)->AsGuid(), kShownInterface);
  EXPECT_EQ(seen.FindValue("MajorCode", ZN_TYPE_UINT32)->AsUInt32(), 3u);
  EXPECT_EQ(seen.FindValue("MinorCode", ZN_TYPE_UINT32)->AsUInt32(), 4u);
  EXPECT_EQ(seen.FindValue("Flags", ZN_TYPE_UINT32)->AsUInt32(), ZN_CALL_ASYNCHRONOUS);
  EXPECT_EQ(seen.FindValue("Reserved", ZN_TYPE_UINT32)->AsUInt32(), 5u);
  EXPECT_NE(seen.FindValue("Data", ZN_TYPE_PROPSET)->AsSet().Find("Question"), nullptr);
  // A call that is no task has no place for one.
  task = TestGuid(3);
  EXPECT_EQ(PrCallDispatch(copy_, object, &kShownInterface, 3, 4, in, out, 0, 0, nullptr, nullptr,
                           &provider, &task),
            ZNW_SERVICE_UNAVAILABLE);
  EXPECT_EQ(task, TestGuid(3));
  EXPECT_TRUE(DestroyPropertySet(in));
  EXPECT_TRUE(DestroyPropertySet(out));
}

TEST_F(RemoteCopyTest, ACallThatFailsLeavesNoIds) {
  Warm();
  const ObjectId object = Make();
  ASSERT_EQ(ObRegisterInterface(nullptr, object, first_->Handle(), &kShownInterface), ZN_OK);
  onCall = [](PropertySet&, ObjectId*, ObjectId*, PropertySet*) -> u32 {
    return UCLW_SOCKET_DISCONNECTED;
  };
  const ZnHandle set = WrapPropertySet(PropertySet());
  ObjectId provider = TestGuid(1);
  ObjectId task = TestGuid(2);
  EXPECT_EQ(PrCallDispatch(copy_, object, &kShownInterface, 3, 4, set, set, ZN_CALL_ASYNCHRONOUS, 0,
                           nullptr, nullptr, &provider, &task),
            UCLW_SOCKET_DISCONNECTED);
  EXPECT_EQ(provider, ObjectId{});
  EXPECT_EQ(task, ObjectId{});
  EXPECT_TRUE(DestroyPropertySet(set));
}

TEST_F(RemoteCopyTest, ACallNeedsObjectInterfaceAndProvider) {
  Warm();
  const ObjectId object = Make();
  const ZnHandle set = WrapPropertySet(PropertySet());
  ObjectId provider{};
  const auto call = [&](const ObjectId& id) {
    return PrCallDispatch(copy_, id, &kShownInterface, 3, 4, set, set, 0, 0, nullptr, nullptr,
                          &provider, nullptr);
  };
  EXPECT_EQ(call(TestGuid(1)), ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(call(object), ZNE_INTERFACE_NOT_FOUND);
  PropertySet interfaces;
  interfaces.Put("InterfaceList",
                 TypeObject::InterfaceList({{kShownInterface, InternedId(TestGuid(5))}}));
  PropertySet record = Record("event.keld.dom.object.TEST_Thing.interface.change.x", object,
                              "TEST_Thing", std::move(interfaces));
  EXPECT_EQ(DbUpdateCache(copy_, record), ZN_OK);
  EXPECT_EQ(call(object), ZNE_PROVIDER_REG_NO_PROVIDERS);
  EXPECT_TRUE(DestroyPropertySet(set));
}

TEST_F(RemoteCopyTest, AQueryIsAnsweredByTheServerAndReportsWhatIsNew) {
  Warm();
  const ObjectId one = Make();
  SetSize(one, 5);
  const ObjectId two = Make();
  SetSize(two, 5);
  EXPECT_EQ(Size(one), 5u);
  requests.clear();
  const auto query = [&](const ZnWChar* text, std::vector<ObjectId>* found) {
    u32 count = 0;
    ObjectId* ids = nullptr;
    const u32 status = DbGetObjectsByQuery(copy_, text, &count, &ids);
    if (!ZN_FAILED(status)) found->assign(ids, ids + count);
    if (!ZN_FAILED(status)) ZnFree(ids);
    return status;
  };
  std::vector<ObjectId> found;
  EXPECT_EQ(query(u"SELECT FROM TEST_Thing WHERE Size EQ 5", &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(two)) << "the other one is here already";
  EXPECT_EQ(query(u"SELECT FROM TEST_Thing WHERE Size EQ 5", &found), ZN_OK);
  EXPECT_THAT(found, IsEmpty());
  EXPECT_EQ(query(u"not looked at here", &found), ZNE_INVALID_ARGUMENTS) << "the server's answer";
  EXPECT_THAT(Criteria(), ElementsAre(3u, 3u, 3u));
}

TEST_F(RemoteCopyTest, ASearchByInterfaceReportsWhatIsNew) {
  Warm();
  const ObjectId id = Make();
  ASSERT_EQ(ObRegisterInterface(nullptr, id, first_->Handle(), &kShownInterface), ZN_OK);
  const auto search = [&](const char* type, u32* count) {
    ObjectId* ids = nullptr;
    const u32 status = DbGetObjectsWithInterface(copy_, type, &kShownInterface, count, &ids);
    ZnFree(ids);
    return status;
  };
  u32 count = 0;
  EXPECT_EQ(search("TEST_Thing", &count), ZN_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_TRUE(IsHere(id));
  EXPECT_EQ(search("TEST_Thing", &count), ZN_OK);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(search("NoSuchType", &count), ZNE_INVALID_ARGUMENTS) << "the server's answer";
  EXPECT_THAT(Criteria(), ElementsAre(4u, 4u, 4u));
}

TEST_F(RemoteCopyTest, AListingWithoutAListIsAFailure) {
  Warm();
  onRequest = [](PropertySet&, PropertySet*) -> u32 { return ZN_OK; };
  u32 count = 0;
  ObjectId* ids = nullptr;
  EXPECT_EQ(DbGetObjectsByQuery(copy_, u"x", &count, &ids), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(List("TEST_Thing").first, ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(RemoteCopyTest, WritesChangeTheCopyAlone) {
  Warm();
  const ObjectId id = Make();
  SetSize(id, 1);
  ASSERT_EQ(Size(id), 1u);
  requests.clear();
  SetSize(id, 2, copy_);
  EXPECT_EQ(Size(id), 2u);
  EXPECT_EQ(SizeOf(id, nullptr), 1u);
  EXPECT_THAT(requests, IsEmpty());
  ASSERT_EQ(ObDeleteObject(copy_, id), ZN_OK);
  EXPECT_TRUE(ObExists(nullptr, id));
}

TEST_F(RemoteCopyTest, ObjectsOfTheCopyAreFoundByKey) {
  Warm();
  const ObjectId id = Make();
  ASSERT_EQ(Size(id), 0u);
  ASSERT_EQ(ObSetKey(copy_, id, "key", 3), ZN_OK);
  ZnHandle provider = nullptr;
  ASSERT_EQ(PrGetProviderByName(copy_, u"first", &provider), ZN_OK);
  ObjectId found{};
  EXPECT_EQ(ObGetObjectIdByKey(copy_, provider, "key", 3, &found), ZN_OK);
  EXPECT_EQ(found, id);
}

TEST_F(RemoteCopyTest, AGroupOfTheCopyGathersWhatIsHereAndWhatComes) {
  Warm();
  const ObjectId here = Make();
  const ObjectId there = Make();
  ASSERT_EQ(Size(here), 0u);
  requests.clear();
  const char* types[] = {"TEST_Thing"};
  ObjectId group{};
  ASSERT_EQ(DbCreateGroupNode(copy_, 1, types, 0, u"mine", &group), ZN_OK);
  EXPECT_THAT(requests, IsEmpty()) << "nothing is fetched for it";
  EXPECT_FALSE(ObExists(nullptr, group));
  const DBNode* node = Copy().FindCached(group);
  EXPECT_EQ(node->GetFlags() & (OBJECT_GROUP_CLIENT | OBJECT_CLIENT_LOCAL),
            OBJECT_GROUP_CLIENT | OBJECT_CLIENT_LOCAL);
  EXPECT_THAT(node->Children(), ElementsAre(InternedId(here)));
  EXPECT_EQ(Size(there), 0u);
  EXPECT_THAT(node->Children(), UnorderedElementsAre(InternedId(here), InternedId(there)));
  EXPECT_EQ(DbDeleteGroupNode(copy_, u"mine"), ZN_OK);
}

TEST_F(RemoteCopyTest, ClientsOfTheCopyMayServeInterfacesOfTheirOwn) {
  Warm();
  ProviderCallbacks slots{};
  slots.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ZnRegisterAsProvider(copy_, u"mine", &slots, &provider), ZN_OK);
  EXPECT_NE(HandleThing<Provider>(provider)->GetFlags() & OBJECT_CLIENT_LOCAL, 0u);
  onCall = [](PropertySet&, ObjectId*, ObjectId*, PropertySet*) -> u32 {
    ADD_FAILURE() << "forwarded";
    return ZN_OK;
  };
  const ObjectId object = Make();
  ASSERT_EQ(Size(object), 0u);
  ASSERT_EQ(ObRegisterInterface(copy_, object, provider, &kShownInterface), ZN_OK);
  const ZnHandle set = WrapPropertySet(PropertySet());
  ObjectId answered{};
  SetSystemDatabase(nullptr);  // as in a process that is a client alone
  EXPECT_EQ(PrCallDispatch(copy_, object, &kShownInterface, 1, 2, set, set, 0, 0, nullptr, nullptr,
                           &answered, nullptr),
            ZNE_NOT_IMPLEMENTED)
      << "it has no Call slot";
  SetSystemDatabase(server);
  EXPECT_TRUE(DestroyPropertySet(set));
}

TEST_F(RemoteCopyTest, AParentTaskOfALocalCallMayHaveToBeFetched) {
  Warm();
  ProviderCallbacks slots{};
  slots.Call = [](ObjectId, u32, u32, ZnHandle, ZnHandle, u32, u32, void*, TaskCallback,
                  const GUID*, const ObjectId*, ZnHandle*) -> u32 { return ZN_OK; };
  slots.Initialize = [](ZnHandle, ZnHandle, u32, u32) -> u32 { return ZN_OK; };
  slots.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  ZnHandle provider = nullptr;
  ASSERT_EQ(PrCreateProvider(copy_, u"mine", &slots, &provider), ZN_OK);
  const ZnHandle set = WrapPropertySet(PropertySet());
  const ObjectId parent = Make();
  ObjectId answered{};
  ObjectId task = parent;
  SetSystemDatabase(nullptr);
  // The provider goes while the parent is fetched: it is not called any more.
  beforeReply = [&] { TellServerGone(copy_); };
  onRequest = nullptr;
  EXPECT_EQ(PrCallProvider(provider, ObjectId{}, &kShownInterface, 1, 2, set, set,
                           ZN_CALL_ASYNCHRONOUS, 0, nullptr, nullptr, &answered, &task),
            ZNE_PROVIDER_REG_NO_PROVIDERS);
  EXPECT_EQ(task, ObjectId{});
  SetSystemDatabase(server);
  EXPECT_TRUE(DestroyPropertySet(set));
}

TEST_F(RemoteCopyTest, TheLossOfTheServerTakesTheProvidersLastToFirst) {
  Warm();
  static std::vector<std::string> order;
  order.clear();
  ProviderCallbacks slots{};
  slots.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  slots.Shutdown = [](ZnHandle) -> u32 {
    EXPECT_FALSE(fastLock.HeldByThisThread());
    order.push_back("one");
    return ZN_OK;
  };
  ZnHandle one = nullptr;
  ASSERT_EQ(ZnRegisterAsProvider(copy_, u"one", &slots, &one), ZN_OK);
  slots.Shutdown = [](ZnHandle) -> u32 {
    order.push_back("two");
    return ZN_OK;
  };
  ZnHandle two = nullptr;
  ASSERT_EQ(ZnRegisterAsProvider(copy_, u"two", &slots, &two), ZN_OK);
  const ObjectId id = Make();
  ASSERT_EQ(Size(id), 0u);
  TellServerGone(copy_);
  EXPECT_THAT(order, ElementsAre("two", "one"));
  EXPECT_THAT(Copy().Providers(), IsEmpty());
  EXPECT_FALSE(IsValidHandle(one, HANDLE_PROVIDER));
  EXPECT_EQ(Size(id), 0u) << "what is here can still be read";
}

TEST_F(RemoteCopyTest, AShutdownSlotMayDeleteTheCopy) {
  Warm();
  static ZnHandle doomed;
  doomed = copy_;
  ProviderCallbacks slots{};
  slots.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  slots.Shutdown = [](ZnHandle) -> u32 {
    EXPECT_TRUE(DeleteClientCopy(doomed));
    return ZN_OK;
  };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ZnRegisterAsProvider(copy_, u"last", &slots, &provider), ZN_OK);
  TellServerGone(copy_);
  EXPECT_FALSE(IsValidHandle(copy_, HANDLE_DATABASE));
  copy_ = nullptr;
}

TEST_F(RemoteCopyTest, TheDeletionWaitsForTheRequestsUnderWay) {
  Warm();
  const ObjectId id = Make();
  const ObjectId here = Make();
  ASSERT_EQ(Size(here), 0u);
  Gate asked;
  Gate answer;
  onRequest = [&](PropertySet& request, PropertySet* reply) -> u32 {
    asked.Open();
    EXPECT_TRUE(answer.Wait());
    return Serve(request, reply);
  };
  const ZnHandle copy = copy_;
  u32 size = 0;
  std::thread reader([&] { size = SizeOf(id, copy); });
  ASSERT_TRUE(asked.Wait());
  Gate deleting;
  std::thread deleter([&] {
    deleting.Open();
    EXPECT_TRUE(DeleteClientCopy(copy));
  });
  ASSERT_TRUE(deleting.Wait());
  // The copy refuses from the moment on at which it is going.
  Property2* property = nullptr;
  while (ObGetProperty(copy, here, "Size", &property) == ZN_OK) PsFreeProperty(property);
  answer.Open();
  reader.join();
  deleter.join();
  EXPECT_FALSE(IsValidHandle(copy, HANDLE_DATABASE));
  EXPECT_FALSE(DeleteClientCopy(copy));
  copy_ = nullptr;
}

TEST_F(RemoteCopyTest, TwoThatFetchTheSameObjectKeepTheFirst) {
  Warm();
  const ObjectId id = Make();
  onRequest = [&](PropertySet& request, PropertySet* reply) -> u32 {
    PropertySet answer;
    const u32 status = Serve(request, &answer);
    if (requests.size() == 1) {
      SetSize(id, 5);
      EXPECT_EQ(Size(id), 5u) << "another fetch in the middle of this one";
    }
    *reply = std::move(answer);
    return status;
  };
  EXPECT_EQ(Size(id), 5u);
}

TEST_F(RemoteCopyTest, AProviderThatGoesWhileAlertsAreFetchedRaisesNone) {
  ASSERT_EQ(server->Types().FindType("KELD_Alert"), nullptr);
  Warm();
  ProviderCallbacks slots{};
  slots.Event = [](const EventRecord*) -> u32 { return ZN_OK; };
  ZnHandle provider = nullptr;
  ASSERT_EQ(ZnRegisterAsProvider(copy_, u"mine", &slots, &provider), ZN_OK);
  {
    const BusLock lock;
    ASSERT_EQ(FormalizeAlertType(Copy()), ZN_OK);
  }
  beforeReply = [&] { TellServerGone(copy_); };
  EXPECT_EQ(ObRaiseAlert(copy_, provider, "event.x", nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(beforeReply, nullptr);
}

// What the server tells of an object while the object is on its way here is not lost.
TEST_F(RemoteCopyTest, AChangeThatOvertakesTheAnswerIsAppliedBehindIt) {
  Warm();
  const ObjectId changed = Make();
  const ObjectId deleted = Make();
  const ObjectId hidden = Make();
  ObjectId added{};
  static_cast<void>(Told(3));
  beforeReply = [&] {
    SetSize(changed, 9);
    EXPECT_EQ(ObDeleteObject(nullptr, deleted), ZN_OK);
    EXPECT_EQ(ObSetFlags(nullptr, hidden, OBJECT_HIDDEN), ZN_OK);
    added = Make();
    Push(4);
  };
  const std::vector<ObjectId> here = List("TEST_Thing").second;
  EXPECT_THAT(here, UnorderedElementsAre(changed, added));
  EXPECT_EQ(Size(changed), 9u);
  EXPECT_THAT(requests, SizeIs(1));
}

TEST_F(RemoteCopyTest, WhatGoesWhileAnAnswerHasItStillDoesNotComeBack) {
  Warm();
  const ObjectId deleted = Make();
  const ObjectId hidden = Make();
  const ObjectId kept = Make();
  static_cast<void>(Told(3));
  ASSERT_EQ(Size(deleted), 0u);
  ASSERT_EQ(Size(hidden), 0u);
  beforeReply = [&] {
    EXPECT_EQ(ObDeleteObject(nullptr, deleted), ZN_OK);
    EXPECT_EQ(ObSetFlags(nullptr, hidden, OBJECT_HIDDEN), ZN_OK);
    Push(2);
    EXPECT_FALSE(IsHere(deleted));
    EXPECT_FALSE(IsHere(hidden));
  };
  EXPECT_THAT(List("TEST_Thing").second, ElementsAre(kept));
  EXPECT_FALSE(IsHere(deleted));
  EXPECT_FALSE(IsHere(hidden));
}

TEST_F(RemoteCopyTest, WhatHasComeAnotherWayIsNotTakenBackToWhatItWas) {
  Warm();
  const ObjectId id = Make();
  static_cast<void>(Told(1));
  beforeReply = [&] {
    SetSize(id, 1);
    Push(1);  // not here yet
    SetSize(id, 2);
    EXPECT_EQ(Size(id), 2u) << "another request brings it, with its latest state";
    Push(1);
  };
  EXPECT_THAT(List("TEST_Thing").second, ElementsAre(id));
  EXPECT_EQ(Size(id), 2u);
}

TEST_F(RemoteCopyTest, ATypeThatOvertakesTheAnswerWithAllTypesIsAppliedBehindIt) {
  beforeReply = [&] {
    TypeId("TEST_Late", "TEST_Thing");
    EXPECT_EQ(
        ObRegisterInterfaceOnType(nullptr, "TEST_Special", first_->Handle(), &kShownInterface),
        ZN_OK);
    Push(2);
  };
  EXPECT_EQ(List("KELD_Type").first, ZN_OK);
  EXPECT_TRUE(TypeIsA(copy_, "TEST_Late", "TEST_Thing"));
  EXPECT_THAT(Copy().Types().FindType("TEST_Special")->Interfaces(), SizeIs(1));
}

}  // namespace
}  // namespace zn::test
