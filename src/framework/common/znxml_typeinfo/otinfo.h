// OBJECT_TYPE elements as records, and what is done with a record: its description in the trace,
// the type that is made of it. The records are those of zn/formalization.h; whoever holds one frees
// it.
#pragma once

#include <memory>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/records.h"
#include "zn/formalization.h"

namespace zn {

struct OTInfoDeleter {
  void operator()(OTInfo* info) const noexcept;
};
using OTInfoOwner = std::unique_ptr<OTInfo, OTInfoDeleter>;

using OTInfoList = RecordList<OTInfo, OTInfoDeleter>;

// Reads every element child of `parent`, whatever its name, as an object type and appends the
// records. The first failure ends it, and nothing is appended then.
[[nodiscard]] u32 ReadObjectTypes(const xercesc::DOMNode& parent, OTInfoVector* out);

[[nodiscard]] u32 ValidateObjectTypes(const OTInfoVector& infos);

// The words for a filter that could not be applied; none for a success.
void TraceFragmentFailure(u32 status);
// The words for a document whose types cannot be ordered; none for a success.
void TraceOrderFailure(u32 status);

void DescribeObjectType(const OTInfo& info);
// ObCreateTypeObject of the record, or ObCreateTypeObjectEx when it has flags. Traced on failure.
u32 CreateObjectType(const OTInfo& info, ZnHandle database);

}  // namespace zn
