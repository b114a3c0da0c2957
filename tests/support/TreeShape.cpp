#include "tests/support/TreeShape.h"

#include "webs/TreeWalk.h"

using webs::TreeNode;

std::string shapeOf(const TreeNode& start) {
  std::string shape;
  walkTree(
      &start,
      [&shape](const TreeNode* node, const TreeNode*, int index) {
        if (index > 0) shape += ' ';
        shape += node->getKey();
        for (int i = 0; i < node->numberOfAttr(); i++) {
          shape += '@' + node->getAttribute(i)->first + '=' + node->getAttribute(i)->second;
        }
        const char quote = node->getLeafFlag() ? '"' : '\'';
        if (!node->getValue().empty()) shape += ':' + (quote + node->getValue()) + quote;
        if (node->numberOfElem() > 0) shape += '{';
        return false;
      },
      [&shape](const TreeNode* node) {
        if (node->numberOfElem() > 0) shape += '}';
      });
  return shape;
}

std::string textOf(const std::vector<unsigned char>& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

std::string xmlOf(const TreeNode& node) {
  std::vector<unsigned char> bytes;
  node.toXMLContent(&bytes);
  return textOf(bytes);
}

std::string jsonOf(const TreeNode& node) {
  std::vector<unsigned char> bytes;
  node.toJSONContent(&bytes);
  return textOf(bytes);
}
