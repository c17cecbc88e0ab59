// settings: the store from which the bus and its providers take their configuration. No bus runs
// for it.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>

#include "checks.h"
#include "console.h"
#include "failure.h"
#include "json_form.h"
#include "render.h"
#include "settings_store.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

struct JsonOfData {
  Json operator()(const std::string& text) const { return text; }
  Json operator()(u32 number) const { return number; }
  Json operator()(const std::vector<std::string>& list) const { return list; }
  Json operator()(const std::vector<u8>& bytes) const { return HexOf(bytes); }
};

Json JsonOfSetting(const std::string& key, const SettingValue& value) {
  return {{"key", key},
          {"name", value.name},
          {"type", SettingTypeName(value.data)},
          {"value", std::visit(JsonOfData{}, value.data)}};
}

struct Row {
  std::string key;
  SettingValue value;
};

void Flatten(const std::string& path, const SettingsKey& key, std::vector<Row>* rows) {
  for (const SettingValue& value : key.values) rows->push_back({path, value});
  for (const SettingsKey& child : key.keys) {
    Flatten(path.empty() ? child.name : path + "/" + child.name, child, rows);
  }
}

[[noreturn]] void FailMissing(const std::string& what) {
  throw Failure(ZNE_HASH_LOOKUP_FAILED, what, {"the settings file is " + SettingsFile()});
}

