// What the tests of providers share: a process with a system database, the provider "system" and
// the event threads, but without settings; providers whose slots are scripts of the test; property
// sets that free themselves. The tests call the exports, so they hold no lock.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/common/znapi/framework.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/znprov/systemprovider.h"
#include "framework/common/znprov/task.h"
#include "support/common/event.h"
#include "support/common/fastlock.h"
#include "support/common/handle.h"
#include "tests/unit/framework/guids.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/ob.h"
#include "zn/platform.h"
#include "zn/pr.h"
#include "zn/ps.h"

namespace zn::test {

inline constexpr GUID kTestInterface = {0x10203040, 0x5060, 0x7080, {1, 2, 3, 4, 5, 6, 7, 8}};
inline constexpr u32 kPatienceMs = 60000;  // no test waits it out unless it fails

// A wait event of the test.
class Signal {
 public:
  Signal() : event_(ZnCreateEvent(0, 0)) {}
  ~Signal() { ZnCloseEvent(event_); }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  void Set() { ZnSetEvent(event_); }
  [[nodiscard]] bool Wait() { return ZnWaitForEvent(event_, kPatienceMs) == kWaitSignalled; }

 private:
  ZnHandle event_;
};

// An owned property set.
class Propset {
 public:
  Propset() { EXPECT_EQ(PsCreatePropset(&handle_), ZN_OK); }
  ~Propset() { static_cast<void>(PsDestroyPropset(handle_)); }
  Propset(const Propset&) = delete;
  Propset& operator=(const Propset&) = delete;
  [[nodiscard]] ZnHandle Get() const { return handle_; }
  [[nodiscard]] PropertySet& Set() const { return *HandleThing<PropertySet>(handle_); }

 private:
  ZnHandle handle_ = nullptr;
};

// The words that reach the Call slot.
struct SlotCall {
  ObjectId id;
  u32 majorCode;
  u32 minorCode;
  ZnHandle in;
  ZnHandle out;
  u32 flags;
  u32 reserved;
  void* context;
  TaskCallback callback;
  GUID interfaceId;
  ObjectId taskId;
  ZnHandle* answering;

  // A report as a provider of this call makes one.
  [[nodiscard]] bool Report(u32 state, u32 percent, u32 result = ZN_OK) const {
    TaskReport report{result, context, taskId, percent, state};
    return callback(&report);
  }
};

// The scripts behind the slots of the test's providers; slots carry no context of their own.
struct Script {
  std::function<u32(const SlotCall&)> call;
  std::function<u32(ZnHandle database, ZnHandle provider)> initialize;
  std::function<u32(ZnHandle database)> shutdown;
  std::function<u32(const EventRecord*)> event;
  std::function<u32(ZnWChar**)> getVersion;
};
inline Script script;

[[nodiscard]] inline ProviderCallbacks ScriptedSlots() {
  ProviderCallbacks slots{};
  slots.Call = [](ObjectId id, u32 majorCode, u32 minorCode, ZnHandle in, ZnHandle out, u32 flags,
                  u32 reserved, void* context, TaskCallback callback, const GUID* interfaceId,
                  const ObjectId* taskId, ZnHandle* answering) -> u32 {
    const SlotCall call{id,       majorCode, minorCode, in,           out,     flags,
                        reserved, context,   callback,  *interfaceId, *taskId, answering};
    return script.call ? script.call(call) : ZN_OK;
  };
  slots.Initialize = [](ZnHandle database, ZnHandle provider, u32, u32) -> u32 {
    return script.initialize ? script.initialize(database, provider) : ZN_OK;
  };
  slots.Shutdown = [](ZnHandle database) -> u32 {
    return script.shutdown ? script.shutdown(database) : ZN_OK;
  };
  slots.Event = [](const EventRecord* event) -> u32 {
    return script.event ? script.event(event) : ZN_OK;
  };
  slots.GetVersion = [](ZnWChar** text) -> u32 {
    return script.getVersion ? script.getVersion(text) : ZN_OK;
  };
  return slots;
}

class BusTest : public testing::Test {
 protected:
  void SetUp() override {
    script = {};
    ASSERT_TRUE(StartFramework(0));
    const BusLock lock;
    auto database = std::make_unique<Database>(DB_KEYED, SystemCallbacks());
    database_ = database.get();
    SetSystemDatabase(database_);
    DatabaseList().push_back(std::move(database));
    ASSERT_EQ(CreateSystemProvider(*database_, kSystemProviderName), ZN_OK);
    database_->RaiseNotifyEnable();
  }
  void TearDown() override {
    script = {};  // the scripts' variables are gone by now
    StopFramework(LibraryLife::kGoesOn);
    SetShuttingDown(false);
  }
  // Where the changes and events of the system database go.
  [[nodiscard]] virtual DatabaseCallbacks SystemCallbacks() const {
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle) {};
    return callbacks;
  }

  // A provider with the scripted slots.
  ZnHandle MakeProvider(const char16_t* name = u"scripted", ZnHandle database = nullptr) {
    const ProviderCallbacks slots = ScriptedSlots();
    ZnHandle provider = nullptr;
    EXPECT_EQ(PrCreateProvider(database, name, &slots, &provider), ZN_OK);
    return provider;
  }
  ObjectId MakeObject(ZnHandle provider) {
    ObjectId id{};
    EXPECT_EQ(ObCreateObject(nullptr, provider, "KELD_Object", &id), ZN_OK);
    return id;
  }
  [[nodiscard]] static ObjectId IdOf(ZnHandle provider) {
    ObjectId id{};
    EXPECT_EQ(PrGetProviderId(provider, &id), ZN_OK);
    return id;
  }
  [[nodiscard]] ZnHandle SystemProvider() {
    ZnHandle provider = nullptr;
    EXPECT_EQ(PrGetProviderByName(nullptr, u"system", &provider), ZN_OK);
    return provider;
  }
  // A property of an object, no value when there is none.
  [[nodiscard]] static Value PropertyOf(const ObjectId& id, const char* name) {
    const BusLock lock;
    Property property;
    DBNode* node = ZnGetSystemDatabase()->FindObject(id);
    if (node == nullptr || ZN_FAILED(node->GetProperty(name, &property))) return {};
    return property.GetValue();
  }
  [[nodiscard]] static std::vector<ObjectId> ObjectsOfType(const char* type) {
    const BusLock lock;
    std::vector<ObjectId> ids;
    EXPECT_EQ(ZnGetSystemDatabase()->GetObjectsOfType(type, &ids), ZN_OK);
    return ids;
  }

  Database* database_ = nullptr;
};

}  // namespace zn::test
