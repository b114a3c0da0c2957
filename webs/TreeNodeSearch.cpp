// The lookups of TreeNode.
#include "webs/TreeNode.h"
#include "webs/TreeWalk.h"

namespace webs {

bool TreeNode::matches(const std::string& own, const std::string& searched) {
  return (strCompare != nullptr && strCompare(own, searched)) || own == searched;
}

// The installed comparison must accept both, or both must be equal: one of each is no match.
bool TreeNode::isLeafWith(const std::string& name, const std::string& text) const {
  if (strCompare != nullptr && strCompare(getKey(), name) && strCompare(value, text)) return true;
  return getKey() == name && value == text;
}

TreeNode::Attribute* TreeNode::findAttribute(const std::string& name) const {
  for (Attribute* attribute : attributes) {
    if (matches(attribute->first, name)) return attribute;
  }
  return nullptr;
}

const std::string& TreeNode::getAttrValue(const std::string& name) const {
  const Attribute* attribute = findAttribute(name);
  return attribute != nullptr ? attribute->second : EMPTY_STRING;
}

TreeNode* TreeNode::getElem(const std::string& name) {
  if (matches(getKey(), name)) return this;
  for (TreeNode* child : children) {
    if (matches(child->getKey(), name)) return child;
  }
  return nullptr;
}

TreeNode* TreeNode::findElem(const std::string& text, bool byKey) {
  return walkTree(
      this,
      [&](TreeNode* node, TreeNode*, int) {
        if (byKey) return matches(node->getKey(), text);
        return node->children.empty() && matches(node->value, text);
      },
      [](TreeNode*) {});
}

TreeNode* TreeNode::findElem(const std::string& name, const std::string& text) {
  const auto fail = [](TreeNode* node) { node->error.error("TreeNode::findElem", 0); };
  return walkTree(
      this,
      [&](TreeNode* node, TreeNode*, int) {
        return node->children.empty() && node->isLeafWith(name, text);
      },
      fail);
}

TreeNode* TreeNode::findElem(const std::string& name, const char* text) {
  return findElem(name, std::string(text));
}

std::string TreeNode::findValue(const std::string& name) {
  const TreeNode* node = findElem(name, true);
  return node != nullptr ? node->value : std::string();
}

TreeNode* TreeNode::findSoleLeaf() {
  TreeNode* node = this;
  while (node->children.size() == 1) node = node->children.front();
  if (node->children.empty()) return node;
  node->error.error("TreeNode::findSoleLeaf", 0);
  return nullptr;
}

}  // namespace webs
