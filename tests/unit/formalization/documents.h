// What the tests of documents share: a database with the base types, documents put together from
// their parts, and what became of them.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/common/zncore/database.h"
#include "framework/common/zntypeobject/typemanager.h"
#include "framework/common/zntypeobject/typeobject.h"
#include "support/common/fastlock.h"
#include "tests/unit/framework/trace_capture.h"
#include "zn/formalization_parser.h"

namespace zn::test {

inline constexpr char kDoctype[] =
    "<!DOCTYPE MIRA_FORMALIZATION SYSTEM \"mira_formalization.dtd\">\n";

// An id, and how documents write it.
inline constexpr char kGuidText[] = "{10203040-5060-7080-0102-030405060708}";
inline constexpr GUID kGuid = {0x10203040, 0x5060, 0x7080, {1, 2, 3, 4, 5, 6, 7, 8}};

// A document with the shipped type around what is to be in the root.
[[nodiscard]] inline std::string Document(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + std::string(kDoctype) +
         "<MIRA_FORMALIZATION>\n" + content + "</MIRA_FORMALIZATION>\n";
}

// One object type on two lines, its properties as they stand.
[[nodiscard]] inline std::string ObjectType(const std::string& name,
                                            const std::string& supertypes = {},
                                            const std::string& properties = {},
                                            const std::string& flags = {}) {
  std::string text = "<OBJECT_TYPE Name=\"" + name + "\"";
  if (!flags.empty()) text += " Flags=\"" + flags + "\"";
  text += ">";
  if (!supertypes.empty()) text += "<INHERITS_FROM>" + supertypes + "</INHERITS_FROM>";
  return text + "\n<PROPSET>" + properties + "</PROPSET></OBJECT_TYPE>\n";
}

[[nodiscard]] inline std::string PropertyText(const std::string& name, const std::string& type,
                                              const std::string& text,
                                              const std::string& attributes = {}) {
  return "<PROPERTY Name=\"" + name + "\" Type=\"" + type + "\" " + attributes + ">" + text +
         "</PROPERTY>";
}

// A file that goes with the object.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view content, const std::string& name = "document.xml")
      : path_("/tmp/zn_" + std::to_string(getpid()) + "_" + name) {
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~TemporaryFile() { static_cast<void>(unlink(path_.c_str())); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// Parses a document and keeps its faults.
struct Parsed {
  explicit Parsed(const std::string& text) : parser(Report()) {
    status = parser.ParseMemory(text.data(), text.size());
  }
  std::vector<FormalizationFault> faults;
  FormalizationParser parser;
  u32 status = ZN_OK;

  [[nodiscard]] xercesc::DOMDocument* Get() const { return parser.Document(); }
  [[nodiscard]] xercesc::DOMElement* Root() const { return Get()->getDocumentElement(); }

 private:
  FormalizationParser::Report Report() {
    return [this](const FormalizationFault& fault) { faults.push_back(fault); };
  }
};

// A database with the base types, and the lock as the start of the bus holds it.
class DocumentTest : public testing::Test {
 protected:
  DocumentTest() {
    const BusLock lock;
    database_ = std::make_unique<Database>(0, DatabaseCallbacks{});
    EXPECT_EQ(RegisterBaseObjectTypes(*database_), ZN_OK);
  }
  ~DocumentTest() override {
    const BusLock lock;
    database_.reset();
  }
  [[nodiscard]] ZnHandle Handle() const { return database_->Handle(); }
  [[nodiscard]] TypeObject* Type(std::string_view name) const {
    const BusLock lock;
    return database_->Types().FindType(name);
  }
  // Names of the types that are not of the base schema, sorted.
  [[nodiscard]] std::vector<std::string> Types() const {
    const BusLock lock;
    std::vector<std::string> names;
    for (const auto& [name, type] : database_->Types().Types()) {
      if (!IsBaseSchemaType(name)) names.push_back(name);
    }
    return names;
  }
  [[nodiscard]] std::vector<std::string> SupertypesOf(std::string_view name) const {
    std::vector<std::string> names;
    for (const TypeObject* super : Type(name)->Supertypes()) {
      names.emplace_back(super->Name().Text());
    }
    return names;
  }

  std::unique_ptr<Database> database_;
};

}  // namespace zn::test
