// validate: a formalization document, checked and not loaded. No bus runs for it.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "checks.h"
#include "console.h"
#include "document_check.h"
#include "failure.h"
#include "json_form.h"
#include "text.h"
#include "zn/status.h"

namespace zn::ctl {
namespace {

std::string Counted(std::size_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

Json JsonOfReport(const std::string& path, const DocumentReport& report) {
  Json document = JsonDocument("validate");
  document["file"] = path;
  document["valid"] = report.Errors() == 0;
  document["objectTypes"] = report.objectTypes;
  document["alertTypes"] = report.alertTypes;
  Json faults = Json::array();
  for (const DocumentFault& fault : report.faults) {
    faults.push_back({{"severity", fault.isWarning ? "warning" : "error"},
                      {"file", fault.file},
                      {"line", fault.line},
                      {"rule", fault.rule},
                      {"text", fault.text}});
  }
  document["faults"] = std::move(faults);
  return document;
}

// One line per fault, as compilers write them.
std::string TextOfReport(const Terminal& screen, const std::string& path,
                         const DocumentReport& report) {
  std::string out;
  for (const DocumentFault& fault : report.faults) {
    out += fmt::format("{}:{}: {} {} [{}]\n", Printable(fault.file), fault.line,
                       Styled(screen, fault.isWarning ? Style::kBold : Style::kBad,
                              fault.isWarning ? "warning:" : "error:"),
                       Printable(fault.text), fault.rule);
  }
  if (report.Errors() == 0) {
    out +=
        fmt::format("{}: {}, {}: {}\n", Printable(path), Counted(report.objectTypes, "object type"),
                    Counted(report.alertTypes, "alert"), Styled(screen, Style::kGood, "valid"));
  }
  return out;
}

int RunValidate(Console& console, const std::string& path) {
  const DocumentReport report = CheckDocument(path);
  WriteOut(console.json ? JsonPretty(JsonOfReport(path, report))
                        : TextOfReport(console.Screen(), path, report));
  if (report.Errors() == 0) return kExitOk;
  throw Failure(ZNE_XML_SOURCE_INVALID,
                fmt::format("{} has {}", Printable(path), Counted(report.Errors(), "fault")));
}

}  // namespace

void AddDocumentVerbs(CLI::App& app, Command* command) {
  auto path = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand("validate", "Check a document of object types or alerts");
  verb->add_option("document", *path, "The file")->required()->check(ARegularFile());
  verb->footer(
      "Each fault is told with its file, line and rule. Warnings tell of what is read\n"
      "otherwise than it looks; they do not fail the document.\n\n"
      "Example:\n  znctl validate my_types.xml\n");
  verb->callback([=] { *command = [=](Console& c) { return RunValidate(c, *path); }; });
}

}  // namespace zn::ctl
