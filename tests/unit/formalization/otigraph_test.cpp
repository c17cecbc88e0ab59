#include "framework/common/znxml_typeinfo/otigraph.h"

#include <unistd.h>

#include <deque>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/common/status.h"
#include "tests/unit/framework/trace_capture.h"

namespace zn::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Records that live as long as the object; the graph never frees one.
class Declarations {
 public:
  OTInfo* Add(const char* name, std::vector<const char*> supertypes = {}) {
    Entry& entry = entries_.emplace_back();
    for (const char* text : supertypes) entry.supertypes.push_back(const_cast<char*>(text));
    entry.supertypes.push_back(nullptr);
    entry.info.name = const_cast<char*>(name);
    if (!supertypes.empty()) entry.info.supertypes = entry.supertypes.data();
    return &entry.info;
  }

 private:
  struct Entry {
    std::vector<char*> supertypes;
    OTInfo info{};
  };
  std::deque<Entry> entries_;
};

std::vector<std::string> NamesOf(const OTInfoVector& infos) {
  std::vector<std::string> names;
  for (const OTInfo* info : infos) names.emplace_back(info->name);
  return names;
}

class OTIGraphTest : public testing::Test {
 protected:
  u32 Add(OTInfoVector infos) { return OTIGraph_AddNodes(&graph_, &infos); }
  u32 Merge(OTInfoVector infos) { return OTIGraph_MergeNodes(&graph_, &infos); }
  std::vector<std::string> ParentsFirst(const char* start = nullptr) {
    OTInfoVector order;
    EXPECT_EQ(graph_.SortParentsFirst(&order, start), ZN_OK);
    return NamesOf(order);
  }
  std::vector<std::string> ChildrenFirst(const char* start = nullptr) {
    OTInfoVector order;
    EXPECT_EQ(graph_.SortChildrenFirst(&order, start), ZN_OK);
    return NamesOf(order);
  }

  Declarations types_;
  OTIGraph graph_;
};

TEST_F(OTIGraphTest, OfNothingHasAnEmptyOrder) {
  EXPECT_EQ(Add({}), ZN_OK);
  EXPECT_THAT(ParentsFirst(), IsEmpty());
}

TEST_F(OTIGraphTest, PutsASupertypeFirstWhateverItsName) {
  ASSERT_EQ(Add({types_.Add("A", {"B"}), types_.Add("B")}), ZN_OK);
  EXPECT_THAT(ParentsFirst(), ElementsAre("B", "A"));
  OTIGraph other;
  OTInfoVector infos{types_.Add("A"), types_.Add("B", {"A"})};
  ASSERT_EQ(other.AddNodes(infos), ZN_OK);
  OTInfoVector order;
  ASSERT_EQ(other.SortParentsFirst(&order, nullptr), ZN_OK);
  EXPECT_THAT(NamesOf(order), ElementsAre("A", "B"));
}

TEST_F(OTIGraphTest, OrdersIndependentTypesByName) {
  ASSERT_EQ(Add({types_.Add("Beta"), types_.Add("Alpha")}), ZN_OK);
  EXPECT_THAT(ParentsFirst(), ElementsAre("Alpha", "Beta"));
}

TEST_F(OTIGraphTest, OrdersSupertypesAsTheyAreDeclared) {
  ASSERT_EQ(Add({types_.Add("A", {"Z", "Y"}), types_.Add("Y"), types_.Add("Z")}), ZN_OK);
  EXPECT_THAT(ParentsFirst(), ElementsAre("Z", "Y", "A"));
}

TEST_F(OTIGraphTest, TakesUnknownSupertypesForTypesThatExist) {
  ASSERT_EQ(Add({types_.Add("A", {"X"})}), ZN_OK);
  EXPECT_THAT(ParentsFirst(), ElementsAre("A"));
  EXPECT_THAT(ChildrenFirst("X"), IsEmpty());
}

TEST_F(OTIGraphTest, WalksADiamondOnce) {
  ASSERT_EQ(Add({types_.Add("D", {"B", "C"}), types_.Add("B", {"A"}), types_.Add("C", {"A"}),
                 types_.Add("A")}),
            ZN_OK);
  OTInfoVector order;
  ASSERT_EQ(graph_.SortParentsFirst(&order, "D"), ZN_OK);
  EXPECT_THAT(NamesOf(order), ElementsAre("A", "B", "C", "D"));
  EXPECT_EQ(graph_.EntryCount("A"), 1u);  // the second way finds it finished
  EXPECT_EQ(graph_.EntryCount("Nobody"), 0u);
}

