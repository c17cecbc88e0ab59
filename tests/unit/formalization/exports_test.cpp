// The exports over a parsed document: records, their owners, children of nodes.
#include "tests/unit/formalization/documents.h"
#include "zn/formalization.h"
#include "zn/ps.h"

namespace zn::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using xercesc::DOMNode;

constexpr char kAlert[] =
    "<ALERT_TYPE Topic=\"event.alert.disk\" Severity=\"ERROR\"><ALERT_PARAM>"
    "<MSG>{10203040-5060-7080-0102-030405060708};7;'The disk is full.'</MSG><F_CLASS_NAME/>"
    "<F_ALERT_NAME/><DESC/><REC_ACTION/><PROPSET/></ALERT_PARAM></ALERT_TYPE>\n";

template <typename T>
T* Bad() {
  return reinterpret_cast<T*>(std::uintptr_t{64});
}

TEST(ObjectTypeRecords, HoldWhatTheElementsDeclare) {
  const Parsed document(
      Document(ObjectType("A", "X, Y", PropertyText("P", "mira_int32", "5"), "NoDisplay") +
               ObjectType("B")));
  ASSERT_EQ(document.status, ZN_OK);
  OTInfoVector infos;
  ASSERT_EQ(OTIVCreate_Doc(document.Get(), &infos), ZN_OK);
  ASSERT_EQ(infos.size(), 2u);
  const OTInfo& a = *infos[0];
  EXPECT_STREQ(OTInfo_GetType(&a), "A");
  EXPECT_STREQ(a.supertypes[0], "X");
  EXPECT_STREQ(a.supertypes[1], "Y");
  EXPECT_EQ(a.supertypes[2], nullptr);
  EXPECT_TRUE(a.hasFlags);
  EXPECT_EQ(a.flags, OBJECT_NODISPLAY);
  Property2* property = nullptr;
  ASSERT_EQ(PsFindProperty(a.properties, "P", &property), ZN_OK);
  EXPECT_EQ(*static_cast<i32*>(property->Value), 5);
  EXPECT_EQ(PsFreeProperty(property), ZN_OK);
  EXPECT_EQ(OTInfo_GetRefNode(&a)->getParentNode(), document.Root());
  EXPECT_EQ(document.parser.LineOf(*OTInfo_GetRefNode(&a)), 4u);
  EXPECT_EQ(infos[1]->supertypes, nullptr);
  EXPECT_FALSE(infos[1]->hasFlags);
  EXPECT_EQ(OTInfo_Validate(&infos), ZN_OK);
  const ZnHandle properties = a.properties;
  for (OTInfo* info : infos) EXPECT_EQ(DeleteOTInfo(info), ZN_OK);
  EXPECT_EQ(PsDestroyPropset(properties), ZNE_INVALID_ARGUMENTS);  // gone with the record
}

TEST(ObjectTypeRecords, OfAnEmptyListOfSupertypesHaveAnEmptyList) {
  const Parsed document(
      Document("<OBJECT_TYPE Name=\"A\"><INHERITS_FROM> </INHERITS_FROM>"
               "<PROPSET/></OBJECT_TYPE>"));
  OTInfoVector infos;
  ASSERT_EQ(OTIVCreate_Doc(document.Get(), &infos), ZN_OK);
  ASSERT_NE(infos[0]->supertypes, nullptr);
  EXPECT_EQ(infos[0]->supertypes[0], nullptr);
  EXPECT_EQ(DeleteOTInfo(infos[0]), ZN_OK);
}

TEST(ObjectTypeRecords, AreAppended) {
  const Parsed document(Document(ObjectType("A")));
  OTInfoVector infos;
  ASSERT_EQ(OTIVCreate_Doc(document.Get(), &infos), ZN_OK);
  ASSERT_EQ(OTIVCreate_Doc(document.Get(), &infos), ZN_OK);
  ASSERT_EQ(infos.size(), 2u);
  const TraceCapture trace(6);
  EXPECT_EQ(OTInfo_Validate(&infos), ZNE_DUPLICATE_OBJECT_ID);
  // The lines of a document that others have parsed are not known.
  EXPECT_THAT(trace.Messages(), ElementsAre("XML: Duplicate object types \"A\" specified"));
  for (OTInfo* info : infos) EXPECT_EQ(DeleteOTInfo(info), ZN_OK);
}

