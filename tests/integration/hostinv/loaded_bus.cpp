// The library with the provider loaded; see the header.
#include "loaded_bus.h"

#include <chrono>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "expected_types.h"
#include "patience.h"
#include "text.h"

namespace hostinv {
namespace {

constexpr char kSeenMark[] = "event.hostinv.test.mark";

std::unique_ptr<LoadedBus> theBus;

// A library left running would be torn down by the end of the process, in no order of its own.
class StopAtTheEnd : public testing::Environment {
 public:
  void TearDown() override {
    if (theBus == nullptr) return;
    theBus->Stop();  // events still come in until then, and look for the bus
    theBus.reset();
  }
};
const testing::Environment* const stopAtTheEnd =
    testing::AddGlobalTestEnvironment(new StopAtTheEnd);

void OnChange(ZnHandle /*change*/) {}
bool OnAnyEvent(const EventRecord* /*event*/, u32 /*parameter*/) {
  return true;
}

template <typename T>
T Scalar(const Property2& property) {
  T value{};
  std::memcpy(&value, property.Value, sizeof(value));
  return value;
}

std::vector<std::string> Texts(const Property2& property) {
  const auto* texts = static_cast<const char* const*>(property.Value);
  return {texts, texts + property.Size};
}

Value ToValue(const Property2& property) {
  switch (property.Type) {
    case ZN_TYPE_BOOLEAN:
      return Scalar<u8>(property) != 0;
    case ZN_TYPE_UINT32:
      return Scalar<u32>(property);
    case ZN_TYPE_UINT64:
      return Scalar<std::uint64_t>(property);
    case ZN_TYPE_TIME:
      return Time{Scalar<i64>(property)};
    case ZN_TYPE_STRING:
      return std::string(static_cast<const char*>(property.Value));
    case ZN_TYPE_WIDESTRING:
      return std::u16string(static_cast<const ZnWChar*>(property.Value));
    case ZN_TYPE_STRING | ZN_TYPE_ARRAY:
      return Texts(property);
    default:
      ADD_FAILURE() << property.Name << " has tag " << property.Type;
      return false;
  }
}

Properties ReadProperties(ZnHandle database, const ObjectId& id) {
  Properties properties;
  ZnHandle set = nullptr;
  ZnHandle iterator = nullptr;
  EXPECT_EQ(ObGetProperties(database, id, &set), 0U);
  EXPECT_EQ(PsOpenPropset(set, &iterator), 0U);
  Property2* property = nullptr;
  while (PsFindNextProperty(set, iterator, &property) == 0) {
    properties.emplace(property->Name, ToValue(*property));
    PsFreeProperty(property);
  }
  ZnFree(iterator);
  PsDestroyPropset(set);
  return properties;
}

std::string KeyOf(ZnHandle database, const ObjectId& id) {
  void* key = nullptr;
  u32 length = 0;
  if (ObGetKey(database, id, &key, &length) != 0) return {};
  std::string text(static_cast<const char*>(key), length);
  ZnFree(key);
  return text;
}

// The expected table's own text for a type of an object, for Item keeps it by pointer.
const char* TypeOf(ZnHandle database, const ObjectId& id) {
  char* name = nullptr;
  EXPECT_EQ(ObGetObjectType(database, id, &name), 0U);
  const char* known = "unknown type";
  for (const TypeSchema& type : Types()) {
    if (std::strcmp(type.name, name) == 0) known = type.name;
  }
  ZnFree(name);
  return known;
}

Item ReadItem(ZnHandle database, const ObjectId& id) {
  Item item;
  item.type = TypeOf(database, id);
  item.properties = ReadProperties(database, id);
  u32 count = 0;
  ObjectId* parents = nullptr;
  EXPECT_EQ(ObGetParentObjects(database, id, nullptr, &count, &parents), 0U);
  for (u32 i = 0; i < count; ++i) item.parents.insert(KeyOf(database, parents[i]));
  ZnFree(parents);
  return item;
}

}  // namespace

bool IsZero(const ObjectId& id) {
  return ObCompareId(id, ObjectId{});
}

LoadedBus& LoadedBus::Start(const std::string& values) {
  if (!theBus) {
    theBus.reset(new LoadedBus);
    theBus->Load(values);
  }
  return *theBus;
}

LoadedBus& LoadedBus::Get() {
  return *theBus;
}

LoadedBus::~LoadedBus() {
  Stop();
}

void LoadedBus::Load(const std::string& values) {
  folder_.Write("settings.toml", "InstallDir = \"" + folder_.Path() +
                                     "\"\n[ProviderGroup]\n[Providers.hostinv]\nImageFile = \"" +
                                     HOSTINV_LIBRARY + "\"\n" + values);
  setenv("ZN_SETTINGS", (folder_.Path() + "/settings.toml").c_str(), 1);
  status_ = ZnInitialize(1, OnChange, OnAnyEvent, &database_);
  if (ZN_FAILED(status_)) return;
  status_ = PrGetProviderByName(database_, u"hostinv", &provider_);
  if (ZN_FAILED(status_)) return;
  ProviderCallbacks callbacks{};
  callbacks.Call = [](ObjectId, u32, u32, ZnHandle, ZnHandle, u32, u32, void*, TaskCallback,
                      const GUID*, const ObjectId*, ZnHandle*) { return u32{0}; };
  callbacks.Initialize = [](ZnHandle, ZnHandle, u32, u32) { return u32{0}; };
  callbacks.Event = OnEvent;
  status_ = PrCreateProvider(database_, u"observer", &callbacks, &observer_);
  if (ZN_FAILED(status_)) return;
  ZnHandle registration = nullptr;
  status_ = EvRegisterEvent(database_, observer_, "event.keld.dom.object", &registration);
  if (ZN_FAILED(status_)) return;
  status_ = EvRegisterEvent(database_, observer_, kSeenMark, &registration);
}

void LoadedBus::Stop() {
  ShutdownServer();
}

u32 LoadedBus::OnEvent(const EventRecord* event) {
  LoadedBus& bus = Get();
  const std::lock_guard lock(bus.mutex_);
  if (std::strcmp(event->topic, kSeenMark) == 0) {
    ++bus.settled_;
  } else if (event->size != sizeof(EventRecord)) {
    const auto* local = reinterpret_cast<const LocalEventRecord*>(event);
    bus.events_.push_back({local->topic, local->typeName, local->objectId});
  }
  bus.heard_.notify_all();
  return 0;
}

void LoadedBus::Settle() {
  u32 before = 0;
  {
    const std::lock_guard lock(mutex_);
    before = settled_;
  }
  ZnHandle set = nullptr;
  ASSERT_EQ(PsCreatePropset(&set), 0U);
  ASSERT_EQ(EvRaiseEvent(database_, observer_, kSeenMark, set), 0U);
  PsDestroyPropset(set);
  std::unique_lock lock(mutex_);
  ASSERT_TRUE(heard_.wait_for(lock, kPatience, [&] { return settled_ != before; }));
}

void LoadedBus::ForgetEvents() {
  Settle();
  const std::lock_guard lock(mutex_);
  events_.clear();
}

std::vector<HeardEvent> LoadedBus::Events() {
  Settle();
  const std::lock_guard lock(mutex_);
  return events_;
}

bool LoadedBus::WaitForEvent(const ObjectId& object, const std::string& change) {
  std::unique_lock lock(mutex_);
  return heard_.wait_for(lock, kPatience, [&] {
    for (const HeardEvent& event : events_) {
      if (ObCompareId(event.object, object) && event.topic.find(change) != std::string::npos) {
        return true;
      }
    }
    return false;
  });
}

bool LoadedBus::WaitUntil(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (true) {
    std::unique_lock lock(mutex_);
    const std::size_t count = events_.size();  // before asking: an event during it asks again
    lock.unlock();
    if (condition()) return true;
    lock.lock();
    const bool more = heard_.wait_until(lock, end, [&] { return events_.size() != count; });
    lock.unlock();
    if (!more) return condition();
  }
}

ObjectId LoadedBus::Find(const std::string& key) const {
  ObjectId id{};
  ObGetObjectIdByKey(database_, provider_, key.data(), static_cast<u32>(key.size()), &id);
  return id;
}

Value LoadedBus::Get(const ObjectId& id, const std::string& name) const {
  Property2* property = nullptr;
  const u32 status = ObGetProperty(database_, id, name.c_str(), &property);
  if (status != 0) {
    ADD_FAILURE() << name << ": status " << status;
    return false;
  }
  Value value = ToValue(*property);
  PsFreeProperty(property);
  return value;
}

Inventory LoadedBus::Snapshot() const {
  Inventory inventory;
  for (const TypeSchema& type : Types()) {
    u32 count = 0;
    ObjectId* ids = nullptr;
    EXPECT_EQ(DbGetObjects(database_, type.name, &count, &ids), 0U);
    for (u32 i = 0; i < count; ++i) {
      inventory[KeyOf(database_, ids[i])] = ReadItem(database_, ids[i]);
    }
    ZnFree(ids);
  }
  return inventory;
}

}  // namespace hostinv
