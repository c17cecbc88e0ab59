// Publishing and raising of alerts: see the header.
#include "framework/common/znalert/alert.h"

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "framework/common/fmtstr/formatstring.h"
#include "framework/common/znalert/places.h"
#include "framework/common/zncore/database.h"
#include "framework/common/znevent/eventqueue.h"
#include "framework/common/znpropset/i18nvalue.h"
#include "framework/common/znprov/provider.h"
#include "support/common/handle.h"
#include "support/common/pointers.h"
#include "support/common/status.h"
#include "support/common/trace.h"
#include "zn/memory.h"
#include "zn/platform.h"

namespace zn {

namespace {

constexpr std::string_view kGenericSet = "GenericAlertPropset";
constexpr std::string_view kUserSet = "UserDefinedPropset";
constexpr std::string_view kTopicKey = "AlertTopic";
constexpr std::string_view kSeverityKey = "AlertSeverity";
constexpr std::string_view kFlagKey = "AlertFlag";
constexpr std::string_view kMessageKey = "AlertMsg";
constexpr std::string_view kMessageCountKey = "AlertMsgInsertionStringCount";
constexpr std::string_view kFriendlyNameKey = "FriendlyAlertName";
constexpr std::string_view kClassificationKey = "ClassificationName";
constexpr std::string_view kDescriptionKey = "Description";
constexpr std::string_view kActionKey = "RecommendedAction";
constexpr std::string_view kActionCountKey = "RecommendedActionInsertionStringCount";
constexpr std::string_view kTimeKey = "TimeStampSeconds";
constexpr std::string_view kIdKey = "AlertGUID";

constexpr u32 kFlagEnd = 4;
constexpr u32 kMinSeverity = 1;
constexpr u32 kMaxSeverity = 4;

// What the type says of an alert's generic set.
PropertySet GenericTemplate() {
  PropertySet set;
  set.Put(kTopicKey, Value::Text("event.alert.default"));
  for (const std::string_view key :
       {kSeverityKey, kFlagKey, kMessageCountKey, kActionCountKey, kTimeKey}) {
    set.Put(key, Value::UInt32(0));
  }
  for (const std::string_view key :
       {kMessageKey, kFriendlyNameKey, kClassificationKey, kDescriptionKey, kActionKey}) {
    set.Put(key, I18nValueOf(I18nParts{}));
  }
  // Contract: without "AlertGUID", which a raised alert alone has.
  return set;
}

[[nodiscard]] const PropertySet* FindSet(const PropertySet& set, std::string_view name) noexcept {
  const Value* value = set.FindValue(name, ZN_TYPE_PROPSET);
  return value == nullptr ? nullptr : &value->AsSet();
}

// --- publishing ---

[[nodiscard]] bool HasText(const I18nString* text) noexcept {
  return IsGoodPointer(text) && IsGoodString(text->name, kMaxMessageName);
}

[[nodiscard]] bool IsComplete(const AlertDescriptor& alert) noexcept {
  const bool hasGoodClass = alert.classification == nullptr || IsGoodPointer(alert.classification);
  const bool hasGoodSet =
      alert.userProperties == nullptr || IsValidHandle(alert.userProperties, HANDLE_PROPSET);
  return alert.flag < kFlagEnd && alert.severity >= kMinSeverity &&
         alert.severity <= kMaxSeverity && HasText(alert.message) && hasGoodClass &&
         HasText(alert.friendlyName) && HasText(alert.description) &&
         HasText(alert.recommendedAction) && hasGoodSet;
}

[[nodiscard]] u32 DescribeAlert(const AlertDescriptor& alert, PropertySet* out) {
  if (!IsComplete(alert)) return ZNE_INVALID_ARGUMENTS;
  u32 messagePlaces = 0;
  u32 actionPlaces = 0;
  ZN_RETURN_IF_FAILED(CountPlaces(alert.message->name, &messagePlaces));
  ZN_RETURN_IF_FAILED(CountPlaces(alert.recommendedAction->name, &actionPlaces));
  out->Put(kTopicKey, Value::Text(std::string_view(alert.topic)));
  out->Put(kSeverityKey, Value::UInt32(alert.severity));
  out->Put(kFlagKey, Value::UInt32(alert.flag));
  out->Put(kMessageKey, I18nValueOf(*alert.message));
  out->Put(kMessageCountKey, Value::UInt32(messagePlaces));
  out->Put(kFriendlyNameKey, I18nValueOf(*alert.friendlyName));
  if (alert.classification != nullptr) {
    out->Put(kClassificationKey, I18nValueOf(*alert.classification));
  }
  out->Put(kDescriptionKey, I18nValueOf(*alert.description));
  out->Put(kActionKey, I18nValueOf(*alert.recommendedAction));
  out->Put(kActionCountKey, Value::UInt32(actionPlaces));
  return ZN_OK;
}

[[nodiscard]] u32 FillAlertObject(const AlertDescriptor& alert, DBNode& node) {
  PropertySet generic;
  ZN_RETURN_IF_FAILED(DescribeAlert(alert, &generic));
  // The empty set that the type brings would count as equal to every template.
  static_cast<void>(node.DeleteProperty(kUserSet));
  ZN_RETURN_IF_FAILED(node.SetProperty(Property(kGenericSet, Value::Set(std::move(generic)))));
  if (alert.userProperties == nullptr) return ZN_OK;
  PropertySet user = *HandleThing<PropertySet>(alert.userProperties);
  return node.SetProperty(Property(kUserSet, Value::Set(std::move(user))));
}

// An object that goes again unless it is kept.
class Unfinished {
 public:
  Unfinished(Database& database, DBNode* node) noexcept : database_(database), node_(node) {}
  ~Unfinished() {
    if (node_ != nullptr) database_.DeleteNode(node_);
  }
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;
  void Keep() noexcept { node_ = nullptr; }

