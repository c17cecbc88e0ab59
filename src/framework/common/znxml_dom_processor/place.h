// Where in a document a refused element stands. The document that this thread is reading is known
// to whoever refuses something in it, without being handed through every function.
#pragma once

#include <string>

#include <xercesc/dom/DOM.hpp>

#include "zn/formalization_parser.h"

namespace zn {

// The document that this thread reads, while the object lives. They may nest.
class PlaceScope {
 public:
  PlaceScope(const FormalizationParser& parser, std::string file);
  ~PlaceScope();
  PlaceScope(const PlaceScope&) = delete;
  PlaceScope& operator=(const PlaceScope&) = delete;

 private:
  friend void TracePlace(const xercesc::DOMElement& element);
  const FormalizationParser& parser_;
  std::string file_;
  PlaceScope* outer_;
};

// Traces file and line of an element behind its refusal. Elements of documents that others have
// parsed have no line that the library knows: nothing then.
void TracePlace(const xercesc::DOMElement& element);

}  // namespace zn
