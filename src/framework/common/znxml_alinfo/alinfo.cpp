// Records of alerts: see the header.
#include "framework/common/znxml_alinfo/alinfo.h"

#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <xercesc/dom/DOM.hpp>

#include "framework/common/znxml_dom_processor/domnodes.h"
#include "framework/common/znxml_dom_processor/place.h"
#include "framework/common/znxml_dom_processor/propertytext.h"
#include "framework/common/znxml_dom_processor/propsetreader.h"
#include "framework/common/znxml_dom_processor/xmltext.h"
#include "support/common/block.h"
#include "support/common/trace.h"
#include "zn/memory.h"
#include "zn/ps.h"

namespace zn {

using xercesc::DOMElement;

namespace {

constexpr u32 kPublic = 1;
constexpr u32 kGlobal = 2;
constexpr u32 kWidest = kPublic | kGlobal;

// A word of the attribute Flag: what it adds, and of which pair it is.
struct FlagWord {
  std::string_view word;
  u32 value;
  u32 pair;
};
constexpr FlagWord kFlagWords[] = {
    {"ALERT_GLOBAL", kGlobal, kGlobal},
    {"ALERT_LOCAL", 0, kGlobal},
    {"ALERT_PUBLIC", kPublic, kPublic},
    {"ALERT_PRIVATE", 0, kPublic},
};
constexpr std::string_view kSeverityWords[] = {"CRITICAL", "ERROR", "WARNING", "INFO"};  // from 1

const FlagWord* FindFlagWord(std::string_view word) noexcept {
  for (const FlagWord& row : kFlagWords) {
    if (row.word == word) return &row;
  }
  return nullptr;
}

// Contract: an unknown word gives the widest scope and hides what comes behind it.
u32 ReadFlag(const std::string& text, u32* out) {
  u32 sum = 0;
  u32 pairs = 0;
  for (const std::string& word : XmlWords(text)) {
    const FlagWord* row = FindFlagWord(word);
    if (row == nullptr) {
      sum = kWidest;
      break;
    }
    if ((pairs & row->pair) != 0) return ZNE_INVALID_ARGUMENTS;
    pairs |= row->pair;
    sum += row->value;
  }
  *out = sum;
  return ZN_OK;
}

// Contract: the values are added, "ERROR|ERROR" is "INFO"; an unknown word gives 0.
u32 SeverityOf(const std::string& text) {
  u32 sum = 0;
  for (const std::string& word : XmlWords(text)) {
    u32 value = 0;
    for (u32 i = 0; i < std::size(kSeverityWords); ++i) {
      if (kSeverityWords[i] == word) value = i + 1;
    }
    if (value == 0) return 0;
    sum += value;
  }
  return sum;
}

// The record and its text in one block; null when memory is short.
I18nString* MakeI18nRecord(const I18nText& text) noexcept {
  const size_t size = sizeof(I18nString) + text.name.size() + 1;
  auto* record = static_cast<I18nString*>(ZnAlloc(static_cast<u32>(size)));
  if (record == nullptr) return nullptr;
  record->catalog = text.catalog;
  record->message = text.message;
  record->name = reinterpret_cast<char*>(record + 1);
  std::memcpy(record->name, text.name.c_str(), text.name.size() + 1);
  return record;
}

// In the order in which they are read.
struct TextRow {
  const char* element;
  I18nString* ALInfo::*member;
  const char* description;  // of the trace
};
constexpr TextRow kTexts[] = {
    {"MSG", &ALInfo::message, "message"},
    {"F_CLASS_NAME", &ALInfo::className, "friendly classification name"},
    {"F_ALERT_NAME", &ALInfo::alertName, "friendly alert name"},
    {"DESC", &ALInfo::description, "description"},
    {"REC_ACTION", &ALInfo::recommendedAction, "recommended action"},
};

u32 ReadTexts(const DOMElement& parameters, ALInfo* info) {
  for (const TextRow& row : kTexts) {
    DOMElement* element = nullptr;
    ZN_RETURN_IF_FAILED(GetFirstElement(parameters, row.element, &element));
    I18nText text;
    const u32 status = ReadI18nText(TrimXmlText(FirstTextOf(*element)), &text);
    if (ZN_FAILED(status)) {
      ZN_TRACE(6, "XML : Error in getGetNonPropsetProperty");
      TracePlace(*element);
      return status;
    }
    info->*row.member = MakeI18nRecord(text);
    if (info->*row.member == nullptr) return ZNE_OUT_OF_MEMORY;
  }
  return ZN_OK;
}

u32 ReadParameters(const DOMElement& element, ALInfo* info) {
  DOMElement* parameters = nullptr;
  u32 status = TellRequired(GetFirstElement(element, "ALERT_PARAM", &parameters), "ALERT_PARAM");
  if (ZN_FAILED(status)) {
    TracePlace(element);
    return status;
  }
  status = ReadTexts(*parameters, info);
  if (!ZN_FAILED(status)) status = ReadRequiredPropset(*parameters, &info->parameters);
  if (ZN_FAILED(status)) {
    ZN_TRACE(6, "XML: Error in processing a ALERT_PARAM element");
    TracePlace(*parameters);
  }
  return status;
}

u32 ReadAlertType(DOMElement* element, ALInfoOwner* out) {
  ALInfoOwner info(new ALInfo{});
  info->topic = TextToBlock(std::string_view(AttributeOf(*element, "Topic")));
  if (info->topic == nullptr) return ZNE_OUT_OF_MEMORY;
  info->refNode = element;
  ZN_RETURN_IF_FAILED(ReadFlag(AttributeOf(*element, "Flag"), &info->flag));
  info->severity = SeverityOf(AttributeOf(*element, "Severity"));
  ZN_RETURN_IF_FAILED(ReadParameters(*element, info.get()));
  *out = std::move(info);
  return ZN_OK;
}

void DescribeAlertType(const ALInfo& info) {
  ZN_TRACE(1, "XML: The ALERT_TYPE has topic %s", info.topic);
  ZN_TRACE(1, "XML: The alert flag is %s|%s",
           (info.flag & kPublic) != 0 ? "ALERT_PUBLIC" : "ALERT_PRIVATE",
           (info.flag & kGlobal) != 0 ? "ALERT_GLOBAL" : "ALERT_LOCAL");
  for (const TextRow& row : kTexts) {
    ZN_TRACE(1, "XML: The alert %s is %s", row.description, (info.*row.member)->name);
  }
}

}  // namespace

void ALInfoDeleter::operator()(ALInfo* info) const noexcept {
  if (info == nullptr) return;
  ZnFree(info->topic);
  for (const TextRow& row : kTexts) ZnFree(info->*row.member);
  if (info->parameters != nullptr) static_cast<void>(PsDestroyPropset(info->parameters));
  delete info;
}

u32 ReadAlertTypes(const xercesc::DOMNode& parent, ALInfoVector* out) {
  return ReadRecords<ALInfoOwner>(parent, "an ALERT_TYPE", &ReadAlertType, out);
}

u32 ValidateAlertTypes(const ALInfoVector& infos) {
  return CheckNames(infos, "alert types", &ALInfo::topic);
}

void PublishAlertType(const ALInfo& info, ZnHandle database, const AlertPublisher& publish) {
  DescribeAlertType(info);
  AlertDescriptor alert{};
  alert.topic = info.topic;
  alert.flag = info.flag;
  alert.severity = info.severity;
  alert.message = info.message;
  alert.classification = info.className;
  alert.friendlyName = info.alertName;
  alert.description = info.description;
  alert.recommendedAction = info.recommendedAction;
  alert.userProperties = info.parameters;
  if (!ZN_FAILED(publish(database, alert))) return;
  ZN_TRACE(5, "XML: Publication of alert %s failed", info.topic);
  if (info.refNode != nullptr) TracePlace(*info.refNode);
}

}  // namespace zn
