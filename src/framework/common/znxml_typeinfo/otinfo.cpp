// Records of object types: see the header.
#include "framework/common/znxml_typeinfo/otinfo.h"

#include <string>
#include <vector>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/place.h"
#include "framework/common/znxml_dom_processor/propsetreader.h"
#include "framework/common/znxml_dom_processor/xmltext.h"
#include "support/common/block.h"
#include "support/common/trace.h"
#include "zn/memory.h"
#include "zn/ob.h"
#include "zn/ps.h"

namespace zn {

using xercesc::DOMElement;

namespace {

// The texts in a block each, with a null at the end. Null when memory is short.
char** ToTextList(const std::vector<std::string>& texts) {
  auto** list = static_cast<char**>(ZnAlloc(static_cast<u32>((texts.size() + 1) * sizeof(char*))));
  if (list == nullptr) return nullptr;
  for (size_t i = 0; i < texts.size(); ++i) {
    list[i] = TextToBlock(std::string_view(texts[i]));
    if (list[i] != nullptr) continue;
    while (i > 0) ZnFree(list[--i]);
    ZnFree(list);
    return nullptr;
  }
  return list;
}

void FreeTextList(char** list) noexcept {
  for (char** at = list; at != nullptr && *at != nullptr; ++at) ZnFree(*at);
  ZnFree(list);
}

u32 ReadSupertypes(const DOMElement& element, OTInfo* info) {
  DOMElement* inherits = nullptr;
  const u32 status = GetFirstElement(element, "INHERITS_FROM", &inherits);
  if (status == ZNE_OBJECT_NOT_FOUND) return ZN_OK;  // the list stays null
  ZN_RETURN_IF_FAILED(status);
  const std::string text = FirstTextOf(*inherits);
  info->supertypes = ToTextList(XmlTokens(TrimXmlText(text), ',', '"'));
  return info->supertypes == nullptr ? ZNE_OUT_OF_MEMORY : ZN_OK;
}

u32 ReadObjectType(DOMElement* element, OTInfoOwner* out) {
  OTInfoOwner info(new OTInfo{});
  info->name = TextToBlock(std::string_view(AttributeOf(*element, "Name")));
  if (info->name == nullptr) return ZNE_OUT_OF_MEMORY;
  info->refNode = element;
  info->hasFlags = TypeFlagsOf(AttributeOf(*element, "Flags"), &info->flags);
  ZN_RETURN_IF_FAILED(ReadSupertypes(*element, info.get()));
  ZN_RETURN_IF_FAILED(ReadRequiredPropset(*element, &info->properties));
  *out = std::move(info);
  return ZN_OK;
}

}  // namespace

void OTInfoDeleter::operator()(OTInfo* info) const noexcept {
  if (info == nullptr) return;
  ZnFree(info->name);
  FreeTextList(info->supertypes);
  if (info->properties != nullptr) static_cast<void>(PsDestroyPropset(info->properties));
  delete info;
}

u32 ReadObjectTypes(const xercesc::DOMNode& parent, OTInfoVector* out) {
  return ReadRecords<OTInfoOwner>(parent, "an OBJECT_TYPE", &ReadObjectType, out);
}

u32 ValidateObjectTypes(const OTInfoVector& infos) {
  return CheckNames(infos, "object types", &OTInfo::name);
}

void TraceFragmentFailure(u32 status) {
  if (ZN_FAILED(status)) ZN_TRACE(6, "XML: Problem in creating a document fragment");
}

void TraceOrderFailure(u32 status) {
  if (status == ZNE_PROVIDER_REG_CIRCULAR) {
    ZN_TRACE(5, "XML: OBJECT_TYPEs in xml source have circular dependencies");
  } else if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Topological sorting of OBJECT_TYPEs failed");
  }
}

void DescribeObjectType(const OTInfo& info) {
  if (!TraceEnabled(1)) return;
  ZN_TRACE(1, "XML: The OBJECT_TYPE has name %s", info.name);
  for (char** at = info.supertypes; at != nullptr && *at != nullptr; ++at) {
    ZN_TRACE(1, "XML: The OBJECT_TYPE inherits from %s", *at);
  }
  if (info.hasFlags) ZN_TRACE(1, "XML: The OBJECT_TYPE has flags %u", info.flags);
  void* text = nullptr;
  u32 length = 0;
  if (ZN_FAILED(PsSPrintf(0, info.properties, &text, &length))) return;
  ZN_TRACE(1, "XML: The OBJECT_TYPE has properties %s", static_cast<char*>(text));
  ZnFree(text);
}

u32 CreateObjectType(const OTInfo& info, ZnHandle database) {
  const auto** supertypes = const_cast<const char**>(info.supertypes);
  ObjectId id{};
  const u32 status =
      info.hasFlags ? ObCreateTypeObjectEx(database, info.name, supertypes, info.properties,
                                           info.flags, 0, &id)
                    : ObCreateTypeObject(database, info.name, supertypes, info.properties, &id);
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Creation of object type %s failed", info.name);
    if (info.refNode != nullptr) TracePlace(*info.refNode);
  }
  return status;
}

}  // namespace zn
