// A body may nest as deep as its size allows: no walk over a tree may recurse on the thread's
// stack.
#include <gtest/gtest.h>

#include "tests/support/SmallStack.h"
#include "tests/support/TreeShape.h"
#include "webs/JSONReader.h"
#include "webs/XMLReader.h"

namespace {

using support::onSmallStack;
using webs::JSONReader;
using webs::TreeNode;
using webs::XMLReader;

const int LEVELS = 500000;

std::string repeated(const std::string& text, int times) {
  std::string all;
  all.reserve(text.size() * static_cast<size_t>(times));
  for (int i = 0; i < times; i++) all += text;
  return all;
}

void checkLookups(TreeNode* root) {
  TreeNode* leaf = root->findSoleLeaf();
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(leaf->getValue(), "v");
  EXPECT_EQ(root->findElem("v", false), leaf);
  EXPECT_EQ(root->findElem(leaf->getKey(), "v"), leaf);
  EXPECT_EQ(root->findElem("no such key", true), nullptr);
  EXPECT_EQ(root->findElem("no such key", "v"), nullptr);
  EXPECT_EQ(root->getError().message, "TreeNode::findElem");
}

TEST(TreeNodeDepth, XmlIsBuiltSearchedWrittenAndCleared) {
  onSmallStack([] {
    const std::string text = repeated("<a>", LEVELS) + "v" + repeated("</a>", LEVELS);
    XMLReader reader;
    reader.initialize();
    ASSERT_EQ(reader.streamIn(text.data(), static_cast<int>(text.size()), 1), 1);
    checkLookups(&reader);
    EXPECT_TRUE(xmlOf(reader) == text);
    reader.clear();
    EXPECT_EQ(reader.numberOfElem(), 0);
  });
}

TEST(TreeNodeDepth, JsonIsBuiltSearchedWrittenAndCleared) {
  onSmallStack([] {
    const std::string text = repeated("{\"a\":", LEVELS) + "\"v\"" + repeated("}", LEVELS);
    JSONReader reader;
    ASSERT_EQ(reader.streamIn(text.data(), static_cast<int>(text.size()), 0), 0);
    checkLookups(&reader);
    EXPECT_TRUE(jsonOf(reader) == text);
    reader.clear();
    EXPECT_EQ(reader.numberOfElem(), 0);
  });
}

TEST(TreeNodeDepth, JsonArraysInArraysAreBuiltWrittenAndCleared) {
  onSmallStack([] {
    // The members' names, up to 511 characters each, take most of the memory.
    const int levels = LEVELS / 5;
    const std::string text =
        repeated("{\"l\":[", levels) + "{\"k\":\"v\"}" + repeated("]}", levels);
    JSONReader reader;
    ASSERT_EQ(reader.streamIn(text.data(), static_cast<int>(text.size()), 0), 0);
    checkLookups(&reader);
    EXPECT_TRUE(jsonOf(reader) == text);
  });
}

TEST(TreeNodeDepth, DestroyedWithoutClear) {
  onSmallStack([] {
    TreeNode root(nullptr);
    TreeNode* node = &root;
    for (int i = 0; i < LEVELS; i++) node = node->createSubEntry("a");
    node->setLeafValue("v", false);
    checkLookups(&root);
  });
}

TEST(TreeNodeDepth, RemovedInOnePiece) {
  onSmallStack([] {
    TreeNode root(nullptr);
    TreeNode* node = &root;
    for (int i = 0; i < LEVELS; i++) node = node->createSubEntry("a");
    EXPECT_TRUE(root.removeElem(root.getElem(0)));
    EXPECT_EQ(root.numberOfElem(), 0);
  });
}

TEST(TreeNodeDepth, ReleasedWithItsSubtree) {
  onSmallStack([] {
    TreeNode* node = TreeNode::getFreeEntry();
    TreeNode* deepest = node;
    for (int i = 0; i < LEVELS; i++) deepest = deepest->createSubEntry("a");
    TreeNode::releaseEntry(node);
    EXPECT_LE(Stations::nodesKept(), 100u);
  });
}

}  // namespace
