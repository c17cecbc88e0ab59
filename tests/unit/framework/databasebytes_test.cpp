#include "framework/common/znapi/databasebytes.h"

#include <cstring>
#include <string>

#include <gmock/gmock.h>

#include "framework/common/zncore/database_value.h"
#include "tests/unit/framework/api_frame.h"
#include "tests/unit/framework/private_databases.h"
#include "tests/unit/framework/sets.h"
#include "zn/db.h"
#include "zn/memory.h"
#include "zn/ps.h"

namespace zn::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DatabaseBytes : public FrameTest {
 protected:
  void SetUp() override {
    FrameTest::SetUp();
    private_ = MakePrivate();
  }

  ZnHandle MakePrivate() { return privates_.Make(); }
  static Database& At(ZnHandle handle) { return PrivateDatabases::At(handle); }
  DBNode* MakeIn(ZnHandle handle, const char* type = "KELD_Object", u32 flags = 0) {
    DBNode* node = nullptr;
    EXPECT_EQ(At(handle).CreateDBNode(provider_, type, flags, &node, nullptr), ZN_OK);
    return node;
  }
  static std::string Bytes(ZnHandle handle) {
    u32 length = 0;
    void* data = nullptr;
    EXPECT_EQ(DbMarshalPrivateDatabase(handle, &length, &data), ZN_OK);
    std::string bytes(static_cast<const char*>(data), length);
    ZnFree(data);
    return bytes;
  }
  static u32 Read(const std::string& bytes, ZnHandle handle) {
    return DbUnmarshalPrivateDatabase(handle, static_cast<u32>(bytes.size()), bytes.data());
  }
  PropertySet Content() const {
    PropertySet content;
    MarshalDatabase(At(private_), &content);
    return content;
  }

  ZnHandle private_ = nullptr;
  PrivateDatabases privates_;
};

