// The message catalogs that the bus knows: one per catalog, locale and skin, each a file.
#pragma once

#include <string>
#include <vector>

#include "bus.h"
#include "json_form.h"

namespace zn::ctl {

struct Catalog {
  Id id;
  std::vector<std::string> providers;  // that use it
  u32 locale = 0;
  u32 platform = 0;
  std::string skin;
  std::string file;
};

// Sorted by the names of the providers, then by locale.
std::vector<Catalog> ReadCatalogs(const Database& bus);

// Those that `text` names: the name of a provider, an id or the beginning of one.
std::vector<Catalog> ChooseCatalogs(const std::vector<Catalog>& all, const std::string& text);

// The numbers of the messages in a catalog's file, each once, in the order of the file. False when
// it cannot be read here. The path is as in the settings: "\" separates as "/" does.
bool ReadNumbers(std::string file, std::vector<u32>* out);

Json JsonOfCatalog(const Catalog& catalog);

}  // namespace zn::ctl
