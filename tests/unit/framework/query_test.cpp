#include <cstring>
#include <string>

#include <gmock/gmock.h>

#include "tests/unit/framework/api_frame.h"
#include "zn/db.h"
#include "zn/memory.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr GUID kGuid = {0x01234567, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};

// An id whose first eight bytes are the number.
GUID NumberId(u64 number) {
  GUID id{};
  std::memcpy(&id, &number, sizeof number);
  return id;
}

class QueryTest : public FrameTest {
 protected:
  // The objects that a query on the test's database finds, as texts.
  std::vector<std::string> Found(const std::u16string& query) {
    u32 count = 99;
    ObjectId* ids = nullptr;
    EXPECT_EQ(DbGetObjectsByQuery(Db(), query.c_str(), &count, &ids), ZN_OK);
    EXPECT_EQ(ids == nullptr, count == 0);
    std::vector<std::string> texts;
    for (u32 i = 0; i < count; ++i) texts.push_back(GuidText(ids[i]));
    ZnFree(ids);
    return texts;
  }
  // The status of a query that fails, and that leaves its outputs alone.
  u32 Refused(const std::u16string& query) {
    u32 count = 99;
    ObjectId* ids = &unused_;
    const u32 status = DbGetObjectsByQuery(Db(), query.c_str(), &count, &ids);
    EXPECT_EQ(count, 99u);
    EXPECT_EQ(ids, &unused_);
    return status;
  }
  std::string MakeWith(std::string_view type, std::string_view name, Value value) {
    DBNode* node = Make(type);
    EXPECT_EQ(node->SetProperty(Property(name, std::move(value))), ZN_OK);
    return GuidText(node->GetId().Value());
  }
  // A type that declares the property with that default.
  TypeObject* MakeTypeWith(std::string_view type, std::string_view name, Value value,
                           u32 flags = 0) {
    PropertySet properties;
    properties.Put(name, std::move(value), flags);
    return MakeType(type, properties);
  }

  ObjectId unused_{};
};

TEST_F(QueryTest, RunsTheStandardFrame) {
  u32 count = 0;
  ObjectId* ids = nullptr;
  ExpectStandardFrame({"DbGetObjectsByQuery", [&](ZnHandle h) {
                         return DbGetObjectsByQuery(h, u"SELECT FROM KELD_Object WHERE State EQ 77",
                                                    &count, &ids);
                       }});
}

TEST_F(QueryTest, RefusesBadArguments) {
  u32 count = 0;
  ObjectId* ids = nullptr;
  const std::u16string tooLong(8193, u'x');
  ExpectInvalidArguments("DbGetObjectsByQuery",
                         {[&] { return DbGetObjectsByQuery(Db(), tooLong.c_str(), &count, &ids); },
                          [&] {
                            return DbGetObjectsByQuery(Db(), reinterpret_cast<const ZnWChar*>(16),
                                                       &count, &ids);
                          },
                          [&] { return DbGetObjectsByQuery(Db(), u"", nullptr, &ids); },
                          [&] { return DbGetObjectsByQuery(Db(), u"", &count, nullptr); }});
}

TEST_F(QueryTest, ATextOf8192UnitsIsLookedAt) {
  std::u16string query = u"SELECT FROM KELD_Object WHERE Name EQ ";
  const std::u16string value(8192 - query.size(), u'n');
  const std::string id = MakeWith("KELD_Object", "Name", Value::WideText(value));
  EXPECT_THAT(Found(query + value), ElementsAre(id));
}

