// Access lists: see the header.
#include "service/common/access.h"

#include <utility>

#include "support/common/helpers.h"
#include "support/common/status.h"
#include "zn/memory.h"
#include "zn/text.h"

namespace zn {

namespace {

constexpr const ZnWChar* kSecurityKey = u"Security";

[[nodiscard]] std::vector<std::u16string> Split(const std::u16string& text, ZnWChar delimiter) {
  std::vector<std::u16string> parts;
  Vector tokens{};
  if (ZN_FAILED(StrTokenizerW(text.c_str(), delimiter, &tokens))) return parts;
  for (u32 i = 0; i < tokens.count; ++i) {
    parts.emplace_back(static_cast<const ZnWChar*>(tokens.items[i]));
    ZnFree(tokens.items[i]);
  }
  ZnFree(tokens.items);
  return parts;
}

[[nodiscard]] std::vector<AccessEntry> ReadList(const ZnWChar* name) {
  std::u16string text;
  if (ZN_FAILED(ReadTextSetting(HkeyMiraRoot(), kSecurityKey, name, &text))) return {};
  return ParseAccessList(text);
}

}  // namespace

std::vector<AccessEntry> ParseAccessList(const std::u16string& text) {
  std::vector<AccessEntry> entries;
  for (const std::u16string& entry : Split(text, u';')) {
    std::vector<std::u16string> parts = Split(entry, u'\\');
    if (parts.size() == 1) entries.push_back({std::nullopt, std::move(parts[0])});
    if (parts.size() >= 2) entries.push_back({std::move(parts[0]), std::move(parts[1])});
  }
  return entries;
}

void AccessLists::Read() {
  users_ = ReadList(u"AccessUsers");
  groups_ = ReadList(u"AccessGroups");
}

void AccessLists::Clear() noexcept {
  users_.clear();
  groups_.clear();
}

void AccessLists::Set(std::vector<AccessEntry> users, std::vector<AccessEntry> groups) {
  users_ = std::move(users);
  groups_ = std::move(groups);
}

bool AccessLists::Allows(std::u16string_view domain, std::u16string_view user,
                         LogonHost& host) const {
  for (const AccessEntry& entry : users_) {
    const std::u16string entryDomain = entry.domain.value_or(std::u16string());
    if (entryDomain == domain && entry.name == user) return true;
  }
  if (groups_.empty()) return false;
  for (const GroupKind kind : {GroupKind::kGlobal, GroupKind::kLocal}) {
    for (const AccessEntry& entry : groups_) {
      const std::u16string groupDomain = entry.domain.value_or(std::u16string());
      if (host.IsMember(kind, groupDomain, user, entry.name)) return true;
    }
  }
  return false;
}

bool CheckPassword(const LogonAttempt& attempt, const AccessLists& lists, LogonHost& host) {
  if (!host.LogOn(attempt)) return false;
  return lists.Allows(attempt.domain, attempt.user, host) ||
         host.MayLoadDrivers(attempt.domain, attempt.user);
}

}  // namespace zn
