// Unmarshal of hostile bytes: whatever reads must write the same bytes again when read once more,
// equal itself and print; whatever does not read leaves an empty set.
#include <cstdlib>
#include <string>

#include "framework/common/znpropset/propertyset.h"

namespace {

std::string Marshalled(const zn::PropertySet& set) {
  zn::BinaryWriter writer;
  set.Marshal(writer);
  return {reinterpret_cast<const char*>(writer.Buffer().Data()), writer.Buffer().Size()};
}

void Require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
  zn::PropertySet set;
  zn::BinaryReader reader(data, size);
  if (ZN_FAILED(set.Unmarshal(reader))) {
    Require(set.IsEmpty());
    return 0;
  }
  const std::string bytes = Marshalled(set);
  zn::PropertySet again;
  zn::BinaryReader second(bytes.data(), bytes.size());
  Require(!ZN_FAILED(again.Unmarshal(second)));
  Require(second.Left() == 0);
  Require(Marshalled(again) == bytes);
  Require(set.Equals(again) && again.Equals(set));
  std::string text;
  set.Print(text, 0);
  zn::XmlTextStream xml;
  set.WriteXml(xml);
  return 0;
}
