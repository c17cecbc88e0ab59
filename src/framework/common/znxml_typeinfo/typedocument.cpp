// Documents of object types, from the file to the types: parse, read, check for doubles, order,
// create.
#include <algorithm>
#include <string>
#include <vector>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/documentreader.h"
#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "framework/common/znxml_typeinfo/otigraph.h"
#include "framework/common/znxml_typeinfo/otinfo.h"
#include "support/common/fastlock.h"
#include "support/common/trace.h"

namespace zn {

namespace {

using xercesc::DOMDocumentFragment;
using xercesc::DOMElement;

using Names = std::vector<std::string>;

Names NamesOf(const char** filter) {
  Names names;
  for (; filter != nullptr && *filter != nullptr; ++filter) names.emplace_back(*filter);
  std::sort(names.begin(), names.end());
  return names;
}

// Moves the OBJECT_TYPE children of the root whose names are wanted into the fragment.
u32 SelectTypes(xercesc::DOMNode& root, const Names& names, DOMDocumentFragment* out) {
  for (DOMElement* at = FirstElement(root); at != nullptr;) {
    DOMElement* next = NextElement(*at);
    if (IsNamed(*at, "OBJECT_TYPE") &&
        std::binary_search(names.begin(), names.end(), AttributeOf(*at, "Name"))) {
      out->appendChild(at);
    }
    at = next;
  }
  return ZN_OK;
}

u32 ReadSelectedTypes(xercesc::DOMNode& root, const Names& names, OTInfoVector* out) {
  DOMDocumentFragment* fragment = nullptr;
  const u32 status = GuardDom([&]() -> u32 {
    fragment = root.getOwnerDocument()->createDocumentFragment();
    return SelectTypes(root, names, fragment);
  });
  TraceFragmentFailure(status);
  ZN_RETURN_IF_FAILED(status);
  return ReadObjectTypes(*fragment, out);
}

u32 ReadTypes(xercesc::DOMDocument& document, const char** filter, OTInfoVector* out) {
  u32 status = ReadRoot(document, [&](xercesc::DOMNode& root) {
    return filter == nullptr ? ReadObjectTypes(root, out)
                             : ReadSelectedTypes(root, NamesOf(filter), out);
  });
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Generation of Type info failed");
    return status;
  }
  return ValidateObjectTypes(*out);
}

u32 OrderTypes(const OTInfoVector& infos, OTInfoVector* out) {
  OTIGraph graph;
  // Contract: the result is not looked at. Types that inherit in a circle have left the graph
  // again, with all others of the document, and the sort below succeeds on nothing.
  static_cast<void>(graph.AddNodes(infos));
  const u32 status = graph.SortParentsFirst(out, nullptr);
  TraceOrderFailure(status);
  return status;
}

u32 ReadAndCreate(ZnHandle database, const DocumentSource& source, const char** filter) {
  const BusLock lock;  // the reader's critical section
  DocumentReader reader;
  ZN_RETURN_IF_FAILED(reader.Parse(source));
  OTInfoList infos;  // goes before the document
  ZN_RETURN_IF_FAILED(ReadTypes(*reader.Document(), filter, &infos.Get()));
  OTInfoVector order;
  ZN_RETURN_IF_FAILED(OrderTypes(infos.Get(), &order));
  for (const OTInfo* info : order) {
    DescribeObjectType(*info);
    static_cast<void>(CreateObjectType(*info, database));  // traced; the others go on
  }
  return ZN_OK;
}

}  // namespace

u32 ReadObjectTypesFromFile(ZnHandle database, const char* path, const char** filter) {
  return GuardDom([&] { return ReadAndCreate(database, {.path = path}, filter); });
}

u32 ReadObjectTypesFromMemory(ZnHandle database, const char* text, const char** filter) {
  return GuardDom([&] { return ReadAndCreate(database, {.text = text}, filter); });
}

}  // namespace zn
