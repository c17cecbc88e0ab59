// Places in documents: see the header.
#include "framework/common/znxml_dom_processor/place.h"

#include <utility>

#include <xercesc/dom/DOM.hpp>

#include "support/common/trace.h"

namespace zn {

namespace {

thread_local PlaceScope* current = nullptr;

}  // namespace

PlaceScope::PlaceScope(const FormalizationParser& parser, std::string file)
    : parser_(parser), file_(std::move(file)), outer_(std::exchange(current, this)) {}

PlaceScope::~PlaceScope() {
  current = outer_;
}

void TracePlace(const xercesc::DOMElement& element) {
  if (current == nullptr) return;
  const u32 line = current->parser_.LineOf(element);
  if (line == 0) return;
  ZN_TRACE(6, "XML: In file %s, line %d", current->file_.c_str(), static_cast<int>(line));
}

}  // namespace zn
