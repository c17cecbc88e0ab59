/* The parser of formalization documents, header only: the library, the console and the providers
 * all read with this one. It validates against the document type that the library ships, whose text
 * is in here, and takes the document for hostile:
 *
 *  - the document is a regular file: a pipe or a device is one that cannot be opened;
 *  - nothing but the document itself is ever opened: no entity, no schema, no address. The document
 *    type comes from memory; any other external entity is a fault;
 *  - entities may be used in small: what one can expand to, how many are expanded, and how much may
 *    stand before the root element are bounded, and parameter entities are refused;
 *  - elements nest kMaxDepth deep at most, and parsing takes kMaxMemory bytes at most;
 *  - it ends at the first fault that it cannot sensibly go on behind, and after kMaxFaults.
 *
 * C++17 with Xerces-C 3.2. One parser serves one thread and one document. The first parse in a
 * process starts the XML platform, which is not ended again; two threads of one process must not do
 * their first parse at the same time.
 */
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/framework/XMLErrorCodes.hpp>
#include <xercesc/internal/XMLScanner.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>
#include <xercesc/sax/ErrorHandler.hpp>
#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLEntityResolver.hpp>
#include <xercesc/util/XMLResourceIdentifier.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/validators/DTD/DTDEntityDecl.hpp>

#include "zn/formalization.h"
#include "zn/formalization_dtd.h"
#include "zn/status.h"