TEST(ObjectTypeRecords, AreNotHandedOutWhenOneElementIsBad) {
  const Parsed document(
      Document(ObjectType("A") + ObjectType("B", {}, PropertyText("P", "mira_bool", "no"))));
  OTInfoVector infos;
  EXPECT_EQ(OTIVCreate_Doc(document.Get(), &infos), ZNE_INVALID_ARGUMENTS);
  EXPECT_THAT(infos, IsEmpty());
}

TEST(ObjectTypeRecords, ComeFromAFragmentToo) {
  const Parsed document(Document(ObjectType("A") + kAlert + ObjectType("B")));
  xercesc::DOMDocumentFragment* fragment = document.Get()->createDocumentFragment();
  ASSERT_EQ(getAllChildNodes(*document.Root(), DOMNode::ELEMENT_NODE, "OBJECT_TYPE", fragment),
            ZN_OK);
  OTInfoVector infos;
  ASSERT_EQ(OTIVCreate_DocFragment(fragment, &infos), ZN_OK);
  ASSERT_EQ(infos.size(), 2u);
  EXPECT_STREQ(infos[1]->name, "B");
  for (OTInfo* info : infos) EXPECT_EQ(DeleteOTInfo(info), ZN_OK);
}

TEST(AlertRecords, HoldWhatTheElementsDeclare) {
  const Parsed document(Document(kAlert));
  ALInfoVector infos;
  ASSERT_EQ(ALIVCreate_Doc(document.Get(), &infos), ZN_OK);
  ASSERT_EQ(infos.size(), 1u);
  const ALInfo& alert = *infos[0];
  EXPECT_STREQ(ALInfo_GetTopic(&alert), "event.alert.disk");
  EXPECT_EQ(alert.severity, 2u);
  EXPECT_EQ(alert.message->message, 7u);
  EXPECT_STREQ(alert.message->name, "The disk is full.");
  EXPECT_STREQ(alert.description->name, "");
  EXPECT_EQ(ALInfo_GetRefNode(&alert)->getParentNode(), document.Root());
  EXPECT_EQ(ALInfo_Validate(&infos), ZN_OK);
  ASSERT_EQ(ALIVCreate_Doc(document.Get(), &infos), ZN_OK);
  EXPECT_EQ(ALInfo_Validate(&infos), ZNE_DUPLICATE_OBJECT_ID);
  for (ALInfo* info : infos) EXPECT_EQ(DeleteALInfo(info), ZN_OK);
}

TEST(AlertRecords, ComeFromAFragmentToo) {
  const Parsed document(Document(kAlert));
  xercesc::DOMDocumentFragment* fragment = document.Get()->createDocumentFragment();
  fragment->appendChild(document.Root()->getFirstChild()->cloneNode(true));
  ALInfoVector infos;
  ASSERT_EQ(ALIVCreate_DocFragment(fragment, &infos), ZN_OK);
  ASSERT_EQ(infos.size(), 1u);
  EXPECT_EQ(DeleteALInfo(infos[0]), ZN_OK);
}

