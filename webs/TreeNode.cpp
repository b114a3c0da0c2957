#include "webs/TreeNode.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "webs/TreeWalk.h"

namespace webs {

namespace {

// Limit of the objects that are kept. Compared with the number created, not with a station's size.
const int MAX_KEPT = 99;

util::NeverDestroyed<std::string> emptyString;

using Bytes = std::vector<unsigned char>;

// The key that the JSON scanner uses for a body without a name.
const char UNNAMED[] = "req";

void put(Bytes* out, const std::string& text) { out->insert(out->end(), text.begin(), text.end()); }

void put(Bytes* out, char c) { out->push_back(static_cast<unsigned char>(c)); }

void putQuoted(Bytes* out, const std::string& text) {
  put(out, '"');
  put(out, text);
  put(out, '"');
}

bool isEmptyElement(const TreeNode& node) {
  return node.numberOfElem() == 0 && node.getValue().empty();
}

void putStartTag(Bytes* out, const TreeNode& node) {
  put(out, '<');
  put(out, node.getKey());
  for (int i = 0; i < node.numberOfAttr(); i++) {
    put(out, ' ');
    put(out, node.getAttribute(i)->first);
    put(out, '=');
    putQuoted(out, node.getAttribute(i)->second);
  }
  put(out, isEmptyElement(node) ? "/>" : ">");
}

void putEndTag(Bytes* out, const TreeNode& node) {
  put(out, "</");
  put(out, node.getKey());
  put(out, '>');
}

// The scanner names the members of an array by runs of '['.
bool isArray(const TreeNode& node) {
  return node.numberOfElem() > 0 && node.getElem(0)->getKey().compare(0, 1, "[") == 0;
}

// Text of a node without children; above is its parent, null for a root.
void putChildless(Bytes* out, const TreeNode& node, const TreeNode* above) {
  if (above == nullptr || isArray(*above)) {
    put(out, "{}");
  } else if (node.getLeafFlag() || node.getValue().empty()) {
    putQuoted(out, node.getValue());
  } else {
    // The scanner reads an unquoted value up to a blank or a comma, past a closing brace: a blank
    // must follow it.
    put(out, node.getValue());
    put(out, ' ');
  }
}

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

// Lookups.

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

// The XML and JSON text.

void TreeNode::toXMLContent(Bytes* out) const {
  walkTree(
      this,
      [out](const TreeNode* node, const TreeNode*, int) {
        if (!node->getKey().empty()) putStartTag(out, *node);
        if (node->children.empty()) put(out, node->value);
        return false;
      },
      [out](const TreeNode* node) {
        if (!node->getKey().empty() && !isEmptyElement(*node)) putEndTag(out, *node);
      });
}

void TreeNode::toJSONContent(Bytes* out) const {
  if (parent == nullptr && !getKey().empty() && getKey() != UNNAMED) {
    put(out, getKey());
    put(out, " = ");
  }
  walkTree(
      this,
      [out](const TreeNode* node, const TreeNode* above, int index) {
        if (index > 0) put(out, ',');
        if (above != nullptr && !isArray(*above)) {
          put(out, node->getKey());
          put(out, ':');
        }
        if (node->children.empty()) {
          putChildless(out, *node, above != nullptr ? above : node->parent);
        } else {
          put(out, isArray(*node) ? '[' : '{');
        }
        return false;
      },
      [out](const TreeNode* node) {
        if (!node->children.empty()) put(out, isArray(*node) ? ']' : '}');
      });
}

}  // namespace webs
