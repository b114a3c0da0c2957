// The XML and JSON text of TreeNode.
#include "webs/TreeNode.h"
#include "webs/TreeWalk.h"

namespace webs {
namespace {

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