namespace zn {

/* What is wrong with a document, as it is found. */
struct FormalizationFault {
  enum class Kind {
    kWarning,
    kError, /* against the document type */
    kFatal, /* not well formed, or beyond a bound */
    kParse, /* the parser gave up; line is 0 */
    kStart  /* the XML platform could not be started; line is 0 */
  };
  Kind kind;
  std::string file;
  u32 line;
  std::string text;
};

namespace formalization {

constexpr unsigned kMaxDepth = 512;
constexpr std::size_t kMaxFaults = 100;
constexpr std::size_t kMaxMemory = std::size_t{512} << 20;
constexpr std::size_t kMaxProlog = std::size_t{256} << 10; /* bytes before the root element */
constexpr std::size_t kMaxExpansions = 10000;
constexpr std::size_t kMaxEntityCost = 1024; /* characters and references, to the last */
constexpr std::size_t kMaxEntities = 64;

/* UTF-8 of a text of the XML library; what is not well formed becomes U+FFFD. Null is empty. */
inline std::string ToUtf8(const XMLCh* text) {
  std::string out;
  if (text == nullptr) return out;
  for (; *text != 0; ++text) {
    char32_t c = *text;
    if (c >= 0xD800 && c < 0xDC00 && text[1] >= 0xDC00 && text[1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (char32_t{*++text} - 0xDC00);
    } else if (c >= 0xD800 && c < 0xE000) {
      c = 0xFFFD;
    }
    const auto put = [&out](char32_t byte) { out += static_cast<char>(byte); };
    if (c < 0x80) {
      put(c);
    } else if (c < 0x800) {
      put(0xC0 | (c >> 6));
    } else if (c < 0x10000) {
      put(0xE0 | (c >> 12));
    } else {
      put(0xF0 | (c >> 18));
      put(0x80 | ((c >> 12) & 0x3F));
    }
    if (c >= 0x800) put(0x80 | ((c >> 6) & 0x3F));
    if (c >= 0x80) put(0x80 | (c & 0x3F));
  }
  return out;
}

/* Each byte as one unit: a file's name keeps its bytes on the way through the XML library. */
inline std::basic_string<XMLCh> Widened(const std::string& bytes) {
  std::basic_string<XMLCh> out;
  for (const char byte : bytes) out += static_cast<XMLCh>(static_cast<unsigned char>(byte));
  return out;
}

/* Ends a parse from within. */
struct Stop {};

/* The memory of one parse: bounded, and given back as a whole whatever the parser forgets. */
class Memory final : public xercesc::MemoryManager {
 public:
  Memory() = default;
  ~Memory() override {
    while (first_ != nullptr) std::free(std::exchange(first_, first_->next));
  }
  xercesc::MemoryManager* getExceptionMemoryManager() override {
    return xercesc::XMLPlatformUtils::fgMemoryManager;  // exceptions may outlive the parse
  }
  void* allocate(XMLSize_t size) override {
    if (size > kMaxMemory - used_) throw xercesc::OutOfMemoryException();
    auto* block = static_cast<Block*>(std::malloc(sizeof(Block) + size));
    if (block == nullptr) throw xercesc::OutOfMemoryException();
    used_ += size;
    block->size = size;
    block->previous = nullptr;
    block->next = first_;
    if (first_ != nullptr) first_->previous = block;
    first_ = block;
    return block + 1;
  }
  void deallocate(void* p) override {
    if (p == nullptr) return;
    Block* block = static_cast<Block*>(p) - 1;
    used_ -= block->size;
    if (block->next != nullptr) block->next->previous = block->previous;
    (block->previous != nullptr ? block->previous->next : first_) = block->next;
    std::free(block);
  }

 private:
  struct alignas(std::max_align_t) Block {
    Block* next;
    Block* previous;
    std::size_t size;
  };
  Block* first_ = nullptr;
  std::size_t used_ = 0;
};

/* The bytes of a document: a file that this owns, or memory of the caller's. */
class Source {
 public:
  /* Nothing but a regular file: a pipe or a device could be waited for for ever. */
  explicit Source(const char* path) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) file_ = std::fopen(path, "rb");
  }
  Source(const char* text, std::size_t length) : text_(text), left_(length) {}
  ~Source() {
    if (file_ != nullptr) std::fclose(file_);
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  bool IsOpen() const { return file_ != nullptr || text_ != nullptr; }
  std::size_t Position() const { return position_; }
  std::size_t Read(void* to, std::size_t most) {
    std::size_t count = 0;
    if (file_ != nullptr) {
      count = std::fread(to, 1, most, file_);
    } else {
      count = std::min(most, left_);
      if (count != 0) std::memcpy(to, text_, count);
      text_ += count;
      left_ -= count;
    }
    Note(static_cast<const unsigned char*>(to), count);
    position_ += count;
    return count;
  }
  /* Whether the text is one of single bytes, and has one that UTF-8 never has. */
  bool IsNoUtf8() const { return !isWide_ && hasForeignByte_; }

 private:
  void Note(const unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      hasForeignByte_ = hasForeignByte_ || bytes[i] >= 0xF5;
      // A mark in front, or a character of ASCII in more than one byte.
      if (position_ + i < 4) isWide_ = isWide_ || bytes[i] == 0 || bytes[i] >= 0xFE;
    }
  }

  std::FILE* file_ = nullptr;
  const char* text_ = nullptr;
  std::size_t left_ = 0;
  std::size_t position_ = 0;
  bool isWide_ = false;
  bool hasForeignByte_ = false;
};

class Input final : public xercesc::InputSource {
 public:
  using BeforeRead = std::function<void()>;
  Input(Source* source, const XMLCh* name, BeforeRead beforeRead)
      : xercesc::InputSource(name), source_(source), beforeRead_(std::move(beforeRead)) {}
  xercesc::BinInputStream* makeStream() const override {
    return source_->IsOpen() ? new Stream(source_, beforeRead_) : nullptr;
  }

 private:
  class Stream final : public xercesc::BinInputStream {
   public:
    Stream(Source* source, BeforeRead beforeRead)
        : source_(source), beforeRead_(std::move(beforeRead)) {}
    XMLFilePos curPos() const override { return source_->Position(); }
    XMLSize_t readBytes(XMLByte* const to, const XMLSize_t most) override {
      beforeRead_();
      return source_->Read(to, most);
    }
    const XMLCh* getContentType() const override { return nullptr; }

