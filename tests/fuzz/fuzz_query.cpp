// The text of a query: its words against a splitter that is as simple as the rules allow, faults
// within the text, the same words from a text that quotes them all, and the same hits from a type
// with indexes and one without. The input is the text in UTF-8.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "framework/common/zncore/database.h"
#include "framework/common/znquery/querytext.h"
#include "support/common/fastlock.h"
#include "support/common/status.h"
#include "support/common/text.h"

namespace {

using zn::Database;
using zn::Value;

void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

struct NamedValue {
  const char* name;
  Value initial;
  Value other;
};

std::vector<NamedValue> NamedValues() {
  const GUID guid = {0x01234567, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};
  return {{"b", Value::Bool(0), Value::Bool(1)},
          {"i", Value::Int32(0), Value::Int32(-1)},
          {"u", Value::UInt32(0), Value::UInt32(0xFFFFFFFF)},
          {"l", Value::Int64(0), Value::Int64(-1)},
          {"m", Value::UInt64(0), Value::UInt64(~u64{0})},
          {"t", Value::Time(0), Value::Time(7)},
          {"s", Value::Text(""), Value::Text("my disk")},
          {"w", Value::WideText(u""), Value::WideText(u"my disk")},
          {"g", Value::Guid(GUID{}), Value::Guid(guid)},
          {"o", Value::Id(GUID{}), Value::Id(GUID{7, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}})}};
}

// Two types with the same properties, the one with indexes and the other without, and two objects
// of each.
struct World {
  Database database{0, {}};

  World() {
    Require(zn::RegisterBaseObjectTypes(database) == ZN_OK, "base types");
    Fill("Plain", 0);
    Fill("Indexed", ZN_PROPERTY_INDEXED);
  }

 private:
  void Fill(const char* name, u32 flags) {
    zn::PropertySet properties;
    for (NamedValue& row : NamedValues()) properties.Put(row.name, std::move(row.initial), flags);
    properties.Put("x", Value::Binary("", 0));
    zn::TypeObject* type = nullptr;
    Require(
        database.Types().CreateTypeInstance(name, &properties, {"KELD_Object"}, 0, &type) == ZN_OK,
        name);
    zn::DBNode* node = nullptr;
    Require(database.CreateDBNode(nullptr, name, 0, &node, nullptr) == ZN_OK, "an object");
    Require(database.CreateDBNode(nullptr, name, 0, &node, nullptr) == ZN_OK, "an object");
    for (NamedValue& row : NamedValues()) {
      Require(node->SetProperty(zn::Property(row.name, std::move(row.other))) == ZN_OK, row.name);
    }
  }
};

std::vector<std::u16string> Split(std::u16string_view text) {
  std::vector<std::u16string> words(1);
  bool escaped = false;
  bool quoted = false;
  for (const char16_t c : text) {
    if (c == u'\\' && !escaped && !quoted) {
      escaped = true;
    } else if (c == u'"') {
      quoted = !quoted;
    } else if (c == u' ' && !escaped && !quoted) {
      words.emplace_back();
    } else {
      words.back() += c;
      escaped = false;
    }
  }
  return words;
}

bool IsSentence(const std::vector<std::u16string>& words) {
  return words.size() == 7 && words[0] == u"SELECT" && words[1] == u"FROM" &&
         words[3] == u"WHERE" && words[5] == u"EQ";
}

// The sentence with every word in quotes, which no word can have inside.
std::u16string Quoted(std::vector<std::u16string> words, std::u16string_view type) {
  words[zn::kQueryTypeWord] = type;
  std::u16string text;
  for (const std::u16string& word : words) {
    text += (text.empty() ? u"\"" : u" \"") + word + u"\"";
  }
  return text;
}

u32 Ask(World& world, std::u16string_view text, size_t* count) {
  std::vector<ObjectId> ids;
  const u32 status = world.database.Query(text, &ids);
  *count = ids.size();
  return status;
}

void CheckFault(std::u16string_view text, const zn::QueryFault& fault) {
  Require(fault.kind != zn::QueryFaultKind::kNone, "a fault has a kind");
  Require(fault.offset <= text.size(), "a fault lies in the text");
  Require(fault.word <= zn::kQueryWords, "a fault is of a word");
}

void CheckValues(zn::QueryText* query, std::u16string_view text) {
  for (const NamedValue& row : NamedValues()) {
    u64 number = 0;
    if (query->ReadValue(row.initial.Tag(), &number)) continue;
    CheckFault(text, query->Fault());
    Require(query->Fault().word == zn::kQueryValueWord, "a fault of a value");
  }
}

void CheckHits(World& world, std::u16string_view text, const std::vector<std::u16string>& words) {
  size_t plainHits = 0;
  size_t indexedHits = 0;
  size_t hits = 0;
  const u32 plain = Ask(world, Quoted(words, u"Plain"), &plainHits);
  const u32 indexed = Ask(world, Quoted(words, u"Indexed"), &indexedHits);
  Require(plain == indexed && plainHits == indexedHits, "with an index and without");
  const u32 status = Ask(world, text, &hits);
  const std::u16string& type = words[zn::kQueryTypeWord];
  if (type == u"Plain" || type == u"Indexed") {
    Require(status == plain && hits == plainHits, "quotes make no difference");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const zn::BusLock lock;
  static World& world = *new World;
  const std::u16string text = zn::ToWide({reinterpret_cast<const char*>(data), size});
  const std::vector<std::u16string> words = Split(text);
  zn::QueryText query(text);
  if (!query.Parse()) {
    Require(!IsSentence(words), "a sentence was refused");
    CheckFault(text, query.Fault());
    size_t hits = 0;
    Require(Ask(world, text, &hits) == ZNE_INVALID_ARGUMENTS && hits == 0, "no sentence");
    return 0;
  }
  Require(IsSentence(words), "no sentence was taken");
  Require(query.Type() == words[zn::kQueryTypeWord], "the type");
  Require(query.Property() == words[zn::kQueryPropertyWord], "the property");
  Require(query.Value() == words[zn::kQueryValueWord], "the value");
  CheckValues(&query, text);
  CheckHits(world, text, words);
  return 0;
}
