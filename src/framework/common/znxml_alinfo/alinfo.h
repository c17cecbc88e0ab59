// ALERT_TYPE elements as records, and their publication. The records are those of
// zn/formalization.h; whoever holds one frees it.
#pragma once

#include <memory>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/formalization.h"
#include "framework/common/znxml_dom_processor/records.h"
#include "zn/formalization.h"

namespace zn {

struct ALInfoDeleter {
  void operator()(ALInfo* info) const noexcept;
};
using ALInfoOwner = std::unique_ptr<ALInfo, ALInfoDeleter>;

using ALInfoList = RecordList<ALInfo, ALInfoDeleter>;

// Reads every element child of `parent`, whatever its name, as an alert and appends the records.
// The first failure ends it, and nothing is appended then.
[[nodiscard]] u32 ReadAlertTypes(const xercesc::DOMNode& parent, ALInfoVector* out);

[[nodiscard]] u32 ValidateAlertTypes(const ALInfoVector& infos);

// Describes the alert in the trace and publishes it; a failure is traced.
void PublishAlertType(const ALInfo& info, ZnHandle database, const AlertPublisher& publish);

}  // namespace zn
