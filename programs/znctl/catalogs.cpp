// The message catalogs; see the header.
#include "catalogs.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>

#include "language.h"
#include "text.h"
#include "zn/pr.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

std::string ShownText(const PropertyList& list, const char* name) {
  const Property* property = FindProperty(list, name);
  return property == nullptr ? std::string() : FormatValue(property->value);
}

u32 ShortNumber(const PropertyList& list, const char* name) {
  const Property* property = FindProperty(list, name);
  const u64* number = property == nullptr ? nullptr : std::get_if<u64>(&property->value.data);
  return number == nullptr ? 0 : static_cast<u32>(*number);
}

// What a provider names as its catalog or as its client extension; nothing where it names none.
std::optional<Id> IdOf(ZnHandle provider, u32 (*get)(ZnHandle, GUID*)) {
  Id id;
  if (provider == nullptr || ZN_FAILED(get(provider, &id.guid))) return std::nullopt;
  return id;
}

struct ProviderIds {
  std::string name;
  std::optional<Id> catalog;
  std::optional<Id> extension;
};

std::vector<ProviderIds> ReadProviderIds(const Database& bus) {
  std::vector<std::string> names = {"system"};
  const ZnHandle system = bus.ProviderByName("system");
  if (system != nullptr) {
    const std::string loaded = ShownText(PropertiesOfProvider(system), "LOADED_PROVIDERS");
    for (size_t from = 0, comma = loaded.find(','); comma != std::string::npos;
         from = comma + 1, comma = loaded.find(',', from)) {
      names.push_back(loaded.substr(from, comma - from));
    }
  }
  std::vector<ProviderIds> ids;
  for (const std::string& name : names) {
    const ZnHandle provider = bus.ProviderByName(name);
    ids.push_back({name, IdOf(provider, PrGetMessageCatalog), IdOf(provider, PrGetExtension)});
  }
  return ids;
}

// Catalogs and client extensions are objects of one type; the latter are known by their providers.
bool IsExtensionOnly(const std::vector<ProviderIds>& providers, const Id& id) {
  const auto names = [&](std::optional<Id> ProviderIds::*member) {
    return std::any_of(providers.begin(), providers.end(), [&](const ProviderIds& provider) {
      return provider.*member && *(provider.*member) == id;
    });
  };
  return names(&ProviderIds::extension) && !names(&ProviderIds::catalog);
}

Catalog ReadCatalog(const PropertyList& properties, const Id& id,
                    const std::vector<ProviderIds>& providers) {
  Catalog catalog;
  catalog.id = id;
  catalog.locale = ShortNumber(properties, "Locale");
  catalog.platform = ShortNumber(properties, "Platform");
  catalog.skin = ShownText(properties, "Skin");
  catalog.file = ShownText(properties, "ImageFile");
  for (const ProviderIds& provider : providers) {
    if (provider.catalog && *provider.catalog == id) catalog.providers.push_back(provider.name);
  }
  return catalog;
}

}  // namespace

std::vector<Catalog> ReadCatalogs(const Database& bus) {
  const std::vector<ProviderIds> providers = ReadProviderIds(bus);
  std::vector<Catalog> catalogs;
  for (const Id& object : bus.Objects("KELD_Extension")) {
    const std::optional<PropertyList> properties = bus.Properties(object);
    const std::optional<Id> id = properties ? ParseId(ShownText(*properties, "Id")) : std::nullopt;
    if (!id || IsExtensionOnly(providers, *id)) continue;
    catalogs.push_back(ReadCatalog(*properties, *id, providers));
  }
  std::sort(catalogs.begin(), catalogs.end(), [](const Catalog& a, const Catalog& b) {
    if (a.providers != b.providers) return a.providers < b.providers;
    if (!(a.id == b.id)) return a.id < b.id;
    return a.locale < b.locale;
  });
  return catalogs;
}

std::vector<Catalog> ChooseCatalogs(const std::vector<Catalog>& all, const std::string& text) {
  std::vector<Catalog> chosen;
  for (const Catalog& catalog : all) {
    const auto& names = catalog.providers;
    const bool isNamed = std::find(names.begin(), names.end(), text) != names.end();
    if (isNamed || (LooksLikeIdPrefix(text) && HasIdPrefix(catalog.id, text))) {
      chosen.push_back(catalog);
    }
  }
  return chosen;
}

bool ReadNumbers(std::string file, std::vector<u32>* out) {
  std::replace(file.begin(), file.end(), '\\', '/');
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) return false;  // a pipe would wait for ever
  std::ifstream in(file);
  if (!in) return false;
  std::set<u32> seen;
  for (std::string line; std::getline(in, line);) {
    const size_t first = line.find_first_not_of(" \t\v\f\r");
    if (first == std::string::npos || line[first] == '#') continue;
    // The texts themselves are asked of the bus; here the numbers are enough. A line without "="
    // counts as message 0.
    const size_t equals = line.find('=');
    line.resize(equals == std::string::npos ? 0 : equals);
    const u32 number = static_cast<u32>(std::strtoul(line.c_str(), nullptr, 16));
    if (seen.insert(number).second) out->push_back(number);
  }
  return true;
}

Json JsonOfCatalog(const Catalog& catalog) {
  return {{"catalog", IdText(catalog.id)}, {"providers", catalog.providers},
          {"locale", catalog.locale},      {"language", LocaleName(catalog.locale)},
          {"skin", catalog.skin},          {"platform", catalog.platform},
          {"file", catalog.file}};
}

}  // namespace zn::ctl
