// What the tests of events share: a running pair of event threads, a system database as a service
// process has one, providers that write down what they hear, callbacks that collect what clients
// would get, and ways to wait for all that without sleeping.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znpropset/property2.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"
#include "zn/ev.h"
#include "zn/platform.h"

namespace zn::test {

// Far beyond what any machine needs; a test that reaches it has failed.
inline constexpr std::chrono::seconds kPatience{60};

// A door that threads wait at.
class Gate {
 public:
  void Open() {
    const std::lock_guard<std::mutex> lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  [[nodiscard]] bool Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kPatience, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
};

// A list that other threads fill.
template <typename T>
class Collected {
 public:
  void Add(T item) {
    const std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }
  // The first `count` items, once they are there.
  [[nodiscard]] std::vector<T> WaitFor(size_t count) {
    std::unique_lock<std::mutex> lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kPatience, [&] { return items_.size() >= count; }))
        << "only " << items_.size() << " of " << count;
    return items_;
  }
  [[nodiscard]] std::vector<T> Items() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return items_;
  }
  void Clear() {
    const std::lock_guard<std::mutex> lock(mutex_);
    items_.clear();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<T> items_;
};

// One event as a receiver saw it.
struct Heard {
  int who = 0;
  std::string topic;
  u32 size = 0;
  u32 flags = 0;
  ZnHandle provider = nullptr;
  ZnHandle database = nullptr;
  GUID objectId{};
  std::string typeName;
  bool typeNameIsBehindRecord = false;
  bool hasData = false;
  PropertySet data;
  bool busLocked = false;
};

[[nodiscard]] inline Heard CopyOf(int who, const EventRecord& event) {
  Heard heard;
  heard.who = who;
  heard.topic = event.topic;
  heard.size = event.size;
  heard.flags = event.flags;
  heard.provider = event.provider;
  heard.database = event.database;
  heard.busLocked = fastLock.HeldByThisThread();
  ZnHandle data = nullptr;
  if (event.size == sizeof(EventRecord)) {
    data = event.data;
  } else {
    const auto& change = reinterpret_cast<const LocalEventRecord&>(event);
    heard.objectId = change.objectId;
    if (change.typeName != nullptr) {
      heard.typeName = change.typeName;
      heard.typeNameIsBehindRecord =
          change.typeName == reinterpret_cast<const char*>(&change) + sizeof(LocalEventRecord);
    }
    data = change.data;
  }
  heard.hasData = IsValidHandle(data, HANDLE_PROPSET);
  if (heard.hasData) heard.data = *HandleThing<PropertySet>(data);
  return heard;
}

class EventTest : public testing::Test {
 protected:
  EventTest() {
    heard.Clear();
    told.Clear();
    raised.Clear();
    onEvent = nullptr;
    clientsPresent = false;
    SetClientsPresentTest([] { return clientsPresent; });
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle change) { told.Add(*HandleThing<PropertySet>(change)); };
    callbacks.eventCallback = [](const EventRecord* event, u32 parameter) {
      raised.Add(CopyOf(static_cast<int>(parameter), *event));
      return true;
    };
    const BusLock lock;
    database_ = std::make_unique<Database>(DB_KEYED, callbacks);
    SetSystemDatabase(database_.get());
  }

  void SetUp() override {
    {
      const BusLock lock;
      ASSERT_EQ(RegisterBaseObjectTypes(*database_), ZN_OK);
      database_->RaiseNotifyEnable();
    }
    first_ = AddProvider<1>(u"first");
    ASSERT_TRUE(StartEventThreads(kParameter));
  }

  ~EventTest() override {
    StopEventThreads();
    const BusLock lock;
    database_.reset();
    SetSystemDatabase(nullptr);
    SetClientsPresentTest(nullptr);
    onEvent = nullptr;
  }

  static constexpr u32 kParameter = 7;

  // A registered provider that writes events down under the number.
  template <int kWho>
  Provider* AddProvider(std::u16string_view name, Database* database = nullptr) {
    const BusLock lock;
    if (database == nullptr) database = database_.get();
    ProviderCallbacks callbacks{};
    callbacks.Event = [](const EventRecord* event) -> u32 {
      if (onEvent) onEvent(kWho, *event);
      heard.Add(CopyOf(kWho, *event));
      return ZN_OK;
    };
    auto provider = std::make_unique<Provider>(
        database, database->Types().FindType("KELD_Provider"), name, callbacks, nullptr, false);
    Provider* borrowed = provider.get();
    database->AddProvider(std::move(provider));
    borrowed->SetRegistered();
    return borrowed;
  }

  static ZnHandle Register(const Provider* provider, const char* pattern, ZnHandle hDb = nullptr) {
    ZnHandle registration = nullptr;
    EXPECT_EQ(EvRegisterEvent(hDb, provider->Handle(), pattern, &registration), ZN_OK) << pattern;
    return registration;
  }

  // Raises with a set of one number.
  u32 Raise(const char* topic, u32 number = 0, ZnHandle hDb = nullptr) const {
    PropertySet set;
    set.Put("Number", Value::UInt32(number));
    const ZnHandle handle = WrapPropertySet(std::move(set));
    const u32 status = EvRaiseEvent(hDb, first_->Handle(), topic, handle);
    EXPECT_TRUE(DestroyPropertySet(handle));
    return status;
  }

  // Every event queued so far has been delivered when it returns: the predicate sees this one after
  // all receivers of those.
  void Flush() const {
    ZnHandle wait = nullptr;
    ASSERT_EQ(EvCreateWaitEvent(
                  nullptr,
                  [](const EventRecord* event, void*) {
                    return std::string_view(event->topic) == "test.flush";
                  },
                  nullptr, &wait),
              ZN_OK);
    ASSERT_EQ(Raise("test.flush"), ZN_OK);
    ASSERT_EQ(EvWaitForEvent(nullptr, wait, 0xFFFFFFFFu), ZN_OK);
    EXPECT_EQ(ZnCloseHandle(wait), ZN_OK);
  }

  [[nodiscard]] static std::vector<std::string> Topics(const std::vector<Heard>& events) {
    std::vector<std::string> topics;
    for (const Heard& event : events) topics.push_back(event.topic);
    return topics;
  }

  static inline Collected<Heard> heard;       // by providers
  static inline Collected<PropertySet> told;  // by the change callback
  static inline Collected<Heard> raised;      // by the event callback; `who` is the parameter
  // Runs in every Event slot first. Set while no event is on its way.
  static inline std::function<void(int, const EventRecord&)> onEvent;
  static inline bool clientsPresent = false;

  std::unique_ptr<Database> database_;
  Provider* first_ = nullptr;
};

}  // namespace zn::test
