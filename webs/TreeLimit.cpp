#include "webs/TreeLimit.h"

#include "util/Log.h"
#include "webs/NodeName.h"
#include "webs/TreeNode.h"

namespace webs {
namespace {

// A list entry; a list may be half empty.
const size_t PLACE = 2 * sizeof(void*);

}  // namespace

void TreeLimit::setTreeLimit(long long mostNodes, long long mostBytes) {
  maxNodes = mostNodes;
  maxBytes = mostBytes;
}

bool TreeLimit::takeNode(const std::string& name) {
  return take(1, sizeof(TreeNode) + PLACE + (NodeName::isShared(name) ? 0 : name.size()));
}

bool TreeLimit::takeAttribute(const std::string& name, const std::string& text) {
  return take(0, sizeof(TreeNode::Attribute) + PLACE + name.size() + text.size());
}

bool TreeLimit::takeText(size_t size) { return take(0, size); }

bool TreeLimit::mayHold(size_t size) {
  if (full) return false;
  if (maxBytes > 0 && bytes + static_cast<long long>(size) > maxBytes) return refuse();
  return true;
}

void TreeLimit::forgetTree() {
  nodes = 0;
  bytes = 0;
  full = false;
}

bool TreeLimit::take(long long newNodes, size_t newBytes) {
  if (full) return false;
  nodes += newNodes;
  bytes += static_cast<long long>(newBytes);
  if ((maxNodes > 0 && nodes > maxNodes) || (maxBytes > 0 && bytes > maxBytes)) return refuse();
  return true;
}

bool TreeLimit::refuse() {
  full = true;
  FLUVIA_LOG(-4, "the tree exceeds its limit of %lld nodes and %lld bytes", maxNodes, maxBytes);
  return false;
}

}  // namespace webs
