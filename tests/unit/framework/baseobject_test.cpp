#include "framework/common/zncore/baseobject.h"

#include "framework/common/zntypeobject/typeobject.h"
#include "tests/unit/framework/fixture.h"

namespace zn::test {

namespace {

using testing::ElementsAre;

class BaseObjectTest : public StoreTest {
 protected:
  [[nodiscard]] static u32 NumberOf(const BaseObject& object, std::string_view name) {
    const Value* value = object.Properties().FindValue(name, ZN_TYPE_UINT32);
    return value == nullptr ? 0xFFFFFFFF : value->AsUInt32();
  }
};

TEST_F(BaseObjectTest, KnowsItsIdTypeAndFlags) {
  const GUID id = TestGuid(1);
  TypeObject* type = database_->Types().FindType("KELD_Object");
  BaseObject object(InternedId(id), type, 0x12340001);
  EXPECT_TRUE(SameGuid(object.GetId().Value(), id));
  EXPECT_EQ(object.GetType(), type);
  EXPECT_EQ(object.GetTypeName(), "KELD_Object");
  EXPECT_EQ(object.GetFlags(), 0x12340001u);
  EXPECT_TRUE(object.IsHidden());
  object.SetRawFlags(0x2);
  EXPECT_EQ(object.GetFlags(), 0x2u);
  EXPECT_FALSE(object.IsHidden());
  EXPECT_TRUE(TakeTold().empty());
}

TEST_F(BaseObjectTest, WithoutTypeIsNamedAsATypeIs) {
  const BaseObject object(InternedId(TestGuid(1)), nullptr, 0);
  EXPECT_EQ(object.GetTypeName(), "KELD_Type");
}

TEST_F(BaseObjectTest, HasContainedTypesFromTheFirstNameOn) {
  BaseObject object({}, nullptr, 0);
  EXPECT_EQ(object.GetContainedTypes(), nullptr);
  object.AddContainedType("b");
  object.AddContainedType("a");
  object.AddContainedType("b");
  ASSERT_NE(object.GetContainedTypes(), nullptr);
  EXPECT_THAT(*object.GetContainedTypes(), ElementsAre("a", "b"));
  object.ClearContainedTypes();
  EXPECT_EQ(object.GetContainedTypes(), nullptr);
}

TEST_F(BaseObjectTest, SetPropertyStoresACopyAndReportsTheUnchanged) {
  BaseObject object({}, nullptr, 0);
  EXPECT_EQ(object.SetProperty(Property("N", Value::UInt32(1))), ZN_OK);
  EXPECT_EQ(object.SetProperty(Property("N", Value::UInt32(1))), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(object.SetProperty(Property("N", Value::UInt32(2))), ZN_OK);
  EXPECT_EQ(NumberOf(object, "N"), 2u);
}

TEST_F(BaseObjectTest, SetPropertyRefusesAnotherTypeAndKeepsTheValue) {
  BaseObject object({}, nullptr, 0);
  ASSERT_EQ(object.SetProperty(Property("N", Value::UInt32(1))), ZN_OK);
  EXPECT_EQ(object.SetProperty(Property("N", Value::Int32(2))), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(NumberOf(object, "N"), 1u);
}

TEST_F(BaseObjectTest, SetPropertyTracesItsStartAndItsStatus) {
  BaseObject object({}, nullptr, 0);
  const TraceCapture trace;
  ASSERT_EQ(object.SetProperty(Property("N", Value::UInt32(1))), ZN_OK);
  ASSERT_EQ(object.SetProperty(Property("N", Value::UInt32(1))), ZNI_PROPSET_UNCHANGED);
  EXPECT_THAT(trace.Messages(),
              ElementsAre("  ZnApi:Entering BaseObject::SetProperty",
                          "  ZnApi:Exiting BaseObject::SetProperty: 0x0, 0",
                          "  ZnApi:Entering BaseObject::SetProperty",
                          "  ZnApi:Exiting BaseObject::SetProperty: 0x41000012, 1090519058"));
}

TEST_F(BaseObjectTest, SetPropertiesMergesAndPassesTheStatusUp) {
  BaseObject object({}, nullptr, 0);
  PropertySet set;
  set.Put("A", Value::UInt32(1));
  set.Put("B", Value::UInt32(2));
  EXPECT_EQ(object.SetProperties(set), ZN_OK);
  EXPECT_EQ(object.SetProperties(set), ZNI_PROPSET_UNCHANGED);
  EXPECT_EQ(object.SetProperties(PropertySet()), ZNI_PROPSET_UNCHANGED);
  set.Put("A", Value::UInt32(5));
  set.Put("B", Value::Int32(6));
  EXPECT_EQ(object.SetProperties(set), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(NumberOf(object, "A"), 5u);  // merged before the refusal
  EXPECT_EQ(NumberOf(object, "B"), 2u);
}

TEST_F(BaseObjectTest, AMissingPropertyIsReported) {
  BaseObject object({}, nullptr, 0);
  Property out("Kept", Value::UInt32(7));
  EXPECT_EQ(object.GetProperty("Missing", &out), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(out.Name(), "Kept");
  EXPECT_EQ(object.DeleteProperty("Missing"), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_FALSE(object.HasProperty("Missing"));
}

TEST_F(BaseObjectTest, GivesACopyOfAPropertyWithItsFlags) {
  BaseObject object({}, nullptr, 0);
  ASSERT_EQ(object.SetProperty(Property("N", Value::UInt32(1), ZN_PROPERTY_REMOTE_ONLY)), ZN_OK);
  Property out;
  ASSERT_EQ(object.GetProperty("N", &out), ZN_OK);
  EXPECT_EQ(out.Name(), "N");
  EXPECT_EQ(out.Flags(), ZN_PROPERTY_REMOTE_ONLY);
  EXPECT_EQ(out.GetValue().AsUInt32(), 1u);
  ASSERT_EQ(object.SetProperty(Property("N", Value::UInt32(2))), ZN_OK);
  EXPECT_EQ(out.GetValue().AsUInt32(), 1u);
  EXPECT_TRUE(object.HasProperty("N"));
  EXPECT_EQ(object.DeleteProperty("N"), ZN_OK);
  EXPECT_FALSE(object.HasProperty("N"));
}

TEST_F(BaseObjectTest, CopiesItsPropertiesIntoAnotherSet) {
  BaseObject object({}, nullptr, 0);
  ASSERT_EQ(object.SetProperty(Property("A", Value::UInt32(1))), ZN_OK);
  ASSERT_EQ(object.SetProperty(Property("B", Value::UInt32(2))), ZN_OK);
  PropertySet target;
  object.CopyPropertiesTo(target);
  EXPECT_EQ(target.Count(), 2u);
  PropertySet filled;
  filled.Put("A", Value::UInt32(9));
  filled.Put("C", Value::UInt32(3));
  object.CopyPropertiesTo(filled);
  EXPECT_EQ(filled.Count(), 3u);
  EXPECT_EQ(filled.FindValue("A", ZN_TYPE_UINT32)->AsUInt32(), 9u);
  EXPECT_EQ(filled.FindValue("B", ZN_TYPE_UINT32)->AsUInt32(), 2u);
}

TEST_F(BaseObjectTest, GivesACopyOfItsSetThatIsItsOwn) {
  BaseObject object({}, nullptr, 0);
  ASSERT_EQ(object.SetProperty(Property("A", Value::UInt32(1))), ZN_OK);
  PropertySet copy = object.GetProperties();
  copy.Put("A", Value::UInt32(2));
  EXPECT_EQ(NumberOf(object, "A"), 1u);
}

TEST_F(BaseObjectTest, ReplacesItsSetWhateverTheTypesWere) {
  BaseObject object({}, nullptr, 0);
  ASSERT_EQ(object.SetProperty(Property("A", Value::UInt32(1))), ZN_OK);
  PropertySet other;
  other.Put("A", Value::Text("text"));
  other.Put("B", Value::UInt32(2));
  object.ReplaceProperties(other);
  EXPECT_EQ(object.Properties().Count(), 2u);
  ASSERT_NE(object.Properties().FindValue("A", ZN_TYPE_STRING), nullptr);
  object.ReplaceProperties(object.Properties());
  EXPECT_EQ(object.Properties().Count(), 2u);
}

TEST_F(BaseObjectTest, MergePropertiesTakesWhatFits) {
  BaseObject object({}, nullptr, 0);
  ASSERT_EQ(object.SetProperty(Property("B", Value::UInt32(1))), ZN_OK);
  PropertySet other;
  other.Put("A", Value::UInt32(2));
  other.Put("B", Value::Text("text"));
  object.MergeProperties(other);
  EXPECT_EQ(NumberOf(object, "A"), 2u);
  EXPECT_EQ(NumberOf(object, "B"), 1u);
}

}  // namespace

}  // namespace zn::test