TEST_F(DatabaseBytes, RefusesWithTheTextsOfBothCalls) {
  u32 length = 77;
  void* data = &length;
  const std::string bytes = Bytes(private_);
  using Call = std::function<u32(ZnHandle)>;
  const std::pair<std::string, Call> calls[] = {
      {"DbMarshalPrivateDatabase",
       [&](ZnHandle h) { return DbMarshalPrivateDatabase(h, &length, &data); }},
      {"DbUnmarshalPrivateDatabase", [&](ZnHandle h) { return Read(bytes, h); }}};
  for (const auto& [name, call] : calls) {
    SCOPED_TRACE(name);
    const auto expect = [&, &name = name, &call = call](ZnHandle h, u32 status,
                                                        const std::string& why) {
      std::vector<std::string> messages;
      EXPECT_EQ(Traced([&] { return call(h); }, &messages), status);
      // No trace of entry or exit.
      EXPECT_THAT(messages, ElementsAre("ZnAPI:" + name + ": " + why));
    };
    expect(AllOnesHandle(), ZNE_INVALID_ARGUMENTS, "Invalid arguments");
    expect(provider_->Handle(), ZNE_INVALID_ARGUMENTS, "Invalid arguments");
    expect(Db(), ZNE_INVALID_ARGUMENTS, "Invalid database");
    expect(nullptr, ZNE_INVALID_ARGUMENTS, "Invalid database");
    SetSystemDatabase(nullptr);
    expect(nullptr, ZNE_INVALID_ARGUMENTS, "Invalid database");
    SetSystemDatabase(database_.get());
    At(private_).SetFlags(At(private_).Flags() & ~DB_AUTHENTICATED);
    expect(private_, ZNW_SHMEM_LOGIN_FAILED, "DB auth failed");
    At(private_).SetFlags(At(private_).Flags() | DB_AUTHENTICATED);
    EXPECT_THAT(MessagesOf([&] { return call(private_); }), IsEmpty());
    if (data != &length) ZnFree(std::exchange(data, &length));
    length = 77;
  }
  EXPECT_EQ(DbMarshalPrivateDatabase(private_, nullptr, &data), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DbMarshalPrivateDatabase(private_, &length, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DbUnmarshalPrivateDatabase(private_, 4, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(length, 77u);
  EXPECT_EQ(data, &length);
}

TEST_F(DatabaseBytes, AnEmptyDatabaseIsItsIdItsTypesAndAnEmptyList) {
  const PropertySet set = SetOf(Bytes(private_));
  EXPECT_EQ(set.Count(), 3u);
  EXPECT_EQ(set.FindValue("DatabaseId", ZN_TYPE_OBJECT_ID)->AsId(), At(private_).GetId());
  EXPECT_FALSE(FindSetList(set, "Types")->empty());
  EXPECT_TRUE(FindSetList(set, "Objects")->empty());
}

TEST_F(DatabaseBytes, WhatIsReadWritesTheSameBytes) {
  MakeType("Disk");
  const ZnHandle source = MakePrivate();  // which has the type
  DBNode* parent = MakeIn(source, "Disk");
  for (u32 i = 0; i < 5; ++i) {
    DBNode* child = MakeIn(source);
    ASSERT_EQ(child->SetProperty(Property("State", Value::UInt32(i))), ZN_OK);
    ASSERT_EQ(parent->AddChild(child->GetId()), ZN_OK);
  }
  const std::string bytes = Bytes(source);
  const ZnHandle target = MakePrivate();
  ASSERT_EQ(Read(bytes, target), ZN_OK);
  EXPECT_EQ(At(target).GetId(), At(source).GetId());
  EXPECT_EQ(Bytes(target), bytes);
}

TEST_F(DatabaseBytes, TypesComeWithTheirIdsAndReplaceThoseOfTheirName) {
  PropertySet properties;
  properties.Put("Size", Value::UInt64(5), ZN_PROPERTY_INDEXED);
  MakeType("Disk", properties);
  MakeType("Ssd", {}, {"Disk"});
  const ZnHandle source = MakePrivate();
  MakeIn(source, "Ssd");
  const std::string bytes = Bytes(source);
  const ZnHandle target = private_;  // older than the types
  ASSERT_FALSE(At(target).Types().TypeIsA("Ssd", "Disk"));
  ASSERT_EQ(Read(bytes, target), ZN_OK);
  ASSERT_TRUE(At(target).Types().TypeIsA("Ssd", "Disk"));
  EXPECT_EQ(At(target).Types().FindType("Ssd")->GetId(),
            At(source).Types().FindType("Ssd")->GetId());
  // With the index of the type, and the object in it.
  u32 count = 0;
  ObjectId* ids = nullptr;
  ASSERT_EQ(DbGetObjectsByQuery(target, u"SELECT FROM Disk WHERE Size EQ 5", &count, &ids), ZN_OK);
  EXPECT_EQ(count, 1u);
  ZnFree(ids);
}

TEST_F(DatabaseBytes, HiddenObjectsStayBehindAndSoDoRelationsToThem) {
  DBNode* parent = MakeIn(private_);
  DBNode* shown = MakeIn(private_);
  DBNode* hidden = MakeIn(private_, "KELD_Object", OBJECT_HIDDEN);
  DBNode* below = MakeIn(private_);
  ASSERT_EQ(parent->AddChild(shown->GetId()), ZN_OK);
  ASSERT_EQ(parent->AddChild(hidden->GetId()), ZN_OK);
  ASSERT_EQ(hidden->AddChild(below->GetId()), ZN_OK);
  const ZnHandle target = MakePrivate();
  ASSERT_EQ(Read(Bytes(private_), target), ZN_OK);
  EXPECT_EQ(At(target).ObjectCount(), 3u);
  EXPECT_EQ(At(target).FindObject(hidden->GetId()), nullptr);
  EXPECT_THAT(At(target).FindObject(parent->GetId())->Children(), ElementsAre(shown->GetId()));
  EXPECT_THAT(At(target).FindObject(below->GetId())->Parents(), IsEmpty());
}

TEST_F(DatabaseBytes, ObjectsThatTheDatabaseHoldsStayAsTheyAre) {
  DBNode* node = MakeIn(private_);
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(1))), ZN_OK);
  const std::string before = Bytes(private_);
  ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(2))), ZN_OK);
  DBNode* other = MakeIn(private_);
  ASSERT_EQ(Read(before, private_), ZN_OK);
  EXPECT_EQ(node->Properties().FindValue("State", ZN_TYPE_UINT32)->AsUInt32(), 2u);
  EXPECT_EQ(At(private_).FindObject(other->GetId()), other);
  EXPECT_EQ(At(private_).ObjectCount(), 2u);
}

// --- hostile bytes ----------------------------------------------------------------------------

