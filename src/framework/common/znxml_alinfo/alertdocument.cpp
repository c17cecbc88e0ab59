// Documents of alerts, from the file to the publications.
#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_alinfo/alinfo.h"
#include "framework/common/znxml_dom_processor/documentreader.h"
#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "support/common/fastlock.h"
#include "support/common/trace.h"

namespace zn {

namespace {

u32 ReadAlerts(xercesc::DOMDocument& document, ALInfoVector* out) {
  const u32 status =
      ReadRoot(document, [&](xercesc::DOMNode& root) { return ReadAlertTypes(root, out); });
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Generation of Alert info failed");
    return status;
  }
  return ValidateAlertTypes(*out);
}

u32 ReadAndPublish(ZnHandle database, const DocumentSource& source, const AlertPublisher& publish) {
  const BusLock lock;  // the reader's critical section
  DocumentReader reader;
  ZN_RETURN_IF_FAILED(reader.Parse(source));
  ALInfoList infos;  // goes before the document
  ZN_RETURN_IF_FAILED(ReadAlerts(*reader.Document(), &infos.Get()));
  for (const ALInfo* info : infos.Get()) PublishAlertType(*info, database, publish);
  return ZN_OK;
}

}  // namespace

u32 ReadAlertTypesFromFile(ZnHandle database, const char* path, const AlertPublisher& publish) {
  return GuardDom([&] { return ReadAndPublish(database, {.path = path}, publish); });
}

u32 ReadAlertTypesFromMemory(ZnHandle database, const char* text, const AlertPublisher& publish) {
  return GuardDom([&] { return ReadAndPublish(database, {.text = text}, publish); });
}

}  // namespace zn
