// One document, element by element; see the header. A piece is probed by building the smallest
// element around it that the library reads, so that the rules stand in the library alone.
#include "document_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>

#include "document_types.h"
#include "document_words.h"
#include "text.h"
#include "zn/ev.h"
#include "zn/formalization.h"
#include "zn/formalization_parser.h"
#include "zn/memory.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

using xercesc::DOMElement;
using Kind = FormalizationFault::Kind;

DOMElement* FirstElement(const DOMElement& parent) {
  return parent.getFirstElementChild();
}

DOMElement* NextElement(const DOMElement& element) {
  return element.getNextElementSibling();
}

std::string NameOf(const DOMElement& element) {
  return formalization::ToUtf8(element.getTagName());
}

std::string AttributeOf(const DOMElement& element, const char* name) {
  return formalization::ToUtf8(element.getAttribute(ToUtf16(name).c_str()));
}

// The first text of the element: the library reads no more of it.
std::string TextOf(const DOMElement& element) {
  using xercesc::DOMNode;
  const DOMNode* node = element.getFirstChild();
  while (node != nullptr && node->getNodeType() != DOMNode::TEXT_NODE &&
         node->getNodeType() != DOMNode::CDATA_SECTION_NODE) {
    node = node->getNextSibling();
  }
  std::string text = node == nullptr ? "" : formalization::ToUtf8(node->getNodeValue());
  static_cast<void>(XMLTokenizer_TrimString(&text));
  return text;
}

DOMElement* FindElement(const DOMElement& parent, const char* name) {
  for (DOMElement* at = FirstElement(parent); at != nullptr; at = NextElement(*at)) {
    if (NameOf(*at) == name) return at;
  }
  return nullptr;
}

// Records of one probe or of the whole document, freed together.
template <typename Info, u32 (*Delete)(Info*)>
class Records {
 public:
  Records() = default;
  ~Records() {
    for (Info* info : infos_) Delete(info);
  }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;
  std::vector<Info*>& Get() { return infos_; }

 private:
  std::vector<Info*> infos_;
};
using TypeRecords = Records<OTInfo, &DeleteOTInfo>;
using AlertRecords = Records<ALInfo, &DeleteALInfo>;

class DocumentChecker {
 public:
  explicit DocumentChecker(const std::string& path)
      : path_(path), parser_([this](const FormalizationFault& fault) { OnFault(fault); }) {}

  DocumentReport Run() {
    static_cast<void>(parser_.ParseFile(path_.c_str()));
    const xercesc::DOMDocument* document = parser_.Document();
    const DOMElement* root = document == nullptr ? nullptr : document->getDocumentElement();
    if (!isBroken_ && root != nullptr) CheckWithinBounds(*root);
    std::stable_sort(
        report_.faults.begin(), report_.faults.end(),
        [](const DocumentFault& a, const DocumentFault& b) { return a.line < b.line; });
    return std::move(report_);
  }

 private:
  void OnFault(const FormalizationFault& fault) {
    const bool isInvalid = fault.kind == Kind::kError || fault.kind == Kind::kWarning;
    isBroken_ = isBroken_ || !isInvalid;
    isInvalid_ = true;
    report_.faults.push_back(
        {false, fault.file, fault.line, isInvalid ? "document-type" : "well-formed", fault.text});
  }
  void Tell(const DOMElement& element, bool isWarning, std::string rule, std::string text) {
    report_.faults.push_back(
        {isWarning, path_, parser_.LineOf(element), std::move(rule), std::move(text)});
  }
  void Fault(const DOMElement& element, std::string rule, std::string text) {
    Tell(element, false, std::move(rule), std::move(text));
  }
  void Warn(const DOMElement& element, std::string rule, const std::string& text) {
    if (!text.empty()) Tell(element, true, std::move(rule), text);
  }

