// What is left behind when memory runs out in the middle: every allocation of an operation fails
// once. The general operator new of this program is replaced for it; it fails on demand, on the
// thread of the test alone.
#include "zn/memory.h"

#include <cstdlib>
#include <new>

#include "framework/common/znapi/databasebytes.h"
#include "framework/common/zncore/changerecord.h"
#include "framework/common/znprov/localprovider.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "tests/unit/framework/bus_fixture.h"
#include "zn/db.h"
#include "zn/ev.h"
#include "zn/type.h"

namespace {

thread_local int allocationsLeft = -1;  // negative: as many as there are
thread_local bool hasStruck = false;

}  // namespace

namespace {

// Null when memory has run out, or is to have.
void* Allocate(size_t size) noexcept {
  if (allocationsLeft >= 0 && --allocationsLeft < 0) {
    hasStruck = true;
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

[[gnu::noinline]] void* operator new(size_t size) {
  void* block = Allocate(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, size_t) noexcept {
  std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, const std::nothrow_t&) noexcept {
  std::free(block);
}

namespace zn::test {

namespace {

using ::testing::AnyOf;
using ::testing::IsEmpty;

// One allocation fails, the one behind `before` others.
class Shortage {
 public:
  explicit Shortage(int before) {
    hasStruck = false;
    allocationsLeft = before;
  }
  ~Shortage() { allocationsLeft = -1; }
  Shortage(const Shortage&) = delete;
  Shortage& operator=(const Shortage&) = delete;
  [[nodiscard]] static bool HasStruck() { return hasStruck; }
};

class MemoryShortage : public BusTest {
 protected:
  // Prepares, acts and looks, with the first, the second, ... allocation of the act failing, until
  // none of them is left.
  template <typename Prepare, typename Act, typename Look>
  void AtEveryAllocation(Prepare&& prepare, Act&& act, Look&& look) {
    constexpr int kMost = 2000;
    for (int before = 0; before < kMost; ++before) {
      SCOPED_TRACE(before);
      prepare();
      u32 status = ZN_OK;
      bool struck = false;
      {
        const Shortage shortage(before);
        status = act();
        struck = Shortage::HasStruck();
      }
      look(status);
      if (!struck) {
        EXPECT_EQ(status, ZN_OK);
        EXPECT_GT(before, 0);
        return;
      }
    }
    FAIL() << "no end";
  }
};

TEST_F(MemoryShortage, ACreationThatFailsLeavesNothing) {
  const ZnHandle provider = MakeProvider();
  const size_t present = database_->ObjectCount();
  ObjectId id{};
  AtEveryAllocation([&] { id = {}; },
                    [&] { return ObCreateObject(nullptr, provider, "KELD_Object", &id); },
                    [&](u32 status) {
                      EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
                      EXPECT_EQ(id == ObjectId{}, status != ZN_OK);
                      if (status == ZN_OK) {
                        EXPECT_EQ(ObDeleteObject(nullptr, id), ZN_OK);
                      }
                      EXPECT_EQ(database_->ObjectCount(), present);
                    });
}

// The graph of types changes before each, so that even the way to the indexes must be found anew.
TEST_F(MemoryShortage, ADeletionSucceedsAllTheSame) {
  const ZnHandle provider = MakeProvider();
  const Property wanted("P", Value::UInt32(5));
  TypeObject* type = nullptr;
  {
    const BusLock lock;
    PropertySet indexed;
    indexed.Put("P", Value::UInt32(5), ZN_PROPERTY_INDEXED);
    ASSERT_EQ(database_->Types().CreateTypeInstance("Disk", &indexed, {"KELD_Object"}, 0, &type),
              ZN_OK);
  }
  ObjectId id{};
  AtEveryAllocation(
      [&] {
        ASSERT_EQ(ObCreateObject(nullptr, provider, "Disk", &id), ZN_OK);
        database_->Types().GraphChanged();
      },
      [&] { return ObDeleteObject(nullptr, id); },
      [&](u32 status) {
        EXPECT_EQ(status, ZN_OK);
        const BusLock lock;
        std::vector<DBNode*> found;
        EXPECT_EQ(type->FindInstances(wanted, &found), ZN_OK);
        EXPECT_THAT(found, IsEmpty());
      });
}

TEST_F(MemoryShortage, AQueryThatFailsAnswersNothing) {
  const ZnHandle provider = MakeProvider();
  static_cast<void>(MakeObject(provider));
  u32 count = 0;
  ObjectId* ids = nullptr;
  AtEveryAllocation(
      [&] {
        count = 0;
        ids = nullptr;
        database_->Types().GraphChanged();
      },
      [&] {
        return DbGetObjectsByQuery(nullptr, u"SELECT FROM KELD_Object WHERE Name EQ \"Noname\"",
                                   &count, &ids);
      },
      [&](u32 status) {
        EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
        EXPECT_EQ(count, status == ZN_OK ? 1u : 0u);
        EXPECT_EQ(ids == nullptr, status != ZN_OK);
        ZnFree(ids);
      });
}

TEST_F(MemoryShortage, ADatabaseThatIsReadInPartStands) {
  ZnHandle source = nullptr;
  ASSERT_EQ(DbCreatePrivateDatabase(&source), ZN_OK);
  const ZnHandle provider = MakeProvider(u"local", source);
  ObjectId parent{};
  ObjectId child{};
  ASSERT_EQ(ObCreateObject(source, provider, "KELD_Object", &parent), ZN_OK);
  ASSERT_EQ(ObCreateObject(source, provider, "KELD_Object", &child), ZN_OK);
  ASSERT_EQ(ObAddChildObject(source, parent, child), ZN_OK);
  u32 length = 0;
  void* bytes = nullptr;
  ASSERT_EQ(DbMarshalPrivateDatabase(source, &length, &bytes), ZN_OK);
  ZnHandle target = nullptr;
  AtEveryAllocation([&] { ASSERT_EQ(DbCreatePrivateDatabase(&target), ZN_OK); },
                    [&] { return DbUnmarshalPrivateDatabase(target, length, bytes); },
                    [&](u32 status) {
                      EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
                      u32 again = 0;
                      void* written = nullptr;
                      EXPECT_EQ(DbMarshalPrivateDatabase(target, &again, &written), ZN_OK);
                      if (status == ZN_OK) {
                        EXPECT_EQ(again, length);
                      }
                      ZnFree(written);
                      EXPECT_EQ(DbDeletePrivateDatabase(target), ZN_OK);
                    });
  ZnFree(bytes);
  EXPECT_EQ(DbDeletePrivateDatabase(source), ZN_OK);
}

TEST_F(MemoryShortage, AnAsynchronousCallThatFailsLeavesNoTask) {
  const ZnHandle provider = MakeProvider();
  const Propset in;
  const Propset out;
  SlotCall called{};
  script.call = [&called](const SlotCall& call) {
    called = call;
    return ZN_OK;
  };
  ObjectId answered{};
  ObjectId task{};
  AtEveryAllocation([&] { task = {}; },
                    [&] {
                      return PrCallProvider(provider, ObjectId{}, &kTestInterface, 1, 1, in.Get(),
                                            out.Get(), ZN_CALL_ASYNCHRONOUS, 0, nullptr, nullptr,
                                            &answered, &task);
                    },
                    [&](u32 status) {
                      EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
                      EXPECT_EQ(task == ObjectId{}, status != ZN_OK);
                      if (status == ZN_OK) {
                        EXPECT_TRUE(called.Report(TASK_STATE_FINISHED, 100));
                      }
                      EXPECT_THAT(ObjectsOfType("KELD_Task"), IsEmpty());
                      EXPECT_EQ(RememberedTasks(), 0u);
                    });
}

TEST_F(MemoryShortage, ARegistrationThatFailsLeavesNoLeaf) {
  const ZnHandle provider = MakeProvider();
  ZnHandle registration = nullptr;
  AtEveryAllocation([&] { registration = nullptr; },
                    [&] { return EvRegisterEvent(nullptr, provider, "a.b.c", &registration); },
                    [&](u32 status) {
                      EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
                      if (status == ZN_OK) {
                        EXPECT_EQ(EvUnregisterEvent(nullptr, registration), ZN_OK);
                      }
                      EXPECT_FALSE(database_->Events().HasListeners());
                    });
}

TEST_F(MemoryShortage, AProviderGoesAllTheSame) {
  ZnHandle provider = nullptr;
  AtEveryAllocation(
      [&] {
        provider = MakeProvider();
        ZnHandle registration = nullptr;
        ASSERT_EQ(EvRegisterEvent(nullptr, provider, "a.b.c", &registration), ZN_OK);
      },
      [&] {
        const BusLock lock;
        DiscardProvider(*database_, provider);
        return ZN_OK;
      },
      [&](u32) {
        EXPECT_FALSE(database_->Events().HasListeners());
        ObjectId id{};
        EXPECT_EQ(PrGetProviderId(provider, &id), ZNE_INVALID_ARGUMENTS);
      });
}

TEST_F(MemoryShortage, AGroupThatFailsLeavesNothing) {
  const size_t present = database_->ObjectCount();
  const char* types[] = {"KELD_Configlet"};
  ObjectId id{};
  AtEveryAllocation([&] { id = {}; },
                    [&] { return DbCreateGroupNode(nullptr, 1, types, 0, u"group", &id); },
                    [&](u32 status) {
                      EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
                      if (status == ZN_OK) {
                        EXPECT_EQ(DbDeleteGroupNode(nullptr, u"group"), ZN_OK);
                      }
                      EXPECT_EQ(database_->ObjectCount(), present);
                    });
}

TEST_F(MemoryShortage, ATypeStandsOrDoesNot) {
  const Propset properties;
  properties.Set().Put("P", Value::UInt32(5), ZN_PROPERTY_INDEXED);
  u32 number = 0;
  std::string name;
  ObjectId id{};
  AtEveryAllocation(
      [&] { name = "Disk" + std::to_string(++number); },
      [&] { return ObCreateTypeObject(nullptr, name.c_str(), nullptr, properties.Get(), &id); },
      [&](u32 status) {
        EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
        EXPECT_EQ(TypeIsA(nullptr, name.c_str(), "KELD_Object"), status == ZN_OK);
      });
}

TEST_F(MemoryShortage, AnInterfaceStandsAtBothEndsOrAtNone) {
  const ZnHandle provider = MakeProvider();
  const ObjectId object = MakeObject(provider);
  AtEveryAllocation([] {},
                    [&] { return ObRegisterInterface(nullptr, object, provider, &kTestInterface); },
                    [&](u32 status) {
                      EXPECT_THAT(status, AnyOf(ZN_OK, ZNE_OUT_OF_MEMORY));
                      EXPECT_EQ(ObDeregisterInterface(nullptr, object, &kTestInterface),
                                status == ZN_OK ? ZN_OK : ZNE_INTERFACE_NOT_FOUND);
                    });
}

// Also where a call ends it, on the way out of a destructor.
TEST_F(MemoryShortage, TheEndOfASequenceLosesWhatItCannotTell) {
  const ZnHandle provider = MakeProvider();
  const ObjectId first = MakeObject(provider);
  const ObjectId second = MakeObject(provider);
  SetClientsPresentTest([] { return true; });
  u32 state = 0;
  const auto change = [&](const ObjectId& id) {
    const BusLock lock;
    EXPECT_EQ(database_->FindObject(id)->SetProperty(Property("State", Value::UInt32(state))),
              ZN_OK);
  };
  AtEveryAllocation(
      [&] {
        ++state;
        EXPECT_EQ(DbUpdateSequenceStart(nullptr, 0), ZN_OK);
        change(first);
        change(second);
      },
      [] { return DbUpdateSequenceFinish(nullptr, 0); },
      [&](u32 status) {
        EXPECT_EQ(status, ZN_OK);
        const BusLock lock;
        EXPECT_EQ(database_->SequenceDepth(), 0u);
        EXPECT_TRUE(database_->PendingEvents().IsEmpty());
      });
  SetClientsPresentTest(nullptr);
}

}  // namespace

}  // namespace zn::test