TEST_F(DatabaseBytes, EveryTruncationIsRefused) {
  MakeIn(private_);
  const std::string bytes = Bytes(private_);
  const ZnHandle target = MakePrivate();
  for (size_t length = 0; length < bytes.size(); ++length) {
    // A block of its own, so that a sanitizer sees what is read behind it.
    const std::vector<char> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
    const char none = 0;
    ASSERT_EQ(DbUnmarshalPrivateDatabase(target, static_cast<u32>(length),
                                         length == 0 ? &none : cut.data()),
              ZNE_UNEXPECTED)
        << length;
  }
  EXPECT_EQ(At(target).ObjectCount(), 0u);
  EXPECT_NE(At(target).GetId(), At(private_).GetId());
}

// Each byte in turn becomes another: whatever the status, the database can be written and deleted.
TEST_F(DatabaseBytes, EveryChangedByteLeavesADatabaseThatStands) {
  DBNode* node = MakeIn(private_);
  ASSERT_EQ(node->AddChild(MakeIn(private_)->GetId()), ZN_OK);
  const std::string bytes = Bytes(private_);
  for (size_t place = 0; place < bytes.size(); ++place) {
    std::string changed = bytes;
    changed[place] = static_cast<char>(changed[place] ^ (place % 2 == 0 ? 0xFF : 0x01));
    ZnHandle target = nullptr;
    ASSERT_EQ(DbCreatePrivateDatabase(&target), ZN_OK);
    static_cast<void>(Read(changed, target));
    EXPECT_FALSE(Bytes(target).empty());
    ASSERT_EQ(DbDeletePrivateDatabase(target), ZN_OK);
  }
}

TEST_F(DatabaseBytes, ContentOfAnotherShapeIsRefused) {
  for (const char* name : {"DatabaseId", "Types", "Objects"}) {
    SCOPED_TRACE(name);
    PropertySet content = Content();
    ASSERT_EQ(content.Delete(name), ZN_OK);
    EXPECT_EQ(Read(BytesOf(content), private_), ZNE_INVALID_ARGUMENTS);
    content.Put(name, Value::Text("x"));
    EXPECT_EQ(Read(BytesOf(content), private_), ZNE_INVALID_ARGUMENTS);
    std::vector<Value> texts;
    texts.push_back(Value::Text("x"));
    content.Put(name, Value::Array(ZN_TYPE_STRING, std::move(texts)));
    EXPECT_EQ(Read(BytesOf(content), private_), ZNE_INVALID_ARGUMENTS);
  }
  EXPECT_EQ(Read(BytesOf(PropertySet()), private_), ZNE_INVALID_ARGUMENTS);
}

TEST_F(DatabaseBytes, ListsOfPlainSetsAreReadToo) {
  MakeIn(private_);
  PropertySet content = Content();
  for (const char* name : {"Types", "Objects"}) {
    std::vector<Value> sets;
    for (const Value& element : *FindSetList(content, name)) {
      sets.push_back(Value::Set(PropertySet(element.AsSet())));
    }
    content.Put(name, Value::Array(ZN_TYPE_PROPSET, std::move(sets)));
  }
  const ZnHandle target = MakePrivate();
  EXPECT_EQ(Read(BytesOf(content), target), ZN_OK);
  EXPECT_EQ(At(target).ObjectCount(), 1u);
}