TEST_F(OTIGraphTest, WalksFromOneTypeAlone) {
  ASSERT_EQ(Add({types_.Add("A"), types_.Add("B", {"A"}), types_.Add("C", {"B"}), types_.Add("D")}),
            ZN_OK);
  EXPECT_THAT(ParentsFirst("B"), ElementsAre("A", "B"));
  EXPECT_THAT(ChildrenFirst("B"), ElementsAre("C", "B"));
  EXPECT_THAT(ChildrenFirst(), ElementsAre("C", "B", "A", "D"));
  EXPECT_THAT(ParentsFirst("Nobody"), IsEmpty());
}

TEST_F(OTIGraphTest, TracesTheOrders) {
  ASSERT_EQ(Add({types_.Add("A", {"B"}), types_.Add("B")}), ZN_OK);
  const TraceCapture trace(1);
  static_cast<void>(ParentsFirst());
  static_cast<void>(ChildrenFirst());
  EXPECT_THAT(
      trace.Messages(),
      ElementsAre("XML: OBJECT_TYPES visited in following order", "XML: 1. B", "XML: 2. A",
                  "XML: OBJECT_TYPES created in following order", "XML: 1. A", "XML: 2. B"));
}

TEST_F(OTIGraphTest, RefusesATypeThatInheritsFromItself) {
  ASSERT_EQ(Add({types_.Add("Before")}), ZN_OK);
  EXPECT_EQ(Add({types_.Add("A", {"A"})}), ZNE_PROVIDER_REG_CIRCULAR);
  EXPECT_THAT(ParentsFirst(), ElementsAre("Before"));
}

TEST_F(OTIGraphTest, RefusesACircleWithAllThatCameWithIt) {
  EXPECT_EQ(Add({types_.Add("A", {"B"}), types_.Add("B", {"A"}), types_.Add("C", {"A"}),
                 types_.Add("Free")}),
            ZNE_PROVIDER_REG_CIRCULAR);
  EXPECT_EQ(graph_.Size(), 0u);
}

TEST_F(OTIGraphTest, UnlinksWhatItHasRefused) {
  ASSERT_EQ(Add({types_.Add("A", {"B"})}), ZN_OK);
  EXPECT_EQ(Add({types_.Add("B", {"A"})}), ZNE_PROVIDER_REG_CIRCULAR);
  EXPECT_THAT(ParentsFirst(), ElementsAre("A"));
  EXPECT_THAT(ChildrenFirst(), ElementsAre("A"));
}

TEST_F(OTIGraphTest, RefusesANameThatIsThere) {
  ASSERT_EQ(Add({types_.Add("A")}), ZN_OK);
  EXPECT_EQ(Add({types_.Add("B"), types_.Add("A")}), ZNE_DUPLICATE_OBJECT_ID);
  EXPECT_THAT(ParentsFirst(), ElementsAre("A"));
}

TEST_F(OTIGraphTest, RefusesANameThatComesTwice) {
  EXPECT_EQ(Add({types_.Add("B"), types_.Add("B")}), ZNE_DUPLICATE_OBJECT_ID);
  EXPECT_EQ(Merge({types_.Add("B"), types_.Add("B")}), ZNE_DUPLICATE_OBJECT_ID);
  EXPECT_EQ(graph_.Size(), 0u);
}

TEST_F(OTIGraphTest, MergesNewDeclarationsOverOldOnes) {
  ASSERT_EQ(Add({types_.Add("A", {"B"}), types_.Add("B")}), ZN_OK);
  OTInfo* newer = types_.Add("A");
  EXPECT_EQ(Merge({newer, types_.Add("C", {"A"})}), ZN_OK);
  OTInfoVector order;
  ASSERT_EQ(graph_.SortParentsFirst(&order, nullptr), ZN_OK);
  EXPECT_THAT(NamesOf(order), ElementsAre("A", "B", "C"));
  EXPECT_EQ(order[0], newer);
}

TEST_F(OTIGraphTest, RestoresTheOldDeclarationsWhenAMergeMakesACircle) {
  OTInfo* older = types_.Add("A");
  ASSERT_EQ(Add({older, types_.Add("B", {"A"})}), ZN_OK);
  EXPECT_EQ(Merge({types_.Add("A", {"B"}), types_.Add("New")}), ZNE_PROVIDER_REG_CIRCULAR);
  OTInfoVector order;
  ASSERT_EQ(graph_.SortParentsFirst(&order, nullptr), ZN_OK);
  EXPECT_THAT(NamesOf(order), ElementsAre("A", "B"));
  EXPECT_EQ(order[0], older);
  EXPECT_THAT(ChildrenFirst("A"), ElementsAre("B", "A"));
}

