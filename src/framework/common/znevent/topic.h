// Topics: dotted strings of tokens. Splitting, the two character classes, the flat matcher and the
// builders of the topics that the library itself raises.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zn/types.h"

namespace zn {

class Database;

// The tokens between the points; "a..b" has three, the empty string one empty token.
[[nodiscard]] std::vector<std::string_view> SplitTopic(std::string_view topic);
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
