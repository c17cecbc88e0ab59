// Topics: dotted strings of tokens. Splitting, the two character classes, the flat matcher and the
// builders of the topics that the library itself raises.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn {

class Database;

// The tokens between the points; "a..b" has three, the empty string one empty token.
[[nodiscard]] std::vector<std::string_view> SplitTopic(std::string_view topic);
// The same tokens in place: no allocation unless the topic is deeper than any that the library
// raises. Borrows the text.
class TopicTokens {
 public:
  explicit TopicTokens(std::string_view topic);
  TopicTokens(const TopicTokens&) = delete;
  TopicTokens& operator=(const TopicTokens&) = delete;

  [[nodiscard]] size_t Count() const noexcept { return count_; }
  [[nodiscard]] std::string_view operator[](size_t index) const noexcept { return tokens_[index]; }
  [[nodiscard]] const std::string_view* begin() const noexcept { return tokens_; }
  [[nodiscard]] const std::string_view* end() const noexcept { return tokens_ + count_; }
  // Whether it begins with event.keld.dom.object, so that its fifth token is a type that also
  // answers for its base types.
  [[nodiscard]] bool IsObjectTopic() const noexcept;

 private:
  std::array<std::string_view, 12> few_;
  std::vector<std::string_view> many_;
  const std::string_view* tokens_ = few_.data();
  size_t count_ = 0;
};
// Where that type stands.
inline constexpr size_t kTypeTokenIndex = 4;
// Whole topic: A-Z a-z 0-9 . : { } - _
[[nodiscard]] bool IsRaisableTopic(std::string_view topic) noexcept;
// One token of a pattern: "*" alone, or A-Z a-z 0-9 : _ - { }; the empty token passes.
[[nodiscard]] bool IsPatternToken(std::string_view token) noexcept;
// The pattern is a prefix; "*" matches any token; the type of an object topic matches its base
// types. Under FAST_LOCK. `database` may be null: no type is known then.
[[nodiscard]] bool MatchTopic(Database* database, std::string_view topic, std::string_view pattern);

// "event.keld.dom.object.<type><change><id>", change as in ChangeKind, and the same for types.
[[nodiscard]] std::string ObjectTopic(std::string_view type, std::string_view change,
                                      const GUID& id);
// The same without an allocation, unless the type's name is very long. Not copied.
class ObjectTopicText {
 public:
  ObjectTopicText(std::string_view type, std::string_view change, const GUID& id);
  ObjectTopicText(const ObjectTopicText&) = delete;
  ObjectTopicText& operator=(const ObjectTopicText&) = delete;
  [[nodiscard]] std::string_view View() const noexcept { return view_; }

 private:
  std::array<char, 192> small_;
  std::string large_;
  std::string_view view_;
};
[[nodiscard]] std::string TypeTopic(std::string_view type, std::string_view change, const GUID& id);
[[nodiscard]] std::string ProviderLoadedTopic(const GUID& id);
[[nodiscard]] std::string ProviderUnloadedTopic(const GUID& id);
[[nodiscard]] std::string InitializationTopic(std::string_view phase);
[[nodiscard]] std::string ConnectionDeleteTopic(std::string_view name);

inline constexpr std::string_view kDatabaseChangeTopic = "event.keld.dom.database.change";
inline constexpr std::string_view kCacheDeafTopic = "event.keld.dom.cache.deaf";
inline constexpr std::string_view kCacheListenTopic = "event.keld.dom.cache.listen";
inline constexpr std::string_view kDownloadStartedTopic = "event.keld.dom.downloadfile.started";
inline constexpr std::string_view kDownloadCompletedTopic = "event.keld.dom.downloadfile.completed";

}  // namespace zn
