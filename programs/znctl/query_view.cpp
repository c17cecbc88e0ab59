// The wording of a query's faults and the choice of columns.
#include "query_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>

#include "framework/common/znquery/querytext.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

constexpr size_t kMostUnits = 8192;  // of a text that the bus looks at
constexpr size_t kLineWidth = 76;    // of an explanation; two blanks go before it
constexpr size_t kWidthBeforeMark = 50;

// The text as one line with a mark below the place; of a long one what stands around it.
std::vector<std::string> Excerpt(std::u16string_view text, size_t offset) {
  const auto shown = [&](size_t from) {
    return Printable(ToUtf8(text.substr(from, offset - from)));
  };
  size_t from = offset;
  while (from > 0 && offset - from < 2 * kWidthBeforeMark &&
         DisplayWidth(shown(from - 1)) <= kWidthBeforeMark) {
    --from;
  }
  const std::string head = (from > 0 ? "…" : "") + shown(from);
  const size_t column = DisplayWidth(head);
  return {head + CutToWidth(Printable(ToUtf8(text.substr(offset))), kLineWidth - column),
          std::string(column, ' ') + "^"};
}

std::string PartName(u32 word) {
  switch (word) {
    case kQueryTypeWord:
      return "the type";
    case kQueryPropertyWord:
      return "the property";
    case kQueryValueWord:
      return "the value";
    default:
      return ToUtf8(QueryKeyword(word));
  }
}

// "word 3, the type"
std::string WordName(u32 word) {
  const bool isKeyword = !QueryKeyword(word).empty();
  return fmt::format("word {}{}", word + 1,
                     isKeyword || word >= kQueryWords ? "" : ", " + PartName(word));
}

// A word within a sentence.
std::string Quoted(std::string_view word) {
  constexpr size_t kMostColumns = 30;
  return "\"" + CutToWidth(Printable(word), kMostColumns) + "\"";
}

std::string WordOf(std::u16string_view text, const QueryText& query, u32 word) {
  return ToUtf8(text.substr(query.BeginOf(word), query.EndOf(word) - query.BeginOf(word)));
}

std::string SentenceOnWords(std::u16string_view text, const QueryText& query,
                            const QueryFault& fault) {
  switch (fault.kind) {
    case QueryFaultKind::kMissingWord:
      return fmt::format("the text ends where word {} should stand: {}", fault.word + 1,
                         PartName(fault.word));
    case QueryFaultKind::kSurplusWord:
      return fmt::format("word {} is one too many; a value with blanks stands in double quotes",
                         fault.word + 1);
    case QueryFaultKind::kEmptyWord:
      return fmt::format("word {} is empty: one blank too many stands here", fault.word + 1);
    case QueryFaultKind::kOpenQuote:
      return fmt::format("this double quote is never closed, and all behind it is word {}",
                         fault.word + 1);
    default:
      return fmt::format("word {} is {} and must be {}, in capitals", fault.word + 1,
                         Quoted(WordOf(text, query, fault.word)), PartName(fault.word));
  }
}

std::string SentenceOnValue(const QueryFault& fault, const Property& property) {
  const std::string subject =
      fmt::format("{}: {} is of type {}, which takes ", WordName(fault.word), Quoted(property.name),
                  TypeName(property.value.type));
  switch (fault.kind) {
    case QueryFaultKind::kNoBoolean:
      return subject + "TRUE, FALSE, 1 or 0";
    case QueryFaultKind::kNoGuid:
      return subject + "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    default:
      return subject + "a decimal number and nothing behind it";
  }
}

struct Explanation {
  size_t offset;
  std::vector<std::string> sentences;
};

std::string NamesOf(const PropertyList& list) {
  std::string names;
  for (const Property& property : list) {
    if ((property.flags & ZN_PROPERTY_HIDDEN) != 0) continue;
    names += (names.empty() ? "" : ", ") + Printable(property.name);
  }
  return names;
}

// Of a text that is a query, but not one for this bus.
std::optional<Explanation> ExplainMeaning(QueryText* query, u32 status,
                                          const DeclaredProperties& declared) {
  const std::string type = ToUtf8(query->Type());
  const std::string name = ToUtf8(query->Property());
  if (status == ZNE_TYPE_NOT_FOUND) {
    return Explanation{
        query->BeginOf(kQueryTypeWord),
        {fmt::format("{}: there is no type {}", WordName(kQueryTypeWord), Quoted(type)),
         "znctl types shows the types that there are"}};
  }
  const PropertyList properties = declared(type.empty() ? "KELD_Object" : type);
  const Property* property = FindProperty(properties, name);
  const size_t place = query->BeginOf(kQueryPropertyWord);
  if (status == ZNE_PROPERTY_NOT_FOUND) {
    return Explanation{
        place,
        {fmt::format("{}: the type declares no {}", WordName(kQueryPropertyWord), Quoted(name)),
         "it has: " + NamesOf(properties)}};
  }
  if (property == nullptr) return std::nullopt;
  if (status == ZNE_QUERY_TYPE_UNSUPPORTED) {
    return Explanation{
        place,
        {fmt::format("{}: {} is of type {}, which no query can ask for",
                     WordName(kQueryPropertyWord), Quoted(name), TypeName(property->value.type))}};
  }
  u64 number = 0;
  if (query->ReadValue(property->value.type, &number)) return std::nullopt;
  return Explanation{query->Fault().offset, {SentenceOnValue(query->Fault(), *property)}};
}

