#include "webs/TreeNode.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace webs {
namespace {

// Limit of the objects that are kept. Compared with the number created, not with a station's size.
const int MAX_KEPT = 99;

util::NeverDestroyed<std::string> emptyString;

}  // namespace

const std::string& TreeNode::EMPTY_STRING = emptyString.get();
TreeNode::CompareFunction TreeNode::strCompare = nullptr;
util::NeverDestroyed<std::stack<TreeNode*>> TreeNode::entryStation;
int TreeNode::entryCreatedNum = 0;
util::NeverDestroyed<std::stack<TreeNode::Attribute*>> TreeNode::attrStation;
int TreeNode::attrCreatedNum = 0;

TreeNode::TreeNode(TreeNode* above) : parent(above) {}

TreeNode::TreeNode(TreeNode* above, const std::string& name) : key(name), parent(above) {}

TreeNode::~TreeNode() { TreeNode::clear(); }

void TreeNode::setCompareFunction(CompareFunction function) { strCompare = function; }

TreeNode* TreeNode::getFreeEntry() {
  if (entryStation->empty()) {
    TreeNode* node = new TreeNode(nullptr);
    entryCreatedNum++;
    return node;
  }
  TreeNode* node = entryStation->top();
  entryStation->pop();
  return node;
}

void TreeNode::releaseEntry(TreeNode* node) {
  if (entryCreatedNum > MAX_KEPT) {
    delete node;
    entryCreatedNum--;
    return;
  }
  if (node == nullptr) return;
  entryStation->push(node);
  node->clear();
}

TreeNode::Attribute* TreeNode::getFreeAttriObject() {
  if (attrStation->empty()) {
    Attribute* attribute = new Attribute();
    attrCreatedNum++;
    return attribute;
  }
  Attribute* attribute = attrStation->top();
  attrStation->pop();
  return attribute;
}

void TreeNode::releaseAttribute(Attribute* attribute) {
  if (attrCreatedNum > MAX_KEPT) {
    delete attribute;
    attrCreatedNum--;
    return;
  }
  if (attribute == nullptr) return;
  attribute->first.clear();
  attribute->second.clear();
  attrStation->push(attribute);
}

void TreeNode::clean() {
  for (; !entryStation->empty(); entryStation->pop()) delete entryStation->top();
  for (; !attrStation->empty(); attrStation->pop()) delete attrStation->top();
}

TreeNode* TreeNode::createSubEntry(const std::string& name) {
  TreeNode* node = getFreeEntry();
  node->setParent(this);
  node->setKey(name);
  children.push_back(node);
  return node;
}

TreeNode::Attribute* TreeNode::createSubAttribute(const std::string& name,
                                                  const std::string& text) {
  Attribute* attribute = getFreeAttriObject();
  attribute->first = name;
  attribute->second = text;
  attributes.push_back(attribute);
  return attribute;
}

bool TreeNode::setAttribute(const std::string& name, const std::string& text, bool raw) {
  Attribute* attribute = findAttribute(name);
  if (attribute == nullptr) return false;
  attribute->second = raw ? text : '"' + text + '"';
  return true;
}

void TreeNode::setLeafValue(std::string text, bool flag) {
  value = std::move(text);
  leafFlag = flag;
}

void TreeNode::appendLeafValue(const char* text, bool flag) {
  value.append(text);
  leafFlag = flag;
}

void TreeNode::setKey(const std::string& name) { key.set(name); }

int TreeNode::getIntegerValue() const {
  const long number = std::strtol(value.c_str(), nullptr, 10);
  // long is wider than int only on some targets; this makes all of them agree.
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

bool TreeNode::getBoolValue() const { return getIntegerValue() != 0; }

TreeNode* TreeNode::getNextSubElem(TreeNode* current) const {
  if (current == nullptr) return children.empty() ? nullptr : children.front();
  auto at = std::find(children.begin(), children.end(), current);
  if (at == children.end() || ++at == children.end()) return nullptr;
  return *at;
}

bool TreeNode::removeElem(TreeNode* child) {
  const auto at = std::find(children.begin(), children.end(), child);
  if (at == children.end()) return false;
  child->clear();
  releaseEntry(child);
  children.erase(at);
  return true;
}

// clear() without the children, which are already released.
void TreeNode::releaseContent() {
  value.clear();
  key.clear();
  parent = nullptr;
  for (Attribute* attribute : attributes) releaseAttribute(attribute);
  attributes.clear();
}

// Descends to the first leaf and releases it, then continues with its next sibling or, after the
// last one, with its parent. The parent links give the way back, so that nothing is allocated: this
// runs in destructors. Each list of children is reversed so that the next child is the last
// element.
void TreeNode::clear() {
  TreeNode* node = this;
  std::reverse(children.begin(), children.end());
  while (true) {
    if (!node->children.empty()) {
      TreeNode* child = node->children.back();
      child->parent = node;
      std::reverse(child->children.begin(), child->children.end());
      node = child;
      continue;
    }
    TreeNode* above = node->parent;
    node->releaseContent();
    if (node == this) return;
    above->children.pop_back();
    releaseEntry(node);
    node = above;
  }
}

}  // namespace webs
