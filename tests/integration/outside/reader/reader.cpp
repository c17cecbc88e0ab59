// Reads documents of object types with the installed headers and library, and prints the names of
// the types, supertypes first.
#include <zn/formalization_parser.h>
#include <zn/znmira.h>

#include <cstdio>

namespace {

int Read(const char* path) {
  zn::FormalizationParser parser([](const zn::FormalizationFault& fault) {
    std::fprintf(stderr, "%s:%u: %s\n", fault.file.c_str(), fault.line, fault.text.c_str());
  });
  OTInfoVector infos;
  OTInfoVector order;
  OTIGraph* graph = nullptr;
  u32 status = parser.ParseFile(path);
  if (!ZN_FAILED(status)) status = OTIVCreate_Doc(parser.Document(), &infos);
  if (!ZN_FAILED(status)) status = CreateOTIGraph(&graph);
  if (!ZN_FAILED(status)) status = OTIGraph_AddNodes(graph, &infos);
  if (!ZN_FAILED(status)) status = OTIGraph_RemoveChildNodes(graph, &order, nullptr);
  for (auto info = order.rbegin(); info != order.rend(); ++info) std::puts(OTInfo_GetType(*info));
  DeleteOTIGraph(graph);
  for (OTInfo* info : infos) DeleteOTInfo(info);
  return ZN_FAILED(status) ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  int result = argc < 2;
  for (int i = 1; i < argc; ++i) result |= Read(argv[i]);
  return result;
}