  // The probes take memory of the same bounded store as the document.
  void CheckWithinBounds(const DOMElement& root) {
    try {
      CheckRoot(root);
    } catch (const xercesc::OutOfMemoryException&) {
      Fault(root, "memory", "the document needs too much memory to be checked");
    }
  }
  void CheckRoot(const DOMElement& root) {
    if (NameOf(root) != "MIRA_FORMALIZATION") {
      return Fault(root, "document-type", "the root element is MIRA_FORMALIZATION");
    }
    for (DOMElement* at = FirstElement(root); at != nullptr; at = NextElement(*at)) {
      if (NameOf(*at) == "OBJECT_TYPE") CheckObjectType(*at);
      if (NameOf(*at) == "ALERT_TYPE") CheckAlert(*at);
    }
    if (report_.objectTypes > 0 && report_.alertTypes > 0) {
      Fault(root, "mixed",
            "object types and alerts stand in one document; reading it for either fails at the "
            "other");
    }
    CheckTypesTogether(types_.Get(), [this](const OTInfo& type, bool isWarning,
                                            const std::string& rule, const std::string& text) {
      Tell(*OTInfo_GetRefNode(&type), isWarning, rule, text);
    });
  }

  // Whether the name is the first of its kind.
  bool IsNew(std::map<std::string, u32>* seen, const DOMElement& element, const std::string& name,
             const char* what) {
    const auto [place, isNew] = seen->emplace(name, parser_.LineOf(element));
    if (!isNew) {
      Fault(element, "duplicate",
            fmt::format("{} \"{}\" stands already on line {}", what, name, place->second));
    }
    return isNew;
  }

  void CheckObjectType(DOMElement& element) {
    ++report_.objectTypes;
    const size_t before = report_.Errors();
    const std::string name = AttributeOf(element, "Name");
    const bool isNew = IsNew(&typeLines_, element, name, "the type");
    if (element.hasAttribute(u"Name") && !names_.IsTaken(name)) {
      Fault(
          element, "name",
          fmt::format("\"{}\" is no name of a type: letters, digits, \"_\" and \":\", the first a "
                      "letter or \"_\"",
                      name));
    }
    Warn(element, "flags", OddTypeFlags(AttributeOf(element, "Flags")));
    CheckPropset(FindElement(element, "PROPSET"));
    const bool isGood = !isInvalid_ && report_.Errors() == before;
    const u32 status = Probe(element, &OTIVCreate_DocFragment, isNew ? &types_.Get() : nullptr);
    if (isGood && ZN_FAILED(status)) {
      Fault(element, "refused", fmt::format("the library refuses \"{}\": {:#010x}", name, status));
    }
  }

  void CheckAlert(DOMElement& element) {
    ++report_.alertTypes;
    const size_t before = report_.Errors();
    const std::string topic = AttributeOf(element, "Topic");
    static_cast<void>(IsNew(&topicLines_, element, topic, "the alert"));
    CheckTopic(element, topic);
    CheckAlertFlags(element, AttributeOf(element, "Flag"));
    const std::string severity = BadSeverity(AttributeOf(element, "Severity"));
    if (!severity.empty()) Fault(element, "severity", severity);
    if (const DOMElement* parameters = FindElement(element, "ALERT_PARAM")) {
      for (const char* text : {"MSG", "F_CLASS_NAME", "F_ALERT_NAME", "DESC", "REC_ACTION"}) {
        if (const DOMElement* at = FindElement(*parameters, text)) CheckText(*at);
      }
      CheckPropset(FindElement(*parameters, "PROPSET"));
    }
    const bool isGood = !isInvalid_ && report_.Errors() == before;
    AlertRecords records;
    const u32 status = Probe(element, &ALIVCreate_DocFragment, &records.Get());
    if (isGood && ZN_FAILED(status)) {
      Fault(element, "refused", fmt::format("the library refuses \"{}\": {:#010x}", topic, status));
    }
  }

