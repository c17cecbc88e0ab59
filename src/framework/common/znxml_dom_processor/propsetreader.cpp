// Property sets from elements: see the header. Sets nest as deep as the parser lets elements nest.
#include "framework/common/znxml_dom_processor/propsetreader.h"

#include <string>
#include <utility>
#include <vector>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znpropset/property2.h"
#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/place.h"
#include "framework/common/znxml_dom_processor/propertytext.h"
#include "framework/common/znxml_dom_processor/xmltext.h"
#include "support/common/trace.h"

namespace zn {

using xercesc::DOMElement;

namespace {

// The value N of the attribute Array. Contract: anything else, its absence too, makes an array.
constexpr const char* kScalarWord = "N";

u32 ReadNestedSet(const DOMElement* element, Value* out) {
  PropertySet set;
  if (element != nullptr) ZN_RETURN_IF_FAILED(ReadPropset(*element, &set));
  *out = Value::Set(std::move(set));
  return ZN_OK;
}

u32 ReadNestedSets(const DOMElement& property, Value* out) {
  std::vector<Value> elements;
  for (const DOMElement* at = FirstElement(property); at != nullptr; at = NextElement(*at)) {
    Value value;
    ZN_RETURN_IF_FAILED(ReadNestedSet(at, &value));
    elements.push_back(std::move(value));
  }
  *out = Value::Array(ZN_TYPE_PROPSET, std::move(elements));
  return ZN_OK;
}

u32 ReadValue(const DOMElement& property, u32 tag, bool isScalar, Value* out) {
  if (tag == ZN_TYPE_PROPSET) {
    return isScalar ? ReadNestedSet(FirstElement(property), out) : ReadNestedSets(property, out);
  }
  const std::string text = FirstTextOf(property);
  return isScalar ? ReadScalarText(tag, text, out) : ReadArrayText(tag, text, out);
}

u32 ReadProperty(const DOMElement& element, Property* out) {
  const u32 tag = TagOfTypeWord(AttributeOf(element, "Type"));
  const bool isScalar = AttributeOf(element, "Array") == kScalarWord;
  const u32 flags = PropertyFlagsOf(AttributeOf(element, "Flags"));
  const std::string name = AttributeOf(element, "Name");
  if (!IsPropertyNameText(name)) {
    ZN_TRACE(6, "XML: Inavalid property name");
    return ZNE_INVALID_ARGUMENTS;
  }
  // Contract: an unknown type word says nothing of itself; there is just no property to add.
  if (tag == 0) return ZNE_INVALID_ARGUMENTS;
  Value value;
  ZN_RETURN_IF_FAILED(ReadValue(element, tag, isScalar, &value));
  *out = Property(name, std::move(value), flags);
  return ZN_OK;
}

u32 AddProperty(const DOMElement& element, PropertySet* set) {
  Property property;
  u32 status = ReadProperty(element, &property);
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Error in processing a PROPERTY element");
    TracePlace(element);
    return status;
  }
  status = set->AddOwned(std::move(property));
  if (status == ZNE_DUPLICATE_LOOKUP_KEY) {
    ZN_TRACE(6, "XML: Duplicate property with name \"%s\" specified",
             AttributeOf(element, "Name").c_str());
    TracePlace(element);
  }
  return status;
}

}  // namespace

u32 ReadPropset(const DOMElement& element, PropertySet* out) {
  PropertySet set;
  for (const DOMElement* at = FirstElement(element); at != nullptr; at = NextElement(*at)) {
    ZN_RETURN_IF_FAILED(AddProperty(*at, &set));
  }
  *out = std::move(set);
  return ZN_OK;
}

u32 ReadRequiredPropset(const DOMElement& owner, ZnHandle* out) {
  DOMElement* element = nullptr;
  u32 status = TellRequired(GetFirstElement(owner, "PROPSET", &element), "PROPSET");
  if (ZN_FAILED(status)) {
    TracePlace(owner);
    return status;
  }
  PropertySet set;
  status = ReadPropset(*element, &set);
  if (!ZN_FAILED(status)) {
    *out = WrapPropertySet(std::move(set));
    if (*out == nullptr) status = ZNE_OUT_OF_MEMORY;
  }
  if (ZN_FAILED(status)) ZN_TRACE(6, "XML: Error in processing a PROPSET element");
  return status;
}

}  // namespace zn
