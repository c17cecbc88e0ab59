// Parsing and the root: see the header.
#include "framework/common/znxml_dom_processor/documentreader.h"

#include <cstring>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/domnodes.h"
#include "support/common/pointers.h"
#include "support/common/trace.h"

namespace zn {

namespace {

using Kind = FormalizationFault::Kind;

const char* TitleOf(Kind kind) noexcept {
  switch (kind) {
    case Kind::kWarning:
      return "Warning";
    case Kind::kError:
      return "Error";
    default:
      return "Fatal Error";
  }
}

constexpr char kMemoryName[] = "Memory";

u32 ParseSource(FormalizationParser& parser, const DocumentSource& source) {
  if (IsGoodPointer(source.path)) return parser.ParseFile(source.path);
  if (!IsGoodPointer(source.text)) return ZNE_INVALID_ARGUMENTS;
  return parser.ParseMemory(source.text, std::strlen(source.text), kMemoryName);
}

}  // namespace

void TraceFault(const FormalizationFault& fault) {
  if (fault.kind == Kind::kStart) {
    ZN_TRACE(6, "Error during initialization! :\n%s", fault.text.c_str());
    return;
  }
  if (fault.kind == Kind::kParse) {
    ZN_TRACE(6, "Error during parsing! :\n%s", fault.text.c_str());
    return;
  }
  ZN_TRACE(6, "XML: %s at file %s, line %d", TitleOf(fault.kind), fault.file.c_str(),
           static_cast<int>(fault.line));
  ZN_TRACE(6, "XML: The Message: %s", fault.text.c_str());
}

u32 DocumentReader::Parse(const DocumentSource& source) {
  const u32 status = GuardDom([&] { return ParseSource(*parser_, source); });
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Error while parsing xml file");
    return status;
  }
  if (Document() == nullptr) return ZNE_XML_SOURCE_INVALID;
  place_.emplace(*parser_, source.path != nullptr ? source.path : kMemoryName);
  return ZN_OK;
}

u32 ReadRoot(xercesc::DOMDocument& document,
             const std::function<u32(xercesc::DOMNode& root)>& read) {
  xercesc::DOMElement* root = nullptr;
  ZN_RETURN_IF_FAILED(TellRequired(GetFirstElement(document, kRootElement, &root), kRootElement));
  const u32 status = read(*root);
  if (ZN_FAILED(status)) ZN_TRACE(6, "XML: Error in processing MIRA_FORMALIZATION element");
  return status;
}

}  // namespace zn
