// What the records of both kinds of documents (object types, alerts) share: the list that owns
// them, their reading from a row of elements, and the check that each has a name of its own.
#pragma once

#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/place.h"
#include "support/common/status.h"
#include "support/common/trace.h"

namespace zn {

// Deletes the records of a list when it goes.
template <typename Info, typename Deleter>
class RecordList {
 public:
  RecordList() = default;
  ~RecordList() {
    for (Info* info : infos_) Deleter()(info);
  }
  RecordList(const RecordList&) = delete;
  RecordList& operator=(const RecordList&) = delete;
  [[nodiscard]] std::vector<Info*>& Get() noexcept { return infos_; }

 private:
  std::vector<Info*> infos_;
};

// Reads every element child of `parent`, whatever its name, and appends the records. The first
// failure ends it, traced with what was read ("an ALERT_TYPE"), and nothing is appended then.
template <typename Owner>
[[nodiscard]] u32 ReadRecords(const xercesc::DOMNode& parent, const char* what,
                              u32 (*read)(xercesc::DOMElement*, Owner*),
                              std::vector<typename Owner::pointer>* out) {
  return GuardDom([&]() -> u32 {
    std::vector<Owner> records;
    for (auto* at = FirstElement(parent); at != nullptr; at = NextElement(*at)) {
      Owner record;
      const u32 status = read(at, &record);
      if (ZN_FAILED(status)) {
        ZN_TRACE(6, "XML: Error in processing %s element", what);
        TracePlace(*at);
        return status;
      }
      records.push_back(std::move(record));
    }
    out->reserve(out->size() + records.size());
    for (Owner& record : records) out->push_back(record.release());
    return ZN_OK;
  });
}

// The first record whose name a later one has too, as comparing every pair in order would tell it;
// null when all differ.
template <typename Info>
[[nodiscard]] const Info* FirstRepeated(const std::vector<Info*>& infos, char* Info::*name) {
  std::unordered_map<std::string_view, size_t> firsts;
  size_t found = infos.size();
  for (size_t i = 0; i < infos.size(); ++i) {
    const auto [place, isNew] = firsts.try_emplace(infos[i]->*name, i);
    if (!isNew && place->second < found) found = place->second;
  }
  return found == infos.size() ? nullptr : infos[found];
}

// ZNE_DUPLICATE_OBJECT_ID when two records have one name, traced with what they are ("alert
// types").
template <typename Info>
[[nodiscard]] u32 CheckNames(const std::vector<Info*>& infos, const char* what, char* Info::*name) {
  return GuardDom([&]() -> u32 {
    const Info* repeated = FirstRepeated(infos, name);
    if (repeated == nullptr) return ZN_OK;
    ZN_TRACE(6, "XML: Duplicate %s \"%s\" specified", what, repeated->*name);
    if (repeated->refNode != nullptr) TracePlace(*repeated->refNode);
    return ZNE_DUPLICATE_OBJECT_ID;
  });
}

}  // namespace zn
