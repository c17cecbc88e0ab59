// ALERT_TYPE elements as records, and their publication. The records are those of
// zn/formalization.h; whoever holds one frees it.
#pragma once

#include <memory>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/formalization.h"
#include "zn/formalization.h"

namespace zn {

struct ALInfoDeleter {
  void operator()(ALInfo* info) const noexcept;
};
using ALInfoOwner = std::unique_ptr<ALInfo, ALInfoDeleter>;

// Deletes the records of a list when it goes.
class ALInfoList {
 public:
  ALInfoList() = default;
  ~ALInfoList();
  ALInfoList(const ALInfoList&) = delete;
  ALInfoList& operator=(const ALInfoList&) = delete;
  [[nodiscard]] ALInfoVector& Get() noexcept { return infos_; }

 private:
  ALInfoVector infos_;
};

// Reads every element child of `parent`, whatever its name, as an alert and appends the records.
// The first failure ends it, and nothing is appended then.
[[nodiscard]] u32 ReadAlertTypes(const xercesc::DOMNode& parent, ALInfoVector* out);

[[nodiscard]] u32 ValidateAlertTypes(const ALInfoVector& infos);

// Describes the alert in the trace and publishes it; a failure is traced.
void PublishAlertType(const ALInfo& info, ZnHandle database, const AlertPublisher& publish);

}  // namespace zn