TEST_F(OTIGraphTest, RemovesATypeWithAllThatDeriveFromIt) {
  ASSERT_EQ(Add({types_.Add("A"), types_.Add("B", {"A"}), types_.Add("C", {"B"}), types_.Add("D")}),
            ZN_OK);
  OTInfoVector removed;
  EXPECT_EQ(OTIGraph_RemoveChildNodes(&graph_, &removed, "B"), ZN_OK);
  EXPECT_THAT(NamesOf(removed), ElementsAre("C", "B"));
  EXPECT_THAT(ParentsFirst(), ElementsAre("A", "D"));
  EXPECT_THAT(ChildrenFirst("A"), ElementsAre("A"));
  EXPECT_EQ(OTIGraph_RemoveChildNodes(&graph_, &removed, "Nobody"), ZN_OK);
  EXPECT_EQ(removed.size(), 2u);
}

TEST_F(OTIGraphTest, RemovesEverythingWithoutAStart) {
  ASSERT_EQ(Add({types_.Add("A"), types_.Add("B", {"A"}), types_.Add("C")}), ZN_OK);
  OTInfoVector removed;
  EXPECT_EQ(OTIGraph_RemoveChildNodes(&graph_, &removed, nullptr), ZN_OK);
  EXPECT_THAT(NamesOf(removed), ElementsAre("B", "A", "C"));  // backwards: an order of creation
  EXPECT_EQ(graph_.Size(), 0u);
}

TEST_F(OTIGraphTest, FollowsAChainThatIsLongerThanTheStackIsDeep) {
  constexpr int kLength = 100000;
  std::vector<std::string> names;
  for (int i = 0; i < kLength; ++i) names.push_back("T" + std::to_string(1000000 - i));
  OTInfoVector infos{types_.Add(names[0].c_str())};
  for (int i = 1; i < kLength; ++i) {
    infos.push_back(types_.Add(names[i].c_str(), {names[i - 1].c_str()}));
  }
  ASSERT_EQ(Add(infos), ZN_OK);
  const std::vector<std::string> order = ParentsFirst(names.back().c_str());
  EXPECT_EQ(order, names);
  EXPECT_EQ(ChildrenFirst(names[0].c_str()).front(), names.back());
}

TEST(OTIGraphExports, MakeAndFreeAGraph) {
  OTIGraph* graph = nullptr;
  ASSERT_EQ(CreateOTIGraph(&graph), ZN_OK);
  Declarations types;
  OTInfoVector infos{types.Add("A")};
  EXPECT_EQ(OTIGraph_AddNodes(graph, &infos), ZN_OK);
  EXPECT_EQ(DeleteOTIGraph(graph), ZN_OK);
  EXPECT_STREQ(infos[0]->name, "A");  // the record is not the graph's
  EXPECT_EQ(DeleteOTIGraph(nullptr), ZN_OK);
}

TEST(OTIGraphExports, RefuseBadPointers) {
  OTIGraph graph;
  OTInfoVector infos;
  OTInfoVector withNull{nullptr};
  OTInfo nameless{};
  OTInfoVector withNameless{&nameless};
  const auto* badText = reinterpret_cast<const char*>(std::uintptr_t{8});
  EXPECT_EQ(CreateOTIGraph(nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(DeleteOTIGraph(reinterpret_cast<OTIGraph*>(std::uintptr_t{8})), ZNE_INVALID_ARGUMENTS);
  for (u32 (*call)(OTIGraph*, OTInfoVector*) : {&OTIGraph_AddNodes, &OTIGraph_MergeNodes}) {
    EXPECT_EQ(call(nullptr, &infos), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(call(&graph, nullptr), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(call(&graph, &withNull), ZNE_INVALID_ARGUMENTS);
    EXPECT_EQ(call(&graph, &withNameless), ZNE_INVALID_ARGUMENTS);
  }
  EXPECT_EQ(OTIGraph_RemoveChildNodes(nullptr, &infos, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(OTIGraph_RemoveChildNodes(&graph, nullptr, nullptr), ZNE_INVALID_ARGUMENTS);
  EXPECT_EQ(OTIGraph_RemoveChildNodes(&graph, &infos, badText), ZNE_INVALID_ARGUMENTS);
}

}  // namespace
}  // namespace zn::test