bool IsOfTheText(u32 status) {
  return status == ZNE_INVALID_ARGUMENTS || status == ZNE_TYPE_NOT_FOUND ||
         status == ZNE_PROPERTY_NOT_FOUND || status == ZNE_QUERY_TYPE_UNSUPPORTED;
}

std::optional<Explanation> Explain(std::u16string_view text, u32 status,
                                   const DeclaredProperties& declared) {
  if (!IsOfTheText(status)) return std::nullopt;
  if (text.size() > kMostUnits) {
    return Explanation{
        kMostUnits,
        {fmt::format("the text has {} characters, and {} are the most", text.size(), kMostUnits)}};
  }
  QueryText query(text);
  if (query.Parse()) return ExplainMeaning(&query, status, declared);
  return Explanation{query.Fault().offset,
                     {SentenceOnWords(text, query, query.Fault()),
                      "a query is: SELECT FROM <type> WHERE <property> EQ <value>"}};
}

// A property as a candidate for a column.
struct Candidate {
  u32 flags = 0;
  u32 type = 0;
  size_t count = 0;  // hits that have it
  bool differs = false;
  bool hasText = false;
  bool isDefault = true;  // in every hit
  size_t width = 0;
  std::string first;

  bool IsArray() const { return (type & ZN_TYPE_ARRAY) != 0; }
  // The smaller, the more worth a column.
  int Rank() const {
    const bool isIndexed = (flags & ZN_PROPERTY_INDEXED) != 0;
    return (isIndexed ? 0 : 1) + (isDefault ? 2 : 0) + (IsArray() ? 4 : 0);
  }
};

bool MayBeShown(const Property& property) {
  constexpr u32 kNotShown = ZN_PROPERTY_HIDDEN | ZN_PROPERTY_NO_DISPLAY;
  const u32 type = property.value.type & ~ZN_TYPE_ARRAY;
  return (property.flags & kNotShown) == 0 && property.name != "Name" && type != ZN_TYPE_BINARY &&
         type != ZN_TYPE_PROPSET && !std::holds_alternative<std::monostate>(property.value.data);
}

void Count(const Property& property, const Property* initial, Candidate* candidate) {
  const std::string text = Printable(FormatValue(property.value));
  if (candidate->count == 0) {
    candidate->flags = property.flags;
    candidate->type = property.value.type;
    candidate->first = text;
    candidate->width = DisplayWidth(Printable(property.name));
  }
  ++candidate->count;
  candidate->differs = candidate->differs || text != candidate->first;
  candidate->hasText = candidate->hasText || !text.empty();
  const bool isInitial = initial != nullptr && property.value == initial->value;
  candidate->isDefault = candidate->isDefault && isInitial;
  candidate->width =
      std::min(std::max(candidate->width, DisplayWidth(text)), kWidestPropertyColumn);
}

}  // namespace

std::vector<std::string> ExplainQuery(const std::string& text, u32 status,
                                      const DeclaredProperties& declared) {
  const std::u16string wide = ToUtf16(text);
  const std::optional<Explanation> explanation = Explain(wide, status, declared);
  if (!explanation) return {};
  std::vector<std::string> lines = Excerpt(wide, explanation->offset);
  for (const std::string& sentence : explanation->sentences) {
    for (std::string& line : Wrap(sentence, kLineWidth)) lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<std::string> QueryColumns(const std::vector<PropertyList>& hits,
                                      const PropertyList& defaults, size_t room) {
  constexpr size_t kGap = 2;
  std::map<std::string, Candidate> candidates;
  for (const PropertyList& properties : hits) {
    for (const Property& property : properties) {
      if (!MayBeShown(property)) continue;
      Count(property, FindProperty(defaults, property.name), &candidates[property.name]);
    }
  }
  std::vector<std::pair<int, std::string>> order;
  for (const auto& [name, candidate] : candidates) {
    const bool tellsApart = candidate.differs || candidate.count < hits.size();
    if (candidate.hasText && (hits.size() == 1 || tellsApart)) {
      order.emplace_back(candidate.Rank(), name);
    }
  }
  std::sort(order.begin(), order.end());
  std::vector<std::string> names;
  for (const auto& [rank, name] : order) {
    const size_t width = candidates[name].width + kGap;
    if (width > room) continue;
    room -= width;
    names.push_back(name);
  }
  return names;
}

}  // namespace zn::ctl
