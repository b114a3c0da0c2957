#include <gtest/gtest.h>

#include "tests/support/TreeShape.h"
#include "webs/TreeNode.h"

namespace {

using webs::TreeNode;

TEST(TreeNodeXml, EmptyElementIsOneTag) {
  TreeNode node(nullptr, "b");
  EXPECT_EQ(xmlOf(node), "<b/>");
  node.createSubAttribute("x", "1");
  node.createSubAttribute("y", "");
  EXPECT_EQ(xmlOf(node), "<b x=\"1\" y=\"\"/>");
}

TEST(TreeNodeXml, ValueAndChildrenStandBetweenTags) {
  TreeNode node(nullptr, "a");
  node.setLeafValue("v", false);
  EXPECT_EQ(xmlOf(node), "<a>v</a>");
  node.createSubEntry("b");
  node.createSubEntry("c")->setLeafValue("w", false);
  EXPECT_EQ(xmlOf(node), "<a><b/><c>w</c></a>")
      << "the value of a node with children is not written";
}

TEST(TreeNodeXml, NodeWithoutKeyGivesOnlyWhatIsInIt) {
  TreeNode node(nullptr);
  EXPECT_EQ(xmlOf(node), "");
  node.createSubAttribute("x", "1");
  node.setLeafValue("v", false);
  EXPECT_EQ(xmlOf(node), "v");
  node.createSubEntry("a");
  node.createSubEntry("")->setLeafValue("text", false);
  EXPECT_EQ(xmlOf(node), "<a/>text");
}

TEST(TreeNodeXml, NothingIsEscaped) {
  TreeNode node(nullptr, "a");
  node.createSubAttribute("x", "\"<");
  node.setLeafValue("<&>", false);
  EXPECT_EQ(xmlOf(node), "<a x=\"\"<\"><&></a>");
}

TEST(TreeNodeXml, IsAppended) {
  TreeNode node(nullptr, "a");
  std::vector<unsigned char> bytes{'p'};
  node.toXMLContent(&bytes);
  node.toXMLContent(&bytes);
  EXPECT_EQ(textOf(bytes), "p<a/><a/>");
}

TEST(TreeNodeJson, RootWithoutChildrenIsAnEmptyObject) {
  TreeNode node(nullptr);
  EXPECT_EQ(jsonOf(node), "{}");
  node.setLeafValue("v", true);
  EXPECT_EQ(jsonOf(node), "{}");
}

TEST(TreeNodeJson, OnlyARootOfItsOwnNameIsNamed) {
  TreeNode node(nullptr, "req");
  EXPECT_EQ(jsonOf(node), "{}");
  node.setKey("data");
  EXPECT_EQ(jsonOf(node), "data = {}");
  TreeNode* child = node.createSubEntry("\"o\"");
  child->createSubEntry("\"k\"")->setLeafValue("v", true);
  EXPECT_EQ(jsonOf(node), "data = {\"o\":{\"k\":\"v\"}}");
  EXPECT_EQ(jsonOf(*child), "{\"k\":\"v\"}") << "a node with a parent has no name of its own";
}

TEST(TreeNodeJson, LeavesAreQuotedByTheirFlagOrWhenEmpty) {
  TreeNode node(nullptr, "req");
  node.createSubEntry("\"a\"")->setLeafValue("1", true);
  node.createSubEntry("\"b\"")->setLeafValue("1", false);
  node.createSubEntry("\"c\"")->setLeafValue("", false);
  node.createSubEntry("d")->setLeafValue("x", false);
  EXPECT_EQ(jsonOf(node), "{\"a\":\"1\",\"b\":1 ,\"c\":\"\",d:x }");
}

TEST(TreeNodeJson, MembersNamedByBracketsMakeAnArray) {
  TreeNode node(nullptr, "req");
  TreeNode* list = node.createSubEntry("\"l\"");
  list->createSubEntry("[")->createSubEntry("\"a\"")->setLeafValue("1", true);
  TreeNode* member = list->createSubEntry("[[");
  EXPECT_EQ(jsonOf(node), "{\"l\":[{\"a\":\"1\"},{}]}");
  EXPECT_EQ(jsonOf(*list), "[{\"a\":\"1\"},{}]");
  EXPECT_EQ(jsonOf(*member), "{}");
}

// A recycled node may still have the flag of the leaf that it was.
TEST(TreeNodeJson, FlagOfANodeWithChildrenDoesNotMatter) {
  TreeNode node(nullptr, "req");
  TreeNode* inner = node.createSubEntry("\"o\"");
  inner->setLeafValue("old", true);
  inner->createSubEntry("\"k\"")->setLeafValue("v", true);
  EXPECT_EQ(jsonOf(node), "{\"o\":{\"k\":\"v\"}}");
}

}  // namespace
