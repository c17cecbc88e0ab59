// messages: the catalogs, and the texts in them.
#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "catalogs.h"
#include "console.h"
#include "failure.h"
#include "language.h"
#include "render.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

struct MessageArguments {
  std::string catalog;
  std::string number;
};

int ListCatalogs(Console& console) {
  const std::vector<Catalog> catalogs = ReadCatalogs(console.Bus());
  if (console.json) {
    Json document = JsonDocument("messages");
    Json list = Json::array();
    for (const Catalog& catalog : catalogs) list.push_back(JsonOfCatalog(catalog));
    document["catalogs"] = std::move(list);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  std::vector<std::vector<std::string>> rows;
  for (const Catalog& catalog : catalogs) {
    rows.push_back({fmt::format("{}", fmt::join(catalog.providers, ", ")), ShortId(catalog.id, 8),
                    LocaleName(catalog.locale), catalog.skin, catalog.file});
  }
  WriteOut(RenderTable(console.Screen(),
                       {{"PROVIDER", Style::kName, true},
                        {"CATALOG", Style::kDim},
                        {"LOCALE"},
                        {"SKIN"},
                        {"FILE", Style::kPlain, true}},
                       rows, "no message catalogs are known"));
  return kExitOk;
}

// The one catalog that the user named, in whichever languages there are.
std::vector<Catalog> Choose(Console& console, const std::string& text) {
  std::vector<Catalog> chosen = ChooseCatalogs(ReadCatalogs(console.Bus()), text);
  if (chosen.empty()) {
    throw Failure(ZNE_CATALOG_NOT_PRESENT,
                  fmt::format("no message catalog is named \"{}\"", Printable(text)),
                  {"znctl messages shows those that there are"});
  }
  for (const Catalog& catalog : chosen) {
    if (catalog.id == chosen.front().id) continue;
    throw Failure(
        ZNE_INVALID_ARGUMENTS,
        fmt::format("\"{}\" names several catalogs; give more of the id", Printable(text)));
  }
  return chosen;
}

// The file of the language asked for, else of its home variant, else null.
const Catalog* InLanguage(const std::vector<Catalog>& catalogs, u32 locale) {
  for (const u32 wanted : {locale, HomeLocale(locale)}) {
    for (const Catalog& catalog : catalogs) {
      if (catalog.locale == wanted) return &catalog;
    }
  }
  return nullptr;
}

std::string LanguagesOf(const std::vector<Catalog>& catalogs) {
  std::string out;
  for (const Catalog& catalog : catalogs) {
    out += (out.empty() ? "" : ", ") + LocaleName(catalog.locale);
  }
  return out;
}

std::string NumberText(u32 number) {
  return fmt::format("0x{:08x}", number);
}

u32 ParseNumber(const std::string& text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  const char* begin = text.data() + (isHex ? 2 : 0);
  u32 number = 0;
  const auto [end, error] =
      std::from_chars(begin, text.data() + text.size(), number, isHex ? 16 : 10);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw UsageError(
        fmt::format("\"{}\" is no message number; give it like 0x41220001 or 10", Printable(text)));
  }
  return number;
}

struct MessageRow {
  u32 number;
  std::string text;
};

Json JsonOfRows(const Catalog& catalog, const std::vector<MessageRow>& rows) {
  Json document = JsonDocument("messages");
  document.update(JsonOfCatalog(catalog));
  Json list = Json::array();
  for (const MessageRow& row : rows) {
    list.push_back({{"message", row.number}, {"text", row.text}});
  }
  document["messages"] = std::move(list);
  return document;
}