 private:
  Database& database_;
  DBNode* node_;
};

// --- raising ---

// The names of a text's insertions: the text's own name and a number from 1.
[[nodiscard]] std::string InsertionKey(std::string_view text, u32 number) {
  return std::string(text) + std::to_string(number);
}

[[nodiscard]] const Property* FindInsertion(const PropertySet* insertions, std::string_view text,
                                            u32 number) {
  return insertions == nullptr ? nullptr
                               : insertions->Find(std::string_view(InsertionKey(text, number)));
}

[[nodiscard]] u32 CheckInsertions(const PropertySet& generic, std::string_view text,
                                  const PropertySet* insertions) {
  const Value* message = generic.FindValue(text, ZN_TYPE_I18N);
  if (message == nullptr) return ZN_OK;
  u32 places = 0;
  ZN_RETURN_IF_FAILED(CountPlaces(PartsOfI18n(message->AsSet()).name, &places));
  for (u32 number = 1; number <= places; ++number) {
    if (FindInsertion(insertions, text, number) == nullptr) return ZNE_INSERTION_STRINGS_INVALID;
  }
  return ZN_OK;
}

[[nodiscard]] u32 CheckUserProperties(const DBNode& alert, const PropertySet* user) {
  const PropertySet* wanted = FindSet(alert.Properties(), kUserSet);
  if (wanted == nullptr) return ZN_OK;
  if (user == nullptr) return ZNE_USER_PROPSET_INVALID;
  for (const Property& property : *wanted) {
    if (user->Find(property.Key()) == nullptr) return ZNE_USER_PROPSET_INVALID;
  }
  return ZN_OK;
}

[[nodiscard]] bool IsInsertionTag(u32 tag) noexcept {
  return tag == ZN_TYPE_STRING || tag == ZN_TYPE_WIDESTRING || tag == ZN_TYPE_I18N;
}

// The message with its insertions, under the name it has in the alert; none where the alert has no
// such text.
[[nodiscard]] u32 PutFormatString(const PropertySet& generic, std::string_view text,
                                  const PropertySet* insertions, PropertySet* out) {
  const Value* message = generic.FindValue(text, ZN_TYPE_I18N);
  if (message == nullptr) return ZN_OK;
  PropertySet values;
  for (u32 number = 1; number <= kMaxPlaces; ++number) {
    const Property* insertion = FindInsertion(insertions, text, number);
    if (insertion == nullptr) break;
    if (!IsInsertionTag(insertion->TypeTag())) return ZNE_INSERTION_STRINGS_INVALID;
    values.Put(InsertionName(number), insertion->GetValue());
  }
  out->Put(text, FormatStringValueOf(PartsOfI18n(message->AsSet()), std::move(values)));
  return ZN_OK;
}

[[nodiscard]] u32 MakeGenericSet(const PropertySet& alert, const PropertySet* insertions,
                                 PropertySet* out) {
  for (const std::string_view key :
       {kTopicKey, kSeverityKey, kFlagKey, kFriendlyNameKey, kClassificationKey, kDescriptionKey}) {
    const Property* property = alert.Find(key);
    if (property != nullptr) out->Put(key, property->GetValue());
  }
  ZN_RETURN_IF_FAILED(PutFormatString(alert, kMessageKey, insertions, out));
  return PutFormatString(alert, kActionKey, insertions, out);
}

[[nodiscard]] std::u16string ComputerName() {
  ZnWChar* name = ZnGetComputerName();
  std::u16string text(name == nullptr ? u"" : name);
  ZnFree(name);
  return text;
}

}  // namespace

u32 FormalizeAlertType(Database& database) {
  u32 status = ZN_OK;
  if (database.Types().FindType(kAlertTypeName) == nullptr) {
    PropertySet properties;
    properties.Put(kGenericSet, Value::Set(GenericTemplate()));
    properties.Put(kUserSet, Value::Set(PropertySet()));
    TypeObject* type = nullptr;
    status = database.Types().CreateTypeInstance(kAlertTypeName, &properties,
                                                 {std::string(kRootTypeName)}, 0, &type);
    ZN_TRACE(1, "Exiting FormalizeAlertType(%d)\n", static_cast<i32>(status));
  }
  return status;
}

void FetchAlerts(Database& database) {
  std::vector<ObjectId> ids;
  if (!database.IsLocal()) static_cast<void>(database.GetObjectsOfType(kAlertTypeName, &ids));
}

DBNode* FindAlert(Database& database, std::string_view topic) {
  std::vector<ObjectId> ids;
  if (ZN_FAILED(database.ListInstances(kAlertTypeName, &ids))) return nullptr;
  for (const ObjectId& id : ids) {
    DBNode* node = database.FindCached(id);
    const PropertySet* generic =
        node == nullptr ? nullptr : FindSet(node->Properties(), kGenericSet);
    const Value* found =
        generic == nullptr ? nullptr : generic->FindValue(kTopicKey, ZN_TYPE_STRING);
    if (found != nullptr && found->AsText() == topic) return node;
  }
  return nullptr;
}

u32 PublishAlert(Database& database, Provider& provider, const AlertDescriptor& alert) {
  ZN_RETURN_IF_FAILED(FormalizeAlertType(database));
  if (FindAlert(database, alert.topic) != nullptr) return ZNE_ALERT_REREGISTER;
  DBNode* node = nullptr;
  ZN_RETURN_IF_FAILED(
      database.CreateDBNode(&provider, kAlertTypeName, OBJECT_NODISPLAY, &node, nullptr));
  Unfinished unfinished(database, node);
  ZN_RETURN_IF_FAILED(FillAlertObject(alert, *node));
  unfinished.Keep();
  return ZN_OK;
}

u32 UnpublishAlert(Database& database, std::string_view topic) {
  DBNode* node = FindAlert(database, topic);
  if (node == nullptr) return ZNE_ALERT_OBJECT_NOT_FOUND;
  database.DeleteNode(node);
  return ZN_OK;
}

u32 RaiseAlert(Database& database, Provider& provider, std::string_view topic,
               const AlertValues& values) {
  const DBNode* alert = FindAlert(database, topic);
  if (alert == nullptr) return ZNE_ALERT_OBJECT_NOT_FOUND;
  const auto now = static_cast<u32>(std::time(nullptr));
  GUID id{};
  ZN_RETURN_IF_FAILED(GenerateRawGuid(&id));
  const PropertySet& published = *FindSet(alert->Properties(), kGenericSet);
  // Its object is writable as any other; of its texts the message is the one that must be there.
  if (published.FindValue(kMessageKey, ZN_TYPE_I18N) == nullptr) return ZNE_PROPERTY_NOT_FOUND;
  ZN_RETURN_IF_FAILED(CheckInsertions(published, kMessageKey, values.insertions));
  ZN_RETURN_IF_FAILED(CheckInsertions(published, kActionKey, values.insertions));
  ZN_RETURN_IF_FAILED(CheckUserProperties(*alert, values.userProperties));
  PropertySet generic;
  ZN_RETURN_IF_FAILED(MakeGenericSet(published, values.insertions, &generic));
  generic.Put(kTimeKey, Value::UInt32(now));
  generic.Put(kIdKey, Value::Guid(id));
  PropertySet data;
  data.Put(kGenericSet, Value::Set(std::move(generic)));
  if (values.userProperties != nullptr) {
    data.Put(kUserSet, Value::Set(PropertySet(*values.userProperties)));
  }
  data.Put("SourceComputer", Value::WideText(ComputerName()));
  data.Put("SourceProvider", Value::WideText(provider.Name()));
  return RaiseEvent(database, provider.Handle(), topic, data, kRaiseFlags);
}

}  // namespace zn
