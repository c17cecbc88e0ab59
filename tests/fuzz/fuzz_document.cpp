// The reader of formalization documents. The first byte says what the rest is, so that a mutation
// of an inner part need not keep the outer ones well formed:
//   D  a whole document
//   T  the content of the root of a document of object types, A of one of alerts
//   P  the content of the PROPSET of one object type
//   V  a value: type word, "Y" or "N", text, each on a line of its own
//   S  separator, quote, then a text to split
// What the reader accepts, the exports must accept too, and the other way round; what it makes must
// obey the rules of types.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "framework/common/zntypeobject/typerules.h"
#include "framework/common/znxml_dom_processor/formalization.h"
#include "framework/common/znxml_dom_processor/propertytext.h"
#include "framework/common/znxml_dom_processor/xmltext.h"
#include "framework/common/znxml_typeinfo/otigraph.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "zn/formalization_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size);

namespace {

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

std::string Wrapped(std::string_view content) {
  return "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\"><MIRA_FORMALIZATION>" +
         std::string(content) + "</MIRA_FORMALIZATION>";
}

class Document {
 public:
  explicit Document(const std::string& text) {
    status = parser_.ParseMemory(text.data(), text.size());
  }
  xercesc::DOMDocument* Get() const { return parser_.Document(); }
  u32 status;

 private:
  zn::FormalizationParser parser_;
};

// The way of a provider: read, check, order. The status at which it ends, and the count of types.
u32 ReadByExports(const Document& document, size_t* count) {
  *count = 0;
  if (document.status != ZN_OK) return document.status;
  OTInfoVector infos;
  u32 status = OTIVCreate_Doc(document.Get(), &infos);
  Require(status == ZN_OK || infos.empty(), "records without a success");
  if (!ZN_FAILED(status)) status = OTInfo_Validate(&infos);
  OTIGraph graph;
  if (!ZN_FAILED(status) && graph.AddNodes(infos) == ZN_OK) *count = infos.size();
  OTInfoVector order;
  Require(graph.RemoveChildNodes(&order, nullptr) == ZN_OK, "a graph that cannot be taken apart");
  Require(order.size() == *count || ZN_FAILED(status), "an order that lost a type");
  for (OTInfo* info : infos) DeleteOTInfo(info);
  return status;
}

void CheckTypes(const std::string& text) {
  const zn::BusLock lock;
  zn::Database database(0, {});
  Require(zn::RegisterBaseObjectTypes(database) == ZN_OK, "base types");
  const size_t before = database.Types().Types().size();
  const u32 status = zn::ReadObjectTypesFromMemory(database.Handle(), text.c_str(), nullptr);
  size_t count = 0;
  const Document document(std::string(text.c_str()));
  Require(ReadByExports(document, &count) == status, "the two ways differ");
  const size_t made = database.Types().Types().size() - before;
  Require(made <= count, "more types than records");
  for (const auto& [name, type] : database.Types().Types()) {
    Require(zn::IsTypeNameText(name), "a type of a bad name");
  }
}

void CheckAlerts(const std::string& text) {
  size_t published = 0;
  const auto publish = [&published](ZnHandle, const AlertDescriptor& alert) -> u32 {
    Require(alert.topic != nullptr && alert.flag < 4 && alert.message != nullptr &&
                alert.message->name != nullptr && alert.userProperties != nullptr,
            "an alert that is not whole");
    return ++published % 2 == 0 ? ZNE_UNEXPECTED : ZN_OK;
  };
  const u32 status = zn::ReadAlertTypesFromMemory(nullptr, text.c_str(), publish);
  Require(!ZN_FAILED(status) || published == 0, "alerts of a document that failed");
}

std::string_view TakeLine(std::string_view* text) {
  const size_t end = text->find('\n');
  const std::string_view line = text->substr(0, end);
  text->remove_prefix(end == text->npos ? text->size() : end + 1);
  return line;
}

void CheckValue(std::string_view text) {
  const u32 tag = zn::TagOfTypeWord(TakeLine(&text));
  const bool isArray = TakeLine(&text) != "N";
  zn::Value value;
  const u32 status =
      isArray ? zn::ReadArrayText(tag, text, &value) : zn::ReadScalarText(tag, text, &value);
  if (ZN_FAILED(status)) {
    Require(!value.HasValue(), "a value without a success");
  } else {
    Require(value.Tag() == (isArray ? tag | ZN_TYPE_ARRAY : tag), "a value of another type");
  }
}

void CheckTokens(std::string_view text) {
  if (text.size() < 2) return;
  const zn::XmlTokenRule rule{text[0], text[1]};
  std::vector<std::string> tokens;
  zn::TokenizeXmlText(text.substr(2), rule, &tokens);
  size_t length = 0;
  for (const std::string& token : tokens) length += token.size();
  Require(length <= text.size() - 2, "tokens longer than their text");
  Require(tokens.size() <= text.size() - 1, "more tokens than characters");
}

}  // namespace

int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0]) {
    case 'D':
      CheckTypes(std::string(rest));
      CheckAlerts(std::string(rest));
      break;
    case 'T':
      CheckTypes(Wrapped(rest));
      break;
    case 'A':
      CheckAlerts(Wrapped(rest));
      break;
    case 'P':
      CheckTypes(Wrapped("<OBJECT_TYPE Name=\"A\"><PROPSET>" + std::string(rest) +
                         "</PROPSET></OBJECT_TYPE>"));
      break;
    case 'V':
      CheckValue(rest);
      break;
    case 'S':
      CheckTokens(rest);
      break;
    default:
      break;
  }
  return 0;
}
