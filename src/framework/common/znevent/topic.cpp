// Splitting, the two character classes, the flat matcher and the builders. Nothing here keeps
// state; only MatchTopic looks at a database.
#include "framework/common/znevent/topic.h"

#include <algorithm>
#include <cstring>

#include "framework/common/zncore/database.h"
#include "framework/common/znguid/znguid.h"

namespace zn {

namespace {

constexpr std::string_view kObjectPrefix = "event.keld.dom.object.";
constexpr std::string_view kTypePrefix = "event.keld.dom.type.";
constexpr std::string_view kProviderPrefix = "event.keld.dom.provider.";

// Bits of the character table.
constexpr u8 kInToken = 1;
constexpr u8 kInTopic = 2;

constexpr std::array<u8, 256> MakeCharacterTable() {
  std::array<u8, 256> table{};
  for (u32 c = 'A'; c <= 'Z'; ++c) table[c] = kInToken | kInTopic;
  for (u32 c = 'a'; c <= 'z'; ++c) table[c] = kInToken | kInTopic;
  for (u32 c = '0'; c <= '9'; ++c) table[c] = kInToken | kInTopic;
  for (const u32 c : {u':', u'{', u'}', u'-', u'_'}) table[c] = kInToken | kInTopic;
  table['.'] = kInTopic;
  return table;
}
constexpr std::array<u8, 256> kCharacters = MakeCharacterTable();

bool AllOfClass(std::string_view text, u8 wanted) noexcept {
  return std::all_of(text.begin(), text.end(),
                     [wanted](char c) { return (kCharacters[static_cast<u8>(c)] & wanted) != 0; });
}

template <typename Take>
void ForEachToken(std::string_view topic, Take&& take) {
  for (;;) {
    const size_t point = topic.find('.');
    if (point == std::string_view::npos) break;
    take(topic.substr(0, point));
    topic.remove_prefix(point + 1);
  }
  take(topic);
}

char* Put(char* at, std::string_view text) noexcept {
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  return at + text.size();
}

std::string JoinWithId(std::initializer_list<std::string_view> parts, const GUID& id) {
  std::string topic;
  for (const std::string_view part : parts) topic += part;
  const size_t length = topic.size();
  topic.resize(length + kGuidTextLength);
  FormatGuid(id, topic.data() + length);
  return topic;
}

}  // namespace

std::vector<std::string_view> SplitTopic(std::string_view topic) {
  std::vector<std::string_view> tokens;
  ForEachToken(topic, [&tokens](std::string_view token) { tokens.push_back(token); });
  return tokens;
}

TopicTokens::TopicTokens(std::string_view topic) {
  ForEachToken(topic, [this](std::string_view token) {
    if (count_ < few_.size()) {
      few_[count_++] = token;
      return;
    }
    if (many_.empty()) many_.assign(few_.begin(), few_.end());
    many_.push_back(token);
    tokens_ = many_.data();
    ++count_;
  });
}

bool TopicTokens::IsObjectTopic() const noexcept {
  return count_ >= kTypeTokenIndex && tokens_[0] == "event" && tokens_[1] == "keld" &&
         tokens_[2] == "dom" && tokens_[3] == "object";
}

bool IsRaisableTopic(std::string_view topic) noexcept {
  return AllOfClass(topic, kInTopic);
}

bool IsPatternToken(std::string_view token) noexcept {
  return token == "*" || AllOfClass(token, kInToken);
}

bool MatchTopic(Database* database, std::string_view topic, std::string_view pattern) {
  const TopicTokens heard(topic);
  const TopicTokens wanted(pattern);
  // Contract: a trailing "*" counts here, so that "a.*" does not match "a"; a registration drops
  // it and hears "a".
  if (heard.Count() < wanted.Count()) return false;
  const bool isObjectTopic = heard.IsObjectTopic();
  for (size_t i = 0; i < wanted.Count(); ++i) {
    if (wanted[i] == "*") continue;
    const bool matches = isObjectTopic && i == kTypeTokenIndex
                             ? database != nullptr && database->Types().TypeIsA(heard[i], wanted[i])
                             : heard[i] == wanted[i];
    if (!matches) return false;
  }
  return true;
}

std::string ObjectTopic(std::string_view type, std::string_view change, const GUID& id) {
  return JoinWithId({kObjectPrefix, type, change}, id);
}

ObjectTopicText::ObjectTopicText(std::string_view type, std::string_view change, const GUID& id) {
  const size_t length = kObjectPrefix.size() + type.size() + change.size() + kGuidTextLength;
  char* start = small_.data();
  if (length > small_.size()) {
    large_.resize(length);
    start = large_.data();
  }
  FormatGuid(id, Put(Put(Put(start, kObjectPrefix), type), change));
  view_ = {start, length};
}

std::string TypeTopic(std::string_view type, std::string_view change, const GUID& id) {
  return JoinWithId({kTypePrefix, type, change}, id);
}

std::string ProviderLoadedTopic(const GUID& id) {
  return JoinWithId({kProviderPrefix}, id) + ".loaded";
}

std::string ProviderUnloadedTopic(const GUID& id) {
  return JoinWithId({kProviderPrefix}, id) + ".unloaded";
}

std::string InitializationTopic(std::string_view phase) {
  return "event.keld.dom.initialization." + std::string(phase) + ".complete";
}

std::string ConnectionDeleteTopic(std::string_view name) {
  return "event.keld.dom.connection." + std::string(name) + ".delete";
}

}  // namespace zn
