#include <gtest/gtest.h>
#include <strings.h>

#include "tests/support/TreeShape.h"
#include "webs/TreeNode.h"

namespace {

using webs::TreeNode;

bool ignoringCase(const std::string& own, const std::string& searched) {
  return strcasecmp(own.c_str(), searched.c_str()) == 0;
}

class TreeNodeTest : public testing::Test {
 protected:
  TreeNodeTest() { Stations::startFresh(); }
  ~TreeNodeTest() override { TreeNode::setCompareFunction(nullptr); }

  static TreeNode* addLeaf(TreeNode* above, const std::string& key, const std::string& value) {
    TreeNode* leaf = above->createSubEntry(key);
    leaf->setLeafValue(value, false);
    return leaf;
  }

  TreeNode root{nullptr, "root"};
};

TEST_F(TreeNodeTest, StartsEmpty) {
  TreeNode node(&root);
  EXPECT_EQ(node.getParent(), &root);
  EXPECT_EQ(node.getKey(), "");
  EXPECT_EQ(node.getValue(), "");
  EXPECT_FALSE(node.getLeafFlag());
  EXPECT_EQ(node.numberOfElem(), 0);
  EXPECT_EQ(node.numberOfAttr(), 0);
  EXPECT_EQ(node.getError().code, 0);
  EXPECT_EQ(node.getError().message, "");
  EXPECT_EQ(root.numberOfElem(), 0) << "a constructor's parent does not learn of the node";
}

TEST_F(TreeNodeTest, ChildrenStandInTheOrderOfTheirCreation) {
  TreeNode* first = root.createSubEntry("a");
  TreeNode* second = root.createSubEntry("a");
  ASSERT_EQ(root.numberOfElem(), 2);
  EXPECT_EQ(root.getElem(0), first);
  EXPECT_EQ(root.getElem(1), second);
  EXPECT_EQ(first->getParent(), &root);
}

TEST_F(TreeNodeTest, GetNextSubElemStepsThroughTheChildren) {
  EXPECT_EQ(root.getNextSubElem(nullptr), nullptr);
  TreeNode* first = root.createSubEntry("a");
  TreeNode* last = root.createSubEntry("b");
  TreeNode stranger(nullptr);
  EXPECT_EQ(root.getNextSubElem(nullptr), first);
  EXPECT_EQ(root.getNextSubElem(first), last);
  EXPECT_EQ(root.getNextSubElem(last), nullptr);
  EXPECT_EQ(root.getNextSubElem(&stranger), nullptr);
}

TEST_F(TreeNodeTest, AttributesKeepOrderAndDuplicates) {
  root.createSubAttribute("x", "1");
  root.createSubAttribute("x", "2");
  ASSERT_EQ(root.numberOfAttr(), 2);
  EXPECT_EQ(root.getAttribute(1)->second, "2");
  EXPECT_EQ(root.getAttrValue("x"), "1") << "the first one is found";
}

TEST_F(TreeNodeTest, MissingAttributeGivesTheEmptyString) {
  EXPECT_EQ(&root.getAttrValue("x"), &TreeNode::EMPTY_STRING);
  EXPECT_EQ(TreeNode::EMPTY_STRING, "");
}

TEST_F(TreeNodeTest, SetAttributeAddsQuotesUnlessRaw) {
  root.createSubAttribute("x", "1");
  root.createSubAttribute("x", "2");
  EXPECT_TRUE(root.setAttribute("x", "new", false));
  EXPECT_EQ(root.getAttrValue("x"), "\"new\"");
  EXPECT_TRUE(root.setAttribute("x", "raw", true));
  EXPECT_EQ(root.getAttrValue("x"), "raw");
  EXPECT_EQ(root.getAttribute(1)->second, "2") << "only the first one changes";
}

TEST_F(TreeNodeTest, SetAttributeAddsNothing) {
  EXPECT_FALSE(root.setAttribute("x", "1", true));
  EXPECT_EQ(root.numberOfAttr(), 0);
}

TEST_F(TreeNodeTest, IntegerValueIsTheNumberAtTheStart) {
  const std::pair<const char*, int> cases[] = {{"12", 12},
                                               {" -7x", -7},
                                               {"", 0},
                                               {"true", 0},
                                               {"2147483647", 2147483647},
                                               {"0x10", 0},
                                               {"99999999999999999999", 2147483647},
                                               {"-99999999999", -2147483647 - 1}};
  for (const auto& [text, number] : cases) {
    root.setLeafValue(text, false);
    EXPECT_EQ(root.getIntegerValue(), number) << text;
  }
}

TEST_F(TreeNodeTest, BoolValueIsANumberThatIsNotZero) {
  const std::pair<const char*, bool> cases[] = {{"1", true},  {"2", true}, {"-1", true},
                                                {"0", false}, {"", false}, {"true", false}};
  for (const auto& [text, answer] : cases) {
    root.setLeafValue(text, false);
    EXPECT_EQ(root.getBoolValue(), answer) << text;
  }
}

TEST_F(TreeNodeTest, AppendedTextGivesWhatSettingTheSumGives) {
  root.setLeafValue("ab", true);
  root.appendLeafValue("cd", false);
  EXPECT_EQ(root.getValue(), "abcd");
  EXPECT_FALSE(root.getLeafFlag());
}

TEST_F(TreeNodeTest, GetElemByKeyLooksOneLevelDown) {
  TreeNode* child = root.createSubEntry("a");
  child->createSubEntry("deep");
  EXPECT_EQ(root.getElem("root"), &root);
  EXPECT_EQ(root.getElem("a"), child);
  EXPECT_EQ(root.getElem("deep"), nullptr);
}

TEST_F(TreeNodeTest, FindElemByKeyPrefersTheNodeAndGoesDepthFirst) {
  TreeNode* a = root.createSubEntry("a");
  TreeNode* deep = a->createSubEntry("x");
  deep->createSubEntry("x");
  root.createSubEntry("x");
  EXPECT_EQ(root.findElem("root", true), &root);
  EXPECT_EQ(root.findElem("x", true), deep);
  EXPECT_EQ(root.findElem("none", true), nullptr);
}

TEST_F(TreeNodeTest, FindElemByValueTestsOnlyLeaves) {
  TreeNode* inner = addLeaf(&root, "a", "v");
  TreeNode* leaf = addLeaf(inner, "b", "v");
  EXPECT_EQ(root.findElem("v", false), leaf);
  EXPECT_EQ(root.findElem("b", false), nullptr);
}

TEST_F(TreeNodeTest, FindElemByKeyAndValueFindsTheFirstLeaf) {
  TreeNode* inner = addLeaf(&root, "k", "v");
  addLeaf(inner, "k", "w");
  TreeNode* hit = addLeaf(inner, "k", "v");
  addLeaf(&root, "k", "v");
  EXPECT_EQ(root.findElem(std::string("k"), std::string("v")), hit);
}

TEST_F(TreeNodeTest, FindElemTakesLiterals) {
  addLeaf(&root, "k", "other");
  TreeNode* hit = addLeaf(&root, "k", "v");
  EXPECT_EQ(root.findElem("k", "v"), hit) << "a literal is a value, not byKey";
}

TEST_F(TreeNodeTest, FindElemByKeyAndValueRecordsWhereItFailed) {
  TreeNode* inner = root.createSubEntry("inner");
  TreeNode* miss = addLeaf(inner, "k", "w");
  TreeNode* hit = addLeaf(&root, "k", "v");
  ASSERT_EQ(root.findElem("k", "v"), hit);
  EXPECT_EQ(miss->getError().message, "TreeNode::findElem");
  EXPECT_EQ(inner->getError().message, "TreeNode::findElem");
  EXPECT_EQ(root.getError().message, "");
  EXPECT_EQ(root.findElem("k", "x"), nullptr);
  EXPECT_EQ(root.getError().message, "TreeNode::findElem");
  EXPECT_EQ(root.getError().code, 0);
}

TEST_F(TreeNodeTest, FindElemByKeyAloneRecordsNothing) {
  EXPECT_EQ(root.findElem("x", true), nullptr);
  EXPECT_EQ(root.getError().message, "");
}

TEST_F(TreeNodeTest, FindValueIsEmptyForAKeyThatNobodyHas) {
  addLeaf(&root, "a", "1");
  EXPECT_EQ(root.findValue("a"), "1");
  EXPECT_EQ(root.findValue("b"), "");
}

TEST_F(TreeNodeTest, FindSoleLeafFollowsOnlyChildren) {
  EXPECT_EQ(root.findSoleLeaf(), &root);
  TreeNode* inner = root.createSubEntry("a");
  TreeNode* leaf = inner->createSubEntry("b");
  EXPECT_EQ(root.findSoleLeaf(), leaf);
  inner->createSubEntry("c");
  EXPECT_EQ(root.findSoleLeaf(), nullptr);
  EXPECT_EQ(inner->getError().message, "TreeNode::findSoleLeaf");
  EXPECT_EQ(inner->getError().code, 0);
  EXPECT_EQ(root.getError().message, "") << "the node with two children has the failure";
}

TEST_F(TreeNodeTest, ComparisonWidensEveryLookup) {
  TreeNode* leaf = addLeaf(&root, "Key", "Value");
  leaf->createSubAttribute("Name", "1");
  EXPECT_EQ(root.findElem("key", true), nullptr);
  TreeNode::setCompareFunction(ignoringCase);
  EXPECT_EQ(root.findElem("key", true), leaf);
  EXPECT_EQ(root.findElem("VALUE", false), leaf);
  EXPECT_EQ(root.findElem("key", "value"), leaf);
  EXPECT_EQ(root.getElem("KEY"), leaf);
  EXPECT_EQ(leaf->getAttrValue("NAME"), "1");
  EXPECT_TRUE(leaf->setAttribute("nAME", "2", true));
  TreeNode::setCompareFunction(nullptr);
  EXPECT_EQ(root.findElem("key", true), nullptr);
}

TEST_F(TreeNodeTest, ExactEqualityMatchesWhateverTheComparisonSays) {
  TreeNode* leaf = addLeaf(&root, "k", "v");
  TreeNode::setCompareFunction([](const std::string&, const std::string&) { return false; });
  EXPECT_EQ(root.findElem("k", true), leaf);
  EXPECT_EQ(root.findElem("k", "v"), leaf);
}

TEST_F(TreeNodeTest, KeyAndValueMustMatchTheSameWay) {
  addLeaf(&root, "Key", "v");
  // Accepts keys in any case and no value at all.
  TreeNode::setCompareFunction([](const std::string& own, const std::string& searched) {
    return own == "Key" && searched == "key";
  });
  EXPECT_EQ(root.findElem("key", "v"), nullptr);
}

TEST_F(TreeNodeTest, ComparisonGetsTheNodesStringFirst) {
  addLeaf(&root, "own", "");
  TreeNode::setCompareFunction([](const std::string& own, const std::string& searched) {
    return own == "own" && searched == "searched";
  });
  EXPECT_NE(root.findElem("searched", true), nullptr);
}

TEST_F(TreeNodeTest, RemoveElemReleasesAChildAndRefusesStrangers) {
  TreeNode* first = root.createSubEntry("a");
  TreeNode* second = root.createSubEntry("b");
  second->createSubEntry("c");
  EXPECT_TRUE(root.removeElem(second));
  ASSERT_EQ(root.numberOfElem(), 1);
  EXPECT_EQ(root.getElem(0), first);
  EXPECT_EQ(Stations::nodesKept(), 2u);
  EXPECT_EQ(Stations::lastKept(), second) << "a parent is released after its children";
  EXPECT_FALSE(root.removeElem(second));
  EXPECT_FALSE(root.removeElem(nullptr));
}

TEST_F(TreeNodeTest, ClearKeepsFlagAndError) {
  TreeNode above(nullptr);
  root.setParent(&above);
  root.setLeafValue("v", true);
  root.createSubAttribute("x", "1");
  root.createSubEntry("a")->createSubEntry("b");
  root.findElem("no", "hit");
  root.clear();
  EXPECT_EQ(root.getKey(), "");
  EXPECT_EQ(root.getValue(), "");
  EXPECT_EQ(root.getParent(), nullptr);
  EXPECT_EQ(root.numberOfElem(), 0);
  EXPECT_EQ(root.numberOfAttr(), 0);
  EXPECT_TRUE(root.getLeafFlag());
  EXPECT_EQ(root.getError().message, "TreeNode::findElem");
  EXPECT_EQ(Stations::nodesKept(), 2u);
  EXPECT_EQ(Stations::attributesKept(), 1u);
}

TEST_F(TreeNodeTest, ClearReleasesChildrenInOrderBeforeTheirParent) {
  TreeNode* a = root.createSubEntry("a");
  TreeNode* a1 = a->createSubEntry("a1");
  TreeNode* a2 = a->createSubEntry("a2");
  TreeNode* b = root.createSubEntry("b");
  root.clear();
  for (TreeNode* expected : {b, a, a2, a1}) {
    EXPECT_EQ(TreeNode::getFreeEntry(), expected) << "the last released comes back first";
    delete expected;
  }
}

TEST_F(TreeNodeTest, ClearOwnsItsChildrenWhateverParentTheyName) {
  TreeNode* child = root.createSubEntry("a");
  child->createSubEntry("b");
  child->setParent(nullptr);
  root.clear();
  EXPECT_EQ(Stations::nodesKept(), 2u);
}

TEST_F(TreeNodeTest, RecycledNodeIsEmptyButKeepsItsFlag) {
  TreeNode* child = root.createSubEntry("a");
  child->setLeafValue("v", true);
  root.clear();
  TreeNode* again = root.createSubEntry("b");
  EXPECT_EQ(again, child);
  EXPECT_EQ(again->getValue(), "");
  EXPECT_EQ(again->getParent(), &root);
  EXPECT_TRUE(again->getLeafFlag());
}

TEST_F(TreeNodeTest, RecycledAttributeIsEmpty) {
  TreeNode::Attribute* attribute = root.createSubAttribute("x", "1");
  root.clear();
  TreeNode::Attribute* again = TreeNode::getFreeAttriObject();
  ASSERT_EQ(again, attribute);
  EXPECT_EQ(again->first + again->second, "");
  TreeNode::releaseAttribute(again);
}

TEST_F(TreeNodeTest, NinetyNineNodesAreKept) {
  for (int i = 0; i < 99; i++) root.createSubEntry("a");
  EXPECT_EQ(Stations::nodesCreated(), 99);
  root.clear();
  EXPECT_EQ(Stations::nodesKept(), 99u);
  EXPECT_EQ(Stations::nodesCreated(), 99);
}

TEST_F(TreeNodeTest, TheFirstOfAHundredNodesIsFreed) {
  for (int i = 0; i < 100; i++) root.createSubEntry("a");
  EXPECT_TRUE(root.removeElem(root.getElem(0)));
  EXPECT_EQ(Stations::nodesKept(), 0u);
  EXPECT_EQ(Stations::nodesCreated(), 99);
  root.clear();
  EXPECT_EQ(Stations::nodesKept(), 99u) << "the others are kept";
}

TEST_F(TreeNodeTest, TheFirstOfAHundredAttributesIsFreed) {
  for (int i = 0; i < 100; i++) root.createSubAttribute("a", "1");
  root.clear();
  EXPECT_EQ(Stations::attributesKept(), 99u);
  EXPECT_EQ(Stations::attributesCreated(), 99);
}

TEST_F(TreeNodeTest, ReleasingNullPushesNothing) {
  TreeNode::releaseEntry(nullptr);
  TreeNode::releaseAttribute(nullptr);
  EXPECT_EQ(Stations::nodesKept(), 0u);
  EXPECT_EQ(Stations::attributesKept(), 0u);
}

TEST_F(TreeNodeTest, ReleasingNullAboveTheThresholdStillCountsDown) {
  for (int i = 0; i < 100; i++) {
    root.createSubEntry("a");
    root.createSubAttribute("a", "1");
  }
  TreeNode::releaseEntry(nullptr);
  TreeNode::releaseAttribute(nullptr);
  EXPECT_EQ(Stations::nodesCreated(), 99);
  EXPECT_EQ(Stations::attributesCreated(), 99);
}

TEST_F(TreeNodeTest, ReleasedNodeBringsItsChildrenBack) {
  TreeNode* node = TreeNode::getFreeEntry();
  node->createSubEntry("a");
  TreeNode::releaseEntry(node);
  EXPECT_EQ(Stations::nodesKept(), 2u);
  EXPECT_EQ(node->numberOfElem(), 0);
}

TEST_F(TreeNodeTest, DestroyedNodeReleasesChildrenAndAttributes) {
  {
    TreeNode node(nullptr, "a");
    node.createSubEntry("b")->createSubAttribute("x", "1");
    node.createSubAttribute("y", "2");
  }
  EXPECT_EQ(Stations::nodesKept(), 1u);
  EXPECT_EQ(Stations::attributesKept(), 2u);
}

TEST_F(TreeNodeTest, CleanEmptiesTheStationsAndLeavesTheCounters) {
  root.createSubEntry("a")->createSubAttribute("x", "1");
  root.clear();
  TreeNode::clean();
  EXPECT_EQ(Stations::nodesKept(), 0u);
  EXPECT_EQ(Stations::attributesKept(), 0u);
  EXPECT_EQ(Stations::nodesCreated(), 1);
  EXPECT_EQ(Stations::attributesCreated(), 1);
}

}  // namespace
