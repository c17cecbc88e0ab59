// Children, texts and places: see the header.
#include "framework/common/znxml_dom_processor/domnodes.h"

#include <new>
#include <vector>

#include <xercesc/util/OutOfMemoryException.hpp>

#include "support/common/text.h"
#include "support/common/trace.h"

namespace zn {

using xercesc::DOMElement;
using xercesc::DOMNode;

namespace {

static_assert(sizeof(XMLCh) == sizeof(ZnWChar), "texts of the DOM are UTF-16");

std::u16string_view Units(const XMLCh* text) noexcept {
  return text == nullptr ? std::u16string_view() : std::u16string_view(text);
}

bool Fits(const DOMNode& node, short nodeType, const std::u16string* name) {
  return node.getNodeType() == nodeType && (name == nullptr || Units(node.getNodeName()) == *name);
}

// The next sibling, the node itself among them, that fits.
DOMNode* NextFitting(DOMNode* node, short nodeType, const std::u16string* name) {
  while (node != nullptr && !Fits(*node, nodeType, name)) node = node->getNextSibling();
  return node;
}

}  // namespace

u32 RunGuarded(const std::function<u32()>& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ZNE_OUT_OF_MEMORY;
  } catch (const xercesc::OutOfMemoryException&) {
    return ZNE_OUT_OF_MEMORY;
  } catch (...) {
    return ZNE_UNEXPECTED;
  }
}

DOMNode* FindChild(const DOMNode& parent, short nodeType, const char* name) {
  const std::u16string wanted = name == nullptr ? std::u16string() : ToWide(name);
  return NextFitting(parent.getFirstChild(), nodeType, name == nullptr ? nullptr : &wanted);
}

u32 GetFirstChild(const DOMNode& parent, short nodeType, const char* name, DOMNode** out) {
  DOMNode* node = FindChild(parent, nodeType, name);
  if (node == nullptr) return ZNE_OBJECT_NOT_FOUND;
  *out = node;
  return ZN_OK;
}

u32 GetFirstElement(const DOMNode& parent, const char* name, DOMElement** out) {
  return GuardDom([&]() -> u32 {
    DOMNode* node = nullptr;
    ZN_RETURN_IF_FAILED(GetFirstChild(parent, DOMNode::ELEMENT_NODE, name, &node));
    *out = static_cast<DOMElement*>(node);
    return ZN_OK;
  });
}

u32 TellRequired(u32 found, const char* element) {
  if (found == ZNE_OBJECT_NOT_FOUND) {
    const bool isRoot = std::string_view(element) == kRootElement;
    ZN_TRACE(6, isRoot ? "XML: Got an xml file with no %s element" : "XML: No %s element exists",
             element);
    return ZNE_XML_SOURCE_INVALID;
  }
  if (ZN_FAILED(found)) ZN_TRACE(6, "XML: Unknown error while getting %s element", element);
  return found;
}

u32 CopyChildren(const DOMNode& parent, short nodeType, const char* name,
                 xercesc::DOMDocumentFragment* out) {
  const std::u16string wanted = name == nullptr ? std::u16string() : ToWide(name);
  const std::u16string* filter = name == nullptr ? nullptr : &wanted;
  // Chosen before the first copy: with the parent's own fragment each copy would be one more child.
  std::vector<DOMNode*> chosen;
  for (DOMNode* node = NextFitting(parent.getFirstChild(), nodeType, filter); node != nullptr;
       node = NextFitting(node->getNextSibling(), nodeType, filter)) {
    chosen.push_back(node);
  }
  for (const DOMNode* node : chosen) {
    out->appendChild(out->getOwnerDocument()->importNode(node, true));
  }
  return chosen.empty() ? ZNE_OBJECT_NOT_FOUND : ZN_OK;
}

bool IsNamed(const DOMNode& node, const char* name) {
  return Units(node.getNodeName()) == ToWide(name);
}

DOMElement* FirstElement(const DOMNode& parent) {
  return static_cast<DOMElement*>(
      NextFitting(parent.getFirstChild(), DOMNode::ELEMENT_NODE, nullptr));
}

DOMElement* NextElement(const DOMElement& element) {
  return static_cast<DOMElement*>(
      NextFitting(element.getNextSibling(), DOMNode::ELEMENT_NODE, nullptr));
}

std::string AttributeOf(const DOMElement& element, const char* name) {
  return ToNarrow(Units(element.getAttribute(ToWide(name).c_str())));
}

std::string FirstTextOf(const DOMNode& parent) {
  for (const DOMNode* node = parent.getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    const short type = node->getNodeType();
    if (type == DOMNode::TEXT_NODE || type == DOMNode::CDATA_SECTION_NODE) {
      return ToNarrow(Units(node->getNodeValue()));
    }
  }
  return {};
}

}  // namespace zn