  void CheckTopic(const DOMElement& element, const std::string& topic) {
    char** tokens = nullptr;
    u32 count = 0;
    const u32 status = EvTokens(topic.c_str(), &tokens, &count);
    ZnFree(tokens);
    if (topic.empty() || ZN_FAILED(status) || topic.find('*') != std::string::npos) {
      Fault(element, "topic",
            fmt::format("\"{}\" is no topic of an event: tokens of letters, digits, \":\", \"_\", "
                        "\"-\", \"{{\" and \"}}\", joined by points",
                        topic));
    }
  }

  void CheckAlertFlags(const DOMElement& element, const std::string& text) {
    const std::string odd = OddAlertFlags(text);
    if (!odd.empty()) return Warn(element, "flags", odd);
    const std::vector<std::string> words = SplitWords(text);
    const auto count = [&words](const char* a, const char* b) {
      return std::count(words.begin(), words.end(), a) + std::count(words.begin(), words.end(), b);
    };
    if (count("ALERT_GLOBAL", "ALERT_LOCAL") > 1 || count("ALERT_PUBLIC", "ALERT_PRIVATE") > 1) {
      Fault(element, "flags",
            "an alert is global or local, and public or private; each once, and not both");
    }
  }

  void CheckText(const DOMElement& element) {
    const std::string text = TextOf(element);
    const bool isRequired = NameOf(element) != "F_CLASS_NAME";
    const std::vector<std::string> parts = SplitI18n(text);
    if (parts.size() != 3) {
      const std::string what =
          NameOf(element) + " is not of the form catalog;number;'default text'";
      return isRequired
                 ? Fault(element, "text", what + ": the alert has no text and is not published")
                 : Warn(element, "text", text.empty() ? "" : what + " and is read as nothing");
    }
    if (isRequired && parts[2].empty()) {
      Fault(element, "text", NameOf(element) + " has no default text: the alert is not published");
    }
    const auto property = MakeProperty("mira_i18n", "N");
    property->setTextContent(ToUtf16(text).c_str());
    if (!IsTaken(*property)) {
      Fault(element, "value",
            fmt::format("\"{}\" is not {}", text, FindTypeWord("mira_i18n")->takes));
    }
  }

  void CheckPropset(const DOMElement* propset) {
    if (propset == nullptr) return;  // the document type has told it
    std::map<std::string, u32> lines;
    for (DOMElement* at = FirstElement(*propset); at != nullptr; at = NextElement(*at)) {
      CheckProperty(*at);
      static_cast<void>(IsNew(&lines, *at, AttributeOf(*at, "Name"), "the property"));
    }
  }

  void CheckProperty(const DOMElement& element) {
    const std::string name = AttributeOf(element, "Name");
    const std::string word = AttributeOf(element, "Type");
    const std::string flags = AttributeOf(element, "Flags");
    const bool isArray = AttributeOf(element, "Array") != "N";
    const auto named = MakeProperty("mira_string", "N");
    named->setAttribute(u"Name", ToUtf16(name).c_str());
    if (!IsTaken(*named)) {
      Fault(element, "name",
            fmt::format("\"{}\" is no name of a property: letters, digits, \"_\" and blanks, the "
                        "first a letter or \"_\"",
                        name));
    }
    const std::string odd = OddPropertyFlags(flags);
    Warn(element, "flags", odd);
    const TypeWord* type = FindTypeWord(word);
    if (type == nullptr) {
      return Fault(element, "type-word",
                   fmt::format("\"{}\" of \"{}\" is none of {}", word, name, TypeWords()));
    }
    const std::vector<std::string> words = SplitWords(flags);
    const bool isIndexed = std::find(words.begin(), words.end(), "Indexed") != words.end();
    if (odd.empty() && isIndexed && (isArray || !type->isIndexable)) {
      Fault(element, "indexed",
            fmt::format("\"{}\" cannot be indexed: {} {} has no order", name,
                        isArray ? "an array of" : "a", word));
    }
    CheckValue(element, *type, isArray);
  }