// The file lies where the bus is: that of a server is fetched first.
bool ReadNumbersThere(Console& console, const Catalog& catalog, std::vector<u32>* numbers) {
  if (!console.IsRemote()) return ReadNumbers(catalog.file, numbers);
  ClientHandle* const client = console.Client("messages");
  std::string path = std::filesystem::temp_directory_path() / "znctl-XXXXXX";
  const int file = mkstemp(path.data());
  if (file < 0) return false;
  close(file);
  const u32 status = ClDownloadFile(client, ToUtf16(catalog.file).c_str(), ToUtf16(path).c_str());
  const bool isRead = !ZN_FAILED(status) && ReadNumbers(path, numbers);
  std::remove(path.c_str());
  Check(status, fmt::format("fetch \"{}\"", Printable(catalog.file)));
  return isRead;
}

int ShowCatalog(Console& console, const Catalog& catalog, const Localizer& messages) {
  std::vector<u32> numbers;
  if (!ReadNumbersThere(console, catalog, &numbers)) {
    throw Failure(ZNE_UNEXPECTED, fmt::format("cannot read {}", Printable(catalog.file)));
  }
  std::vector<MessageRow> rows;
  for (const u32 number : numbers) {
    const std::optional<std::string> text = messages.Find({catalog.id, number, {}, {}});
    if (text) rows.push_back({number, *text});
  }
  if (console.json) {
    WriteOut(JsonPretty(JsonOfRows(catalog, rows)));
    return kExitOk;
  }
  std::string out;
  for (const MessageRow& row : rows) {
    out += RenderField(console.Screen(), NumberText(row.number), Printable(row.text));
  }
  WriteOut(out.empty() ? "no messages\n" : out);
  return kExitOk;
}

int ShowMessage(Console& console, const Catalog& catalog, const Localizer& messages, u32 number) {
  u32 status = ZN_OK;
  const std::optional<std::string> text = messages.Find({catalog.id, number, {}, {}}, &status);
  if (!text) {
    throw Failure(status, fmt::format("the catalog has no message {} in {}", NumberText(number),
                                      LocaleName(messages.Locale())));
  }
  if (console.json) {
    WriteOut(JsonPretty(JsonOfRows(catalog, {{number, *text}})));
  } else {
    WriteOut(Printable(*text) + "\n");
  }
  return kExitOk;
}

int RunMessages(Console& console, const MessageArguments& arguments) {
  if (arguments.catalog.empty()) {
    if (!console.locale.empty()) static_cast<void>(console.Messages());  // a wrong name is told
    return ListCatalogs(console);
  }
  const u32 number = arguments.number.empty() ? 0 : ParseNumber(arguments.number);
  const Localizer messages = console.Messages();
  const std::vector<Catalog> catalogs = Choose(console, arguments.catalog);
  const Catalog* catalog = InLanguage(catalogs, messages.Locale());
  if (catalog == nullptr) {
    throw Failure(ZNE_CATALOG_NOT_PRESENT,
                  fmt::format("the catalog is not there in {}", LocaleName(messages.Locale())),
                  {"it is there in: " + LanguagesOf(catalogs)});
  }
  return arguments.number.empty() ? ShowCatalog(console, *catalog, messages)
                                  : ShowMessage(console, *catalog, messages, number);
}

constexpr char kMessageHelp[] =
    "Without arguments the catalogs and their languages. A catalog is named by a\n"
    "provider that uses it (\"system\" for the bus itself), by its id or by the\n"
    "beginning of that. A number is decimal, or hexadecimal with 0x in front. The\n"
    "language is that of --locale, else that of the environment, else English.\n\n"
    "Examples:\n"
    "  znctl --local messages\n"
    "  znctl --local messages hostinv --locale de\n"
    "  znctl --local messages system 0x41220001\n";

}  // namespace

void AddMessageVerbs(CLI::App& app, Command* command) {
  auto arguments = std::make_shared<MessageArguments>();
  CLI::App* verb = app.add_subcommand("messages", "Show message catalogs and their texts");
  verb->add_option("catalog", arguments->catalog, "A provider's name or a catalog's id");
  verb->add_option("number", arguments->number, "This message alone");
  verb->footer(kMessageHelp);
  verb->callback([=] { *command = [=](Console& c) { return RunMessages(c, *arguments); }; });
}

}  // namespace zn::ctl
