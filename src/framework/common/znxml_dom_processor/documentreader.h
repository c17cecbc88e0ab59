// One document from its bytes to the elements that declare something: parses, traces what is wrong
// with it, finds the root. Lives for one read, under FAST_LOCK; the nodes live as long as it does.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/place.h"
#include "zn/formalization_parser.h"

namespace zn {

// Where the bytes of a document are.
struct DocumentSource {
  const char* path = nullptr;  // a file, or
  const char* text = nullptr;  // memory, up to the terminator
};

// Traces a fault as the reader tells it.
void TraceFault(const FormalizationFault& fault);

class DocumentReader {
 public:
  // The parser is replaced in tests alone.
  explicit DocumentReader(std::unique_ptr<FormalizationParser> parser =
                              std::make_unique<FormalizationParser>(&TraceFault))
      : parser_(std::move(parser)) {}
  DocumentReader(const DocumentReader&) = delete;
  DocumentReader& operator=(const DocumentReader&) = delete;

  // ZNE_XML_SOURCE_INVALID.
  [[nodiscard]] u32 Parse(const DocumentSource& source);
  [[nodiscard]] xercesc::DOMDocument* Document() const { return parser_->Document(); }

 private:
  std::unique_ptr<FormalizationParser> parser_;
  std::optional<PlaceScope> place_;
};

// Finds the root MIRA_FORMALIZATION and runs `read` on it. ZNE_XML_SOURCE_INVALID without it, else
// what `read` answers.
[[nodiscard]] u32 ReadRoot(xercesc::DOMDocument& document,
                           const std::function<u32(xercesc::DOMNode& root)>& read);

}  // namespace zn
