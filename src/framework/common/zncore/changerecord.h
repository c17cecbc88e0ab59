// Change records: what is told about one change, and the queue in which an update sequence holds,
// merges and batches them. Delivery: a change goes at once to the listeners of this process (as a
// local event), and as a marshalled property set to the change queue, whose callback feeds the
// clients. Every call runs under FAST_LOCK.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/znguid/znguid.h"
#include "framework/common/znpropset/propertyset.h"
#include "framework/common/znstring/znstring.h"
#include "zn/types.h"

namespace zn {

inline constexpr u32 kObjectChangeMessage = 0;
inline constexpr u32 kCacheChangeMessage = 36;
// "Message" of every marshalled record, whatever the record itself says.
inline constexpr u32 kChangeNotificationMessage = 11;
// Flags of the marker that orders an answer behind the changes of its request (QueueMarker).
inline constexpr u32 kMarkerFlags = 0x16;

struct ChangeRecord {
  u32 message = kObjectChangeMessage;
  u32 flags = 0;
  std::string topic;
  ZnHandle provider = nullptr;  // only when read from the wire
  ZnHandle database = nullptr;
  InternedId objectId;
  String objectType;
  PropertySet data;
};

// Whether the local event of that topic is the short record, without id and type.
[[nodiscard]] bool IsPlainTopic(std::string_view topic) noexcept;

// The queue of an open update sequence: records in order, and for each kind of change the record
// that a later one merges into.
class UpdateQueue {
 public:
  [[nodiscard]] bool IsEmpty() const noexcept { return records_.empty(); }
  [[nodiscard]] size_t Size() const noexcept { return records_.size(); }
  void Clear() noexcept;
  // Merges the record in; what the merge drops is destroyed.
  void Merge(ChangeRecord&& record);
  // Takes the records out and empties the queue.
  [[nodiscard]] std::vector<std::unique_ptr<ChangeRecord>> Take();
  [[nodiscard]] const std::vector<std::unique_ptr<ChangeRecord>>& Records() const noexcept {
    return records_;
  }

 private:
  using RecordMap = std::map<InternedId, ChangeRecord*>;
  enum class OnRepeat;
  struct MergeRow;

  // How a record merges, or null for one that is queued as it is.
  [[nodiscard]] static const MergeRow* FindRow(const ChangeRecord& record) noexcept;

  std::vector<std::unique_ptr<ChangeRecord>> records_;
  RecordMap addedIds_;
  RecordMap dataChangedIds_;
  RecordMap childChangedIds_;
  RecordMap parentChangedIds_;
  RecordMap interfaceChangedIds_;
};

// Whether any client session has logged on: given by the service layer, false without it. With no
// client nothing is marshalled and nothing is queued.
using ClientsPresentTest = bool (*)();
void SetClientsPresentTest(ClientsPresentTest test) noexcept;
[[nodiscard]] bool ClientsPresent() noexcept;

}  // namespace zn
