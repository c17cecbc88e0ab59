/* Formalization documents: XML texts that declare object types and alert types. These functions
 * read the declarations of a parsed document into records, order object types so that supertypes
 * come first, and split the texts in it. They create nothing: what to do with a record is its
 * owner's affair (ObCreateTypeObject for a type, ObPublishAlert for an alert).
 *
 * C++ alone, and only with the headers of Xerces-C 3.2; zn/znmira.h does not include this.
 * zn/formalization_parser.h has the parser that goes with it; it reads a regular file and nothing
 * else.
 *
 * Texts come and go as UTF-8. Nothing here takes the lock of the library or looks at a database. A
 * document, a graph or a list of records is used by one thread at a time. Statuses that are not
 * repeated below: ZNE_INVALID_ARGUMENTS for a bad pointer, ZNE_OUT_OF_MEMORY, and ZNE_UNEXPECTED
 * for a document that the DOM library refuses to work on. What is refused is traced, with the file
 * and line where the document's parser has noted them.
 */
#pragma once

#include <string>
#include <vector>

#include <xercesc/util/XercesDefs.hpp>

#include "zn/types.h"

XERCES_CPP_NAMESPACE_BEGIN
class DOMDocument;
class DOMDocumentFragment;
class DOMElement;
class DOMNode;
XERCES_CPP_NAMESPACE_END

/* One declared object type. The record owns everything but refNode: that belongs to the document,
 * which must live as long as the record is used. */
typedef struct OTInfo {
  char* name;
  char** supertypes;   /* null at its end; a null pointer without INHERITS_FROM */
  ZnHandle properties; /* a property set with the defaults */
  u32 flags;           /* OBJECT_HIDDEN or OBJECT_NODISPLAY, when hasFlags */
  bool hasFlags;       /* create the type with ObCreateTypeObjectEx */
  xercesc::DOMElement* refNode;
} OTInfo;

/* One declared alert, with the same ownership. The texts are what AlertDescriptor wants. */
typedef struct ALInfo {
  char* topic;
  u32 flag;     /* bit 0 public, bit 1 global */
  u32 severity; /* 1 critical, 2 error, 3 warning, 4 information */
  I18nString* message;
  I18nString* className;
  I18nString* alertName;
  I18nString* description;
  I18nString* recommendedAction;
  ZnHandle parameters; /* a property set: what a raise must bring */
  xercesc::DOMElement* refNode;
} ALInfo;

/* Object types by name, with the edges between subtypes and supertypes. */
typedef struct OTIGraph OTIGraph;

/* How a text is split: mode 1 splits at the separator. */
typedef struct XMLTokenizer {
  u8 mode;
  char separator;
  char quote;
} XMLTokenizer;
static_assert(sizeof(XMLTokenizer) == 3, "XMLTokenizer");

typedef std::vector<OTInfo*> OTInfoVector;
typedef std::vector<ALInfo*> ALInfoVector;
typedef std::vector<std::string> StringVector;

ZN_EXTERN_C_BEGIN

/* Appends a new record for each element child of the root MIRA_FORMALIZATION, whatever its name:
 * every one is read as an OBJECT_TYPE. The caller frees each with DeleteOTInfo.
 *
 * Returns ZN_OK; ZNE_XML_SOURCE_INVALID without the root or without a PROPSET in one of the
 * elements; ZNE_INVALID_ARGUMENTS for a name or a value that does not fit;
 * ZNE_DUPLICATE_LOOKUP_KEY for a property that comes twice. One bad element fails the whole: no
 * record is handed out then. */
ZN_API u32 OTIVCreate_Doc(xercesc::DOMDocument* doc, OTInfoVector* out);

/* The same for the element children of a fragment. */
ZN_API u32 OTIVCreate_DocFragment(xercesc::DOMDocumentFragment* frag, OTInfoVector* out);

/* The same for ALERT_TYPE; each record is freed with DeleteALInfo. Also returns
 * ZNE_OBJECT_NOT_FOUND for a text element that is missing. */
