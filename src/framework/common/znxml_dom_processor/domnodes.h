// Small readers over the DOM: children by type and name, texts as UTF-8. Borrowed nodes throughout;
// the document outlives every use.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <xercesc/dom/DOM.hpp>

#include "support/common/status.h"
#include "zn/types.h"

namespace zn {

inline constexpr char kRootElement[] = "MIRA_FORMALIZATION";

// Runs a body that touches the DOM: no exception leaves it. ZNE_OUT_OF_MEMORY, ZNE_UNEXPECTED.
[[nodiscard]] u32 RunGuarded(const std::function<u32()>& body) noexcept;
// The body is referred to, not copied: a copy could throw before the guard is up.
template <typename Body>
[[nodiscard]] u32 GuardDom(Body&& body) noexcept {
  return RunGuarded(std::ref(body));
}

// The first child of that type, and of that name unless it is null; null when there is none.
[[nodiscard]] xercesc::DOMNode* FindChild(const xercesc::DOMNode& parent, short nodeType,
                                          const char* name);
// ZNE_OBJECT_NOT_FOUND when there is none.
[[nodiscard]] u32 GetFirstChild(const xercesc::DOMNode& parent, short nodeType, const char* name,
                                xercesc::DOMNode** out);
[[nodiscard]] u32 GetFirstElement(const xercesc::DOMNode& parent, const char* name,
                                  xercesc::DOMElement** out);
// What it means that a required element was looked for with that result, traced:
// ZNE_XML_SOURCE_INVALID when there is none, any other failure as it is.
[[nodiscard]] u32 TellRequired(u32 found, const char* element);
// Copies all such children into the fragment, which may be the parent itself. ZNE_OBJECT_NOT_FOUND
// when there is none.
[[nodiscard]] u32 CopyChildren(const xercesc::DOMNode& parent, short nodeType, const char* name,
                               xercesc::DOMDocumentFragment* out);

[[nodiscard]] bool IsNamed(const xercesc::DOMNode& node, const char* name);
[[nodiscard]] xercesc::DOMElement* FirstElement(const xercesc::DOMNode& parent);
[[nodiscard]] xercesc::DOMElement* NextElement(const xercesc::DOMElement& element);

// Empty when there is none.
[[nodiscard]] std::string AttributeOf(const xercesc::DOMElement& element, const char* name);
// The first child that is a text; empty when there is none.
[[nodiscard]] std::string FirstTextOf(const xercesc::DOMNode& parent);

}  // namespace zn