int RunList(Console& console, const std::string& where) {
  const std::string path = NormaliseKeyPath(where);
  if (!SettingsKeyExists(path)) {
    FailMissing(fmt::format("there is no settings key \"{}\"", Printable(path)));
  }
  std::vector<Row> rows;
  Flatten(path, ReadSettings(path), &rows);
  if (console.json) {
    Json document = JsonDocument("settings list");
    document["file"] = SettingsFile();
    Json settings = Json::array();
    for (const Row& row : rows) settings.push_back(JsonOfSetting(row.key, row.value));
    document["settings"] = std::move(settings);
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  std::vector<std::vector<std::string>> table;
  for (const Row& row : rows) {
    const std::string name = row.key.empty() ? row.value.name : row.key + "/" + row.value.name;
    table.push_back({name, FormatSetting(row.value.data)});
  }
  WriteOut(RenderTable(console.Screen(),
                       {{"SETTING", Style::kName}, {"VALUE", Style::kPlain, true}}, table,
                       "no settings in " + SettingsFile()));
  return kExitOk;
}

int RunGet(Console& console, const std::string& where) {
  const SettingPath path = ParseSettingPath(where);
  const std::optional<SettingData> data = ReadSetting(path);
  if (!data) FailMissing(fmt::format("there is no setting \"{}\"", Printable(where)));
  if (console.json) {
    Json document = JsonDocument("settings get");
    document.update(JsonOfSetting(path.key, {path.name, *data}));
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  std::string out;
  if (const auto* list = std::get_if<std::vector<std::string>>(&*data)) {
    for (const std::string& item : *list) out += item + "\n";
  } else if (const auto* text = std::get_if<std::string>(&*data)) {
    out = *text + "\n";
  } else if (const auto* bytes = std::get_if<std::vector<u8>>(&*data)) {
    out = HexOf(*bytes) + "\n";
  } else {
    out = FormatSetting(*data) + "\n";
  }
  WriteOut(console.Screen().width > 0 ? Printable(out, true) : out);
  return kExitOk;
}

struct SetArguments {
  std::string name;
  std::vector<std::string> words;
  std::string type;
};

int RunSet(Console& console, const SetArguments& arguments) {
  const SettingPath path = ParseSettingPath(arguments.name);
  const std::optional<SettingData> before = ReadSetting(path);
  const std::string type =
      arguments.type.empty() && before ? SettingTypeName(*before) : arguments.type;
  const SettingData data = ParseSetting(arguments.words, type);
  WriteSetting(path, data);
  if (console.json) {
    Json document = JsonDocument("settings set");
    document.update(JsonOfSetting(path.key, {path.name, data}));
    document["before"] = before ? std::visit(JsonOfData{}, *before) : Json();
    WriteOut(JsonPretty(document));
    return kExitOk;
  }
  WriteOut(fmt::format("{}: {} {} {}\n", Printable(arguments.name),
                       before ? Printable(FormatSetting(*before)) : "(none)",
                       console.Screen().Arrow(), Printable(FormatSetting(data))));
  return kExitOk;
}

int RunDelete(Console& console, const std::string& where) {
  DeleteSetting(ParseSettingPath(where));
  if (console.json) {
    Json document = JsonDocument("settings delete");
    document["setting"] = where;
    WriteOut(JsonPretty(document));
  } else {
    WriteOut(fmt::format("{}: deleted\n", Printable(where)));
  }
  return kExitOk;
}

std::string ReadFile(const std::string& file) {
  std::ostringstream text;
  if (file == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  const std::string fault = FaultOfFile(file);
  if (!fault.empty()) throw Failure(ZNE_INVALID_ARGUMENTS, "cannot read " + file, {fault});
  std::ifstream stream(file, std::ios::binary);
  if (!stream) throw Failure(ZNE_INVALID_ARGUMENTS, "cannot read " + file);
  text << stream.rdbuf();
  return text.str();
}

int RunImport(Console& console, const std::string& file) {
  const SettingsKey tree = ParseToml(ReadFile(file), file);
  const size_t written = WriteSettings(tree);
  if (console.json) {
    Json document = JsonDocument("settings import");
    document["file"] = SettingsFile();
    document["imported"] = written;
    WriteOut(JsonPretty(document));
  } else {
    WriteOut(fmt::format("{} setting{} written to {}\n", written, written == 1 ? "" : "s",
                         SettingsFile()));
  }
  return kExitOk;
}

struct ExportArguments {
  std::string file = "-";
  std::string key;
};

// The exported keys stand at their own place, so that an import puts them back there.
SettingsKey BelowPath(const std::string& path, SettingsKey tree) {
  std::string rest = path;
  while (!rest.empty()) {
    const size_t slash = rest.rfind('/');
    tree.name = slash == std::string::npos ? rest : rest.substr(slash + 1);
    SettingsKey parent;
    parent.keys.push_back(std::move(tree));
    tree = std::move(parent);
    rest = slash == std::string::npos ? std::string() : rest.substr(0, slash);
  }
  return tree;
}

int RunExport(Console& console, const ExportArguments& arguments) {
  const std::string path = NormaliseKeyPath(arguments.key);
  if (!SettingsKeyExists(path)) {
    FailMissing(fmt::format("there is no settings key \"{}\"", Printable(path)));
  }
  const std::string text = ToToml(BelowPath(path, ReadSettings(path)));
  if (arguments.file == "-") {
    if (console.json) throw UsageError("an export is TOML; use settings list for JSON");
    WriteOut(text);
    return kExitOk;
  }
  std::ofstream stream(arguments.file, std::ios::binary | std::ios::trunc);
  stream << text << std::flush;
  if (!stream) throw Failure(ZNE_UNEXPECTED, "cannot write " + arguments.file);
  return kExitOk;
}

void AddReading(CLI::App& settings, Command* command) {
  auto listed = std::make_shared<std::string>();
  CLI::App* list = settings.add_subcommand("list", "List all settings, or those below a key");
  list->add_option("key", *listed, "Such as Providers/hostinv");
  list->callback([=] { *command = [=](Console& c) { return RunList(c, *listed); }; });

  auto got = std::make_shared<std::string>();
  CLI::App* get = settings.add_subcommand("get", "Print one setting");
  get->add_option("setting", *got, "Such as Providers/hostinv/ImageFile")->required();
  get->callback([=] { *command = [=](Console& c) { return RunGet(c, *got); }; });

  auto exported = std::make_shared<ExportArguments>();
  CLI::App* out = settings.add_subcommand("export", "Write the settings as TOML");
  out->add_option("file", exported->file, "Without it, the standard output");
  out->add_option("-k,--key", exported->key, "Only what is below this key");
  out->callback([=] { *command = [=](Console& c) { return RunExport(c, *exported); }; });
}

void AddWriting(CLI::App& settings, Command* command) {
  auto arguments = std::make_shared<SetArguments>();
  CLI::App* set = settings.add_subcommand("set", "Change or add one setting");
  set->add_option("setting", arguments->name, "Such as Providers/hostinv/Period")->required();
  set->add_option("value", arguments->words, "The value; several make a list")->required();
  set->add_option("-t,--type", arguments->type, "string, dword, list or binary");
  set->footer(
      "Without --type the value keeps the type that it has. A new one is a dword if\n"
      "it is a whole number, a list if there are several, else a string.\n\n"
      "Examples:\n"
      "  znctl settings set Providers/hostinv/Period 5000\n"
      "  znctl settings set 'Providers\\hostinv\\Note' 2026 --type string\n");
  set->callback([=] { *command = [=](Console& c) { return RunSet(c, *arguments); }; });

  auto deleted = std::make_shared<std::string>();
  CLI::App* erase = settings.add_subcommand("delete", "Delete one setting");
  erase->add_option("setting", *deleted, "Such as Providers/hostinv/Period")->required();
  erase->callback([=] { *command = [=](Console& c) { return RunDelete(c, *deleted); }; });

  auto imported = std::make_shared<std::string>();
  CLI::App* in = settings.add_subcommand("import", "Take over the settings of a TOML file");
  in->add_option("file", *imported, "The file; - is the standard input")->required();
  in->footer("Settings that the file does not name stay as they are.\n");
  in->callback([=] { *command = [=](Console& c) { return RunImport(c, *imported); }; });
}

}  // namespace

void AddSettingsVerbs(CLI::App& app, Command* command) {
  CLI::App* settings = app.add_subcommand("settings", "Read and change the settings");
  settings->require_subcommand(1);
  settings->footer(
      "No bus is started for these. The file is the one of --settings, of ZN_SETTINGS,\n"
      "or /etc/znmira/settings.toml. Names are separated by / or \\.\n\n"
      "Examples:\n"
      "  znctl settings list\n"
      "  znctl settings get Providers/hostinv/ImageFile\n"
      "  znctl settings export backup.toml\n"
      "  znctl --settings other.toml settings import backup.toml\n");
  AddReading(*settings, command);
  AddWriting(*settings, command);
}

}  // namespace zn::ctl