ZN_API u32 ALIVCreate_Doc(xercesc::DOMDocument* doc, ALInfoVector* out);
ZN_API u32 ALIVCreate_DocFragment(xercesc::DOMDocumentFragment* frag, ALInfoVector* out);

/* Frees a record with all it owns; null is accepted. Returns ZN_OK. */
ZN_API u32 DeleteOTInfo(OTInfo* info);
ZN_API u32 DeleteALInfo(ALInfo* info);

/* The record's own name or topic, and its element; null for a bad pointer. */
ZN_API const char* OTInfo_GetType(const OTInfo* info);
ZN_API xercesc::DOMElement* OTInfo_GetRefNode(const OTInfo* info);
ZN_API const char* ALInfo_GetTopic(const ALInfo* info);
ZN_API xercesc::DOMElement* ALInfo_GetRefNode(const ALInfo* info);

/* Returns ZN_OK when no two records have one name (topic), else ZNE_DUPLICATE_OBJECT_ID, with the
 * name traced. */
ZN_API u32 OTInfo_Validate(OTInfoVector* infos);
ZN_API u32 ALInfo_Validate(ALInfoVector* infos);

/* Makes an empty graph; DeleteOTIGraph frees it and none of the records (null is accepted). */
ZN_API u32 CreateOTIGraph(OTIGraph** out);
ZN_API u32 DeleteOTIGraph(OTIGraph* graph);

/* Enters records, which stay the caller's and must outlive their stay in the graph. Supertypes that
 * are not in the graph are taken to be types that exist.
 *
 * Returns ZN_OK; ZNE_DUPLICATE_OBJECT_ID when a name is in the graph already or comes twice;
 * ZNE_PROVIDER_REG_CIRCULAR when a type would inherit from itself. The graph is as before then. */
ZN_API u32 OTIGraph_AddNodes(OTIGraph* graph, OTInfoVector* infos);

/* The same for declarations that take the place of those of the same name. */
ZN_API u32 OTIGraph_MergeNodes(OTIGraph* graph, OTInfoVector* infos);

/* Takes a type with all that derive from it out of the graph, or all types for a null `start`, and
 * appends their records to `out`: each type behind those that derive from it, so that `out` read
 * backwards is an order of creation. Returns ZN_OK, also for a name that is not there;
 * ZNE_PROVIDER_REG_CIRCULAR. */
ZN_API u32 OTIGraph_RemoveChildNodes(OTIGraph* graph, OTInfoVector* out, const char* start);

/* Makes a tokenizer of mode 1; DeleteXMLTokenizer frees it (null is accepted). */
ZN_API u32 CreateXMLTokenizer(XMLTokenizer** out, char separator, char quote);
ZN_API u32 DeleteXMLTokenizer(XMLTokenizer* tokenizer);

/* Splits a text and appends the tokens to `out`. White space separates too, and is skipped behind a
 * separator; a separator behind white space therefore ends an empty token. What stands between two
 * quotes is one token as it is; a backslash in it takes the next character literally. */
ZN_API u32 XMLTokenizer_Tokenize(XMLTokenizer* tokenizer, const std::string& text,
                                 StringVector* out);

/* Takes white space off both ends. */
ZN_API u32 XMLTokenizer_TrimString(std::string* text);

/* The first child of that node type (a DOMNode::NodeType), and of that name unless `name` is null.
 * Returns ZN_OK or ZNE_OBJECT_NOT_FOUND. */
ZN_API u32 getFirstChildNode(const xercesc::DOMNode& parent, short nodeType, const char* name,
                             xercesc::DOMNode** out);

/* Copies all such children into the fragment. Returns ZN_OK or ZNE_OBJECT_NOT_FOUND. */
ZN_API u32 getAllChildNodes(const xercesc::DOMNode& parent, short nodeType, const char* name,
                            xercesc::DOMDocumentFragment* out);

ZN_EXTERN_C_END