  void CheckValue(const DOMElement& element, const TypeWord& type, bool isArray) {
    const std::string name = AttributeOf(element, "Name");
    if (std::string_view(type.word) == "mira_propset") {
      for (DOMElement* at = FirstElement(element); at != nullptr; at = NextElement(*at)) {
        CheckPropset(at);
        if (!isArray && NextElement(*at) != nullptr) {
          Warn(*NextElement(*at), "value",
               fmt::format("\"{}\" is a single set; only the first PROPSET is read", name));
          return;
        }
      }
      return;
    }
    const auto property = MakeProperty(type.word, isArray ? "Y" : "N");
    for (auto* at = element.getFirstChild(); at != nullptr; at = at->getNextSibling()) {
      property->appendChild(at->cloneNode(true));
    }
    const std::string text = TextOf(element);
    if (!IsTaken(*property)) {
      return Fault(element, "value",
                   fmt::format("\"{}\": \"{}\" is not {}{}", name, text,
                               isArray ? "a list, joined by commas, of " : "", type.takes));
    }
    if (std::string_view(type.word) == "mira_binary" && !text.empty()) {
      Warn(element, "value", fmt::format("\"{}\" takes {}", name, type.takes));
    }
    const bool isText = std::string_view(type.word) == "mira_i18n" && !isArray;
    if (isText && !text.empty() && SplitI18n(text).size() != 3) {
      Warn(element, "value",
           fmt::format("\"{}\" is not of the form {} and is read as nothing", name, type.takes));
    }
  }

  // Nodes that belong to the document and to no element of it.
  struct Release {
    void operator()(DOMElement* element) const { element->release(); }
  };
  using Loose = std::unique_ptr<DOMElement, Release>;

  Loose MakeProperty(const char* word, const char* array) {
    Loose property(parser_.Document()->createElement(u"PROPERTY"));
    property->setAttribute(u"Name", u"Probe");
    property->setAttribute(u"Type", ToUtf16(word).c_str());
    property->setAttribute(u"Array", ToUtf16(array).c_str());
    return property;
  }

  bool IsTaken(const DOMElement& property) {
    xercesc::DOMDocument* document = parser_.Document();
    const Loose type(document->createElement(u"OBJECT_TYPE"));
    DOMElement* propset = document->createElement(u"PROPSET");
    type->appendChild(propset);
    propset->appendChild(property.cloneNode(true));
    return !ZN_FAILED(Probe(*type, &OTIVCreate_DocFragment, static_cast<OTInfoVector*>(nullptr)));
  }

  // What the library makes of an element that it takes for the only one of a document. The records,
  // if they are wanted, have the place in the document for their node, not the probe.
  template <typename Infos>
  u32 Probe(DOMElement& element, u32 (*read)(xercesc::DOMDocumentFragment*, Infos*), Infos* out) {
    xercesc::DOMDocumentFragment* fragment = parser_.Document()->createDocumentFragment();
    fragment->appendChild(element.cloneNode(true));
    Infos infos;
    const u32 status = read(fragment, &infos);
    for (auto* info : infos) {
      info->refNode = &element;
      if (out != nullptr) {
        out->push_back(info);
      } else {
        Forget(info);
      }
    }
    fragment->release();
    return status;
  }
  static void Forget(OTInfo* info) { DeleteOTInfo(info); }
  static void Forget(ALInfo* info) { DeleteALInfo(info); }

  std::string path_;
  FormalizationParser parser_;
  TypeRecords types_;
  TypeNames names_;
  DocumentReport report_;
  std::map<std::string, u32> typeLines_;
  std::map<std::string, u32> topicLines_;
  bool isInvalid_ = false;  // the parser had something to say
  bool isBroken_ = false;   // and there is nothing more to look at
};

}  // namespace

std::size_t DocumentReport::Errors() const {
  return static_cast<std::size_t>(std::count_if(
      faults.begin(), faults.end(), [](const DocumentFault& fault) { return !fault.isWarning; }));
}

DocumentReport CheckDocument(const std::string& path) {
  return DocumentChecker(path).Run();
}

}  // namespace zn::ctl
