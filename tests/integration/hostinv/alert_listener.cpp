// The listener; see the header.
#include "alert_listener.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <gtest/gtest.h>

#include "patience.h"
#include "text.h"
#include "zn/znmira.h"

namespace hostinv {
namespace {

constexpr u32 kGerman = 0x407;
constexpr char kMark[] = "event.hostinv.test.alertmark";

std::mutex mutex;
std::condition_variable changed;
std::vector<HeardAlert> heard;  // under mutex
u32 marks = 0;                  // under mutex
ZnHandle theDatabase = nullptr;
ZnHandle theProvider = nullptr;

struct Found {
  explicit Found(ZnHandle set, const char* name) { PsFindProperty(set, name, &property); }
  ~Found() {
    if (property != nullptr) PsFreeProperty(property);
  }
  Found(const Found&) = delete;
  Found& operator=(const Found&) = delete;
  ZnHandle Set() const {
    return property == nullptr ? nullptr : static_cast<ZnHandle>(property->Value);
  }
  Property2* property = nullptr;
};

std::string Localized(ZnHandle set, const char* name) {
  const Found found(set, name);
  if (found.property == nullptr || found.property->Type != ZN_TYPE_I18N_FORMAT_STRING) return {};
  ZnWChar* text = nullptr;
  const u32 status = ZnMakeLocalizedFormattedString(
      theDatabase, *static_cast<I18nFormatString*>(found.property->Value), kGerman, nullptr, 0,
      &text);
  if (ZN_FAILED(status)) return "(no text)";
  std::string narrow = FromUtf16(text);
  ZnFree(text);
  return narrow;
}

u32 OnEvent(const EventRecord* event) {
  HeardAlert alert;
  alert.topic = event->topic;
  if (alert.topic != kMark) {
    const Found generic(event->data, "GenericAlertPropset");
    alert.text = Localized(generic.Set(), "AlertMsg") + " / " +
                 Localized(generic.Set(), "RecommendedAction");
    const Found user(event->data, "UserDefinedPropset");
    const Found key(user.Set(), "Key");
    const Found object(user.Set(), "ObjectId");
    if (key.property != nullptr) alert.key = static_cast<char*>(key.property->Value);
    if (object.property != nullptr) alert.object = *static_cast<ObjectId*>(object.property->Value);
  }
  const std::lock_guard lock(mutex);
  if (alert.topic == kMark) {
    ++marks;
  } else {
    heard.push_back(std::move(alert));
  }
  changed.notify_all();
  return 0;
}

}  // namespace

void AlertListener::Start(ZnHandle database) {
  theDatabase = database;
  ProviderCallbacks callbacks{};
  callbacks.Event = OnEvent;
  ASSERT_EQ(ZnRegisterAsProvider(database, u"alertlistener", &callbacks, &theProvider), 0U);
  ZnHandle registration = nullptr;
  ASSERT_EQ(ObRegisterAlert(database, theProvider, "event.alert.hostinv", &registration), 0U);
  ASSERT_EQ(EvRegisterEvent(database, theProvider, kMark, &registration), 0U);
}

std::vector<HeardAlert> AlertListener::Take() {
  ZnHandle set = nullptr;
  EXPECT_EQ(PsCreatePropset(&set), 0U);
  std::unique_lock lock(mutex);
  const u32 before = marks;
  lock.unlock();
  EXPECT_EQ(EvRaiseEvent(theDatabase, theProvider, kMark, set), 0U);
  PsDestroyPropset(set);
  lock.lock();
  EXPECT_TRUE(changed.wait_for(lock, kPatience, [&] { return marks != before; }));
  return std::exchange(heard, {});
}

std::vector<HeardAlert> AlertListener::WaitFor(std::size_t count) {
  std::unique_lock lock(mutex);
  changed.wait_for(lock, kPatience, [&] { return heard.size() >= count; });
  return std::exchange(heard, {});
}

std::string CatalogSettings() {
  const std::string file = std::string("{ ImageFile = \"") + HOSTINV_CATALOGS + "/hostinv.";
  return "MessageCatalog = \"{5E0A1C74-93B2-4D6F-8A17-C2D40BE95F63}\"\n[ClientExtensions]\n"
         "[MessageCatalogs.\"{5E0A1C74-93B2-4D6F-8A17-C2D40BE95F63}\".MiraSkin.1]\n"
         "1033 = " +
         file + "en.txt\" }\n1031 = " + file + "de.txt\" }\n";
}

}  // namespace hostinv
