// What the tests of client copies share: a server's database and a client copy in one process, with
// the test in place of the connection. Requests are answered from the server's database and
// counted; the server's changes are marshalled, read again and applied to the copy when the test
// says so.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "framework/common/zncore/clientcopy.h"
#include "framework/common/zncore/database_value.h"
#include "framework/common/znevent/topic.h"
#include "framework/common/znwire/messages.h"
#include "tests/unit/framework/event_fixture.h"
#include "tests/unit/framework/fixture.h"
#include "tests/unit/framework/guids.h"
#include "tests/unit/framework/sets.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/db.h"
#include "zn/init.h"
#include "zn/memory.h"
#include "zn/ob.h"
#include "zn/pr.h"
#include "zn/ps.h"
#include "zn/type.h"

namespace zn::test {

inline constexpr GUID kShownInterface = {0x51, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

// The set as the other end of a connection reads it.
[[nodiscard]] inline PropertySet Travelled(const PropertySet& set) {
  return SetOf(BytesOf(set));
}

class RemoteCopyTest : public EventTest {
 protected:
  void SetUp() override {
    EventTest::SetUp();
    clientsPresent = true;
    server = database_.get();
    requests.clear();
    onRequest = nullptr;
    beforeReply = nullptr;
    onCall = nullptr;
    DatabaseCallbacks callbacks;
    callbacks.forwardRequest = &Forward;
    callbacks.forwardProviderCall = &ForwardCall;
    callbacks.context = this;
    copy_ = CreateClientCopy(callbacks);
    ASSERT_NE(copy_, nullptr);
    ASSERT_TRUE(SetLoggedOn(copy_, true));
    TypeId("TEST_Thing", "KELD_Object");
    TypeId("TEST_Special", "TEST_Thing");
    static_cast<void>(Told(2));
  }
  void TearDown() override {
    if (copy_ != nullptr) {
      EXPECT_TRUE(DeleteClientCopy(copy_));
    }
  }

  // The types and providers, as a logon fetches them; what it asked is forgotten.
  void Warm() {
    EXPECT_EQ(List("KELD_Type").first, ZN_OK);
    ZnHandle none = nullptr;
    static_cast<void>(PrGetProviderByName(copy_, u"SYSTEM", &none));
    requests.clear();
  }

  // --- the server ---
  ObjectId TypeId(const char* name, const char* super) {
    PropertySet properties;
    properties.Put("Size", Value::UInt32(0));
    const ZnHandle set = WrapPropertySet(std::move(properties));
    const char* supers[] = {super, nullptr};
    ObjectId id{};
    EXPECT_EQ(ObCreateTypeObject(nullptr, name, supers, set, &id), ZN_OK) << name;
    EXPECT_TRUE(DestroyPropertySet(set));
    return id;
  }
  ObjectId Make(const char* type = "TEST_Thing", u32 flags = 0) {
    ObjectId id{};
    EXPECT_EQ(ObCreateObjectEx(nullptr, first_->Handle(), type, flags, 0, &id), ZN_OK);
    return id;
  }
  void SetSize(const ObjectId& id, u32 size, ZnHandle hDb = nullptr) {
    char name[] = "Size";
    Property2 property{name, ZN_TYPE_UINT32, 0, sizeof(u32), &size};
    EXPECT_EQ(ObSetProperty(hDb, id, &property), ZN_OK);
  }
  // What was told since the last call, `count` sets, as they come to a client.
  std::vector<PropertySet> Told(size_t count) {
    std::vector<PropertySet> sets;
    for (const PropertySet& set : told.WaitFor(count)) sets.push_back(Travelled(set));
    EXPECT_EQ(sets.size(), count);
    told.Clear();
    return sets;
  }
  void Push(size_t count) {
    for (PropertySet& set : Told(count)) EXPECT_EQ(DbUpdateCache(copy_, set), ZN_OK);
  }

  // --- the copy ---
  [[nodiscard]] Database& Copy() const { return *HandleThing<Database>(copy_); }
  [[nodiscard]] bool IsHere(const ObjectId& id) const { return ObExists(copy_, id); }
  std::pair<u32, std::vector<ObjectId>> List(const char* type) {
    u32 count = 0;
    ObjectId* ids = nullptr;
    const u32 status = DbGetObjects(copy_, type, &count, &ids);
    std::vector<ObjectId> list(ids, ids + count);
    ZnFree(ids);
    return {status, list};
  }
  // The property "Size", or the status of the read.
  u32 SizeOf(const ObjectId& id, ZnHandle hDb) {
    Property2* property = nullptr;
    const u32 status = ObGetProperty(hDb, id, "Size", &property);
    if (ZN_FAILED(status)) return status;
    const u32 size = *static_cast<u32*>(property->Value);
    PsFreeProperty(property);
    return size;
  }
  u32 Size(const ObjectId& id) { return SizeOf(id, copy_); }
  // Somebody who listens to all of the copy's events.
  ZnHandle Listen() {
    Provider* listener = AddProvider<2>(u"listener", &Copy());
    Register(listener, "event", copy_);
    return listener->Handle();
  }
  std::vector<std::string> HeardTopics() {
    FlushEvents();
    std::vector<std::string> topics = Topics(heard.Items());
    heard.Clear();
    return topics;
  }
  void FlushEvents() { Flush(); }

  // A record as it comes, with that topic and data.
  [[nodiscard]] static PropertySet Record(std::string_view topic, const ObjectId& id,
                                          std::string_view type, PropertySet data) {
    PropertySet set;
    set.Put("Message", Value::UInt32(11));
    set.Put("Flags", Value::UInt32(3));
    set.Put("NotificationId", Value::Text(topic));
    set.Put("ObjectId", Value::Id(id));
    set.Put("ObjectType", Value::Text(type));
    set.Put("Data", Value::Set(std::move(data)));
    return set;
  }

  [[nodiscard]] static std::vector<u32> Criteria() {
    std::vector<u32> criteria;
    for (const PropertySet& request : requests) {
      criteria.push_back(request.FindValue("Criteria", ZN_TYPE_UINT32)->AsUInt32());
    }
    return criteria;
  }

  // --- the connection ---
  static u32 Forward(PropertySet& request, PropertySet* reply, void*) {
    EXPECT_FALSE(fastLock.HeldByThisThread());
    requests.push_back(Travelled(request));
    if (onRequest) return onRequest(request, reply);
    PropertySet answer;
    const u32 status = Serve(request, &answer);
    *reply = Travelled(answer);
    if (beforeReply) std::exchange(beforeReply, nullptr)();
    return status;
  }
  static u32 ForwardCall(PropertySet& request, ObjectId* provider, ObjectId* task, PropertySet* out,
                         void*) {
    EXPECT_FALSE(fastLock.HeldByThisThread());
    return onCall ? onCall(request, provider, task, out) : ZN_OK;
  }
  static void AddObjects(const std::vector<ObjectId>& ids, PropertySet* answer) {
    std::vector<Value> objects;
    for (const ObjectId& id : ids) {
      const DBNode* node = server->FindCached(id);
      if (node == nullptr || node->IsHidden()) continue;
      PropertySet form;
      server->MarshalObject(*node, &form);
      objects.push_back(Value::Set(ZN_TYPE_OBJECT, std::move(form)));
    }
    answer->Put("Objects", Value::Array(ZN_TYPE_OBJECT, std::move(objects)));
  }
  static void AddProviders(PropertySet* answer) {
    std::vector<Value> providers;
    for (const auto& provider : server->Providers()) {
      PropertySet form;
      form.Put("ProviderId", Value::Id(provider->GetId()));
      form.Put("Name", Value::WideText(provider->Name()));
      form.Put("ExtensionId", Value::Text("extension"));
      form.Put("MessageCatalogId", Value::Text("catalog"));
      form.Put("Data", Value::Set(provider->GetProperties()));
      providers.push_back(Value::Set(ZN_TYPE_PROVIDER, std::move(form)));
    }
    answer->Put("Providers", Value::Array(ZN_TYPE_PROVIDER, std::move(providers)));
  }
  static void AddTypes(PropertySet* answer) {
    std::vector<Value> types;
    for (PropertySet& form : server->Types().DumpTypeGraph()) {
      types.push_back(Value::Set(ZN_TYPE_TYPE_OBJECT, std::move(form)));
    }
    answer->Put("Types", Value::Array(ZN_TYPE_TYPE_OBJECT, std::move(types)));
  }
  static u32 Serve(const PropertySet& request, PropertySet* answer) {
    const BusLock lock;
    const PropertySet& data = request.FindValue("Data", ZN_TYPE_PROPSET)->AsSet();
    std::vector<ObjectId> ids;
    switch (request.FindValue("Criteria", ZN_TYPE_UINT32)->AsUInt32()) {
      case 1:
        for (const Value& id :
             data.FindValue("Data", ZN_TYPE_ARRAY | ZN_TYPE_OBJECT_ID)->AsArray()) {
          ids.push_back(id.AsGuid());
        }
        break;
      case 2: {
        const std::string type(data.FindValue("Type", ZN_TYPE_STRING)->AsText());
        if (type == "KELD_Provider") return AddProviders(answer), ZN_OK;
        if (type == "KELD_Type") return AddTypes(answer), ZN_OK;
        ZN_RETURN_IF_FAILED(server->GetObjectsOfType(type, &ids));
        break;
      }
      case 3:
        ZN_RETURN_IF_FAILED(
            server->Query(data.FindValue("Query", ZN_TYPE_WIDESTRING)->AsWideText(), &ids));
        break;
      default:
        ZN_RETURN_IF_FAILED(server->GetObjectsWithInterface(
            data.FindValue("Type", ZN_TYPE_STRING)->AsText(),
            data.FindValue("InterfaceId", ZN_TYPE_GUID)->AsGuid(), &ids));
    }
    AddObjects(ids, answer);
    return ZN_OK;
  }

  static inline Database* server = nullptr;
  static inline std::vector<PropertySet> requests;
  static inline std::function<u32(PropertySet&, PropertySet*)> onRequest;
  static inline std::function<void()> beforeReply;  // once, after the server has looked
  static inline std::function<u32(PropertySet&, ObjectId*, ObjectId*, PropertySet*)> onCall;

  ZnHandle copy_ = nullptr;
};

}  // namespace zn::test
