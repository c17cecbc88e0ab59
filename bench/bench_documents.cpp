// Formalization documents: ten thousand types from the text to the database, and as the floor the
// XML library alone over the same text, without validation.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/bench_bus.h"
#include "zn/formalization_parser.h"

namespace zn::bench {
namespace {

constexpr int kTypes = 10000;

// Every tenth type is one that the next nine derive from; each declares five properties.
std::string MakeDocument() {
  std::string text =
      "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\">\n<MIRA_FORMALIZATION>\n";
  for (int i = 0; i < kTypes; ++i) {
    const std::string number = std::to_string(i);
    text += "<OBJECT_TYPE Name=\"Bench_T" + number + "\">";
    if (i % 10 != 0) {
      text += "<INHERITS_FROM>Bench_T" + std::to_string(i - i % 10) + "</INHERITS_FROM>";
    }
    text += "\n<PROPSET>\n";
    for (const char* property :
         {"<PROPERTY Name=\"Count%\" Type=\"mira_uint32\">7</PROPERTY>\n",
          "<PROPERTY Name=\"Total%\" Type=\"mira_int64\">-7</PROPERTY>\n",
          "<PROPERTY Name=\"Label%\" Type=\"mira_string\" Flags=\"Indexed\">text</PROPERTY>\n",
          "<PROPERTY Name=\"Names%\" Type=\"mira_wstring\" Array=\"Y\">a, b</PROPERTY>\n",
          "<PROPERTY Name=\"On%\" Type=\"mira_bool\">true</PROPERTY>\n"}) {
      std::string line = property;
      line.replace(line.find('%'), 1, i % 10 == 0 ? "Base" : number);
      text += line;
    }
    text += "</PROPSET></OBJECT_TYPE>\n";
  }
  return text + "</MIRA_FORMALIZATION>\n";
}

// Read, check, order and create, as the start of the bus and providers do.
void CreateTypes(xercesc::DOMDocument* document, ZnHandle database) {
  OTInfoVector infos;
  ZN_MUST(OTIVCreate_Doc(document, &infos));
  ZN_MUST(OTInfo_Validate(&infos));
  OTIGraph* graph = nullptr;
  ZN_MUST(CreateOTIGraph(&graph));
  ZN_MUST(OTIGraph_AddNodes(graph, &infos));
  OTInfoVector order;
  ZN_MUST(OTIGraph_RemoveChildNodes(graph, &order, nullptr));
  for (auto info = order.rbegin(); info != order.rend(); ++info) {
    ObjectId id;
    ZN_MUST(ObCreateTypeObject(database, (*info)->name,
                               const_cast<const char**>((*info)->supertypes), (*info)->properties,
                               &id));
  }
  for (OTInfo* info : infos) ZN_MUST(DeleteOTInfo(info));
  ZN_MUST(DeleteOTIGraph(graph));
}

void LoadTypes(benchmark::State& state) {
  static_cast<void>(TheBus());
  const std::string text = MakeDocument();
  for (auto _ : state) {
    ZnHandle database = nullptr;
    ZN_MUST(DbCreatePrivateDatabase(&database));
    {
      FormalizationParser parser;
      ZN_MUST(parser.ParseMemory(text.data(), text.size()));
      CreateTypes(parser.Document(), database);
    }
    state.PauseTiming();
    ZN_MUST(DbDeletePrivateDatabase(database));
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kTypes);
}
BENCHMARK(LoadTypes)->Unit(benchmark::kMillisecond);

void FloorParseDocument(benchmark::State& state) {
  FormalizationParser starter;  // starts the platform
  ZN_MUST(starter.ParseMemory("<!DOCTYPE a [<!ELEMENT a ANY>]><a/>", 35));
  const std::string text = MakeDocument();
  for (auto _ : state) {
    xercesc::XercesDOMParser parser;
    parser.setLoadExternalDTD(false);
    const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(text.data()),
                                            text.size(), "Memory");
    parser.parse(source);
    benchmark::DoNotOptimize(parser.getDocument());
  }
  state.SetItemsProcessed(state.iterations() * kTypes);
}
BENCHMARK(FloorParseDocument)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace zn::bench