TEST_F(DatabaseBytes, ATypeOrObjectThatCannotBeReadEndsIt) {
  MakeIn(private_);
  PropertySet content = Content();
  Property& types = *content.Find(PropertyName::Intern("Types"));
  ASSERT_EQ(types.GetValue().AsArray().back().AsSet().Delete("SuperTypes"), ZN_OK);
  const ZnHandle target = MakePrivate();
  EXPECT_EQ(Read(BytesOf(content), target), ZNE_PROPERTY_NOT_FOUND);
  EXPECT_EQ(At(target).ObjectCount(), 0u);

  content = Content();
  PropertySet& object =
      content.Find(PropertyName::Intern("Objects"))->GetValue().AsArray()[0].AsSet();
  object.Put("ObjectType", Value::Text("Nobody"));
  EXPECT_EQ(Read(BytesOf(content), target), ZNE_TYPE_NOT_FOUND);
  object.Put("ObjectType", Value::UInt32(1));
  EXPECT_EQ(Read(BytesOf(content), target), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(At(target).ObjectCount(), 0u);
}

// A count of more than the bytes could hold, and sets nested without an end.
TEST_F(DatabaseBytes, CountsAndDepthsAreBounded) {
  const std::string hugeCount("\x7F\xFF\xFF\xFF", 4);
  EXPECT_EQ(Read(hugeCount, private_), ZNE_UNEXPECTED);
  PropertySet nested;
  for (u32 depth = 0; depth < kMaxNesting + 1; ++depth) {
    PropertySet outer;
    outer.Put("Data", Value::Set(std::move(nested)));
    nested = std::move(outer);
  }
  EXPECT_EQ(Read(BytesOf(nested), private_), ZNE_UNEXPECTED);
}

// --- a large one ------------------------------------------------------------------------------

// The sanitizers copy a growing block at every step, so that under them this many would take
// minutes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr u32 kManyObjects = 5000;
#else
constexpr u32 kManyObjects = 100000;
#endif
constexpr u32 kChildrenEach = 100;

class LargeDatabase : public DatabaseBytes {
 protected:
  // A tree of objects, each hundredth hidden from the second level on.
  void Fill() {
    nodes_.reserve(kManyObjects);
    for (u32 i = 0; i < kManyObjects; ++i) {
      const bool isHidden = i > kChildrenEach && i % 100 == 7;
      DBNode* node = MakeIn(private_, "KELD_Object", isHidden ? u32{OBJECT_HIDDEN} : 0);
      ASSERT_EQ(node->SetProperty(Property("State", Value::UInt32(i))), ZN_OK);
      if (i > 0) {
        ASSERT_EQ(nodes_[(i - 1) / kChildrenEach]->AddChild(node->GetId()), ZN_OK);
      }
      nodes_.push_back(node);
    }
  }
  [[nodiscard]] static u32 VisibleCount(const std::vector<DBNode*>& nodes) {
    u32 count = 0;
    for (const DBNode* node : nodes) count += node->IsHidden() ? 0 : 1;
    return count;
  }
  void ExpectTheSameVisibleTree(Database& copy) const {
    ASSERT_EQ(copy.ObjectCount(), VisibleCount(nodes_));
    for (const DBNode* node : nodes_) {
      const DBNode* read = copy.FindObject(node->GetId());
      ASSERT_EQ(read == nullptr, node->IsHidden());
      if (read == nullptr) continue;
      ASSERT_TRUE(read->Properties().Equals(node->Properties()));
      IdSet visible;
      for (const InternedId& child : node->Children()) {
        if (!At(private_).FindObject(child)->IsHidden()) visible.insert(child);
      }
      ASSERT_TRUE(read->Children() == visible);
      const bool isOrphan =
          !node->Parents().empty() && At(private_).FindObject(*node->Parents().begin())->IsHidden();
      ASSERT_TRUE(isOrphan ? read->Parents().empty() : read->Parents() == node->Parents());
    }
  }

  std::vector<DBNode*> nodes_;
};

TEST_F(LargeDatabase, TravelsAsABlockOfBytes) {
  Fill();
  const std::string bytes = Bytes(private_);
  const ZnHandle target = MakePrivate();
  ASSERT_EQ(Read(bytes, target), ZN_OK);
  ExpectTheSameVisibleTree(At(target));
}

// As two processes do it: into a record, a set, bytes; and back through a set into a record.
TEST_F(LargeDatabase, TravelsInAPropertyAndComesBack) {
  Fill();
  ZnHandle sent = nullptr;
  ASSERT_EQ(PsCreatePropset(&sent), ZN_OK);
  char name[] = "Inventory";
  const Property2 given{name, ZN_TYPE_DATABASE, 0, 8, private_};
  ASSERT_EQ(PsAddProperty(sent, &given), ZN_OK);
  u32 length = 0;
  void* bytes = nullptr;
  ASSERT_EQ(PsMarshalPropset(sent, &bytes, &length), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(sent), ZN_OK);

  ZnHandle received = nullptr;
  ASSERT_EQ(PsUnmarshalPropset(bytes, length, &received), ZN_OK);
  ZnFree(bytes);
  Property2* record = nullptr;
  ASSERT_EQ(PsFindProperty(received, "Inventory", &record), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(received), ZN_OK);
  ASSERT_EQ(record->Type, u32{ZN_TYPE_DATABASE});
  const auto handle = static_cast<ZnHandle>(record->Value);
  ASSERT_TRUE(IsValidHandle(handle, HANDLE_DATABASE));
  ExpectTheSameVisibleTree(At(handle));
  EXPECT_EQ(At(handle).GetId(), At(private_).GetId());
  // The database goes with its record.
  EXPECT_EQ(PsFreeProperty(record), ZN_OK);
  EXPECT_FALSE(IsValidHandle(handle, HANDLE_DATABASE));
}

}  // namespace

}  // namespace zn::test
