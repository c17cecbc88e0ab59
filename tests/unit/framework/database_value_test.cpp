#include "framework/common/zncore/database_value.h"

#include <gmock/gmock.h>

#include "framework/common/znpropset/property2.h"
#include "support/common/handle.h"
#include "tests/unit/framework/fixture.h"
#include "tests/unit/framework/private_databases.h"
#include "zn/db.h"

namespace zn::test {

namespace {

using testing::ElementsAre;

class DatabaseValue : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    private_ = MakePrivate();
    local_ = AddProvider(u"local", {}, &At(private_));
  }

  ZnHandle MakePrivate() { return privates_.Make(); }
  static Database& At(ZnHandle handle) { return PrivateDatabases::At(handle); }
  DBNode* MakeIn(ZnHandle handle, u32 flags = 0) {
    DBNode* node = nullptr;
    EXPECT_EQ(At(handle).CreateDBNode(local_, "KELD_Object", flags, &node, nullptr), ZN_OK);
    return node;
  }

  // The content of the private database, and a new database made of it.
  PropertySet Content() {
    PropertySet set;
    EXPECT_TRUE(MarshalPrivateDatabase(private_, &set));
    return set;
  }
  ZnHandle Copy(const PropertySet& content) {
    ZnHandle handle = nullptr;
    EXPECT_EQ(UnmarshalPrivateDatabase(content, &handle), ZN_OK);
    privates_.Keep(handle);
    return handle;
  }

  // The marshalled form of an object that is nowhere yet.
  static PropertySet ObjectForm(u32 number, std::string_view type = "KELD_Object") {
    PropertySet form;
    form.Put("ObjectId", Value::Id(TestGuid(number)));
    form.Put("ObjectType", Value::Text(type));
    form.Put("Flags", Value::UInt32(0));
    return form;
  }

  ZnHandle private_ = nullptr;
  Provider* local_ = nullptr;
  PrivateDatabases privates_;
};

TEST_F(DatabaseValue, AnEmptyDatabaseHasItsTypesAndAnEmptyListOfObjects) {
  PropertySet set;
  ASSERT_TRUE(MarshalPrivateDatabase(MakePrivate(), &set));
  EXPECT_EQ(set.Count(), 3u);
  EXPECT_NE(set.FindValue("DatabaseId", ZN_TYPE_OBJECT_ID), nullptr);
  const Value* types = set.FindValue("Types", ZN_TYPE_TYPE_OBJECT | ZN_TYPE_ARRAY);
  ASSERT_NE(types, nullptr);
  EXPECT_FALSE(types->AsArray().empty());
  const Value* objects = set.FindValue("Objects", ZN_TYPE_OBJECT | ZN_TYPE_ARRAY);
  ASSERT_NE(objects, nullptr);
  EXPECT_TRUE(objects->AsArray().empty());
}

TEST_F(DatabaseValue, HiddenObjectsStayBehindAndSoDoRelationsToThem) {
  DBNode* parent = MakeIn(private_);
  DBNode* shown = MakeIn(private_);
  DBNode* hidden = MakeIn(private_, OBJECT_HIDDEN);
  ASSERT_EQ(parent->AddChild(shown->GetId()), ZN_OK);
  ASSERT_EQ(parent->AddChild(hidden->GetId()), ZN_OK);
  ASSERT_EQ(parent->SetProperty(Property("Size", Value::UInt32(7))), ZN_OK);

  Database& copy = At(Copy(Content()));
  EXPECT_EQ(copy.GetId(), At(private_).GetId());
  const DBNode* read = copy.FindObject(parent->GetId());
  ASSERT_NE(read, nullptr);
  EXPECT_THAT(read->Children(), ElementsAre(shown->GetId()));
  EXPECT_TRUE(read->Properties().Equals(parent->Properties()));
  EXPECT_EQ(read->CreatorId(), parent->CreatorId());
  const DBNode* child = copy.FindObject(shown->GetId());
  ASSERT_NE(child, nullptr);
  EXPECT_THAT(child->Parents(), ElementsAre(parent->GetId()));
  EXPECT_EQ(copy.FindObject(hidden->GetId()), nullptr);
}

TEST_F(DatabaseValue, OnlyAPrivateDatabaseHasAValue) {
  PropertySet set;
  EXPECT_FALSE(MarshalPrivateDatabase(database_->Handle(), &set));
  EXPECT_FALSE(MarshalPrivateDatabase(nullptr, &set));
  EXPECT_TRUE(set.IsEmpty());
  char name[] = "A";
  const Property2 record{name, ZN_TYPE_DATABASE, 0, 8, database_->Handle()};
  TraceCapture traces;
  Property out;
  EXPECT_EQ(ConvertProperty2ToProperty3(&record, &out), ZNE_INVALID_ARGUMENTS);
  EXPECT_TRUE(traces.Has("ZnAPI:ConvertProperty2ToProperty3: Unable to convert Value to IValue"));
}

