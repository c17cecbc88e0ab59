// The exports of zn/formalization.h. They stand outside the frame of the other families: no lock,
// no traces of entry and exit, for they touch no database and serve one thread.
#include <algorithm>
#include <new>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_alinfo/alinfo.h"
#include "framework/common/znxml_dom_processor/documentreader.h"
#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/xmltext.h"
#include "framework/common/znxml_typeinfo/otigraph.h"
#include "framework/common/znxml_typeinfo/otinfo.h"
#include "support/common/pointers.h"
#include "zn/formalization.h"

namespace zn {

namespace {

using xercesc::DOMDocument;
using xercesc::DOMDocumentFragment;
using xercesc::DOMNode;

// Whether the list and all its records can be read.
template <typename Info>
bool AreGoodRecords(const std::vector<Info*>* infos, char* Info::*name) noexcept {
  return IsGoodPointer(infos) &&
         std::all_of(infos->begin(), infos->end(), [name](const Info* info) {
           return IsGoodPointer(info) && IsGoodPointer(info->*name);
         });
}

template <typename Infos, typename Read>
u32 ReadFromDocument(DOMDocument* doc, Infos* out, Read&& read) noexcept {
  if (!IsGoodPointer(doc) || !IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&] { return ReadRoot(*doc, [&](DOMNode& root) { return read(root, out); }); });
}

template <typename Infos, typename Read>
u32 ReadFromFragment(DOMDocumentFragment* frag, Infos* out, Read&& read) noexcept {
  if (!IsGoodPointer(frag) || !IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  return read(*frag, out);
}

template <typename T, typename... Arguments>
u32 Make(T** out, Arguments... arguments) noexcept {
  if (!IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  T* made = new (std::nothrow) T{arguments...};
  if (made == nullptr) return ZNE_OUT_OF_MEMORY;
  *out = made;
  return ZN_OK;
}

constexpr u8 kSplitsAtSeparator = 1;

}  // namespace

}  // namespace zn

using namespace zn;

extern "C" {

u32 OTIVCreate_Doc(DOMDocument* doc, OTInfoVector* out) {
  return ReadFromDocument(doc, out, &ReadObjectTypes);
}

u32 OTIVCreate_DocFragment(DOMDocumentFragment* frag, OTInfoVector* out) {
  return ReadFromFragment(frag, out, &ReadObjectTypes);
}

u32 ALIVCreate_Doc(DOMDocument* doc, ALInfoVector* out) {
  return ReadFromDocument(doc, out, &ReadAlertTypes);
}

u32 ALIVCreate_DocFragment(DOMDocumentFragment* frag, ALInfoVector* out) {
  return ReadFromFragment(frag, out, &ReadAlertTypes);
}

u32 DeleteOTInfo(OTInfo* info) {
  if (info != nullptr && !IsGoodPointer(info)) return ZNE_INVALID_ARGUMENTS;
  OTInfoDeleter()(info);
  return ZN_OK;
}

u32 DeleteALInfo(ALInfo* info) {
  if (info != nullptr && !IsGoodPointer(info)) return ZNE_INVALID_ARGUMENTS;
  ALInfoDeleter()(info);
  return ZN_OK;
}

const char* OTInfo_GetType(const OTInfo* info) {
  return IsGoodPointer(info) ? info->name : nullptr;
}

xercesc::DOMElement* OTInfo_GetRefNode(const OTInfo* info) {
  return IsGoodPointer(info) ? info->refNode : nullptr;
}

const char* ALInfo_GetTopic(const ALInfo* info) {
  return IsGoodPointer(info) ? info->topic : nullptr;
}

xercesc::DOMElement* ALInfo_GetRefNode(const ALInfo* info) {
  return IsGoodPointer(info) ? info->refNode : nullptr;
}

u32 OTInfo_Validate(OTInfoVector* infos) {
  if (!AreGoodRecords(infos, &OTInfo::name)) return ZNE_INVALID_ARGUMENTS;
  return ValidateObjectTypes(*infos);
}

u32 ALInfo_Validate(ALInfoVector* infos) {
  if (!AreGoodRecords(infos, &ALInfo::topic)) return ZNE_INVALID_ARGUMENTS;
  return ValidateAlertTypes(*infos);
}

u32 CreateOTIGraph(OTIGraph** out) {
  return Make(out);
}

u32 DeleteOTIGraph(OTIGraph* graph) {
  if (graph != nullptr && !IsGoodPointer(graph)) return ZNE_INVALID_ARGUMENTS;
  delete graph;
  return ZN_OK;
}

u32 OTIGraph_AddNodes(OTIGraph* graph, OTInfoVector* infos) {
  if (!IsGoodPointer(graph) || !AreGoodRecords(infos, &OTInfo::name)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&] { return graph->AddNodes(*infos); });
}

u32 OTIGraph_MergeNodes(OTIGraph* graph, OTInfoVector* infos) {
  if (!IsGoodPointer(graph) || !AreGoodRecords(infos, &OTInfo::name)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&] { return graph->MergeNodes(*infos); });
}

u32 OTIGraph_RemoveChildNodes(OTIGraph* graph, OTInfoVector* out, const char* start) {
  if (!IsGoodPointer(graph) || !IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  if (start != nullptr && !IsGoodPointer(start)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&] { return graph->RemoveChildNodes(out, start); });
}

u32 CreateXMLTokenizer(XMLTokenizer** out, char separator, char quote) {
  return Make(out, kSplitsAtSeparator, separator, quote);
}

u32 DeleteXMLTokenizer(XMLTokenizer* tokenizer) {
  if (tokenizer != nullptr && !IsGoodPointer(tokenizer)) return ZNE_INVALID_ARGUMENTS;
  delete tokenizer;
  return ZN_OK;
}

u32 XMLTokenizer_Tokenize(XMLTokenizer* tokenizer, const std::string& text, StringVector* out) {
  if (!IsGoodPointer(tokenizer) || !IsGoodPointer(&text) || !IsGoodPointer(out)) {
    return ZNE_INVALID_ARGUMENTS;
  }
  const XmlTokenRule rule{tokenizer->separator, tokenizer->quote,
                          tokenizer->mode == kSplitsAtSeparator};
  return GuardDom([&]() -> u32 {
    StringVector tokens;
    TokenizeXmlText(text, rule, &tokens);
    out->insert(out->end(), tokens.begin(), tokens.end());
    return ZN_OK;
  });
}

u32 XMLTokenizer_TrimString(std::string* text) {
  if (!IsGoodPointer(text)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&]() -> u32 {
    *text = std::string(TrimXmlText(*text));
    return ZN_OK;
  });
}

u32 getFirstChildNode(const DOMNode& parent, short nodeType, const char* name, DOMNode** out) {
  if (!IsGoodPointer(&parent) || !IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  if (name != nullptr && !IsGoodPointer(name)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&] { return GetFirstChild(parent, nodeType, name, out); });
}

u32 getAllChildNodes(const DOMNode& parent, short nodeType, const char* name,
                     DOMDocumentFragment* out) {
  if (!IsGoodPointer(&parent) || !IsGoodPointer(out)) return ZNE_INVALID_ARGUMENTS;
  if (name != nullptr && !IsGoodPointer(name)) return ZNE_INVALID_ARGUMENTS;
  return GuardDom([&] { return CopyChildren(parent, nodeType, name, out); });
}

}  // extern "C"