   private:
    Source* source_;
    BeforeRead beforeRead_;
  };
  Source* source_;
  BeforeRead beforeRead_;
};

/* What the entities of a document can grow to. Each is known when it is declared; one that refers
 * to a later one is looked at again when that one comes. */
class Entities {
 public:
  /* False when an entity became too costly, or there are too many. */
  bool Declare(const std::basic_string<XMLCh>& name, const XMLCh* value) {
    entities_.emplace(name, Read(value));  // the first declaration of a name counts
    if (entities_.size() > kMaxEntities) return false;
    for (const auto& entity : entities_) {
      if (Cost(entity.second, 0) > kMaxEntityCost) return false;
    }
    return true;
  }

 private:
  struct Entity {
    std::size_t length;
    std::vector<std::basic_string<XMLCh>> references;
  };
  static Entity Read(const XMLCh* value) {
    Entity entity{0, {}};
    for (const XMLCh* at = value; at != nullptr && *at != 0; ++at) {
      // Too costly already. Each of many ampersands would look for its end again.
      if (++entity.length > kMaxEntityCost) break;
      if (*at != u'&' || at[1] == u'#') continue;
      const XMLCh* end = at + 1;
      while (*end != 0 && *end != u';') ++end;
      if (*end == u';') entity.references.emplace_back(at + 1, end);
    }
    return entity;
  }
  /* Stops counting beyond the bound. A circle grows until then. */
  std::size_t Cost(const Entity& entity, std::size_t depth) const {
    std::size_t cost = entity.length + 1;
    if (depth > kMaxEntities) return kMaxEntityCost + 1;
    for (const auto& name : entity.references) {
      if (cost > kMaxEntityCost) break;
      const auto found = entities_.find(name);
      if (found != entities_.end()) cost += Cost(found->second, depth + 1);
    }
    return cost;
  }
  std::map<std::basic_string<XMLCh>, Entity> entities_;
};

class Parser final : public xercesc::XercesDOMParser,
                     private xercesc::ErrorHandler,
                     private xercesc::XMLEntityResolver {
 public:
  using Report = std::function<void(const FormalizationFault&)>;
  Parser(xercesc::MemoryManager* memory, std::string name, Report report)
      : XercesDOMParser(nullptr, memory),
        name_(std::move(name)),
        wideName_(Widened(name_)),
        report_(std::move(report)) {
    setErrorHandler(this);
    setXMLEntityResolver(this);
    setSecurityManager(&security_);
    security_.setEntityExpansionLimit(kMaxExpansions);
    setValidationScheme(Val_Always);
    setExitOnFirstFatalError(false);
    setDisableDefaultEntityResolution(true);
    setLoadExternalDTD(true);
    setDoNamespaces(false);
    setDoSchema(false);
    setCreateEntityReferenceNodes(false);
    setIncludeIgnorableWhitespace(false);
  }

  void ParseSource(Source* source) {
    const Input input(source, wideName_.c_str(), [this, source] { CheckProlog(*source); });
    try {
      parse(input);
      // The parser takes some of them for characters.
      if (isUtf8_ && source->IsNoUtf8()) {
        Tell(FormalizationFault::Kind::kFatal, lastLine_, "the document is not UTF-8");
      }
    } catch (const Stop&) {  // told already
    } catch (const xercesc::OutOfMemoryException&) {
      Tell(FormalizationFault::Kind::kFatal, lastLine_, "the document needs too much memory");
    } catch (const xercesc::XMLException& e) {
      Tell(FormalizationFault::Kind::kParse, 0, ToUtf8(e.getMessage()));
    } catch (const xercesc::SAXException& e) {
      Tell(FormalizationFault::Kind::kParse, 0, ToUtf8(e.getMessage()));
    } catch (const xercesc::DOMException& e) {
      Tell(FormalizationFault::Kind::kParse, 0, ToUtf8(e.getMessage()));
    }
  }
  std::size_t Faults() const { return faults_; }
  u32 LineOf(const xercesc::DOMNode& element) const {
    const auto found = lines_.find(&element);
    return found == lines_.end() ? 0 : found->second;
  }

  void startElement(const xercesc::XMLElementDecl& declaration, const unsigned int uri,
                    const XMLCh* const prefix,
                    const xercesc::RefVectorOf<xercesc::XMLAttr>& attributes, const XMLSize_t count,
                    const bool isEmpty, const bool isRoot) override {
    hasRoot_ = true;
    if (++depth_ > kMaxDepth) Refuse("elements nest too deep");
    XercesDOMParser::startElement(declaration, uri, prefix, attributes, count, isEmpty, isRoot);
  }
  void endElement(const xercesc::XMLElementDecl& declaration, const unsigned int uri,
                  const bool isRoot, const XMLCh* const prefix) override {
    if (depth_ > 0) --depth_;
    XercesDOMParser::endElement(declaration, uri, isRoot, prefix);
  }
  void XMLDecl(const XMLCh* const version, const XMLCh* const encoding,
               const XMLCh* const standalone, const XMLCh* const actualEncoding) override {
    isUtf8_ = encoding == nullptr || *encoding == 0 ||
              xercesc::XMLString::compareIString(encoding, u"UTF-8") == 0 ||
              xercesc::XMLString::compareIString(encoding, u"UTF8") == 0;
    XercesDOMParser::XMLDecl(version, encoding, standalone, actualEncoding);
  }
  void entityDecl(const xercesc::DTDEntityDecl& entity, const bool isParameter,
                  const bool isIgnored) override {
    if (isParameter) Refuse("a document may not declare parameter entities");
    if (entity.getName() != nullptr && !entities_.Declare(entity.getName(), entity.getValue())) {
      Refuse("the entities of the document expand to too much");
    }
    XercesDOMParser::entityDecl(entity, isParameter, isIgnored);
  }
  xercesc::InputSource* resolveEntity(xercesc::XMLResourceIdentifier* identifier) override {
    const std::string id = ToUtf8(identifier->getSystemId());
    if (id.substr(id.rfind('/') + 1) == kFormalizationDtdName) {
      return new xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(kFormalizationDtd),
                                            sizeof(kFormalizationDtd) - 1, kFormalizationDtdName);
    }
    Refuse("the external entity \"" + id + "\" is not opened");
  }
  void error(const unsigned int code, const XMLCh* const domain, const ErrTypes type,
             const XMLCh* const text, const XMLCh* const systemId, const XMLCh* const publicId,
             const XMLFileLoc line, const XMLFileLoc column) override {
    XercesDOMParser::error(code, domain, type, text, systemId, publicId, line, column);
    // The parser would begin to count anew.
    if (code == xercesc::XMLErrs::EntityExpansionLimitExceeded &&
        xercesc::XMLString::equals(domain, xercesc::XMLUni::fgXMLErrDomain)) {
      throw Stop();
    }
  }