TEST(RecordExports, RefuseBadPointers) {
  const Parsed document(Document(""));
  OTInfoVector types;
  ALInfoVector alerts;
  EXPECT_EQ(OTIVCreate_Doc(nullptr, &types), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(OTIVCreate_Doc(document.Get(), nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(OTIVCreate_DocFragment(nullptr, &types), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(OTIVCreate_DocFragment(document.Get()->createDocumentFragment(), nullptr),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ALIVCreate_Doc(nullptr, &alerts), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ALIVCreate_Doc(document.Get(), nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ALIVCreate_DocFragment(nullptr, &alerts), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ALIVCreate_DocFragment(document.Get()->createDocumentFragment(), nullptr),
            ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DeleteOTInfo(nullptr), ZN_OK);
  EXPECT_EQ(DeleteOTInfo(Bad<OTInfo>()), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DeleteALInfo(nullptr), ZN_OK);
  EXPECT_EQ(DeleteALInfo(Bad<ALInfo>()), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(OTInfo_GetType(nullptr), nullptr);
  EXPECT_EQ(OTInfo_GetRefNode(Bad<OTInfo>()), nullptr);
  EXPECT_EQ(ALInfo_GetTopic(nullptr), nullptr);
  EXPECT_EQ(ALInfo_GetRefNode(Bad<ALInfo>()), nullptr);
  EXPECT_EQ(OTInfo_Validate(nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ALInfo_Validate(nullptr), ZNE_INVALID_ARGUMENTS);
  types.push_back(nullptr);
  alerts.push_back(nullptr);
  EXPECT_EQ(OTInfo_Validate(&types), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(ALInfo_Validate(&alerts), ZNE_INVALID_ARGUMENTS);
}

TEST(ChildNodes, AreFoundByTypeAndName) {
  const Parsed document(Document(ObjectType("A") + "<!--note-->" + kAlert + ObjectType("B")));
  DOMNode* node = nullptr;
  EXPECT_EQ(getFirstChildNode(*document.Root(), DOMNode::ELEMENT_NODE, "ALERT_TYPE", &node), ZN_OK);
  EXPECT_EQ(document.parser.LineOf(*node), 6u);
  EXPECT_EQ(getFirstChildNode(*document.Root(), DOMNode::ELEMENT_NODE, nullptr, &node), ZN_OK);
  EXPECT_EQ(document.parser.LineOf(*node), 4u);
  EXPECT_EQ(getFirstChildNode(*document.Root(), DOMNode::COMMENT_NODE, nullptr, &node), ZN_OK);
  EXPECT_EQ(node->getNodeType(), DOMNode::COMMENT_NODE);
  DOMNode* untouched = node;
  EXPECT_EQ(getFirstChildNode(*document.Root(), DOMNode::ELEMENT_NODE, "PROPSET", &node),
            ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(getFirstChildNode(*document.Root(), DOMNode::ATTRIBUTE_NODE, nullptr, &node),
            ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(node, untouched);
}

TEST(ChildNodes, AreCopiedIntoAFragment) {
  const Parsed document(Document(ObjectType("A") + kAlert + ObjectType("B")));
  const Parsed other(Document(""));
  xercesc::DOMDocumentFragment* fragment = other.Get()->createDocumentFragment();  // another's
  EXPECT_EQ(getAllChildNodes(*document.Root(), DOMNode::ELEMENT_NODE, nullptr, fragment), ZN_OK);
  EXPECT_EQ(fragment->getChildNodes()->getLength(), 3u);
  EXPECT_EQ(document.Root()->getElementsByTagName(u"OBJECT_TYPE")->getLength(), 2u);
  EXPECT_EQ(getAllChildNodes(*document.Root(), DOMNode::ELEMENT_NODE, "PROPSET", fragment),
            ZNE_OBJECT_NOT_FOUND);
  EXPECT_EQ(fragment->getChildNodes()->getLength(), 3u);
}

TEST(ChildNodes, OfAFragmentAreCopiedIntoItselfOnce) {
  const Parsed document(Document(""));
  xercesc::DOMDocumentFragment* fragment = document.Get()->createDocumentFragment();
  fragment->appendChild(document.Get()->createElement(u"A"));
  fragment->appendChild(document.Get()->createElement(u"B"));
  EXPECT_EQ(getAllChildNodes(*fragment, DOMNode::ELEMENT_NODE, nullptr, fragment), ZN_OK);
  EXPECT_EQ(fragment->getChildNodes()->getLength(), 4u);
  EXPECT_EQ(getAllChildNodes(*fragment, DOMNode::ELEMENT_NODE, "B", fragment), ZN_OK);
  EXPECT_EQ(fragment->getChildNodes()->getLength(), 6u);
}

TEST(ChildNodes, RefuseBadPointers) {
  const Parsed document(Document(""));
  DOMNode* node = nullptr;
  EXPECT_EQ(getFirstChildNode(*document.Root(), 1, nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(getFirstChildNode(*document.Root(), 1, Bad<char>(), &node), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(getAllChildNodes(*document.Root(), 1, nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(
      getAllChildNodes(*document.Root(), 1, Bad<char>(), document.Get()->createDocumentFragment()),
      ZNE_INVALID_ARGUMENTS);
}

}  // namespace
}  // namespace zn::test