// Null is no argument that the check refuses: it is a text without words.
TEST_F(QueryTest, ANullTextPassesTheCheckAndIsNoQuery) {
  u32 count = 0;
  ObjectId* ids = nullptr;
  std::vector<std::string> messages;
  EXPECT_EQ(Traced([&] { return DbGetObjectsByQuery(Db(), nullptr, &count, &ids); }, &messages),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(messages, ElementsAre(Entering("DbGetObjectsByQuery"),
                                    Exiting("DbGetObjectsByQuery", ZNE_INVALID_ARGUMENTS)));
}

TEST_F(QueryTest, ATextThatIsNoSentenceIsRefusedWithoutATrace) {
  Make();
  for (const char16_t* text :
       {u"", u"SELECT", u"select from KELD_Object where Name eq x",
        u"SELECT  FROM KELD_Object WHERE State EQ 1", u"SELECT FROM KELD_Object WHERE State EQ",
        u"SELECT FROM KELD_Object WHERE State NE 1", u"SELECT FROM KELD_Object WHERE State EQ 1 2",
        u"UPDATE FROM KELD_Object WHERE State EQ 1", u"SELECT INTO KELD_Object WHERE State EQ 1",
        u"SELECT FROM KELD_Object when State EQ 1"}) {
    std::vector<std::string> messages;
    EXPECT_EQ(Traced([&] { return Refused(text); }, &messages), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(messages.size(), 2u);
  }
}

TEST_F(QueryTest, FindsObjectsByAQuotedName) {
  const std::string mine = MakeWith("KELD_Object", "Name", Value::WideText(u"my disk"));
  const std::string other = MakeWith("KELD_Object", "Name", Value::WideText(u"my disk"));
  MakeWith("KELD_Object", "Name", Value::WideText(u"mydisk"));
  EXPECT_THAT(Found(u"SELECT FROM KELD_Object WHERE Name EQ \"my disk\""),
              UnorderedElementsAre(mine, other));
  EXPECT_THAT(Found(u"SELECT FROM KELD_Object WHERE Name EQ my\\ disk"),
              UnorderedElementsAre(mine, other));
}

TEST_F(QueryTest, FindsObjectsByState) {
  const std::string one = MakeWith("KELD_Object", "State", Value::UInt32(1));
  const std::string most = MakeWith("KELD_Object", "State", Value::UInt32(0xFFFFFFFF));
  EXPECT_THAT(Found(u"SELECT FROM KELD_Object WHERE State EQ 1"), ElementsAre(one));
  EXPECT_EQ(Refused(u"SELECT FROM KELD_Object WHERE State EQ 1x"), ZNE_INVALID_ARGUMENTS);
  // As the scan reads a negative number of an unsigned type.
  EXPECT_THAT(Found(u"SELECT FROM KELD_Object WHERE State EQ -1"), ElementsAre(most));
}

TEST_F(QueryTest, AnUnknownTypeIsToldApart) {
  EXPECT_EQ(Refused(u"SELECT FROM Nobody WHERE State EQ 1"), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(Refused(u"SELECT FROM keld_object WHERE State EQ 1"), ZNE_TYPE_NOT_FOUND);
  // The sentence is looked at before its type, the type before the property.
  EXPECT_EQ(Refused(u"SELECT FROM Nobody WHERE State EQUALS 1"), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(Refused(u"SELECT FROM Nobody WHERE Nothing EQ 1"), ZNE_TYPE_NOT_FOUND);
}

TEST_F(QueryTest, TheEmptyTypeIsTheRoot) {
  const std::string one = MakeWith("KELD_Object", "State", Value::UInt32(1));
  EXPECT_THAT(Found(u"SELECT FROM \"\" WHERE State EQ 1"), ElementsAre(one));
  EXPECT_THAT(Found(u"SELECT FROM  WHERE State EQ 1"), ElementsAre(one));
}

TEST_F(QueryTest, APropertyThatTheTypeDoesNotDeclareIsToldApart) {
  DBNode* node = Make();
  ASSERT_EQ(node->SetProperty(Property("Undeclared", Value::UInt32(1))), ZN_OK);
  MakeTypeWith("Disk", "Size", Value::UInt64(0));
  EXPECT_EQ(Refused(u"SELECT FROM KELD_Object WHERE Undeclared EQ 1"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(Refused(u"SELECT FROM KELD_Object WHERE Size EQ 1"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(Refused(u"SELECT FROM KELD_Object WHERE NoNameOfAnything EQ 1"),
            ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(Refused(u"SELECT FROM KELD_Object WHERE \"\" EQ 1"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(Refused(u"SELECT FROM KELD_Object WHERE state EQ 1"), ZNE_PROPERTY_NOT_FOUND);
}

TEST_F(QueryTest, ATypeWithoutInstancesFindsNothing) {
  MakeTypeWith("Disk", "Size", Value::UInt64(0));
  MakeTypeWith("Ssd", "Wear", Value::UInt64(0), ZN_PROPERTY_INDEXED);
  EXPECT_THAT(Found(u"SELECT FROM Disk WHERE Size EQ 0"), IsEmpty());
  EXPECT_THAT(Found(u"SELECT FROM Ssd WHERE Wear EQ 0"), IsEmpty());
}

TEST_F(QueryTest, ABooleanTakesSmallLettersAndNumbers) {
  MakeTypeWith("Disk", "Ok", Value::Bool(0));
  const std::string good = MakeWith("Disk", "Ok", Value::Bool(1));
  const std::string bad = GuidText(Make("Disk")->GetId().Value());
  for (const char16_t* value : {u"TRUE", u"true", u"True", u"1"}) {
    EXPECT_THAT(Found(std::u16string(u"SELECT FROM Disk WHERE Ok EQ ") + value), ElementsAre(good));
  }
  for (const char16_t* value : {u"FALSE", u"false", u"0"}) {
    EXPECT_THAT(Found(std::u16string(u"SELECT FROM Disk WHERE Ok EQ ") + value), ElementsAre(bad));
  }
  EXPECT_EQ(Refused(u"SELECT FROM Disk WHERE Ok EQ yes"), ZNE_INVALID_ARGUMENTS);
}

struct TypedValue {
  const char* name;
  Value initial;
  Value wanted;
  std::u16string text;
};

std::vector<TypedValue> TypedValues() {
  return {
      {"boolean", Value::Bool(0), Value::Bool(1), u"true"},
      {"int32", Value::Int32(0), Value::Int32(-7), u"-7"},
      {"uint32", Value::UInt32(0), Value::UInt32(7), u"7"},
      {"int64", Value::Int64(0), Value::Int64(-(1ll << 40)), u"-1099511627776"},
      {"uint64", Value::UInt64(0), Value::UInt64(~u64{0}), u"18446744073709551615"},
      {"time", Value::Time(0), Value::Time(1769860800), u"1769860800"},
      {"string", Value::Text(""), Value::Text("K\u00f6ln \U0001F4BE"), u"\"K\u00f6ln \U0001F4BE\""},
      {"widestring", Value::WideText(u""), Value::WideText(u"/dev/sda"), u"/dev/sda"},
      {"guid", Value::Guid(GUID{}), Value::Guid(kGuid), u"{01234567-89AB-cdef-0102-030405060708}"},
      {"object id", Value::Id(GUID{}), Value::Id(NumberId(258)), u"258"},
  };
}

TEST_F(QueryTest, FindsEveryTypeThatCanBeIndexedWithAndWithoutAnIndex) {
  u32 number = 0;
  for (const u32 flags : {0u, u32{ZN_PROPERTY_INDEXED}}) {
    for (const TypedValue& row : TypedValues()) {
      SCOPED_TRACE(row.name);
      const std::string type = "Typed" + std::to_string(number++);
      MakeTypeWith(type, "P", row.initial, flags);
      Make(type);
      const std::string id = MakeWith(type, "P", row.wanted);
      std::u16string query = u"SELECT FROM ";
      query.append(type.begin(), type.end()).append(u" WHERE P EQ ").append(row.text);
      EXPECT_THAT(Found(query), ElementsAre(id));
    }
  }
}

TEST_F(QueryTest, APropertyOfAnotherTypeIsRefusedBeforeItsValueIsRead) {
  const Value others[] = {Value::Binary("x", 1),
                          Value::Set(PropertySet()),
                          Value::Default(ZN_TYPE_I18N),
                          Value::Default(ZN_TYPE_DATABASE),
                          Value::Default(ZN_TYPE_UINT32 | ZN_TYPE_ARRAY),
                          Value::Default(ZN_TYPE_STRING | ZN_TYPE_ARRAY)};
  u32 number = 0;
  for (const Value& value : others) {
    const std::string type = "Other" + std::to_string(number++);
    MakeTypeWith(type, "P", value);
    std::u16string query = u"SELECT FROM ";
    query.append(type.begin(), type.end()).append(u" WHERE P EQ ");
    EXPECT_EQ(Refused(query), ZNE_QUERY_TYPE_UNSUPPORTED) << value.TypeName();
    EXPECT_EQ(Refused(query + u"1"), ZNE_QUERY_TYPE_UNSUPPORTED) << value.TypeName();
  }
}

TEST_F(QueryTest, FindsInstancesOfDerivedTypesOnce) {
  MakeTypeWith("Disk", "Size", Value::UInt64(0), ZN_PROPERTY_INDEXED);
  MakeType("Left", {}, {"Disk"});
  MakeType("Right", {}, {"Disk"});
  MakeType("Both", {}, {"Left", "Right"});
  const std::string disk = MakeWith("Disk", "Size", Value::UInt64(5));
  const std::string left = MakeWith("Left", "Size", Value::UInt64(5));
  const std::string both = MakeWith("Both", "Size", Value::UInt64(5));
  const std::string state = MakeWith("Both", "State", Value::UInt32(5));
  EXPECT_THAT(Found(u"SELECT FROM Disk WHERE Size EQ 5"), UnorderedElementsAre(disk, left, both));
  EXPECT_THAT(Found(u"SELECT FROM Left WHERE Size EQ 5"), UnorderedElementsAre(left, both));
  EXPECT_THAT(Found(u"SELECT FROM Right WHERE Size EQ 5"), ElementsAre(both));
  // A property of the root, without an index.
  EXPECT_THAT(Found(u"SELECT FROM KELD_Object WHERE State EQ 5"), ElementsAre(state));
  EXPECT_THAT(Found(u"SELECT FROM Left WHERE State EQ 5"), ElementsAre(state));
}

TEST_F(QueryTest, ManyObjectsOfOneValueAreAllFound) {
  for (const u32 flags : {0u, u32{ZN_PROPERTY_INDEXED}}) {
    const std::string type = flags == 0 ? "Plain" : "Indexed";
    MakeTypeWith(type, "P", Value::Text("same"), flags);
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) expected.push_back(GuidText(Make(type)->GetId().Value()));
    std::u16string query = u"SELECT FROM ";
    query.append(type.begin(), type.end()).append(u" WHERE P EQ same");
    EXPECT_THAT(Found(query), testing::UnorderedElementsAreArray(expected));
  }
}

TEST_F(QueryTest, FindsHiddenObjectsToo) {
  DBNode* node = Make("KELD_Object", OBJECT_HIDDEN);
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(3))), ZN_OK);
  EXPECT_THAT(Found(u"SELECT FROM KELD_Object WHERE State EQ 3"),
              ElementsAre(GuidText(node->GetId().Value())));
}

TEST_F(QueryTest, FollowsWhatChanges) {
  MakeTypeWith("Disk", "Label", Value::Text("new"), ZN_PROPERTY_INDEXED);
  const std::u16string query = u"SELECT FROM Disk WHERE Label EQ data";
  DBNode* node = Make("Disk");
  EXPECT_THAT(Found(query), IsEmpty());
  ASSERT_EQ(node->SetProperty(Property("Label", Value::Text("data"))), ZN_OK);
  EXPECT_EQ(Found(query).size(), 1u);
  ASSERT_EQ(node->DeleteProperty("Label"), ZN_OK);
  EXPECT_THAT(Found(query), IsEmpty());
  ASSERT_EQ(node->SetProperty(Property("Label", Value::Text("data"))), ZN_OK);
  EXPECT_EQ(Found(query).size(), 1u);
  database_->DeleteNode(node);
  EXPECT_THAT(Found(query), IsEmpty());
}

// The walk through the instances expects a property where the last instance had it.
TEST_F(QueryTest, FindsAPropertyWhereverItLiesInItsObject) {
  MakeTypeWith("Disk", "M", Value::UInt32(1));
  std::vector<std::string> expected;
  for (u32 i = 0; i < 64; ++i) {
    DBNode* node = Make("Disk");
    if (i % 2 == 1) {
      ASSERT_EQ(node->SetProperty(Property("A" + std::to_string(i), Value::UInt32(1))), ZN_OK);
    }
    if (i % 3 == 1) {
      ASSERT_EQ(node->DeleteProperty("Name"), ZN_OK);
    }
    if (i % 5 == 1) {
      ASSERT_EQ(node->DeleteProperty("M"), ZN_OK);
    }
    if (i % 7 == 1) {
      ASSERT_EQ(node->DeleteProperty("State"), ZN_OK);
    }
    if (i % 5 != 1) expected.push_back(GuidText(node->GetId().Value()));
  }
  EXPECT_THAT(Found(u"SELECT FROM Disk WHERE M EQ 1"),
              testing::UnorderedElementsAreArray(expected));
}

TEST_F(QueryTest, TheNearestDeclarationSaysHowTheValueIsRead) {
  // Types that were installed from elsewhere keep no rules: the same name, another type of value.
  MakeTypeWith("Base", "P", Value::UInt32(0));
  PropertySet form = MakeType("Derived", {}, {"Base"})->GetProperties();
  PropertySet data;
  data.Put("P", Value::Text(""));
  form.Put("Data", Value::Set(std::move(data)));
  ASSERT_EQ(database_->Types().InstallType(form), ZN_OK);
  EXPECT_EQ(Refused(u"SELECT FROM Base WHERE P EQ text"), ZNE_INVALID_ARGUMENTS);
  const std::string id = MakeWith("Derived", "P", Value::Text("text"));
  EXPECT_THAT(Found(u"SELECT FROM Derived WHERE P EQ text"), ElementsAre(id));
}

// Supertypes are asked depth first: what is above the first comes before the second.
TEST_F(QueryTest, DeclarationsAreSearchedDepthFirst) {
  MakeTypeWith("Top", "P", Value::Bool(0));
  MakeType("First", {}, {"Top"});
  MakeTypeWith("Second", "P", Value::UInt32(0));
  PropertySet form = MakeType("Fork")->GetProperties();
  std::vector<Value> supertypes;
  supertypes.push_back(Value::Text("First"));
  supertypes.push_back(Value::Text("Second"));
  form.Put("SuperTypes", Value::Array(ZN_TYPE_STRING, std::move(supertypes)));
  ASSERT_EQ(database_->Types().InstallType(form), ZN_OK);
  MakeType("Leaf", {}, {"Fork"});
  const TypeObject* leaf = database_->Types().FindType("Leaf");
  const Property* declaration = leaf->FindDeclaration(PropertyName::Intern("P"));
  ASSERT_NE(declaration, nullptr);
  EXPECT_EQ(declaration->TypeTag(), u32{ZN_TYPE_BOOLEAN});
  EXPECT_EQ(leaf->FindDeclaration(PropertyName::Intern("Nowhere")), nullptr);
}

// --- client copies ----------------------------------------------------------------------------

// A client copy whose server is the test.
class RemoteQueryTest : public QueryTest {
 protected:
  void SetUp() override {
    QueryTest::SetUp();
    DatabaseCallbacks callbacks;
    callbacks.forwardRequest = [](PropertySet& request, PropertySet* reply, void* context) -> u32 {
      auto& test = *static_cast<RemoteQueryTest*>(context);
      EXPECT_FALSE(fastLock.HeldByThisThread());
      test.requests_.push_back(request);
      *reply = test.reply_;
      return test.status_;
    };
    callbacks.context = this;
    copy_ = std::make_unique<Database>(0, callbacks);
    ASSERT_EQ(RegisterBaseObjectTypes(*copy_), ZN_OK);
  }

  // The objects of the test's own database as a server would list them.
  void Serve(const std::vector<DBNode*>& nodes) {
    std::vector<Value> objects;
    for (const DBNode* node : nodes) {
      PropertySet form;
      database_->MarshalObject(*node, &form);
      objects.push_back(Value::Set(ZN_TYPE_OBJECT, std::move(form)));
    }
    reply_.Put("Objects", Value::Array(ZN_TYPE_OBJECT, std::move(objects)));
  }
  u32 Ask(const ZnWChar* query, std::vector<std::string>* out = nullptr) {
    u32 count = 0;
    ObjectId* ids = nullptr;
    const u32 status = DbGetObjectsByQuery(copy_->Handle(), query, &count, &ids);
    for (u32 i = 0; i < count; ++i) {
      if (out != nullptr) out->push_back(GuidText(ids[i]));
    }
    ZnFree(ids);
    return status;
  }

  std::unique_ptr<Database> copy_;
  std::vector<PropertySet> requests_;
  PropertySet reply_;
  u32 status_ = ZN_OK;
};

TEST_F(RemoteQueryTest, TheTextTravelsUnread) {
  Serve({});
  const std::u16string texts[] = {u"SELECT FROM KELD_Object WHERE State EQ 1", u"no query \u00e4",
                                  u""};
  for (const std::u16string& text : texts) {
    requests_.clear();
    std::vector<std::string> found;
    EXPECT_EQ(Ask(text.c_str(), &found), ZN_OK);
    EXPECT_THAT(found, IsEmpty());
    ASSERT_EQ(requests_.size(), 1u);
    EXPECT_EQ(requests_[0].Count(), 3u);
    EXPECT_EQ(requests_[0].FindValue("Message", ZN_TYPE_UINT32)->AsUInt32(), 5u);
    EXPECT_EQ(requests_[0].FindValue("Criteria", ZN_TYPE_UINT32)->AsUInt32(), 3u);
    const Value* data = requests_[0].FindValue("Data", ZN_TYPE_PROPSET);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data->AsSet().FindValue("Query", ZN_TYPE_WIDESTRING)->AsWideText(), text);
  }
  // Null is not parsed here either.
  EXPECT_EQ(Ask(nullptr), ZN_OK);
}

TEST_F(RemoteQueryTest, FoundObjectsAreInstalledAndReportedOnce) {
  DBNode* parent = Make();
  DBNode* child = Make();
  ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  Serve({parent, child});
  std::vector<std::string> found;
  EXPECT_EQ(Ask(u"q", &found), ZN_OK);
  EXPECT_THAT(found,
              ElementsAre(GuidText(parent->GetId().Value()), GuidText(child->GetId().Value())));
  EXPECT_NE(copy_->FindCached(parent->GetId().Value()), nullptr);
  found.clear();
  EXPECT_EQ(Ask(u"q", &found), ZN_OK);
  EXPECT_THAT(found, IsEmpty());
  EXPECT_EQ(requests_.size(), 2u);
}

TEST_F(RemoteQueryTest, OnlyWhatTheCopyDidNotHoldIsReported) {
  DBNode* known = Make();
  DBNode* fresh = Make();
  Serve({known});
  EXPECT_EQ(Ask(u"q"), ZN_OK);
  Serve({known, fresh});
  std::vector<std::string> found;
  EXPECT_EQ(Ask(u"q", &found), ZN_OK);
  EXPECT_THAT(found, ElementsAre(GuidText(fresh->GetId().Value())));
}

TEST_F(RemoteQueryTest, AFailedRequestLeavesTheCopyAsItWas) {
  Serve({Make()});
  status_ = ZNE_TYPE_NOT_FOUND;
  EXPECT_EQ(Ask(u"q"), ZNE_TYPE_NOT_FOUND);
  EXPECT_EQ(copy_->ObjectCount(), 0u);
}

TEST_F(RemoteQueryTest, AnAnswerOfAnotherShapeIsRefused) {
  EXPECT_EQ(Ask(u"q"), ZNE_PROPERTY_NOT_FOUND);
  reply_.Put("Objects", Value::UInt32(1));
  EXPECT_EQ(Ask(u"q"), ZNE_PROPERTY_NOT_FOUND);
  // An object without an id is passed over; one whose type is unknown ends the list.
  Serve({Make()});
  PropertySet& form = reply_.Find(PropertyName::Intern("Objects"))->GetValue().AsArray()[0].AsSet();
  form.Put("ObjectType", Value::Text("Nobody"));
  EXPECT_EQ(Ask(u"q"), ZNE_TYPE_NOT_FOUND);
  ASSERT_EQ(form.Delete("ObjectId"), ZN_OK);
  EXPECT_EQ(Ask(u"q"), ZN_OK);
  EXPECT_EQ(copy_->ObjectCount(), 0u);
}

TEST_F(RemoteQueryTest, WaitsForTheLogon) {
  copy_->SetFlags(copy_->Flags() & ~DB_AUTHENTICATED);
  EXPECT_EQ(Ask(u"q"), ZNW_SHMEM_LOGIN_FAILED);
  EXPECT_THAT(requests_, IsEmpty());
}

}  // namespace

}  // namespace zn::test
