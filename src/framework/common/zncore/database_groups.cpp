// Groups: objects that gather, for as long as they live, every object of the types they contain.
// The list of groups borrows its nodes; a node leaves it when it goes, by whatever way.
#include "framework/common/zncore/database.h"

#include <algorithm>
#include <array>
#include <new>
#include <string>

#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/helpers.h"
#include "support/common/status.h"
#include "support/common/text.h"
#include "zn/settings.h"

namespace zn {

namespace {

constexpr size_t kMaxContainedTypeLength = 255;
constexpr std::string_view kGenericGroupType = "KELD_GenericGroup";

// The items between the commas, empty ones dropped, blanks kept.
std::vector<std::string> SplitTypeNames(std::string_view text) {
  std::vector<std::string> names;
  while (!text.empty()) {
    const size_t comma = std::min(text.find(','), text.size());
    if (comma != 0) names.emplace_back(text.substr(0, std::min(comma, kMaxContainedTypeLength)));
    text.remove_prefix(std::min(comma + 1, text.size()));
  }
  return names;
}

// An open settings key.
class SettingsKey {
 public:
  SettingsKey(ZnHandle parent, const ZnWChar* name) noexcept
      : status_(ZnRegOpenKeyEx(parent, name, 0, 0, &key_)) {}
  ~SettingsKey() {
    if (IsOpen()) static_cast<void>(ZnRegCloseKey(key_));
  }
  SettingsKey(const SettingsKey&) = delete;
  SettingsKey& operator=(const SettingsKey&) = delete;
  [[nodiscard]] bool IsOpen() const noexcept { return !ZN_FAILED(status_); }
  [[nodiscard]] ZnHandle Get() const noexcept { return key_; }

 private:
  ZnHandle key_ = nullptr;
  u32 status_;
};

// Whatever fails here is passed over: the group stands. On a client copy nothing is fetched for it:
// it gathers what is here and what comes.
void FillGroup(Database& database, DBNode& group,
               const std::vector<std::string>& containedTypes) noexcept {
  try {
    std::vector<ObjectId> members;
    for (const std::string& type : containedTypes) {
      // A type that is not known yet has no objects; those it will have join as they are made.
      if (ZN_FAILED(database.ListInstances(type, &members))) continue;
      for (const ObjectId& id : members) static_cast<void>(group.AddChild(InternedId(id)));
    }
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

u32 Database::CreateGroup(std::u16string_view name, const std::vector<std::string>& containedTypes,
                          std::string_view groupType, Provider* provider, u32 flags,
                          DBNode** outNode) {
  DBNode* present = nullptr;
  if (!ZN_FAILED(FindGroupByName(name, &present)) || containedTypes.empty()) {
    return ZNE_INVALID_ARGUMENTS;
  }
  // The list is ready for the node before the node is made, so that it cannot be missing there.
  groups_.reserve(groups_.size() + 1);
  DBNode* group = nullptr;
  ZN_RETURN_IF_FAILED(CreateDBNode(provider, groupType, flags, &group, &containedTypes));
  try {
    static_cast<void>(group->SetProperty(Property("Name", Value::WideText(name))));
  } catch (...) {
    DeleteNode(group);
    throw;
  }
  *outNode = group;
  groups_.push_back(group);
  FillGroup(*this, *group, containedTypes);
  AddToGroups(group);
  return ZN_OK;
}

u32 Database::FindGroupByName(std::u16string_view name, DBNode** outNode) {
  for (DBNode* group : groups_) {
    const Value* value = group->Properties().FindValue("Name", ZN_TYPE_WIDESTRING);
    if (value == nullptr || value->AsWideText() != name) continue;
    *outNode = group;
    return ZN_OK;
  }
  return ZNE_GROUP_NOT_USER_CREATED;
}

u32 Database::RemoveGroup(std::u16string_view name, DBNode** outNode) {
  DBNode* group = nullptr;
  ZN_RETURN_IF_FAILED(FindGroupByName(name, &group));
  ForgetGroup(group);
  *outNode = group;
  return ZN_OK;
}

void Database::ForgetGroup(const DBNode* node) noexcept {
  const auto last = std::find(groups_.rbegin(), groups_.rend(), node);
  if (last != groups_.rend()) groups_.erase(std::next(last).base());
}

template <typename Visit>
void Database::ForEachGroupContaining(const TypeObject& type, u32 flagMask, Visit&& visit) {
  for (DBNode* group : groups_) {
    if (flagMask != 0 && (group->GetFlags() & flagMask) == 0) continue;
    if (group->GetContainedTypes() == nullptr) continue;
    for (const std::string& name : *group->GetContainedTypes()) {
      const TypeObject* contained = types_.FindType(name);
      if (contained != nullptr && type.IsA(*contained)) visit(group);
    }
  }
}

u32 Database::GetGroupsContaining(std::string_view typeName, u32 flagMask,
                                  std::vector<DBNode*>* out) {
  const TypeObject* type = types_.FindType(typeName);
  if (type == nullptr) return ZNE_OBJECT_NOT_IN_GROUP;
  u32 status = ZNE_OBJECT_NOT_IN_GROUP;
  ForEachGroupContaining(*type, flagMask, [&](DBNode* group) {
    out->push_back(group);
    status = ZN_OK;
  });
  return status;
}

void Database::AddToGroups(DBNode* node) noexcept {
  try {
    ForEachGroupContaining(*node->GetType(), 0, [&](DBNode* group) {
      // A group that matches twice refuses the second time.
      static_cast<void>(group->AddChild(node->GetId()));
    });
  } catch (...) {
    // Memory is short: the object stands all the same, outside of the groups that are left.
  }
}

u32 Database::LoadRegistryGroups(Provider* provider) {
  const SettingsKey groups(HkeyMiraRoot(), u"Groups");
  if (!groups.IsOpen()) return ZNE_GROUP_REG_UNREADABLE;
  for (u32 index = 0;; ++index) {
    std::array<ZnWChar, 256> subKey{};
    auto length = static_cast<u32>(subKey.size());
    const u32 status = ZnRegEnumKeyEx(groups.Get(), index, subKey.data(), &length, nullptr, nullptr,
                                      nullptr, nullptr);
    if (status == ZNE_NO_MORE_PROPERTIES) return ZN_OK;
    if (ZN_FAILED(status)) return ZNE_GROUP_REG_DAMAGED;
    static_cast<void>(LoadRegistryGroup(groups.Get(), subKey.data(), provider));
  }
}

u32 Database::LoadRegistryGroup(ZnHandle groupsKey, const ZnWChar* subKey, Provider* provider) {
  std::u16string contains;
  ZN_RETURN_IF_FAILED(ReadTextSetting(groupsKey, subKey, u"Contains", &contains));
  if (contains.empty()) return ZN_OK;
  std::u16string displayName;
  if (ZN_FAILED(ReadTextSetting(groupsKey, subKey, u"DisplayName", &displayName))) {
    displayName = subKey;
  }
  DBNode* group = nullptr;
  return CreateGroup(displayName, SplitTypeNames(ToNarrow(contains)), kGenericGroupType, provider,
                     OBJECT_GROUP_SERVER, &group);
}

}  // namespace zn