 protected:
  xercesc::DOMElement* createElement(const XMLCh* name) override {
    xercesc::DOMElement* element = XercesDOMParser::createElement(name);
    lastLine_ = Line();
    lines_[element] = lastLine_;
    return element;
  }

 private:
  void warning(const xercesc::SAXParseException& e) override {
    Tell(FormalizationFault::Kind::kWarning, e);
  }
  void error(const xercesc::SAXParseException& e) override {
    Tell(FormalizationFault::Kind::kError, e);
  }
  void fatalError(const xercesc::SAXParseException& e) override {
    Tell(FormalizationFault::Kind::kFatal, e);
  }
  void resetErrors() override {}

  /* While a parse runs, and only then. */
  u32 Line() const {
    const xercesc::Locator* locator = getScanner()->getLocator();
    return locator == nullptr ? 0 : static_cast<u32>(locator->getLineNumber());
  }
  void Tell(FormalizationFault::Kind kind, const xercesc::SAXParseException& e) {
    const XMLCh* file = e.getSystemId();
    Tell(kind, static_cast<u32>(e.getLineNumber()), ToUtf8(e.getMessage()),
         file == nullptr || wideName_ == file ? name_ : ToUtf8(file));
    if (faults_ >= kMaxFaults) Refuse("too many faults, the rest of the document is not looked at");
  }
  void Tell(FormalizationFault::Kind kind, u32 line, const std::string& text,
            const std::string& file) {
    ++faults_;
    report_({kind, file, line, text});
  }
  void Tell(FormalizationFault::Kind kind, u32 line, const std::string& text) {
    Tell(kind, line, text, name_);
  }
  [[noreturn]] void Refuse(const std::string& why) {
    Tell(FormalizationFault::Kind::kFatal, Line(), why);
    throw Stop();
  }
  void CheckProlog(const Source& source) {
    if (!hasRoot_ && source.Position() >= kMaxProlog)
      Refuse("too much stands before the root element");
  }