TEST_F(DatabaseValue, ARecordHoldsADatabaseOfItsOwnThatGoesWithIt) {
  const DBNode* object = MakeIn(private_);
  char name[] = "A";
  const Property2 given{name, ZN_TYPE_DATABASE, 0, 8, private_};
  Property property;
  ASSERT_EQ(ConvertProperty2ToProperty3(&given, &property), ZN_OK);
  Property2* record = nullptr;
  ASSERT_EQ(ConvertProperty3ToProperty2(property, &record), ZN_OK);
  EXPECT_EQ(record->Size, 8u);
  const auto held = static_cast<ZnHandle>(record->Value);
  ASSERT_TRUE(IsValidHandle(held, HANDLE_DATABASE));
  EXPECT_NE(At(held).FindObject(object->GetId()), nullptr);
  EXPECT_EQ(FreeProperty2(record), ZN_OK);
  EXPECT_FALSE(IsValidHandle(held, HANDLE_DATABASE));
}

TEST_F(DatabaseValue, ContentThatLacksAListOrTheIdIsRefused) {
  for (const char* missing : {"DatabaseId", "Types", "Objects"}) {
    SCOPED_TRACE(missing);
    PropertySet content = Content();
    ASSERT_EQ(content.Delete(missing), ZN_OK);
    ZnHandle handle = nullptr;
    EXPECT_EQ(UnmarshalPrivateDatabase(content, &handle), ZNE_INVALID_ARGUMENTS);
    content.Put(missing, Value::UInt32(1));
    EXPECT_EQ(UnmarshalPrivateDatabase(content, &handle), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(handle, nullptr);
  }
}

TEST_F(DatabaseValue, AnObjectThatIsThereAlreadyStaysAsItIs) {
  DBNode* node = MakeIn(private_);
  const u32 flags = node->GetFlags();
  PropertySet form;
  At(private_).MarshalObject(*node, &form);
  form.Put("Flags", Value::UInt32(OBJECT_NODISPLAY));
  EXPECT_EQ(At(private_).InstallObject(form), ZN_OK);
  EXPECT_EQ(At(private_).FindObject(node->GetId()), node);
  EXPECT_EQ(node->GetFlags(), flags);
}

TEST_F(DatabaseValue, AnObjectWithoutAnIdIsPassedOverAndOneWithoutATypeRefused) {
  Database& database = At(private_);
  PropertySet form = ObjectForm(1);
  ASSERT_EQ(form.Delete("ObjectId"), ZN_OK);
  EXPECT_EQ(database.InstallObject(form), ZN_OK);
  EXPECT_EQ(database.InstallObject(ObjectForm(1, "NoSuchType")), ZNE_TYPE_NOT_FOUND);
  for (const char* missing : {"ObjectType", "Flags"}) {
    form = ObjectForm(1);
    ASSERT_EQ(form.Delete(missing), ZN_OK);
    EXPECT_EQ(database.InstallObject(form), ZNE_INVALID_ARGUMENTS) << missing;
  }
  EXPECT_EQ(database.FindObject(TestGuid(1)), nullptr);
}

TEST_F(DatabaseValue, AnObjectIsReadWithAllItsParts) {
  PropertySet data;
  data.Put("Name", Value::Text("x"));
  PropertySet interface;
  interface.Put("Interface", Value::Guid(TestGuid(5)));
  interface.Put("Provider", Value::Id(TestGuid(6)));
  std::vector<Value> interfaces;
  interfaces.push_back(Value::Set(PropertySet()));  // lacks its words: passed over
  interfaces.push_back(Value::Set(std::move(interface)));
  std::vector<Value> types;
  types.push_back(Value::Text("KELD_Object"));
  std::vector<Value> children;
  children.push_back(Value::Id(TestGuid(2)));
  PropertySet form = ObjectForm(1);
  form.Put("Flags", Value::UInt32(OBJECT_NODISPLAY));
  form.Put("Data", Value::Set(std::move(data)));
  form.Put("InterfaceList", Value::Array(ZN_TYPE_PROPSET, std::move(interfaces)));
  form.Put("ContainedTypes", Value::Array(ZN_TYPE_STRING, std::move(types)));
  form.Put("ChildList", Value::Array(ZN_TYPE_OBJECT_ID, std::move(children)));
  form.Put("CreatorId", Value::Id(TestGuid(3)));
  ASSERT_EQ(At(private_).InstallObject(form), ZN_OK);
  const DBNode* node = At(private_).FindObject(TestGuid(1));
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->GetFlags() & 0xFFFF, OBJECT_NODISPLAY);
  EXPECT_EQ(node->Properties().FindValue("Name", ZN_TYPE_STRING)->AsText(), "x");
  EXPECT_THAT(node->Children(), ElementsAre(InternedId(TestGuid(2))));
  EXPECT_EQ(node->CreatorId(), InternedId(TestGuid(3)));
  ASSERT_NE(node->GetContainedTypes(), nullptr);
  EXPECT_EQ(node->GetContainedTypes()->size(), 1u);
  ASSERT_EQ(node->Interfaces().size(), 1u);
  EXPECT_TRUE(SameGuid(node->Interfaces()[0].interfaceId, TestGuid(5)));
}

}  // namespace

}  // namespace zn::test
