// An inventory as text; see the header.
#include "dump.h"

#include <stdexcept>

#include "text.h"

namespace hostinv {
namespace {

struct Printer {
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::uint32_t value) const { return std::to_string(value); }
  std::string operator()(std::uint64_t value) const { return std::to_string(value); }
  std::string operator()(Time value) const { return "@" + std::to_string(value.seconds); }
  std::string operator()(const std::string& value) const { return '"' + value + '"'; }
  std::string operator()(const std::u16string& value) const {
    return "u\"" + FromUtf16(value) + '"';
  }
  std::string operator()(const std::vector<std::string>& value) const {
    std::string text;
    for (const std::string& element : value) text += (text.empty() ? "" : " ") + element;
    return "[" + text + "]";
  }
};

}  // namespace

std::string Dump(const Inventory& inventory) {
  std::string text;
  for (const auto& [key, item] : inventory) {
    text += key + " " + item.type + "\n";
    for (const std::string& parent : item.parents) text += "  below " + parent + "\n";
    for (const auto& [name, value] : item.properties) {
      text += "  " + name + " = " + std::visit(Printer(), value) + "\n";
    }
  }
  return text;
}

std::string ExpectedObjects() {
  const auto text = ReadFile(HOSTINV_TESTS "/expected_objects.txt");
  if (!text) throw std::runtime_error("expected_objects.txt is missing");
  return *text;
}

}  // namespace hostinv
