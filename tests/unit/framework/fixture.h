// What the tests of the store share: a database as a service process has one (base types, key
// table, change callback, a registered provider, changes told), its changes as they are queued for
// clients, and the lines that a piece of code traces. The bus lock is held for the whole test, as
// the exported frames hold it.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znprov/provider.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"
#include "tests/unit/framework/trace_capture.h"

namespace zn::test {

// A fixed id that no generator makes.
[[nodiscard]] inline GUID TestGuid(u32 number) noexcept {
  return {0xC0FFEE00u + number, 0x1111, 0x2222, {1, 2, 3, 4, 5, 6, 7, 8}};
}

[[nodiscard]] inline std::string GuidText(const GUID& id) {
  std::string text(kGuidTextLength, '\0');
  FormatGuid(id, text.data());
  return text;
}

// The properties of a type, of which there is one.
[[nodiscard]] inline PropertySet Declares(std::string_view name, Value value, u32 flags = 0) {
  PropertySet set;
  set.Put(name, std::move(value), flags);
  return set;
}

// One change as it waits for the clients.
struct Told {
  std::string topic;
  u32 flags = 0;
  InternedId id;
  PropertySet data;
};

class StoreTest : public testing::Test {
 protected:
  StoreTest() {
    DatabaseCallbacks callbacks;
    callbacks.changeCallback = [](ZnHandle) {};
    database_ = std::make_unique<Database>(DB_KEYED, callbacks);
    SetSystemDatabase(database_.get());
    SetClientsPresentTest([] { return clientsPresent; });
    clientsPresent = true;
  }

  void SetUp() override {
    ASSERT_EQ(RegisterBaseObjectTypes(*database_), ZN_OK);
    provider_ = AddProvider(u"test");
    database_->RaiseNotifyEnable();
    database_->BeginUpdateSequence();
  }

  ~StoreTest() override {
    database_.reset();
    SetSystemDatabase(nullptr);
    SetClientsPresentTest(nullptr);
  }

  // A registered provider, in a database of its own or the test's.
  Provider* AddProvider(std::u16string_view name, const ProviderCallbacks& callbacks = {},
                        Database* database = nullptr) {
    if (database == nullptr) database = database_.get();
    auto provider = std::make_unique<Provider>(
        database, database->Types().FindType("KELD_Provider"), name, callbacks, nullptr, false);
    Provider* borrowed = provider.get();
    database->AddProvider(std::move(provider));
    borrowed->SetRegistered();
    return borrowed;
  }

  // A type under KELD_Object, or under the given ones. What its creation tells is forgotten.
  TypeObject* MakeType(std::string_view name, const PropertySet& properties = {},
                       std::vector<std::string> supertypes = {"KELD_Object"}, u32 flags = 0) {
    TypeObject* type = nullptr;
    EXPECT_EQ(database_->Types().CreateTypeInstance(name, &properties, supertypes, flags, &type),
              ZN_OK)
        << name;
    static_cast<void>(TakeTold());
    return type;
  }

  // An object; what its creation tells is forgotten.
  DBNode* Make(std::string_view type = "KELD_Object", u32 flags = 0, Provider* provider = nullptr) {
    DBNode* node = nullptr;
    if (provider == nullptr) provider = provider_;
    EXPECT_EQ(database_->CreateDBNode(provider, type, flags, &node, nullptr), ZN_OK) << type;
    static_cast<void>(TakeTold());
    return node;
  }

  DBNode* MakeGroup(std::u16string_view name, const std::vector<std::string>& containedTypes) {
    DBNode* node = nullptr;
    EXPECT_EQ(database_->CreateGroup(name, containedTypes, "KELD_GenericGroup", provider_,
                                     OBJECT_GROUP_SERVER, &node),
              ZN_OK);
    static_cast<void>(TakeTold());
    return node;
  }

  // What was queued for the clients since the last call, in order.
  std::vector<Told> TakeTold() {
    std::vector<Told> told;
    for (const auto& record : database_->PendingEvents().Records()) {
      told.push_back({record->topic, record->flags, record->objectId, record->data});
    }
    database_->EndUpdateSequence();
    database_->BeginUpdateSequence();
    return told;
  }
  std::vector<std::string> TakeTopics() {
    std::vector<std::string> topics;
    for (const Told& told : TakeTold()) topics.push_back(told.topic);
    return topics;
  }
  // The topic of a change, "<type><change><id>" behind the common head.
  [[nodiscard]] static std::string Topic(const DBNode& node, const char* change) {
    return "event.keld.dom.object." + std::string(node.GetTypeName().Text()) + change +
           GuidText(node.GetId().Value());
  }

  static inline bool clientsPresent = true;

  BusLock lock_;
  std::unique_ptr<Database> database_;
  Provider* provider_ = nullptr;
};

// A key block as the exports build it: the provider's id, then the provider's bytes.
[[nodiscard]] inline std::string TestKey(const GUID& providerId, std::string_view bytes) {
  std::string key(reinterpret_cast<const char*>(&providerId), sizeof(GUID));
  key += bytes;
  return key;
}
inline void SetTestKey(DBNode& node, const GUID& providerId, std::string_view bytes) {
  node.SetKey(TestKey(providerId, bytes));
}

}  // namespace zn::test