  std::string name_;
  std::basic_string<XMLCh> wideName_;
  Report report_;
  xercesc::SecurityManager security_;
  Entities entities_;
  std::unordered_map<const xercesc::DOMNode*, u32> lines_;
  std::size_t faults_ = 0;
  unsigned depth_ = 0;
  u32 lastLine_ = 1; /* of the last element */
  bool hasRoot_ = false;
  bool isUtf8_ = true; /* what the document says it is */
};

}  // namespace formalization

/* Parses one document and keeps it. Documents and all their nodes die with the parser. */
class FormalizationParser {
 public:
  using Report = std::function<void(const FormalizationFault&)>;
  /* `report` is called for each fault as it is found; it may be empty. */
  explicit FormalizationParser(Report report = {}) : report_(std::move(report)) {}
  virtual ~FormalizationParser() = default;
  FormalizationParser(const FormalizationParser&) = delete;
  FormalizationParser& operator=(const FormalizationParser&) = delete;

  /* ZN_OK; ZNE_XML_SOURCE_INVALID when there was any fault, a warning too. Call one of them, once.
   * `path` is opened as it stands; `name` stands for the file in faults. */
  u32 ParseFile(const char* path) {
    formalization::Source source(path);
    return Parse(&source, path);
  }
  u32 ParseMemory(const char* text, std::size_t length, const char* name = "Memory") {
    formalization::Source source(text, length);
    return Parse(&source, name);
  }

  /* The document, also a faulty one as far as it went; null when there is none. */
  xercesc::DOMDocument* Document() const {
    return parser_ == nullptr ? nullptr : parser_->getDocument();
  }

  /* The line on which the start tag of an element of the document ends; 0 for any other node. */
  u32 LineOf(const xercesc::DOMNode& element) const {
    return parser_ == nullptr ? 0 : parser_->LineOf(element);
  }

 protected:
  /* Throws xercesc::XMLException. */
  virtual void StartPlatform() {
    static const bool isStarted = [] {
      xercesc::XMLPlatformUtils::Initialize();
      return true;
    }();
    static_cast<void>(isStarted);
  }

 private:
  u32 Parse(formalization::Source* source, const char* name) {
    try {
      StartPlatform();
    } catch (const xercesc::XMLException& e) {
      const std::string text = formalization::ToUtf8(e.getMessage());
      Tell({FormalizationFault::Kind::kStart, name, 0, text});
      return ZNE_XML_SOURCE_INVALID;
    }
    parser_.reset();  // lives in that memory
    memory_ = std::make_unique<formalization::Memory>();
    parser_ = std::make_unique<formalization::Parser>(
        memory_.get(), name, [this](const FormalizationFault& fault) { Tell(fault); });
    parser_->ParseSource(source);
    return parser_->Faults() == 0 ? ZN_OK : ZNE_XML_SOURCE_INVALID;
  }
  void Tell(const FormalizationFault& fault) {
    if (report_) report_(fault);
  }

  Report report_;
  std::unique_ptr<formalization::Memory> memory_;  // outlives the parser
  std::unique_ptr<formalization::Parser> parser_;
};

}  // namespace zn
